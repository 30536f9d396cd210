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

void OverlayPublisher::frameShown(DataStorage<std::string> metadata, cv::Size imageSize) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_frame = std::move(metadata);
    m_size = imageSize;
}

void OverlayPublisher::publish() {
    try {
        DataStorage<std::string> frame;
        cv::Size size;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            frame = m_frame;
            size = m_size;
        }
        if (size.empty())
            return;
        // The picture insets the infrared image as the display does (the fusion element publishes
        // where): the marks go where what they mark is shown.
        std::vector<double> placement;
        if (m_store.getValue<bool>(Id::Fusion::InJpeg) &&
            m_store.getValue<std::string>(Id::Fusion::Mode) == Id::Fusion::PictureInPicture)
            placement = m_store.getValue<std::vector<double>>(Id::Fusion::InfraredPlacement);
        m_store.setValue(Id::Images::GuiJpeg, frameOverlay(frame, size, placement), false);
    } catch (const std::exception& e) {
        norda::logging::Logger::createSharedLogger("NORDACAM", true)
            ->log(norda::logging::LogLevel::error, "overlay not drawn: {}", e.what());
    }
}

} // namespace nordacam
