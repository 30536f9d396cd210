#include "nordalib/vision/radiometry/ObjectParameters.h"

#include "nordalib/core/exception/Exception.h"

#include <cmath>
#include <string>

namespace norda::vision {

void ObjectParameters::validate() const {
    auto check = [](bool ok, const std::string& what, double value) {
        if (!ok)
            NORDA_THROW(what + " " + std::to_string(value) + " is out of range",
                        "norda::vision::ObjectParameters::validate");
    };
    auto kelvin = [](double k) { return k > 0.0 && std::isfinite(k); };
    check(emissivity > 0.0 && emissivity <= 1.0, "emissivity (0, 1]", emissivity);
    check(kelvin(reflectedK), "reflected temperature (K, > 0)", reflectedK);
    check(tauPg > 0.0 && tauPg <= 1.0, "protective glass transmission (0, 1]", tauPg);
    check(emisPg >= 0.0 && emisPg < 1.0, "protective glass emissivity [0, 1)", emisPg);
    check(pgReflectance >= 0.0 && pgReflectance < 1.0, "protective glass reflectance [0, 1)", pgReflectance);
    check(tauPg + emisPg + pgReflectance <= 1.0 + 1e-6,
          "protective glass transmission + emissivity + reflectance (<= 1)", tauPg + emisPg + pgReflectance);
    check(!pgK || kelvin(*pgK), "protective glass temperature (K, > 0)", pgK.value_or(0.0));
    check(!pgReflectedK || kelvin(*pgReflectedK), "temperature reflected by the protective glass (K, > 0)",
          pgReflectedK.value_or(0.0));
    check(distanceM >= 0.0 && distanceM <= 10000.0, "object distance [0, 10000] m", distanceM);
    check(airK >= 223.15 && airK <= 333.15, "air temperature [223.15, 333.15] K", airK);
    check(humidityPercent >= 0.0 && humidityPercent <= 100.0, "relative humidity [0, 100] %",
          humidityPercent);
    check(!airTauSet || (*airTauSet > 0.0 && *airTauSet <= 1.0), "air transmission (0, 1]",
          airTauSet.value_or(0.0));
}

} // namespace norda::vision
