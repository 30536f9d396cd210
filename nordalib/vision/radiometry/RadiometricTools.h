#pragma once
// The 16-bit temperature encoding of radiometric frames, used by the whole library.
//
//   pixel = round((T[°C] + 273.15) * 100)        T[°C] = pixel / 100 - 273.15
//
// i.e. 0.01 K per count from absolute zero: 0 is -273.15 °C, 27315 is 0 °C, 65535 is 382.20 °C.
// Temperatures outside that span saturate at 0 or 65535. The order of pixel values is the order
// of temperatures, so extrema can be searched on raw pixels.

#include <cstdint>

namespace norda::vision {

class RadiometricTools {
public:
    static constexpr float kKelvinOffset = 273.15f;
    static constexpr float kCountsPerKelvin = 100.0f;

    // Pixel value to temperature in °C.
    static float getFloat(unsigned short pixel) { return static_cast<float>(pixel) / kCountsPerKelvin - kKelvinOffset; }
    // Temperature in °C to pixel value, rounded to the nearest count and saturated; NaN gives 0.
    static unsigned short getUint16(float celsius);
};

} // namespace norda::vision
