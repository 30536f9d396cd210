#include "apps/nordacam/Overlay.h"

#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/logging/Logger.h"

namespace nordacam {

using namespace norda::exp;
using namespace norda::vision;

OverlayPublisher::OverlayPublisher(DataProxy<std::string>& store) : m_store(store) {
    m_subscription =
        m_store.subscribeValue<bool>(Id::Miscellaneous::SpinnerVisible, [this](const bool& saving) {
            if (saving)
                publish();
        });
}

OverlayPublisher::~OverlayPublisher() {
    m_subscription.reset();
}

void OverlayPublisher::publish() {
    try {
        const cv::Size size(m_store.getValue<unsigned short>(Id::IrImage::Cols),
                            m_store.getValue<unsigned short>(Id::IrImage::Rows));
        OverlayContent content = overlayContent(storeLookup(m_store), size, overlayDateTime());
        // The picture insets the infrared image as the display does (the fusion element publishes
        // where): the marks go where what they mark is shown.
        if (m_store.getValue<bool>(Id::Fusion::InJpeg) &&
            m_store.getValue<std::string>(Id::Fusion::Mode) == Id::Fusion::PictureInPicture)
            content.infraredPlacement = m_store.getValue<std::vector<double>>(Id::Fusion::InfraredPlacement);
        const cv::Mat overlay = ThermalOverlay::render(content);
        m_store.setValue(Id::Images::GuiJpeg, overlay, false);
    } catch (const std::exception& e) {
        norda::logging::Logger::createSharedLogger("NORDACAM", true)
            ->log(norda::logging::LogLevel::error, "overlay not drawn: {}", e.what());
    }
}

} // namespace nordacam
