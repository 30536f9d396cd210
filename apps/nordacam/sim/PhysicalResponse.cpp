#include "apps/nordacam/sim/PhysicalResponse.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace nordacam::sim {

namespace {
constexpr double kCelsius = 273.15;
}

PhysicalResponse::PhysicalResponse(const physics::CameraParameters& p)
    : m_camera(std::make_shared<physics::PhysicalCamera>(p)), m_p(p),
      m_omega(1.0 / (1.0 + 4.0 * p.optics.fNumber * p.optics.fNumber)) {}

std::string PhysicalResponse::describe() const {
    return "physical detector model (Planck's law over the band through the lens, 1/T^2 responsivity, "
           "housing and self-emission)";
}

double PhysicalResponse::gain(double boardC, unsigned char range) const {
    const auto& d = m_p.detector;
    const double fpaK = boardC + m_p.thermal.fpaAboveBoardK + kCelsius;
    const double rangeGain = d.rangeGain[std::clamp<size_t>(range, 1, d.rangeGain.size() - 1)];
    return rangeGain * d.responsivity * std::pow((d.referenceFpaC + kCelsius) / fpaK, d.responsivityExponent);
}

double PhysicalResponse::housingC(double boardC) const {
    const auto& t = m_p.thermal;
    return boardC - (1.0 - t.housingShare) * t.boardRiseK;
}

double PhysicalResponse::background(double boardC, double lensC) const {
    const auto& c = *m_camera;
    const double housing = c.detectorRadiance(housingC(boardC));
    // The lens emits what it neither transmits nor reflects; it reflects the housing.
    const double rho = m_p.optics.lensReflectance;
    const double lensEmission = (1.0 - rho) * c.detectorRadiance(lensC) - c.lensPathRadiance(lensC);
    return m_omega * (lensEmission + rho * housing) + (1.0 - m_omega) * housing -
           c.detectorRadiance(boardC + m_p.thermal.fpaAboveBoardK);
}

float PhysicalResponse::sceneCounts(float objectC, const Conditions& c) const {
    const auto& cam = *m_camera;
    double scene = c.emissivity * cam.lensPathRadiance(objectC) +
                   (1.0 - c.emissivity) * cam.lensPathRadiance(c.reflectedC);
    if (c.glass) // a protective window at the surroundings' temperature
        scene = c.glassTransmission * scene + c.glassEmissivity * cam.lensPathRadiance(c.reflectedC);
    return float(gain(c.boardC, c.range) * (m_omega * scene + background(c.boardC, c.lensC)));
}

float PhysicalResponse::shutterCounts(const Conditions& c) const {
    const auto& cam = *m_camera;
    const double board = c.boardAtShutterC, housing = cam.detectorRadiance(housingC(board));
    const double e = m_p.shutter.emissivity;
    const double net = m_omega * (e * cam.detectorRadiance(c.shutterC) + (1.0 - e) * housing) +
                       (1.0 - m_omega) * housing - cam.detectorRadiance(board + m_p.thermal.fpaAboveBoardK);
    return float(gain(board, c.range) * net);
}

float PhysicalResponse::driftCounts(const Conditions& c) const {
    // The board's warming since the shutter: the read-out's offsets and what the warmer focal plane,
    // housing and responsivity change for a scene near room temperature (sceneCounts holds the
    // board of the shutter).
    const auto& d = m_p.detector;
    const double dBoard = c.boardC - c.boardAtShutterC;
    Conditions now = c, then = c;
    now.emissivity = then.emissivity = 1.0f;
    then.boardC = c.boardAtShutterC;
    const double scene = sceneCounts(22.0f, now) - sceneCounts(22.0f, then);
    return float((d.offsetPerFpaK + d.offsetPerBoardK) * dBoard + scene);
}

} // namespace nordacam::sim
