// Routes of the thermographer's view: the user's points, areas and delta-T with their values and
// local parameters, the colour scale, the measurement ranges and the humidity mode.
#include "apps/nordacam/HttpSupport.h"
#include "apps/nordacam/Overlay.h"
#include "apps/nordacam/Server.h"

#include "nordalib/core/datatypes/MeasArea.h"
#include "nordalib/core/datatypes/MeasPoint.h"
#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/KeySchema.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/climate/DewPoint.h"
#include "nordalib/vision/imgproc/Palettes.h"

#include <fmt/format.h>

namespace nordacam {

using namespace norda::exp;
using namespace http;
using Temp = quantity::Temperature<MarkedFloat>;
using Rel = quantity::Relation<MarkedFloat>;

namespace {

json valueJson(const std::shared_ptr<Variant>& v) {
    if (v && v->holds<Temp>()) {
        const auto& t = v->value<Temp>();
        return {{"celsius", t.celsius()}, {"mark", t.getValue().getMark()}};
    }
    if (v && v->holds<Rel>()) {
        const auto& r = v->value<Rel>();
        return {{"percent", r.getValue().toFloat() * 100.0f}, {"mark", r.getValue().getMark()}};
    }
    return nullptr;
}

json localJson(const DataProxy<std::string>& s, const UserMark& m) {
    return {{"on", s.getValue<bool>(m.localParameters)},
            {"emissivity", s.getValue<float>(m.emissivity)},
            {"reflected", s.getValue<Temp>(m.reflectedTemperature).celsius()},
            {"distance", s.getValue<float>(m.distance)},
            {"material", s.getValue<std::string>(m.material)}};
}

json thermography(Camera& cam) {
    auto& s = cam.store();
    json points = json::array(), areas = json::array();
    for (const auto& m : userMarks()) {
        if (!m.area) {
            const auto pos = s.getValue<cv::Point_<int>>(m.position);
            const auto p = s.getValue<MeasPoint>(m.result);
            points.push_back({{"name", m.name},
                              {"label", m.label},
                              {"visible", s.getValue<bool>(m.visible)},
                              {"x", pos.x},
                              {"y", pos.y},
                              {"value", valueJson(p.getValue())},
                              {"local", localJson(s, m)}});
            continue;
        }
        const auto r = s.getValue<cv::Rect_<int>>(m.rect);
        const auto a = s.getValue<MeasArea>(m.result);
        areas.push_back({{"name", m.name},
                         {"label", m.label},
                         {"visible", s.getValue<bool>(m.visible)},
                         {"rect", {{"x", r.x}, {"y", r.y}, {"width", r.width}, {"height", r.height}}},
                         {"mean", valueJson(a.getMeanValue())},
                         {"hot", valueJson(a.getHotSpot().getValue())},
                         {"cold", valueJson(a.getColdSpot().getValue())},
                         {"local", localJson(s, m)}});
    }
    json deltaPoints = json::array();
    for (const auto* name : {"DeltaT1", "DeltaT2"}) {
        const auto p = s.getValue<MeasPoint>(std::string("MeasPoints.") + name + ".MeasPoint");
        const auto pos = s.getValue<cv::Point_<int>>(std::string("MeasPoints.") + name + ".Position");
        deltaPoints.push_back(
            {{"name", name}, {"x", pos.x}, {"y", pos.y}, {"value", valueJson(p.getValue())}});
    }
    const auto centre = s.getValue<MeasArea>(Id::MeasAreas::CenterArea::MeasArea);
    json ranges = json::array();
    for (const auto& [number, range] : s.getValue<DataStorage<std::string>>(Id::MeasRangePool))
        if (range && range->holds<DataStorage<std::string>>()) {
            const auto& r = range->value<DataStorage<std::string>>();
            ranges.push_back({{"name", std::stoi(number)},
                              {"bottom", r.get<Temp>("ToleranceBottom").celsius()},
                              {"top", r.get<Temp>("ToleranceTop").celsius()}});
        }
    const auto air = s.getValue<Temp>(Id::Environment::Temperature);
    const auto humidity = s.getValue<Rel>(Id::Environment::Humidity);
    // The difference the shown frame's overlay prints (the store's before a frame is shown).
    const auto shown = cam.snapshot().meta;
    const auto delta = deltaTReading(shown.size() > 0 ? metadataLookup(shown) : storeLookup(s));
    return {{"points", points},
            {"areas", areas},
            {"deltaT",
             {{"active", s.getValue<bool>(Id::DeltaT::Active)},
              {"first", s.getValue<std::string>(Id::DeltaT::First)},
              {"second", s.getValue<std::string>(Id::DeltaT::Second)},
              {"difference", delta ? json(delta->difference) : json(nullptr)},
              {"unit", delta ? delta->unit() : ""},
              {"points", deltaPoints}}},
            {"centreArea",
             {{"visible", s.getValue<bool>(Id::MeasAreas::CenterArea::Visible)},
              {"mean", valueJson(centre.getMeanValue())},
              {"hot", valueJson(centre.getHotSpot().getValue())},
              {"cold", valueJson(centre.getColdSpot().getValue())}}},
            {"ranges", ranges},
            {"activeRange", s.getValue<unsigned char>(Id::ActiveMeasRange::Name)},
            {"autoRange", s.getValue<bool>(Id::MeasRangeSettings::EnableAutoRange)},
            {"humidity",
             {{"active", s.getValue<bool>(Id::Environment::HumidityModeActive)},
              {"air", air.celsius()},
              {"relative", humidity.getValue().toFloat() * 100.0f},
              {"dewPoint", norda::vision::DewPoint::calcDewPoint(air, humidity).celsius()}}},
            {"gallery", s.getValue<std::string>(Id::Gallery::ActiveFilename)}};
}

} // namespace

void WebServer::thermographyRoutes() {
    Camera& cam = m_camera;
    add("GET", "/api/thermography",
        guarded([&cam](const httplib::Request&, httplib::Response& res) { reply(res, thermography(cam)); }));
    // The colour scale: the palette's colours (hottest last) and the span they cover.
    add("GET", "/api/scale", guarded([&cam](const httplib::Request&, httplib::Response& res) {
            auto& s = cam.store();
            const auto palette = s.getValue<std::string>(Id::Palette::ActivePalette);
            const auto colours = s.getValue<std::vector<uint8_t>>(Id::Palette::Colors);
            json hex = json::array();
            for (size_t i = 0; i + 2 < colours.size(); i += 3)
                hex.push_back(fmt::format("#{:02x}{:02x}{:02x}", colours[i], colours[i + 1], colours[i + 2]));
            reply(res, {{"palette", palette},
                        {"colors", hex},
                        {"mode", s.getValue<std::string>(Id::Scaling::Mode)},
                        {"min", valueJson(s.get(Id::Scaling::TempMin))},
                        {"max", valueJson(s.get(Id::Scaling::TempMax))}});
        }));
}

} // namespace nordacam
