#pragma once
// The live simulator's detector response computed by the physical camera simulator's models
// (sim/physics): in-band radiance from Planck's law over the detector's spectral response and the
// lens's spectral transmission, the lens's own emission, the housing around the detector and the
// detector's own emission, a responsivity falling as (Tref / Tfpa)^2, the range's gain, the
// shutter plate's emissivity and the read-out's offset drift with the board. None of it is the
// radiometry library's model: the chain measures these counts with the calibration fitted from the
// physical simulator's target views (make calibrate), so its errors are real ones.
//
// The live scene has no housing or focal-plane temperature of its own: they follow the board as
// in the physical camera settled (focal plane 1.5 K above it, housing at ambient plus 85 % of the
// board's rise). No air, window or point-spread function here (the live scene's geometry is its
// own); docs/simulator.md lists what the physical simulator has beyond this.

#include "apps/nordacam/sim/SensorResponse.h"
#include "apps/nordacam/sim/physics/PhysicalCamera.h"

#include <memory>

namespace nordacam::sim {

class PhysicalResponse final : public SensorResponse {
public:
    explicit PhysicalResponse(const physics::CameraParameters& p = {});
    std::string describe() const override;
    float sceneCounts(float objectC, const Conditions& conditions) const override;
    float shutterCounts(const Conditions& conditions) const override;
    float driftCounts(const Conditions& conditions) const override;

private:
    // Counts per unit of net absorbed radiance at a board temperature, for a range.
    double gain(double boardC, unsigned char range) const;
    double housingC(double boardC) const;
    // Net radiance the detector absorbs besides the scene's term, at a board temperature.
    double background(double boardC, double lensC) const;

    std::shared_ptr<physics::PhysicalCamera> m_camera;
    physics::CameraParameters m_p;
    double m_omega; // the lens's share of the detector's hemisphere
};

} // namespace nordacam::sim
