#pragma once
// Radiometric model of cameras with fixed optics: the lens is part of the range constants.
// Required data: Emis, Treflected, TboardCurrent, TboardShuttering, TShutterShuttering, MeasRange,
// TBoardSlope, TauPg, EmisPg. Lens data, if given, is accepted and not used.

#include "nordalib/vision/radiometry/RadiometryBase.h"

namespace norda::vision {

class RadiometryTypeA : public RadiometryBase {
public:
    RadiometryTypeA(unsigned short cols, unsigned short rows, float resolution,
                    const std::string& calibrationPath);

protected:
    void completeConditions(RadiometricConditions& conditions) const override;
    std::vector<unsigned> requiredData() const override;
};

} // namespace norda::vision
