#include "apps/nordacam/sim/SensorResponse.h"
#include "apps/nordacam/sim/PhysicalResponse.h"

#include "nordalib/core/utils/FileUtils.h"

#include "nordalib/vision/radiometry/RadiometricCalibration.h"

#include <cmath>
#include <fmt/format.h>

namespace nordacam::sim {

namespace {
constexpr double kC2 = 14387.77; // second radiation constant, µm·K
}

PlanckResponse::PlanckResponse(float countsPerKelvin, float wavelengthUm) : m_b(kC2 / wavelengthUm) {
    // Scale so that d(counts)/dT at 30 °C equals countsPerKelvin in range 1.
    const double t = 303.15, h = 0.05;
    const double slope = (radiance(t + h) - radiance(t - h)) / (2 * h);
    m_responsivity = countsPerKelvin / slope;
}

double PlanckResponse::radiance(double kelvin) const {
    return 1.0 / std::expm1(m_b / kelvin);
}

double PlanckResponse::responsivity(unsigned char range) const {
    return range >= 2 ? m_responsivity / 4.0 : m_responsivity;
}

std::string PlanckResponse::describe() const {
    return fmt::format("grey body in a band at {:.1f} µm", kC2 / m_b);
}

float PlanckResponse::sceneCounts(float objectC, const Conditions& c) const {
    const double e = c.emissivity;
    double l = e * radiance(objectC + 273.15) + (1.0 - e) * radiance(c.reflectedC + 273.15);
    if (c.glass)
        l = c.glassTransmission * l + c.glassEmissivity * radiance(c.reflectedC + 273.15);
    return static_cast<float>(responsivity(c.range) * l);
}

float PlanckResponse::shutterCounts(const Conditions& c) const {
    return static_cast<float>(responsivity(c.range) * radiance(c.shutterC + 273.15));
}

namespace {

// The radiometry library's camera model run backwards, with the camera's own calibration: what
// the radiometry element computes from a frame is exactly what was put into it.
class CalibratedResponse final : public SensorResponse {
public:
    CalibratedResponse(norda::vision::RadiometricCalibration calibration, std::string file)
        : m_calibration(std::move(calibration)), m_file(std::move(file)) {}
    std::string describe() const override { return "radiometric calibration " + m_file; }

    float sceneCounts(float objectC, const Conditions& c) const override {
        const auto& range = rangeOf(c);
        auto cond = conditionsOf(c);
        cond.boardCurrentK = cond.boardShutteringK;
        cond.boardSlope = 0.0;
        return static_cast<float>(
            norda::vision::RadiometricTools::rawCounts(range, cond, objectC + 273.15, 0.0));
    }
    float shutterCounts(const Conditions& c) const override {
        return static_cast<float>(
            norda::vision::RadiometricTools::shutterCounts(rangeOf(c), conditionsOf(c), 0.0));
    }
    float driftCounts(const Conditions& c) const override {
        const auto cond = conditionsOf(c);
        return static_cast<float>(cond.gain * norda::vision::RadiometricTools::driftSignal(rangeOf(c), cond));
    }

private:
    const norda::vision::RangeCalibration& rangeOf(const Conditions& c) const {
        auto it = m_calibration.ranges.find(c.range);
        if (it == m_calibration.ranges.end())
            it = m_calibration.ranges.begin();
        return it->second;
    }
    norda::vision::RadiometricConditions conditionsOf(const Conditions& c) const {
        norda::vision::RadiometricConditions r;
        r.emissivity = c.emissivity;
        r.reflectedK = c.reflectedC + 273.15;
        r.shutterK = c.shutterC + 273.15;
        r.boardCurrentK = c.boardC + 273.15;
        r.boardShutteringK = c.boardAtShutterC + 273.15;
        r.boardSlope = c.boardSlope;
        r.tauPg = c.glass ? c.glassTransmission : 1.0;
        r.emisPg = c.glass ? c.glassEmissivity : 0.0;
        auto lens = m_calibration.lenses.find(c.lensIndex);
        r.lensTransmission = lens != m_calibration.lenses.end() ? lens->second.transmission : 1.0;
        r.lensK = c.lensC + 273.15;
        r.gain = 1.0;
        return r;
    }

    norda::vision::RadiometricCalibration m_calibration;
    std::string m_file;
};

} // namespace

std::shared_ptr<const SensorResponse> makeResponse(const std::string& calibrationDir) {
    const std::string file = calibrationDir + norda::vision::RadiometricCalibration::kFileName;
    if (norda::utils::existsFile(file))
        return std::make_shared<CalibratedResponse>(norda::vision::RadiometricCalibration::load(file), file);
    return std::make_shared<PlanckResponse>();
}

std::shared_ptr<const SensorResponse> makePhysicalResponse() {
    return std::make_shared<PhysicalResponse>();
}

} // namespace nordacam::sim
