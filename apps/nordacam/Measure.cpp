#include "apps/nordacam/Measure.h"

#include "nordalib/core/datatypes/MeasPoint.h"
#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

#include <cmath>

namespace nordacam {

using namespace norda::exp;
using Temp = quantity::Temperature<MarkedFloat>;

std::vector<SpotReading> readSpots(const DataProxy<std::string>& store) {
    const std::pair<const char*, const std::string*> spots[] = {
        {"hot", &Id::MeasPoints::HotSpot::MeasPoint},
        {"cold", &Id::MeasPoints::ColdSpot::MeasPoint},
        {"centre", &Id::MeasPoints::CenterSpot::MeasPoint}};
    std::vector<SpotReading> out;
    for (const auto& [name, key] : spots) {
        SpotReading r;
        r.name = name;
        if (auto v = store.contains(*key) ? store.get(*key) : nullptr; v && v->holds<MeasPoint>()) {
            const auto& p = v->value<MeasPoint>();
            r.x = p.getX();
            r.y = p.getY();
            if (p.getValue() && p.getValue()->holds<Temp>()) {
                const auto& t = p.getValue()->value<Temp>();
                r.celsius = t.celsius();
                r.mark = t.getValue().getMark();
                r.valid = true;
            }
        }
        out.push_back(r);
    }
    return out;
}

std::vector<ObjectReading> measureObjects(const Camera::Snapshot& s) {
    std::vector<ObjectReading> out;
    if (s.rad.empty() || !s.truth || s.rad.type() != CV_16UC1)
        return out;
    const auto& t = *s.truth;
    // The interior keeps clear of the soft edges and of what the filters smear at them.
    auto measure = [&](const std::string& name, float trueC, bool cold, auto inside) {
        ObjectReading r;
        r.name = name;
        r.trueC = trueC;
        double sum = 0;
        float peak = cold ? 1e9f : -1e9f;
        for (int y = 0; y < s.rad.rows; ++y)
            for (int x = 0; x < s.rad.cols; ++x)
                if (inside(static_cast<float>(x), static_cast<float>(y))) {
                    const float c = norda::vision::RadiometricTools::getFloat(s.rad.at<uint16_t>(y, x));
                    sum += c;
                    peak = cold ? std::min(peak, c) : std::max(peak, c);
                    ++r.pixels;
                }
        if (r.pixels == 0)
            return;
        r.measuredC = static_cast<float>(sum / r.pixels);
        r.peakC = peak;
        out.push_back(r);
    };
    measure("hot object", t.hotC, false, [&](float x, float y) {
        return std::hypot(x - t.hotCentre.x, y - t.hotCentre.y) < t.hotRadius - 10.0f;
    });
    measure("warm object", t.warmC, false, [&](float x, float y) {
        return x > t.warmRect.x + 14 && x < t.warmRect.br().x - 14 && y > t.warmRect.y + 14 &&
               y < t.warmRect.br().y - 14;
    });
    measure("cold object", t.coldC, true, [&](float x, float y) {
        return std::hypot(x - t.coldCentre.x, y - t.coldCentre.y) < t.coldRadius - 10.0f;
    });
    return out;
}

bool warm(const Camera::Snapshot& s) {
    std::shared_ptr<Variant> uptime = s.meta.getVariant(Id::DeviceInfo::Uptime);
    return uptime && uptime->holds<unsigned long long>() && uptime->value<unsigned long long>() > 120000;
}

nlohmann::json toJson(const SpotReading& s) {
    nlohmann::json j = {{"name", s.name}, {"valid", s.valid}, {"x", s.x}, {"y", s.y}};
    if (s.valid) {
        j["celsius"] = std::round(s.celsius * 100.0f) / 100.0f;
        j["mark"] = s.mark;
    }
    return j;
}

nlohmann::json toJson(const ObjectReading& o) {
    return {{"name", o.name},
            {"true", o.trueC},
            {"measured", std::round(o.measuredC * 100.0f) / 100.0f},
            {"peak", std::round(o.peakC * 100.0f) / 100.0f},
            {"pixels", o.pixels}};
}

} // namespace nordacam
