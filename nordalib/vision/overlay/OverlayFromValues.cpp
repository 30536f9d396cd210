#include "nordalib/vision/overlay/OverlayFromValues.h"

#include "nordalib/core/datatypes/MeasArea.h"
#include "nordalib/core/datatypes/MeasPoint.h"
#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/KeySchema.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/imgproc/Palettes.h"

#include <fmt/format.h>

#include <chrono>
#include <ctime>
#include <map>

namespace norda::vision {

using namespace norda::exp;
using Temp = quantity::Temperature<MarkedFloat>;
using Rel = quantity::Relation<MarkedFloat>;

namespace {

template <typename T> bool get(const ValueLookup& values, const std::string& key, T& out) {
    auto v = values(key);
    if (!v || !v->holds<T>())
        return false;
    out = v->value<T>();
    return true;
}

template <typename T> T getOr(const ValueLookup& values, const std::string& key, T fallback) {
    get(values, key, fallback);
    return fallback;
}

OverlayValue valueOf(const std::shared_ptr<Variant>& v) {
    if (v && v->holds<Temp>()) {
        const auto& t = v->value<Temp>();
        return {t.celsius(), t.getValue().getMark(), false};
    }
    if (v && v->holds<Rel>()) {
        const auto& r = v->value<Rel>();
        return {r.getValue().toFloat() * 100.0f, r.getValue().getMark(), true};
    }
    return {0.0f, MarkedFloat::OutOfTolerance, false};
}

std::string localNote(const ValueLookup& values, const std::string& prefix) {
    if (!getOr(values, prefix + ".LocalParameters", false))
        return {};
    Temp reflected;
    get(values, prefix + ".ReflectedTemperature", reflected);
    std::string note = fmt::format("e {:.2f} Tr {:.1f}\xC2\xB0"
                                   "C",
                                   getOr(values, prefix + ".Emissivity", 0.0f), reflected.celsius());
    if (getOr(values, Id::Environment::AirCorrection, false)) // the local distance counts only then
        note += fmt::format(" d {:.1f} m", getOr(values, prefix + ".Distance", 0.0f));
    return note;
}

// The value a result shows: a point's value or an area's mean.
std::shared_ptr<Variant> resultValue(const ValueLookup& values, const std::string& name) {
    MeasArea area;
    if (name.rfind("UserArea", 0) == 0)
        return get(values, "MeasAreas." + name + ".MeasArea", area) ? area.getMeanValue() : nullptr;
    MeasPoint point;
    return get(values, "MeasPoints." + name + ".MeasPoint", point) ? point.getValue() : nullptr;
}

ColourBand band(float a, float b, unsigned rgb) {
    return {std::min(a, b), std::max(a, b), static_cast<uint32_t>(rgb)};
}

} // namespace

ValueLookup storeLookup(const DataProxy<std::string>& store) {
    return [&store](const std::string& key) -> std::shared_ptr<Variant> {
        return store.contains(key) ? store.get(key) : nullptr;
    };
}

ValueLookup metadataLookup(const DataStorage<std::string>& metadata) {
    return [&metadata](const std::string& key) { return metadata.getVariant(key); };
}

const std::vector<std::string>& overlayKeys() {
    // Never destroyed: a chain still running while the program exits may read it.
    static const std::vector<std::string>& keys = *new std::vector<std::string>([] {
        std::vector<std::string> k = {Id::Palette::ActivePalette,
                                      Id::Palette::Colors,
                                      Id::Scaling::TempMin,
                                      Id::Scaling::TempMax,
                                      Id::Isotherme::IsothermeActive,
                                      Id::Isotherme::IsothermeTopValue,
                                      Id::Isotherme::IsothermeBottomValue,
                                      Id::Isotherme::IsothermeColor,
                                      Id::Alarm::AlarmTopActive,
                                      Id::Alarm::AlarmTopValue,
                                      Id::Alarm::AlarmTopColor,
                                      Id::Alarm::AlarmBottomActive,
                                      Id::Alarm::AlarmBottomValue,
                                      Id::Alarm::AlarmBottomColor,
                                      Id::DeltaT::Active,
                                      Id::DeltaT::First,
                                      Id::DeltaT::Second,
                                      Id::DeltaT::Difference,
                                      Id::Environment::ReflectedTemperature,
                                      Id::Environment::EmissivityValue,
                                      Id::Environment::HumidityModeActive,
                                      Id::Environment::Temperature,
                                      Id::Environment::Humidity,
                                      Id::Environment::AirCorrection,
                                      Id::Environment::Distance};
        for (const char* p : {"HotSpot", "ColdSpot", "CenterSpot", "LaserSpot", "DeltaT1", "DeltaT2"})
            for (const char* item : {"Visible", "MeasPoint"})
                k.push_back(fmt::format("MeasPoints.{}.{}", p, item));
        for (const auto& m : userMarks())
            for (const std::string* key : {&m.visible, &m.result, &m.localParameters, &m.emissivity,
                                           &m.reflectedTemperature, &m.distance})
                k.push_back(*key);
        return k;
    }());
    return keys;
}

std::string DeltaTReading::label() const {
    return fmt::format("{} {:+.1f} {}", humidity ? "dRH" : "dT", difference, unit());
}

std::optional<DeltaTReading> deltaTReading(const ValueLookup& values) {
    if (!getOr(values, Id::DeltaT::Active, false))
        return std::nullopt;
    DeltaTReading r;
    r.first = getOr(values, Id::DeltaT::First, std::string());
    r.second = getOr(values, Id::DeltaT::Second, std::string());
    r.humidity = getOr(values, Id::Environment::HumidityModeActive, false);
    if (!r.humidity)
        return get(values, Id::DeltaT::Difference, r.difference) ? std::optional(r) : std::nullopt;
    const auto a = resultValue(values, r.first), b = resultValue(values, r.second);
    if (!a || !b || !a->holds<Rel>() || !b->holds<Rel>())
        return std::nullopt;
    r.difference = (a->value<Rel>().getValue().toFloat() - b->value<Rel>().getValue().toFloat()) * 100.0f;
    return r;
}

std::string overlayDateTime(unsigned long long ms) {
    if (ms == 0)
        ms = static_cast<unsigned long long>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                                 std::chrono::system_clock::now().time_since_epoch())
                                                 .count());
    const std::time_t s = static_cast<std::time_t>(ms / 1000);
    std::tm tm{};
    localtime_r(&s, &tm);
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &tm);
    return buf;
}

