#include "nordalib/vision/streaming/UserMeasurementElement.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/keys/KeySchema.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/climate/DewPoint.h"
#include "nordalib/vision/measurement/MeasurementStatistics.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

namespace norda::exp::streaming {

using logging::LogLevel;
using vision::MeasurementStatistics;
using vision::ObjectParameters;
using vision::RadiometricTools;

namespace {

MarkedFloat celsiusOf(const quantity::Temperature<MarkedFloat>& t) {
    return t.convertTo(quantity::TemperatureUnit::Celsius).getValue();
}

} // namespace

struct UserMeasurementElement::Context {
    Frame& frame;
    const cv::Mat& img;
    MeasRangeBorders borders;
    bool humidityMode;
    Relation humidity;
    Temperature air;

    void publish(DataProxy<std::string>& store, const std::string& key, std::shared_ptr<Variant> value) {
        store.set(key, value, true);
        frame.replaceMetaDate(key, std::move(value));
    }
    // A setting copied into the frame, so that it is saved with the image.
    void stamp(DataProxy<std::string>& store, const std::string& key) {
        frame.replaceMetaDate(key, store.get(key));
    }
};

UserMeasurementElement::UserMeasurementElement(DataProxy<std::string>* proxy, STREAMING_DATATYPE slot)
    : StreamingElement({slot}, {slot}, "UserMeasurementElement", proxy, false, 0), m_pDataProxy(proxy),
      m_slot(slot), m_log(logging::Logger::createSharedLogger("USER_MEAS", true)) {
    if (!proxy)
        NORDA_THROW("Pointer to DataProxy is mandatory for this element!",
                    "norda::exp::streaming::UserMeasurementElement::UserMeasurementElement");
}

bool UserMeasurementElement::process(FrameMap& inputs, FrameMap& outputs) {
    std::unique_ptr<Frame>& frame = inputs[m_slot];
    if (frame && !frame->getFrameData().empty() && frame->getFrameData().type() == CV_16UC1) {
        auto& s = *m_pDataProxy;
        Context c{*frame,
                  frame->getFrameData(),
                  {},
                  s.getValue<bool>(Id::Environment::HumidityModeActive),
                  s.getValue<Relation>(Id::Environment::Humidity),
                  s.getValue<Temperature>(Id::Environment::Temperature)};
        c.borders.toleranceTop = celsiusOf(s.getValue<Temperature>(Id::ActiveMeasRange::ToleranceTop));
        c.borders.toleranceBottom = celsiusOf(s.getValue<Temperature>(Id::ActiveMeasRange::ToleranceBottom));
        c.borders.displayTop = celsiusOf(s.getValue<Temperature>(Id::ActiveMeasRange::DisplayTop));
        c.borders.displayBottom = celsiusOf(s.getValue<Temperature>(Id::ActiveMeasRange::DisplayBottom));
        m_conversion.setFrame(frame->getMetaData());
        m_values.clear();
        measurePoints(c);
        measureAreas(c);
        measureDeltaT(c);
    }
    passThrough(inputs, m_slot, outputs, m_slot);
    return true;
}

UserMeasurementElement::Local UserMeasurementElement::localParameters(Context& c, const std::string& name,
                                                                      const std::string& onKey,
                                                                      const std::string& emissivityKey,
                                                                      const std::string& reflectedKey,
                                                                      const std::string& distanceKey) {
    auto& s = *m_pDataProxy;
    c.stamp(s, onKey);
    c.stamp(s, emissivityKey);
    c.stamp(s, reflectedKey);
    c.stamp(s, distanceKey);
    if (!s.getValue<bool>(onKey))
        return {};
    if (!m_conversion.available()) {
        warnOnce(name, "local parameters of " + name +
                           " can not be applied: the frame carries no Planck constants or object parameters");
        return {std::nullopt, true};
    }
    try {
        auto p = m_conversion.local(s.getValue<float>(emissivityKey),
                                    s.getValue<Temperature>(reflectedKey).kelvin(),
                                    s.getValue<float>(distanceKey));
        clearWarning(name);
        return {p, false};
    } catch (const std::exception& e) {
        warnOnce(name, "local parameters of " + name + " can not be applied: " + e.what());
        return {std::nullopt, true};
    }
}

MeasPoint UserMeasurementElement::measurePoint(Context& c, const std::string& name, cv::Point at,
                                               unsigned short raw, const Local& local) {
    // The mark tells what the sensor saw, so it is taken from the measured pixel.
    Temperature t = MeasurementStatistics::markValidity(raw, c.borders);
    MarkedFloat value = t.getValue();
    if (local.params) {
        value = MarkedFloat(RadiometricTools::getFloat(m_conversion.pixel(raw, *local.params)),
                            value.getValidity());
    } else if (local.degraded) {
        value.setMark(MarkedFloat::OutOfTolerance); // local parameters asked for but not applied
    }
    t = Temperature(value, quantity::TemperatureUnit::Celsius);
    m_values[name] = value.toFloat();
    const auto x = static_cast<unsigned short>(at.x), y = static_cast<unsigned short>(at.y);
    if (!c.humidityMode)
        return MeasPoint(x, y, t);
    return MeasPoint(x, y, vision::DewPoint::calcSurfaceMoisture(t, c.air, c.humidity));
}

void UserMeasurementElement::measurePoints(Context& c) {
    auto& s = *m_pDataProxy;
    for (const auto& p : userMarks()) {
        if (p.area)
            continue;
        const std::string& name = p.name;
        c.stamp(s, p.visible);
        c.stamp(s, p.position);
        const auto local =
            localParameters(c, name, p.localParameters, p.emissivity, p.reflectedTemperature, p.distance);
        if (!s.getValue<bool>(p.visible))
            continue;
        const auto position = s.getValue<cv::Point_<int>>(p.position);
        const cv::Point at(std::clamp(position.x, 0, c.img.cols - 1),
                           std::clamp(position.y, 0, c.img.rows - 1));
        const MeasPoint point = measurePoint(c, name, at, c.img.at<unsigned short>(at), local);
        c.publish(s, p.result, makeVariant(point));
    }
}

void UserMeasurementElement::measureAreas(Context& c) {
    auto& s = *m_pDataProxy;
    for (const auto& a : userMarks()) {
        if (!a.area)
            continue;
        const std::string& name = a.name;
        c.stamp(s, a.visible);
        c.stamp(s, a.rect);
        const auto local =
            localParameters(c, name, a.localParameters, a.emissivity, a.reflectedTemperature, a.distance);
        if (!s.getValue<bool>(a.visible))
            continue;
        const cv::Rect rect = s.getValue<cv::Rect_<int>>(a.rect) & cv::Rect(0, 0, c.img.cols, c.img.rows);
        if (rect.empty()) {
            warnOnce(name + ".Rect", name + " lies outside the image and is not measured");
            continue;
        }
        clearWarning(name + ".Rect");
        const auto e = MeasurementStatistics::scanArea(c.img, rect);
        MeasArea area(static_cast<unsigned short>(rect.x), static_cast<unsigned short>(rect.y),
                      static_cast<unsigned short>(rect.width), static_cast<unsigned short>(rect.height));
        area.setHotSpot(measurePoint(c, name + ".Hot", e.hot, e.maxRaw, local));
        area.setColdSpot(measurePoint(c, name + ".Cold", e.cold, e.minRaw, local));
        // The mean of the converted pixels: the conversion is not linear.
        unsigned short meanRaw = e.mean;
        if (local.params) {
            const auto& table = m_conversion.table(*local.params);
            uint64_t sum = 0;
            for (int r = rect.y; r < rect.y + rect.height; ++r) {
                const unsigned short* p = c.img.ptr<unsigned short>(r) + rect.x;
                for (int x = 0; x < rect.width; ++x)
                    sum += table(0, p[x]);
            }
            meanRaw = static_cast<unsigned short>(static_cast<double>(sum) / rect.area() + 0.5);
        }
        Temperature mean = MeasurementStatistics::markValidity(meanRaw, c.borders);
        if (local.params) // the mark of the measured mean, the value of the converted one
            mean = Temperature(
                MarkedFloat(mean.celsius(),
                            MeasurementStatistics::markValidity(e.mean, c.borders).getValue().getValidity()),
                quantity::TemperatureUnit::Celsius);
        else if (local.degraded)
            mean = Temperature(MarkedFloat(mean.celsius(), MarkedFloat::OutOfTolerance),
                               quantity::TemperatureUnit::Celsius);
        m_values[name] = mean.celsius();
        if (c.humidityMode)
            area.setMeanValue(vision::DewPoint::calcSurfaceMoisture(mean, c.air, c.humidity));
        else
            area.setMeanValue(mean);
        c.publish(s, a.result, makeVariant(area));
    }
}

void UserMeasurementElement::measureDeltaT(Context& c) {
    auto& s = *m_pDataProxy;
    c.stamp(s, Id::DeltaT::Active);
    c.stamp(s, Id::DeltaT::First);
    c.stamp(s, Id::DeltaT::Second);
    if (!s.getValue<bool>(Id::DeltaT::Active))
        return;
    // Results of the min/max extraction come from the frame (or the store, between its evaluations).
    auto valueOf = [&](const std::string& name, float& out) {
        if (auto it = m_values.find(name); it != m_values.end()) {
            out = it->second;
            return true;
        }
        const std::string key = "MeasPoints." + name + ".MeasPoint";
        std::shared_ptr<Variant> v = c.frame.getMetaData().getVariant(key);
        if (!v && s.contains(key))
            v = s.get(key);
        if (!v || !v->holds<MeasPoint>())
            return false;
        const auto& value = v->value<MeasPoint>().getValue();
        if (!value || !value->holds<Temperature>())
            return false;
        out = value->value<Temperature>().celsius();
        return true;
    };
    float first = 0, second = 0;
    const auto a = s.getValue<std::string>(Id::DeltaT::First),
               b = s.getValue<std::string>(Id::DeltaT::Second);
    if (!valueOf(a, first) || !valueOf(b, second)) {
        warnOnce("DeltaT", "delta-T between " + a + " and " + b + ": one of them is not measured");
        return;
    }
    clearWarning("DeltaT");
    c.publish(s, Id::DeltaT::Difference, makeVariant(first - second));
}

void UserMeasurementElement::warnOnce(const std::string& what, const std::string& message) {
    if (m_warned.insert(what).second)
        m_log->log(LogLevel::warning, "{}", message);
}

void UserMeasurementElement::clearWarning(const std::string& what) {
    m_warned.erase(what);
}

} // namespace norda::exp::streaming
