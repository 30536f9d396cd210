#include "nordalib/vision/streaming/BadPixelElement.h"

#include "nordalib/core/keys/Keys.h"

namespace norda::exp::streaming {

BadPixelElement::BadPixelElement(DataProxy<std::string>* dataProxy, const std::string& name,
                                 STREAMING_DATATYPE slot)
    : StreamingElement({slot}, {slot}, name, dataProxy, false, 0), m_slot(slot) {
    if (!dataProxy)
        NORDA_THROW("Pointer to DataProxy is mandatory for this element!",
                    "norda::exp::streaming::BadPixelElement::BadPixelElement");
    if (auto v = dataProxy->contains(Id::IrSensor::BadPixelList) ? dataProxy->get(Id::IrSensor::BadPixelList)
                                                                 : nullptr)
        setList(v->value<vision::BadPixelList>());
    else
        dataProxy->setValue(Id::IrSensor::BadPixelList, vision::BadPixelList{}, false);
    m_listObserver = dataProxy->subscribeValue<vision::BadPixelList>(
        Id::IrSensor::BadPixelList, [this](const vision::BadPixelList& list) { setList(list); });
}

BadPixelElement::~BadPixelElement() {
    m_listObserver.reset();
}

void BadPixelElement::setList(const vision::BadPixelList& list) {
    std::lock_guard<std::mutex> lock(m_listMutex);
    m_pending = list;
    m_changed = true;
}

bool BadPixelElement::process(FrameMap& inputs, FrameMap& outputs) {
    auto& frame = inputs[m_slot];
    cv::Mat& image = frame->getFrameData();
    if (image.type() != CV_16UC1 && image.type() != CV_16SC1)
        NORDA_THROW("frame must be CV_16UC1 or CV_16SC1", "norda::exp::streaming::BadPixelElement::process");
    {
        std::lock_guard<std::mutex> lock(m_listMutex);
        if (m_changed) {
            m_list = std::move(m_pending);
            m_changed = false;
            m_corrector = vision::BadPixelCorrector();
        }
    }
    if (m_corrector.size() != image.size())
        m_corrector = vision::BadPixelCorrector(m_list, image.size());
    if (!m_corrector.empty())
        m_corrector.apply(image);
    passThrough(inputs, m_slot, outputs, m_slot);
    return true;
}

} // namespace norda::exp::streaming
