#pragma once
// GainElement: divides each offset-corrected frame by the detector's per-pixel gain (see
// GainTable), in place, so that the pixels' responsivity spread does not show as a fixed pattern
// growing with the scene's distance from the shutter's temperature. Runs right after OffsetElement.
//
// Slots: STREAMING_DATATYPE_CORRECTED in and out (CV_16SC1).
// Keys: Id::Streaming::UpdateValues (observed: true reloads the table).
// Calibration file: calibration path + "gain.pxm". Without it (older calibration folders), or when
// it is damaged or of another size than the frames, frames pass unchanged and the log says why.

#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/imgproc/GainTable.h"
#include "nordalib/vision/streaming/StreamingElement.h"

#include <mutex>
#include <string>

namespace norda::exp::streaming {

class GainElement : public StreamingElement {
public:
    // The calibration path is a directory prefix ending with a separator.
    GainElement(DataProxy<std::string>* dataProxy, const std::string& calibrationPath);
    ~GainElement() override;

    bool process(FrameMap& inputs, FrameMap& outputs) override;

    // Whether a table is loaded (it corrects frames of its size).
    bool loaded() const;

private:
    void load();

    std::string m_file;
    std::shared_ptr<logging::Logger> m_log;
    mutable std::mutex m_mutex; // the reload arrives on the store's thread
    vision::GainTable m_table;
    bool m_sizeReported = false;
    Subscription m_updateObserver; // last: detached first
};

} // namespace norda::exp::streaming
