#include "nordalib/vision/radiometry/RadiometryTypeA.h"

namespace norda::vision {

RadiometryTypeA::RadiometryTypeA(unsigned short cols, unsigned short rows, float resolution,
                                 const std::string& calibrationPath)
    : RadiometryBase(cols, rows, resolution, calibrationPath) {}

void RadiometryTypeA::completeConditions(RadiometricConditions&) const {}

std::vector<unsigned> RadiometryTypeA::requiredData() const {
    return {RadiometryId::Emis,
            RadiometryId::Treflected,
            RadiometryId::TboardCurrent,
            RadiometryId::TboardShuttering,
            RadiometryId::TShutterShuttering,
            RadiometryId::MeasRange,
            RadiometryId::TBoardSlope,
            RadiometryId::TauPg,
            RadiometryId::EmisPg};
}

} // namespace norda::vision