OverlayContent overlayContent(const ValueLookup& values, cv::Size imageSize, const std::string& dateTime) {
    OverlayContent c;
    c.imageSize = imageSize;
    const auto palette = getOr(values, Id::Palette::ActivePalette, std::string());
    if (!get(values, Id::Palette::Colors, c.paletteColours) && Palettes::exists(palette))
        c.paletteColours = Palettes::colors(palette);
    c.scaleLow = valueOf(values(Id::Scaling::TempMin));
    c.scaleHigh = valueOf(values(Id::Scaling::TempMax));

    Temp top, bottom;
    if (getOr(values, Id::Isotherme::IsothermeActive, false) &&
        get(values, Id::Isotherme::IsothermeTopValue, top) &&
        get(values, Id::Isotherme::IsothermeBottomValue, bottom))
        c.bands.push_back(
            band(bottom.celsius(), top.celsius(), getOr(values, Id::Isotherme::IsothermeColor, 0u)));
    Temp alarm;
    if (getOr(values, Id::Alarm::AlarmTopActive, false) && get(values, Id::Alarm::AlarmTopValue, alarm))
        c.bands.push_back(band(alarm.celsius(), 1e6f, getOr(values, Id::Alarm::AlarmTopColor, 0u)));
    if (getOr(values, Id::Alarm::AlarmBottomActive, false) && get(values, Id::Alarm::AlarmBottomValue, alarm))
        c.bands.push_back(band(-1e6f, alarm.celsius(), getOr(values, Id::Alarm::AlarmBottomColor, 0u)));

    std::map<std::string, cv::Point> positions; // for delta-T
    auto spot = [&](const std::string& name, SpotKind kind, const std::string& label, bool shown,
                    const std::string& note = {}) {
        MeasPoint p;
        if (!shown || !get(values, "MeasPoints." + name + ".MeasPoint", p))
            return;
        positions[name] = {p.getX(), p.getY()};
        c.spots.push_back({kind, label, {p.getX(), p.getY()}, valueOf(p.getValue()), note});
    };
    auto visible = [&](const std::string& name) {
        return getOr(values, "MeasPoints." + name + ".Visible", false);
    };
    spot("HotSpot", SpotKind::Hot, "", visible("HotSpot"));
    spot("ColdSpot", SpotKind::Cold, "", visible("ColdSpot"));
    spot("CenterSpot", SpotKind::Centre, "", visible("CenterSpot"));
    spot("LaserSpot", SpotKind::Laser, "L", visible("LaserSpot"));
    for (const auto& m : userMarks())
        if (!m.area)
            spot(m.name, SpotKind::User, m.label, visible(m.name), localNote(values, "MeasPoints." + m.name));
    const bool deltaT = getOr(values, Id::DeltaT::Active, false);
    const auto first = getOr(values, Id::DeltaT::First, std::string()),
               second = getOr(values, Id::DeltaT::Second, std::string());
    // The delta-T points are shown when delta-T compares them.
    for (const char* name : {"DeltaT1", "DeltaT2"})
        spot(name, SpotKind::DeltaT, name[6] == '1' ? "D1" : "D2",
             deltaT && (first == name || second == name));

    for (const auto& m : userMarks()) {
        if (!m.area)
            continue;
        const std::string &name = m.name, prefix = "MeasAreas." + name;
        MeasArea a;
        if (!getOr(values, prefix + ".Visible", false) || !get(values, prefix + ".MeasArea", a))
            continue;
        const auto r = a.getAreaRect();
        const auto &hot = a.getHotSpot(), &cold = a.getColdSpot();
        positions[name] = {r.x + r.width / 2, r.y + r.height / 2};
        c.areas.push_back({m.label, r, valueOf(a.getMeanValue()), valueOf(hot.getValue()),
                           valueOf(cold.getValue()), cv::Point(hot.getX(), hot.getY()),
                           cv::Point(cold.getX(), cold.getY()), localNote(values, prefix)});
    }
    const auto reading = deltaTReading(values);
    if (reading && positions.count(first) && positions.count(second))
        c.deltaT = OverlayDeltaT{positions[first], positions[second], reading->label()};

    Temp reflected;
    get(values, Id::Environment::ReflectedTemperature, reflected);
    c.status = fmt::format("e {:.2f}  Tr {:.1f}\xC2\xB0"
                           "C",
                           getOr(values, Id::Environment::EmissivityValue, 0.0f), reflected.celsius());
    // With the air correction on, the path it corrected for; the air beside it as in humidity mode.
    const bool airPath = getOr(values, Id::Environment::AirCorrection, false);
    if (airPath)
        c.status += fmt::format("  d {:.1f} m", getOr(values, Id::Environment::Distance, 0.0f));
    if (airPath || getOr(values, Id::Environment::HumidityModeActive, false)) {
        Temp air;
        Rel humidity;
        get(values, Id::Environment::Temperature, air);
        get(values, Id::Environment::Humidity, humidity);
        c.status += fmt::format("  Ta {:.1f}\xC2\xB0"
                                "C RH {:.0f}%",
                                air.celsius(), humidity.getValue().toFloat() * 100.0f);
    }
    if (!dateTime.empty())
        c.status += "  " + dateTime;
    return c;
}

