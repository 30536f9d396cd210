#include "nordalib/vision/radiometry/RadiometricTools.h"

#include <cmath>

namespace norda::vision {

unsigned short RadiometricTools::getUint16(float celsius) {
    const double counts = std::round((static_cast<double>(celsius) + kKelvinOffset) * kCountsPerKelvin);
    if (!(counts > 0.0)) // also NaN
        return 0;
    if (counts >= 65535.0)
        return 65535;
    return static_cast<unsigned short>(counts);
}

} // namespace norda::vision
