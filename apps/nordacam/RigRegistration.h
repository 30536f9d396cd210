#pragma once
// The registration the simulated rig truly has: what a perfect factory calibration of the visual
// camera and the laser beside the infrared camera would write. Tests and `nordacam calib
// registration` use it as the truth; the simulator itself renders from its own models.

#include "apps/nordacam/sim/Scene.h"

#include "nordalib/vision/registration/Registration.h"

namespace nordacam {

// The infrared camera: the undistorted image of `lens` at `infraredSize`.
norda::vision::Registration rigRegistration(const sim::Rig& rig, const sim::LensModel& lens,
                                            cv::Size infraredSize);

} // namespace nordacam
