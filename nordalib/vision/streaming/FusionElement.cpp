#include "nordalib/vision/streaming/FusionElement.h"

#include "nordalib/core/keys/Keys.h"

namespace norda::exp::streaming {

using logging::LogLevel;

FusionElement::FusionElement(DataProxy<std::string>* proxy, STREAMING_DATATYPE visualSlot)
    : StreamingElement({STREAMING_DATATYPE_RGB, visualSlot}, {STREAMING_DATATYPE_RGB}, "FusionElement",
                       nullptr, false, 0),
      m_proxy(proxy), m_slot(visualSlot), m_logger(logging::Logger::createSharedLogger("FUSION", true)) {
    if (!m_proxy)
        NORDA_THROW("Pointer to DataProxy is mandatory for this element!",
                    "norda::exp::streaming::FusionElement::FusionElement");
}

bool FusionElement::process(FrameMap& inputs, FrameMap& outputs) {
    auto& display = inputs[STREAMING_DATATYPE_RGB];
    auto& visual = inputs[m_slot];
    if (!display || !visual)
        return false;
    std::string trouble;
    try {
        const auto mode = vision::Fusion::modeOf(m_proxy->getValue<std::string>(Id::Fusion::Mode));
        if (mode == vision::FusionMode::Off) {
            m_trouble.clear();
            publishPlacement({});
            return true;
        }
        const vision::Registration* registration =
            m_registration.get(m_proxy->getValue<std::string>(Id::Registration::CalibrationFile));
        if (!registration)
            throw Exception(m_registration.error(), "");
        cv::Mat fused = m_fusion.compose(mode, display->getFrameData(), visual->getFrameData(), *registration,
                                         distance(*m_proxy), m_proxy->getValue<float>(Id::Fusion::Alpha));
        emit(outputs, STREAMING_DATATYPE_RGB, std::make_unique<Frame>(fused, display->releaseMetaData()));
        publishPlacement(mode == vision::FusionMode::PictureInPicture ? m_fusion.infraredPlacement()
                                                                      : std::vector<double>());
    } catch (const std::exception& e) {
        trouble = e.what();
    }
    if (!trouble.empty() && trouble != m_trouble)
        m_logger->log(LogLevel::warning, "display without fusion: {}", trouble);
    else if (trouble.empty() && !m_trouble.empty())
        m_logger->log(LogLevel::info, "fusion works again");
    m_trouble = trouble;
    return trouble.empty();
}

// Written only when it changes: the viewer reads it every refresh, the store need not hear it
// every frame.
void FusionElement::publishPlacement(const std::vector<double>& placement) {
    if (placement == m_placement)
        return;
    m_placement = placement;
    m_proxy->setValue(Id::Fusion::InfraredPlacement, placement);
}

double FusionElement::distance(DataProxy<std::string>& proxy) {
    double d = proxy.getValue<float>(Id::Registration::Distance);
    if (proxy.getValue<bool>(Id::Registration::UseLaserDistance) &&
        proxy.getValue<std::string>(Id::Laser::Status) == "Found")
        d = proxy.getValue<float>(Id::Laser::Distance);
    return std::max(0.1, d);
}

} // namespace norda::exp::streaming
