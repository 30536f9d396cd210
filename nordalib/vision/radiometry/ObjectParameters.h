#pragma once
// ObjectParameters: the object side of the camera model, what a user sets for the surface being
// measured and for what lies between it and the camera (air and an external window). ObjectSignal
// evaluates the signal equation they define.

#include <optional>

namespace norda::vision {

struct ObjectParameters {
    double emissivity = 1.0;    // (0, 1]
    double reflectedK = 293.15; // > 0
    double tauPg = 1.0;         // external window transmission, (0, 1]; 1 without a window
    double emisPg = 0.0;        // external window emissivity, [0, 1); 0 without a window
    // Air between object and camera (window side). Distance 0 means no air path.
    double distanceM = 0.0;                         // [0, 10000]
    double airK = 293.15;                           // [223.15, 333.15], -50 to +60 °C
    double humidityPercent = 50.0;                  // relative humidity [0, 100]
    std::optional<double> airTauSet = std::nullopt; // a known air transmission (0, 1] replaces the model's
    // External window: reflectance toward the camera and the temperatures of the window and of what
    // it reflects; unset, both are the reflected temperature (the window at ambient).
    double pgReflectance = 0.0; // [0, 1); tauPg + emisPg + pgReflectance <= 1
    std::optional<double> pgK = std::nullopt;
    std::optional<double> pgReflectedK = std::nullopt;

    bool operator==(const ObjectParameters&) const = default;
    // Throws norda::Exception naming the first parameter out of its range and the range.
    void validate() const;
};

} // namespace norda::vision