OverlayContent frameOverlayContent(const DataStorage<std::string>& metadata, cv::Size imageSize,
                                   const std::vector<double>& infraredPlacement) {
    const auto taken = metadata.getVariant(Id::Images::DateTime);
    const bool timed = taken && taken->holds<unsigned long long>();
    OverlayContent c = overlayContent(metadataLookup(metadata), imageSize,
                                      timed ? overlayDateTime(taken->value<unsigned long long>()) : "");
    c.infraredPlacement = infraredPlacement;
    return c;
}

cv::Mat frameOverlay(const DataStorage<std::string>& metadata, cv::Size imageSize,
                     const std::vector<double>& infraredPlacement, cv::Size canvasSize,
                     OverlayLayout* layout) {
    return ThermalOverlay::render(frameOverlayContent(metadata, imageSize, infraredPlacement), canvasSize,
                                  layout);
}

DataStorage<std::string> savedFrameMetadata(const Rix& rix) {
    DataStorage<std::string> m = rix.getGenerics();
    m.setValue(Id::Scaling::TempMin, rix.getScalingMin());
    m.setValue(Id::Scaling::TempMax, rix.getScalingMax());
    m.setValue(Id::Environment::EmissivityValue, rix.getEmissivityOriginal());
    m.setValue(Id::Environment::ReflectedTemperature, rix.getReflectedTempOriginal());
    if (rix.getFileDateTime() != 0)
        m.setValue(Id::Images::DateTime, rix.getFileDateTime());
    return m;
}

} // namespace norda::vision
