#pragma once
// TruthFigures: the chain's measurements against the physical simulator's truth, with the checked-in
// calibration (made by make calibrate from the simulator's target views, never from its constants).
// Frames of the physical camera warming up are converted with the library's radiometric model;
// the truth is what the simulator was given: object temperatures, the surroundings, emissivities,
// the rig's geometry. Every figure is printed as measured, with its goal, met or not.

#include <ostream>
#include <string>

namespace nordacam {

// Prints the figures; `calibrationDir` holds radiometry.json, lens1/distort.pxm, registration.json.
// Returns the number of goals missed.
int printTruthFigures(const std::string& calibrationDir, std::ostream& out);

} // namespace nordacam
