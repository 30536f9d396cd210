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
        const cv::Mat overlay =
            ThermalOverlay::render(overlayContent(storeLookup(m_store), size, overlayDateTime()));
        m_store.setValue(Id::Images::GuiJpeg, overlay, false);
    } catch (const std::exception& e) {
        norda::logging::Logger::createSharedLogger("NORDACAM", true)
            ->log(norda::logging::LogLevel::error, "overlay not drawn: {}", e.what());
    }
}

} // namespace nordacam
