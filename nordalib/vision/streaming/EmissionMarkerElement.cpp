#include "nordalib/vision/streaming/EmissionMarkerElement.h"

#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/radiometry/Reanalysis.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace norda::exp::streaming {

using logging::LogLevel;
using Temp = quantity::Temperature<MarkedFloat>;
using Rel = quantity::Relation<MarkedFloat>;

namespace {
// Statuses that mean the input is wrong (reported), as opposed to what the scene shows.
bool isTrouble(const std::string& s) {
    return s == "NoCalibration" || s == "BadFrame" || s == "NotAligned" || s == "NoRadiometry";
}
// The label's mean and the surface's median stand for the true temperatures within about this
// (the detector's noise, the label's contact with the surface): an emissivity above 1 by no more
// than such errors explain is 1; beyond that, the label is not at the surface's temperature.
constexpr double kToleranceK = 0.2;
} // namespace

EmissionMarkerElement::EmissionMarkerElement(DataProxy<std::string>* proxy, uint8_t averaging,
                                             uint8_t minContrast, STREAMING_DATATYPE slot)
    : StreamingElement({slot, STREAMING_DATATYPE_RAD_CONST}, {}, "EmissionMarkerElement", nullptr, true, 0),
      m_proxy(proxy), m_averaging(std::max<uint8_t>(averaging, 1)), m_minContrast(minContrast), m_slot(slot),
      m_logger(logging::Logger::createSharedLogger("EMISSION_MARKER", true)) {
    if (!m_proxy)
        NORDA_THROW("Pointer to DataProxy is mandatory for this element!",
                    "norda::exp::streaming::EmissionMarkerElement::EmissionMarkerElement");
    m_applySubscription =
        m_proxy->subscribeValue<bool>(Id::EmissionMarker::Apply, [this](const bool& on) { apply(on); });
}

EmissionMarkerElement::~EmissionMarkerElement() {
    m_applySubscription.reset();
}

void EmissionMarkerElement::apply(bool requested) {
    if (!requested)
        return;
    const auto status = m_proxy->getValue<std::string>(Id::EmissionMarker::Status);
    const auto e = m_proxy->getValue<Rel>(Id::EmissionMarker::Emissivity).getValue();
    if (status == "Valid" && e.isValid()) {
        m_proxy->setValue(Id::Environment::EmissivityValue, e.toFloat(), true);
        m_logger->log(LogLevel::info, "emissivity {:.3f} of the reference label applied", e.toFloat());
    } else {
        m_logger->log(LogLevel::warning, "no valid emissivity to apply ({})", status);
    }
    m_proxy->setValue(Id::EmissionMarker::Apply, false, true);
}

bool EmissionMarkerElement::process(FrameMap& inputs, FrameMap& /*outputs*/) {
    auto& visual = inputs[m_slot];
    auto& temperatures = inputs[STREAMING_DATATYPE_RAD_CONST];
    if (!visual || !temperatures) {
        publish({"NoFrame"}); // a cycle without both frames (a host may run the element so)
        return false;
    }
    const Measurement m = measure(*visual, *temperatures);
    if (isTrouble(m.status) && m_trouble != m.status)
        m_logger->log(LogLevel::warning, "no emissivity: {}",
                      m.status == "NoCalibration" ? m_registration.error() : m.status);
    else if (!isTrouble(m.status) && !m_trouble.empty())
        m_logger->log(LogLevel::info, "emissivity measurement works again ({})", m.status);
    m_trouble = isTrouble(m.status) ? m.status : std::string();
    publish(m);
    return true;
}

