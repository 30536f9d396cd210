#include "apps/nordacam/HostChecks.h"

#include "nordalib/core/datatypes/DataStorage.h"
#include "nordalib/core/keys/KeySchema.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/imgproc/Palettes.h"
#include "nordalib/vision/registration/Fusion.h"

#include <fmt/format.h>
#include <opencv2/core.hpp>

#include <algorithm>

namespace nordacam {

using namespace norda::exp;

namespace {

// Positions and rectangles of marks must lie in the image, delta-T compares results that exist
// (the schema's ranges are checked by the settings themselves).
void addMeasurementChecks(Settings& settings, const DataProxy<std::string>& store) {
    auto inImage = [&store](const cv::Rect& r) {
        const int w = store.getValue<unsigned short>(Id::IrImage::Cols),
                  h = store.getValue<unsigned short>(Id::IrImage::Rows);
        return r.width > 0 && r.height > 0 && r.x >= 0 && r.y >= 0 && r.x + r.width <= w &&
                       r.y + r.height <= h
                   ? std::string()
                   : fmt::format("({}, {}, {} x {}) does not lie inside the {} x {} image", r.x, r.y, r.width,
                                 r.height, w, h);
    };
    for (const auto& keySpec : keySchema()) {
        const bool mark = keySpec.group == KeyGroup::Measurement || keySpec.group == KeyGroup::UserMarks;
        if (!mark || !keySpec.writable())
            continue;
        if (keySpec.type == typeid(cv::Point_<int>))
            settings.addCheck(keySpec.name, [inImage](const Variant& v) {
                const auto pt = v.value<cv::Point_<int>>();
                return inImage(cv::Rect(pt.x, pt.y, 1, 1));
            });
        else if (keySpec.type == typeid(cv::Rect_<int>))
            settings.addCheck(keySpec.name,
                              [inImage](const Variant& v) { return inImage(v.value<cv::Rect_<int>>()); });
    }
    for (const auto* key : {&Id::DeltaT::First, &Id::DeltaT::Second})
        settings.addCheck(*key, [](const Variant& v) {
            const auto& names = deltaTResultNames();
            const auto& name = v.value<std::string>();
            std::string all;
            for (const auto& n : names)
                (all += all.empty() ? "" : ", ") += n;
            return std::find(names.begin(), names.end(), name) != names.end()
                       ? std::string()
                       : "\"" + name + "\" is no result (" + all + ")";
        });
}

// A window can not transmit, emit and reflect more than falls on it: the three as they will be.
void addWindowCheck(Settings& settings) {
    namespace PG = Id::ProtectiveGlass;
    for (const auto* key : {&PG::Transmission, &PG::Emissivity, &PG::Reflectance})
        settings.addCheck(*key, [&settings](const Variant&) {
            auto value = [&](const std::string& k) { return settings.valueAfter(k)->value<float>(); };
            const float t = value(PG::Transmission), e = value(PG::Emissivity), r = value(PG::Reflectance);
            return t + e + r <= 1.0f + 1e-6f
                       ? std::string()
                       : fmt::format("the window's transmission {} + emissivity {} + reflectance {} = {:.3f} "
                                     "must not exceed 1",
                                     t, e, r, t + e + r);
        });
}

} // namespace

void addHostChecks(Settings& settings, const DataProxy<std::string>& store) {
    settings.addCheck(Id::Scaling::Mode, [](const Variant& v) {
        const auto& mode = v.value<std::string>();
        return mode == Id::Scaling::Auto || mode == Id::Scaling::Manual || mode == Id::Scaling::AutoSpanHint
                   ? std::string()
                   : "\"" + mode + "\" is not a scaling mode (Auto, Manual, AutoSpanHint)";
    });
    settings.addCheck(Id::Fusion::Mode, [](const Variant& v) {
        try {
            norda::vision::Fusion::modeOf(v.value<std::string>());
            return std::string();
        } catch (const std::exception& e) {
            return std::string(e.what());
        }
    });
    settings.addCheck(Id::ActiveMeasRange::Name, [&store](const Variant& v) {
        const auto number = std::to_string(v.value<unsigned char>());
        return store.getValue<DataStorage<std::string>>(Id::MeasRangePool).contains(number)
                   ? std::string()
                   : "measurement range " + number + " is not defined";
    });
    settings.addCheck(Id::Palette::ActivePalette, [](const Variant& v) {
        const auto& name = v.value<std::string>();
        std::string names;
        for (const auto& n : norda::vision::Palettes::names())
            names += (names.empty() ? "" : ", ") + n;
        return norda::vision::Palettes::exists(name) ? std::string()
                                                     : "unknown palette \"" + name + "\" (" + names + ")";
    });
    addMeasurementChecks(settings, store);
    addWindowCheck(settings);
}

} // namespace nordacam
