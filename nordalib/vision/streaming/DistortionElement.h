#pragma once
// DistortionElement: removes the lens distortion from the temperature frame (slot 3, in place) with
// the table of calibration path + "distort.pxm". Type B cameras have interchangeable lenses: their
// table, calibration path + "lens<index>/distort.pxm", is reloaded whenever Id::ActiveLens::Index
// changes; a lens without a table leaves frames uncorrected.
//
// Keys: Id::IrImage::Cols/Rows (read at construction), Id::ActiveLens::Index (frame metadata, type
// B), "DistortionElement.Active" (written false while no table is loaded, true when a lens change
// brings one). Frames pass uncorrected while no table is loaded. Lens messages go to the logger
// "DISTORTION".

#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/imgproc/DistortionCorrection.h"
#include "nordalib/vision/radiometry/RadiometricCamType.h"
#include "nordalib/vision/streaming/StreamingElement.h"

#include <memory>
#include <string>

namespace norda::exp::streaming {

class DistortionElement : public StreamingElement {
public:
    static constexpr const char* kName = "Distortion";
    static constexpr const char* kTypeName = "DistortionElement";

    DistortionElement(DataProxy<std::string>* dataProxy, const std::string& calibrationPath,
                      vision::RadiometricCamType camType);
    ~DistortionElement() override;

    bool process(FrameMap& inputs, FrameMap& outputs) override;

    bool ready() const { return m_correction.ready(); }

private:
    void load(const std::string& file, uint16_t rows, uint16_t cols);

    vision::DistortionCorrection<unsigned short> m_correction;
    DataProxy<std::string>* m_dataProxy;
    vision::RadiometricCamType m_camType;
    uint8_t m_lensIndex = 0;
    std::string m_calibrationPath;
    std::shared_ptr<logging::Logger> m_log;
    bool m_announcedActive = true; // last activity value observers were told of
};

} // namespace norda::exp::streaming