EmissionMarkerElement::Measurement EmissionMarkerElement::measure(const Frame& visual,
                                                                  const Frame& temperatures) {
    Measurement m;
    const vision::Registration* registration =
        m_registration.get(m_proxy->getValue<std::string>(Id::Registration::CalibrationFile));
    if (!registration)
        return {"NoCalibration"};
    const cv::Mat& rad = temperatures.getFrameData();
    if (rad.type() != CV_16UC1 || rad.empty())
        return {"BadFrame"};

    // Both frames must show one moment (within half a frame).
    std::shared_ptr<Variant> stamp, uptime, period;
    if (visual.getMetaDate(Id::Viscam::Timestamp, stamp) &&
        temperatures.getMetaDate(Id::DeviceInfo::Uptime, uptime) && stamp->holds<unsigned long long>() &&
        uptime->holds<unsigned long long>()) {
        double half = 20.0;
        if (visual.getMetaDate(Id::Viscam::CaptureTime, period) && period->holds<float>())
            half = 0.5 * period->value<float>();
        const double dt =
            double(stamp->value<unsigned long long>()) - double(uptime->value<unsigned long long>());
        if (std::abs(dt) > half)
            return {"NotAligned"};
    }

    vision::EmissionMarkerFinder::Marker marker;
    vision::EmissionMarkerFinder::Result found;
    try {
        found = m_finder.find(visual.getFrameData(), *registration,
                              m_proxy->getValue<cv::Point_<int>>(Id::EmissionMarker::SearchPoint), rad.size(),
                              m_proxy->getValue<float>(Id::EmissionMarker::Size), marker);
    } catch (const std::exception&) {
        return {"BadFrame"};
    }
    m.rect = marker.infraredBox;
    if (found != vision::EmissionMarkerFinder::Result::Found) {
        m.status = vision::EmissionMarkerFinder::name(found);
        return m;
    }

    // The object side of the camera model as the frame was computed.
    const auto& meta = temperatures.getMetaData();
    std::shared_ptr<Variant> planckValue = meta.getVariant(Id::Radiometry::Planck);
    if (!planckValue || !planckValue->holds<std::vector<double>>() ||
        (planckValue->value<std::vector<double>>().size() != 5 &&
         planckValue->value<std::vector<double>>().size() != 6))
        return {"NoRadiometry", 0, 0, m.rect};
    const auto& pc = planckValue->value<std::vector<double>>();
    const vision::Reanalysis model(vision::PlanckConstants::fromVector(pc));
    vision::ObjectParameters frame;
    try {
        frame.emissivity = meta.get<float>(Id::Environment::EmissivityValue);
        frame.reflectedK =
            meta.get<Temp>(Id::Environment::ReflectedTemperature).in(quantity::TemperatureUnit::Kelvin);
        if (meta.contains(Id::ProtectiveGlass::Attached) && meta.get<bool>(Id::ProtectiveGlass::Attached)) {
            frame.tauPg = meta.get<float>(Id::ProtectiveGlass::Transmission);
            frame.emisPg = meta.get<float>(Id::ProtectiveGlass::Emissivity);
        }
        frame.validate();
    } catch (const std::exception&) {
        return {"NoRadiometry", 0, 0, m.rect};
    }

    // Encoded 0 and 65535 mean below and beyond the scale: no temperature to average.
    for (const auto* pixels : {&marker.label, &marker.surface})
        for (const auto& p : *pixels) {
            const uint16_t v = rad.at<uint16_t>(p);
            if (v == 0 || v == 65535)
                return {v == 0 ? "UnderRange" : "OverRange", 0, 0, m.rect};
        }
    auto kelvin = [&](cv::Point p) { return rad.at<uint16_t>(p) / 100.0; };
    double labelK = 0;
    for (const auto& p : marker.label)
        labelK += kelvin(p);
    labelK /= double(marker.label.size());
    std::vector<double> ring;
    for (const auto& p : marker.surface)
        ring.push_back(kelvin(p));
    std::nth_element(ring.begin(), ring.begin() + ring.size() / 2, ring.end());
    const double surfaceK = ring[ring.size() / 2];
    std::vector<double> deviation;
    for (double k : ring)
        deviation.push_back(std::abs(k - surfaceK));
    std::nth_element(deviation.begin(), deviation.begin() + deviation.size() / 2, deviation.end());
    if (deviation[deviation.size() / 2] > 0.5)
        return {"SurfaceNotUniform", 0, 0, m.rect};

    vision::ObjectParameters label = frame;
    label.emissivity = m_proxy->getValue<float>(Id::EmissionMarker::MarkerEmissivity);
    const double trueK = model.convert(labelK, frame, label);
    m.trueC = trueK - 273.15;
    if (!std::isfinite(trueK) || std::abs(trueK - frame.reflectedK) < m_minContrast)
        return {"LowContrast", 0, m.trueC, m.rect};
    const double e = model.emissivity(surfaceK, trueK, frame);
    // The least emissivity the temperatures' errors allow: both moved to lower it.
    const double towards = trueK > frame.reflectedK ? 1.0 : -1.0;
    const double least =
        model.emissivity(surfaceK - towards * kToleranceK, trueK + towards * kToleranceK, frame);
    if (!std::isfinite(e) || e < 0.02 || (e > 1.0 && !(least <= 1.0)))
        return {"Implausible", 0, m.trueC, m.rect};
    m.emissivity = std::min(e, 1.0);
    m.status = "Valid";
    return m;
}

void EmissionMarkerElement::publish(const Measurement& m) {
    Measurement out = m;
    if (m.status == "Valid") {
        // Average over the same label; a label elsewhere starts afresh.
        if ((m.rect & m_recentRect).area() < m.rect.area() / 2)
            m_recent.clear();
        m_recentRect = m.rect;
        m_recent.push_back(m.emissivity);
        while (m_recent.size() > m_averaging)
            m_recent.pop_front();
        out.emissivity = std::accumulate(m_recent.begin(), m_recent.end(), 0.0) / double(m_recent.size());
        if (m_recent.size() < m_averaging)
            out.status = "Measuring";
    } else {
        m_recent.clear();
    }
    const bool valid = out.status == "Valid";
    const bool changed = out.status != m_status;
    m_status = out.status;
    const auto mark = valid ? MarkedFloat::Valid : MarkedFloat::MarkedFloatValidity(1);
    m_proxy->setValue(Id::EmissionMarker::Emissivity, Rel(MarkedFloat(float(out.emissivity), mark)),
                      valid || changed);
    m_proxy->setValue(Id::EmissionMarker::SurfaceTemperature, Temp(MarkedFloat(float(out.trueC), mark)),
                      false);
    m_proxy->setValue(Id::EmissionMarker::Rect, cv::Rect_<int>(out.rect), false);
    m_proxy->setValue(Id::EmissionMarker::Status, out.status, changed);
}

} // namespace norda::exp::streaming
