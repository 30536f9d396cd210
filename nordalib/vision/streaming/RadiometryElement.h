#pragma once
// RadiometryElement: offset-corrected frame (slot 2, CV_16S) -> temperature frame (slot 3, CV_16U).
//
// The frame's environment and sensor temperatures go to a radiometry model (type A or B by camera
// family), loaded on the first frame and reloaded on Id::Streaming::UpdateValues. Failures never
// stop the stream: a frame whose conditions cannot be read is dropped, and after the error budget
// of 100 frames is spent, after a processing failure or without a valid lens the element emits a
// dummy frame (signed raw shifted into the unsigned range) marked Id::Temperatures::Validity false.
// Each episode of trouble logs one message, its end one more.
//
// Keys: Id::Streaming::UpdateValues (observed), Id::IrImage::Cols/Rows and
// Id::DeviceFeatures::FastFrameAvailable (read on load), Id::Laser::Status/Distance (read per frame
// with the distance from the laser on); frame metadata as in setMetaData(), the air and window
// through ObjectParameterKeys.

#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/radiometry/RadiometricCamType.h"
#include "nordalib/vision/radiometry/RadiometryBase.h"
#include "nordalib/vision/streaming/StreamingElement.h"

#include <atomic>
#include <memory>
#include <string>

namespace norda::exp::streaming {

class RadiometryElement : public StreamingElement {
public:
    RadiometryElement(DataProxy<std::string>* dataProxy, const std::string& calibrationPath,
                      vision::RadiometricCamType camType);
    ~RadiometryElement() override;

    bool process(FrameMap& inputs, FrameMap& outputs) override;

private:
    void loadRadiometry();
    void setMetaData(DataStorage<std::string>& metaData);
    void useLaserDistance(DataStorage<std::string>& metaData) const;
    void emitDummy(const cv::Mat& input, DataStorage<std::string>&& metaData, FrameMap& outputs);

    std::unique_ptr<vision::RadiometryBase> m_model;
    int32_t m_errorBudget = 100;
    vision::RadiometricCamType m_camType;
    bool m_healthy = true;
    std::shared_ptr<logging::Logger> m_log;
    std::atomic<bool> m_reload{true};
    std::string m_calibrationPath;
    DataProxy<std::string>* m_dataProxy;
    Subscription m_updateObserver; // last: detached before anything it touches
};

} // namespace norda::exp::streaming
