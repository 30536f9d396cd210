#pragma once
// AutoSpanHint: display scaling for building inspection from the inside and outside temperature.
//
// Building physics judges an inside surface by its temperature factor
//
//     f = (T_surface - T_out) / (T_in - T_out)
//
// which is 1 for a surface at room temperature and 0 for one at outside temperature. Below
// f = 0.7 the surface stays so cold, at the usual 20 °C / 50 % indoor climate, that the air next
// to it exceeds 80 % relative humidity and mould can grow. The critical surface temperature is
// therefore T_crit = T_out + 0.7 * (T_in - T_out) = 0.7 * T_in + 0.3 * T_out.
//
// The hint chooses a colour scale around the surfaces the camera sees that always contains
// T_crit well inside the span, so a thermal bridge shows up as a colour change at the critical
// temperature rather than being clipped at an end of the scale:
//   1. half-span  = spanFactor * |T_in - T_out|, at least kMinSpan / 2;
//   2. centre     = imageWeight * T_image + (1 - imageWeight) * T_crit;
//   3. the span is shifted, if needed, so that T_crit keeps kEdgeMargin of the span to either end;
//   4. the span is shifted into the encodable range of the 16-bit radiometric pixels.
// With T_in == T_out (no heating) the temperature factor is undefined; the formulas above need no
// division, so the hint degrades to a kMinSpan-wide scale around the image and the room
// temperature. Non-finite factors fall back to their usual values (0.7, 0.3, 0.7).

#include "nordalib/core/datatypes/Quantity.h"

namespace norda::vision {

class AutoSpanHint {
public:
    using Temperature = exp::quantity::Temperature<exp::MarkedFloat>;

    static constexpr double kMinSpan = 5.0;    // degrees: same minimum as automatic scaling
    static constexpr double kEdgeMargin = 0.1; // fraction of the span between T_crit and an end

    struct Span {
        double minimum = 0;  // °C
        double maximum = 0;  // °C
        double critical = 0; // °C, T_crit (NaN when the climate temperatures are unusable)
    };

    // The scale in °C.
    //   criticalFactor  temperature factor of the mould-risk limit (usually 0.7): surfaces with a
    //                   lower f are at risk; it defines T_crit.
    //   spanFactor      half-width of the span in temperature-factor units (usually 0.3): with
    //                   T_crit in the middle the span covers f = 0.4 ... 1.0, i.e. from clearly
    //                   critical surfaces up to room temperature.
    //   imageWeight     how strongly the span follows the image's mean temperature instead of
    //                   T_crit (usually 0.7; 0 centres on T_crit, 1 on the image).
    // A temperature counts as usable when a radiometric pixel can hold it (-273.15 ... 382.2 °C;
    // NaN, infinity and the largest float are not). Without usable inside and outside temperatures
    // the span is kMinSpan around the image temperature; without that either, the result is NaN
    // and the 16-bit overload leaves its limits unchanged.
    static Span calculateSpan(const Temperature& tempIn, const Temperature& tempOut,
                              const Temperature& imageTemperature, float criticalFactor, float spanFactor,
                              float imageWeight);

    // The same scale as 16-bit radiometric pixel values (RadiometricTools encoding). Returns false,
    // leaving `min` and `max` untouched, when no temperature was usable.
    static bool calculateAutoSpanHint(unsigned short& min, unsigned short& max, const Temperature& tempIn,
                                      const Temperature& tempOut, const Temperature& imageTemperature,
                                      float criticalFactor, float spanFactor, float imageWeight);
};

} // namespace norda::vision
