#pragma once
// Blackbody views as the factory takes them, for the radiometry views and their check: the
// measurement ranges' calibrated bands, blackbody temperatures over a band, a shot (shutter, then
// the scene) and what the factory's instruments read of it.

#include "apps/nordacam/sim/physics/PhysicalCamera.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

#include <vector>

namespace nordacam::factory {

constexpr double kCelsius = 273.15;
constexpr double kWarmingK = 1.5; // a view after the board warmed this much since the shutter closed

// A measurement range and its calibrated band (°C), as the camera's radiometry.json has them.
struct Band {
    unsigned range;
    double bottomC, topC;
};
// The bands of `ranges`, in their order; throws for a range the camera does not have.
std::vector<Band> bandsOf(const std::vector<unsigned>& ranges);
// Blackbody temperatures over a band: n evenly from bottom to top, or the n - 1 midpoints.
std::vector<double> temperatures(const Band& b, int n, bool midpoints);

// A blackbody view as the factory takes it: the shutter closes with the camera settled at boardC;
// the frames follow after the chamber has warmed the board by warmingK (slowly: every part settled).
struct Shot {
    sim::physics::TargetView shutter, scene;
};
Shot shoot(sim::physics::PhysicalCamera& camera, double blackbodyC, double boardC, double warmingK,
           unsigned range, int frames);
// What the factory's instruments read for a shot: the library's measurement conditions.
norda::vision::RadiometricConditions conditions(const Shot& s, double emissivity, double lensTransmission);
// The lens's band transmission, as its data sheet states it (at 30 °C).
double lensTransmission(const sim::physics::PhysicalCamera& camera);

} // namespace nordacam::factory
