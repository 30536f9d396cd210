#include "nordalib/vision/radiometry/RadiometryTypeB.h"

namespace norda::vision {

RadiometryTypeB::RadiometryTypeB(unsigned short cols, unsigned short rows, float resolution,
                                 const std::string& calibrationPath)
    : RadiometryBase(cols, rows, resolution, calibrationPath) {}

void RadiometryTypeB::completeConditions(RadiometricConditions& c) const {
    const unsigned index = data().get<unsigned char>(RadiometryId::LensIndex);
    const auto& lenses = calibration().lenses;
    auto it = lenses.find(index);
    if (it == lenses.end())
        fail("no calibration for lens " + std::to_string(index) + " in " + calibrationFile(),
             "norda::vision::RadiometryTypeB::completeConditions");
    const auto serial = data().get<std::string>(RadiometryId::LensSerial);
    if (!it->second.serial.empty() && it->second.serial != serial)
        fail("lens " + std::to_string(index) + " has serial " + serial + " but " + calibrationFile() +
                 " is calibrated for serial " + it->second.serial,
             "norda::vision::RadiometryTypeB::completeConditions");
    c.lensTransmission = it->second.transmission;
    c.lensK = kelvinOf(RadiometryId::TlensCurrent);
    auto slow = parameters().get<bool>(RadiometryId::SlowFrameActive);
    c.gain = slow ? activeRange().slowFrameGain : 1.0;
}

std::vector<unsigned> RadiometryTypeB::requiredData() const {
    auto ids = commonRequiredData();
    ids.insert(ids.end(), {RadiometryId::LensIndex, RadiometryId::LensSerial, RadiometryId::TlensCurrent});
    return ids;
}

} // namespace norda::vision
