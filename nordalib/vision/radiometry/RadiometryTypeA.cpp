#include "nordalib/vision/radiometry/RadiometryTypeA.h"

namespace norda::vision {

RadiometryTypeA::RadiometryTypeA(unsigned short cols, unsigned short rows, float resolution,
                                 const std::string& calibrationPath)
    : RadiometryBase(cols, rows, resolution, calibrationPath) {}

void RadiometryTypeA::completeConditions(RadiometricConditions&) const {}

std::vector<unsigned> RadiometryTypeA::requiredData() const {
    return commonRequiredData();
}

} // namespace norda::vision
