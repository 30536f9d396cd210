#pragma once
// Radiometric model of cameras with interchangeable lenses. On top of type A it models the lens:
// its transmission (from the calibration entry of LensIndex, whose serial must match LensSerial
// unless the entry's serial is empty) and its own emission at the lens temperature TlensCurrent.
// The model parameter SlowFrameActive selects the slow-frame mode, whose responsivity differs from
// the normal mode by the range's slowFrameGain.

#include "nordalib/vision/radiometry/RadiometryBase.h"

namespace norda::vision {

class RadiometryTypeB : public RadiometryBase {
public:
    RadiometryTypeB(unsigned short cols, unsigned short rows, float resolution,
                    const std::string& calibrationPath);

protected:
    void completeConditions(RadiometricConditions& conditions) const override;
    std::vector<unsigned> requiredData() const override;
};

} // namespace norda::vision
