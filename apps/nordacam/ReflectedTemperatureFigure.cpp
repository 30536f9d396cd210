#include "apps/nordacam/ReflectedTemperatureFigure.h"

#include "apps/nordacam/Measure.h"

#include "nordalib/core/datatypes/MeasArea.h"
#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/Keys.h"

#include <fmt/format.h>

#include <cmath>
#include <filesystem>
#include <iostream>
#include <optional>

namespace nordacam {

using namespace norda::exp;
using Temp = quantity::Temperature<MarkedFloat>;
namespace MA = Id::MeasAreas;

namespace {

// The area's interior: clear of the soft edges and of what the filters smear at them.
cv::Rect_<int> inside(const cv::Rect2f& r, int margin) {
    return {int(std::ceil(r.x)) + margin, int(std::ceil(r.y)) + margin, int(r.width) - 2 * margin,
            int(r.height) - 2 * margin};
}

std::optional<float> areaMean(const Snapshot& s, const std::string& key) {
    const auto v = s.meta.getVariant(key);
    if (!v || !v->holds<MeasArea>())
        return std::nullopt;
    const auto& mean = v->value<MeasArea>().getMeanValue();
    if (!mean || !mean->holds<Temp>())
        return std::nullopt;
    return mean->value<Temp>().celsius();
}

std::optional<float> celsiusIn(const Snapshot& s, const std::string& key) {
    const auto v = s.meta.getVariant(key);
    if (!v || !v->holds<Temp>())
        return std::nullopt;
    return v->value<Temp>().celsius();
}

} // namespace

ReflectedTemperatureFigure::ReflectedTemperatureFigure(Camera& camera) : m_camera(camera) {
    m_active = camera.simulator() && camera.has("UserMeasurementElement");
    if (!m_active)
        return;
    auto& store = camera.store();
    const auto& scene = camera.simulator()->scene();
    m_defaultC = store.getValue<Temp>(Id::Environment::ReflectedTemperature).celsius();
    const cv::Rect2f panel = scene.staticObject(sim::Scene::kPanelName).rect;
    const float panelEmissivity = scene.staticObject(sim::Scene::kPanelName).emissivity;
    // On the panel's top and bottom, apart by the height of the lower one's label.
    const cv::Rect_<int> p = inside(panel, 12);
    struct Area {
        const std::string *visible, *rect, *local, *emissivity, *reflected;
        cv::Rect_<int> at;
        float emissivityValue;
    };
    const Area areas[] = {{&MA::UserArea1::Visible, &MA::UserArea1::Rect, &MA::UserArea1::LocalParameters,
                           &MA::UserArea1::Emissivity, &MA::UserArea1::ReflectedTemperature,
                           inside(scene.staticObject(sim::Scene::kReflectorName).rect, 10), 1.0f},
                          {&MA::UserArea2::Visible,
                           &MA::UserArea2::Rect,
                           &MA::UserArea2::LocalParameters,
                           &MA::UserArea2::Emissivity,
                           &MA::UserArea2::ReflectedTemperature,
                           {p.x, p.y, p.width, 16},
                           panelEmissivity},
                          {&MA::UserArea3::Visible,
                           &MA::UserArea3::Rect,
                           &MA::UserArea3::LocalParameters,
                           &MA::UserArea3::Emissivity,
                           &MA::UserArea3::ReflectedTemperature,
                           {p.x, p.br().y - 24, p.width, 24},
                           panelEmissivity}};
    for (const auto& a : areas) {
        set(*a.rect, std::make_shared<Variant_<cv::Rect_<int>>>(a.at));
        set(*a.local, std::make_shared<Variant_<bool>>(true));
        set(*a.emissivity, std::make_shared<Variant_<float>>(a.emissivityValue));
        set(*a.reflected, std::make_shared<Variant_<Temp>>(Temp(MarkedFloat(m_defaultC))));
        set(*a.visible, std::make_shared<Variant_<bool>>(true));
    }
}

ReflectedTemperatureFigure::~ReflectedTemperatureFigure() {
    if (m_before.empty())
        return;
    auto& store = m_camera.store();
    for (const auto& [key, value] : m_before)
        store.set(key, value, true);
    store.flush();
    const std::string& path = m_camera.settings().path();
    std::error_code ec;
    if (!path.empty() && std::filesystem::exists(path, ec))
        try {
            m_camera.settings().save();
        } catch (const std::exception& e) {
            std::cerr << "nordacam: the settings file keeps the demo's areas: " << e.what() << "\n";
        }
}

void ReflectedTemperatureFigure::set(const std::string& key, std::shared_ptr<Variant> value) {
    auto& store = m_camera.store();
    m_before.emplace(key, store.get(key)); // the first value seen is the user's
    store.set(key, std::move(value), true);
}

void ReflectedTemperatureFigure::sample(const Snapshot& s) {
    if (!m_active || s.rad.empty() || !s.truth || s.frame == m_lastFrame || !warm(s) ||
        s.truth->shutterState != Id::Shutter::StateIdle)
        return;
    m_lastFrame = s.frame;
    if (!m_measured) {
        const auto foil = areaMean(s, MA::UserArea1::MeasArea);
        if (!foil)
            return;
        m_foil.add(*foil);
        if (m_foil.n < kFoilFrames)
            return;
        // Round to the hundredth the camera's settings show.
        m_measuredC = float(std::round(m_foil.mean() * 100.0) / 100.0);
        m_measured = true;
        for (const auto* key : {&Id::Environment::ReflectedTemperature, &MA::UserArea3::ReflectedTemperature})
            set(*key, std::make_shared<Variant_<Temp>>(Temp(MarkedFloat(m_measuredC))));
        return;
    }
    if (!applied(s))
        return;
    const auto& panel = m_camera.simulator()->scene().staticObject(sim::Scene::kPanelName);
    const auto withDefault = areaMean(s, MA::UserArea2::MeasArea),
               withMeasured = areaMean(s, MA::UserArea3::MeasArea);
    if (!withDefault || !withMeasured)
        return;
    m_panelDefault.add(*withDefault - panel.celsius);
    m_panelMeasured.add(*withMeasured - panel.celsius);
}

bool ReflectedTemperatureFigure::applied(const Snapshot& s) const {
    if (!m_active)
        return true;
    if (!m_measured)
        return false;
    const auto image = celsiusIn(s, Id::Environment::ReflectedTemperature),
               area = celsiusIn(s, MA::UserArea3::ReflectedTemperature);
    return image && area && std::abs(*image - m_measuredC) < 0.005f && std::abs(*area - m_measuredC) < 0.005f;
}

void ReflectedTemperatureFigure::print(std::ostream& out) const {
    if (!m_active)
        return;
    const auto& scene = m_camera.simulator()->scene();
    const auto& foil = scene.staticObject(sim::Scene::kReflectorName);
    const auto& panel = scene.staticObject(sim::Scene::kPanelName);
    out << fmt::format("\nReflected temperature from the reflector (crumpled foil, emissivity {:.2f} at "
                       "{:.1f}°C, {:.1f} m; the hall's surroundings truly {:.2f}°C):\n",
                       foil.emissivity, foil.celsius, foil.distance, sim::Scene::kReflectedC);
    if (!m_measured) {
        out << fmt::format("  not measured: {} of {} warm frames with the shutter open seen\n", m_foil.n,
                           kFoilFrames);
        return;
    }
    out << fmt::format("  area on the foil read with emissivity 1, air not corrected: {:.2f}°C (mean of {} "
                       "frames), error {:+.2f} K (the foil's own {:.0f} % emission included) -> set as "
                       "the reflected temperature\n",
                       m_measuredC, m_foil.n, m_measuredC - sim::Scene::kReflectedC, foil.emissivity * 100);
    if (m_panelDefault.n == 0) {
        out << "  painted panel: no frame converted with the measured reflected temperature\n";
        return;
    }
    const bool ok = m_panelMeasured.worst <= 1.0;
    out << fmt::format("  painted panel true {:.2f}°C, emissivity {:.2f}, {} frames: with the default "
                       "{:.2f}°C mean error {:+.2f} K, worst {:.2f} K; with the measured {:.2f}°C mean "
                       "error {:+.2f} K, worst {:.2f} K -> {} (tolerance 1 K)\n",
                       panel.celsius, panel.emissivity, m_panelMeasured.n, m_defaultC, m_panelDefault.mean(),
                       m_panelDefault.worst, m_measuredC, m_panelMeasured.mean(), m_panelMeasured.worst,
                       ok ? "within" : "OUTSIDE");
}

} // namespace nordacam
