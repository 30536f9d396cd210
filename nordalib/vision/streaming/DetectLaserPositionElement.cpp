#include "nordalib/vision/streaming/DetectLaserPositionElement.h"

#include "nordalib/core/keys/Keys.h"

#include <cmath>

namespace norda::exp::streaming {

using logging::LogLevel;

namespace {
const std::string kFound = "Found", kNotFound = "NotFound", kAmbiguous = "Ambiguous",
                  kOutside = "OutsideInfrared", kNoCalibration = "NoCalibration", kBadFrame = "BadFrame",
                  kStale = "StaleFrame";
}

DetectLaserPositionElement::DetectLaserPositionElement(DataProxy<std::string>* proxy, STREAMING_DATATYPE slot)
    : StreamingElement({slot, STREAMING_DATATYPE_RAD}, {slot}, "DetectLaserPositionElement", nullptr, false,
                       0),
      m_proxy(proxy), m_slot(slot), m_logger(logging::Logger::createSharedLogger("LASER_POS", true)) {
    if (!m_proxy)
        NORDA_THROW("Pointer to DataProxy is mandatory for this element!",
                    "norda::exp::streaming::DetectLaserPositionElement::DetectLaserPositionElement");
}

bool DetectLaserPositionElement::process(FrameMap& inputs, FrameMap& /*outputs*/) {
    auto& entry = inputs[m_slot];
    auto& temperatures = inputs[STREAMING_DATATYPE_RAD];
    if (!entry || !temperatures) {
        // No visual or temperature frame this cycle (a host may run the element without one): no
        // spot, rather than the last one's position for a scene that has moved on.
        publish("NoFrame", nullptr, {});
        return false;
    }
    const std::string status = locate(*entry, temperatures->getFrameData().size());
    const bool trouble = status == kNoCalibration || status == kBadFrame || status == kStale;
    if (!trouble && !m_trouble.empty()) {
        m_logger->log(LogLevel::info, "laser spot search works again ({})", status);
        m_trouble.clear();
    }
    return true; // the frame stays where it is: input and output are the same slot
}

void DetectLaserPositionElement::report(const std::string& status, const std::string& detail) {
    if (m_trouble != status)
        m_logger->log(LogLevel::warning, "no laser spot: {}", detail);
    m_trouble = status;
    publish(status, nullptr, {});
}

std::string DetectLaserPositionElement::locate(const Frame& frame, cv::Size irSize) {
    const vision::Registration* registration =
        m_registration.get(m_proxy->getValue<std::string>(Id::Registration::CalibrationFile));
    if (!registration) {
        report(kNoCalibration, m_registration.error());
        return kNoCalibration;
    }

    // A frame must be newer than the last (a repeated or late frame shows another moment).
    std::shared_ptr<Variant> stamp;
    if (frame.getMetaDate(Id::Viscam::Timestamp, stamp) && stamp->holds<unsigned long long>()) {
        const auto t = stamp->value<unsigned long long>();
        const bool stale = m_haveTimestamp && t <= m_lastTimestamp;
        if (!stale) {
            m_lastTimestamp = t;
            m_haveTimestamp = true;
        } else {
            report(kStale, "visual frame of " + std::to_string(t) + " ms is not newer than the last (" +
                               std::to_string(m_lastTimestamp) + " ms)");
            return kStale;
        }
    }

    vision::LaserSpotDetector::Spot spot;
    vision::LaserSpotDetector::Result result;
    try {
        result = m_detector.detect(frame.getFrameData(), *registration, irSize, spot);
    } catch (const std::exception& e) {
        report(kBadFrame, e.what());
        return kBadFrame;
    }
    if (result != vision::LaserSpotDetector::Result::Found) {
        const auto& status = result == vision::LaserSpotDetector::Result::Ambiguous ? kAmbiguous : kNotFound;
        publish(status, nullptr, {});
        return status;
    }
    cv::Point2d ir = spot.fix.infrared;
    if (!m_proxy->getValue<bool>(Id::Registration::UseLaserDistance))
        ir = registration->visualToInfrared(spot.visual, m_proxy->getValue<float>(Id::Registration::Distance),
                                            frame.getFrameData().size(), irSize);
    // Rounded only to decide which pixel the spot lies on.
    const cv::Point pixel(int(std::lround(ir.x)), int(std::lround(ir.y)));
    if (!cv::Rect(cv::Point(0, 0), irSize).contains(pixel)) {
        publish(kOutside, nullptr, {});
        return kOutside;
    }
    publish(kFound, &spot, ir);
    return kFound;
}

void DetectLaserPositionElement::publish(const std::string& status,
                                         const vision::LaserSpotDetector::Spot* spot, cv::Point2d infrared) {
    // Observers hear of a spot coming and going; positions follow every frame quietly.
    const bool changed = status != m_status;
    m_status = status;
    m_proxy->setValue(Id::Laser::Status, status, changed);
    if (spot) {
        // The measurement point needs a pixel; the position itself stays sub-pixel.
        m_proxy->setValue(Id::MeasPoints::LaserSpot::Position,
                          cv::Point_<int>(int(std::lround(infrared.x)), int(std::lround(infrared.y))), false);
        m_proxy->setValue(Id::Laser::InfraredPosition, std::vector<double>{infrared.x, infrared.y}, false);
        m_proxy->setValue(Id::Laser::Distance, float(spot->fix.distance), false);
        m_proxy->setValue(Id::Laser::VisualPosition,
                          cv::Point_<int>(int(std::lround(spot->visual.x)), int(std::lround(spot->visual.y))),
                          false);
    } else {
        m_proxy->setValue(Id::Laser::Distance, 0.0f, false);
    }
    m_proxy->setValue(Id::MeasPoints::LaserSpot::Visible, spot != nullptr, changed);
}

} // namespace norda::exp::streaming
