#pragma once
// Dew point and surface humidity from the Magnus formula with the Sonntag (1990) constants over
// water:  Es(T) = 6.112 hPa * exp(17.62 * T / (243.12 °C + T)).
//
// Valid for air and surface temperatures of -45 ... 60 °C and relative humidities of (0, 100] %;
// within that range the formula agrees with the exact saturation pressure to about 0.1 %, i.e.
// dew points to better than 0.1 °C. Inputs outside it are clamped into it and the result is
// marked invalid (MarkedFloat::OutOfTolerance), so a published value is never NaN or infinite.
// A dew point below -45 °C (very dry air) is marked the same way. Inputs that already carry a
// mark pass their mark on (a range mark wins over OutOfTolerance).

#include "nordalib/core/datatypes/Quantity.h"

namespace norda::vision {

class DewPoint {
public:
    using Temperature = exp::quantity::Temperature<exp::MarkedFloat>;
    using Relation = exp::quantity::Relation<exp::MarkedFloat>;

    static constexpr float kMinTemperature = -45.0f;
    static constexpr float kMaxTemperature = 60.0f;

    // Saturation vapour pressure over water in hPa (no range check).
    static double saturationPressure(double celsius);

    // Dew point of air at `airTemperature` with relative humidity `humidity`, in °C.
    static Temperature calcDewPoint(const Temperature& airTemperature, const Relation& humidity);

    // Relative humidity right at a surface of `surfaceTemperature` in air of `airTemperature` and
    // `humidity`: the air's vapour pressure over the saturation pressure at the surface.
    // 100 % at the dew point; above 100 % water condenses. Capped at 1000 %.
    static Relation calcSurfaceMoisture(const Temperature& surfaceTemperature,
                                        const Temperature& airTemperature, const Relation& humidity);
};

} // namespace norda::vision
