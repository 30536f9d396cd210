#pragma once
// BadPixelElement: replaces the sensor's bad pixels in the frames of one slot (in place) by values
// interpolated from their good neighbours; clusters are filled from the nearest good pixels.
//
// Keys: Id::IrSensor::BadPixelList (std::vector<vision::BadPixel>; read at construction when
// present, then observed). The replacement plan is rebuilt when the list or the frame size changes.
// Frames must be CV_16UC1 or CV_16SC1; anything else throws.

#include "nordalib/vision/imgproc/BadPixel.h"
#include "nordalib/vision/imgproc/BadPixelCorrector.h"
#include "nordalib/vision/streaming/StreamingElement.h"

#include <mutex>
#include <string>

namespace norda::exp::streaming {

class BadPixelElement : public StreamingElement {
public:
    BadPixelElement(DataProxy<std::string>* dataProxy, const std::string& name, STREAMING_DATATYPE slot);
    ~BadPixelElement() override;

    bool process(FrameMap& inputs, FrameMap& outputs) override;

    // Pixels replaced in the last frame.
    size_t replacedPixels() const { return m_corrector.replaced(); }

private:
    void setList(const vision::BadPixelList& list);

    STREAMING_DATATYPE m_slot;
    std::mutex m_listMutex; // the list arrives on the store's thread
    vision::BadPixelList m_pending;
    bool m_changed = false;
    vision::BadPixelList m_list;
    vision::BadPixelCorrector m_corrector;
    Subscription m_listObserver; // last: detached first
};

} // namespace norda::exp::streaming
