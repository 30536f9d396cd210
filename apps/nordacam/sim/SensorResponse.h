#pragma once
// How the simulated detector turns temperatures into signal counts.
//
// The simulator needs the inverse of the camera's radiometric model: the counts (above the
// detector's dark level, before the per-pixel gain spread) that an object of a given temperature
// produces under given measurement conditions, the counts of the closed shutter, and the counts
// the detector picks up from its own warming since the shutter last closed. The radiometry
// element inverts the same model, so a simulated object is measured at its true temperature as
// long as both sides use the same calibration.

#include <memory>
#include <string>

namespace nordacam::sim {

struct Conditions {
    float emissivity = 0.95f;
    float reflectedC = 20.0f;
    unsigned char range = 1;
    float shutterC = 25.0f;        // the shutter at the last offset capture
    float boardC = 30.0f;          // the detector board now
    float boardAtShutterC = 30.0f; // the detector board at the last offset capture
    float boardSlope = 0.0f;       // kelvin per minute
    float lensC = 25.0f;
    unsigned char lensIndex = 1;
    bool glass = false;
    float glassTransmission = 1.0f;
    float glassEmissivity = 0.0f;
    bool operator==(const Conditions&) const = default;
};

class SensorResponse {
public:
    virtual ~SensorResponse() = default;
    virtual std::string describe() const = 0;
    // Counts of an object at `objectC` seen through glass and lens, reflections included.
    virtual float sceneCounts(float objectC, const Conditions& conditions) const = 0;
    // Counts of the closed shutter at conditions.shutterC (what the offset frame holds).
    virtual float shutterCounts(const Conditions& conditions) const = 0;
    // Counts from the board's warming since the shutter closed (the same for every pixel).
    virtual float driftCounts(const Conditions& conditions) const = 0;
};

// A grey body in a narrow long-wave band (Planck's law at one wavelength), scaled by a
// responsivity per measurement range; the high ranges trade gain for headroom. No drift. Used
// when no calibration of the radiometry library is at hand.
class PlanckResponse final : public SensorResponse {
public:
    // `countsPerKelvin` near 30 °C in range 1; range r >= 2 has a quarter of that gain.
    explicit PlanckResponse(float countsPerKelvin = 40.0f, float wavelengthUm = 10.0f);
    std::string describe() const override;
    float sceneCounts(float objectC, const Conditions& conditions) const override;
    float shutterCounts(const Conditions& conditions) const override;
    float driftCounts(const Conditions&) const override { return 0.0f; }

private:
    double radiance(double kelvin) const;
    double responsivity(unsigned char range) const;
    double m_b;
    double m_responsivity;
};

// The camera model of the radiometry library run backwards with the calibration in
// `calibrationDir` when the directory holds one; otherwise a PlanckResponse. Only the GStreamer
// simulator source still uses it; the host runs makePhysicalResponse().
std::shared_ptr<const SensorResponse> makeResponse(const std::string& calibrationDir);
// The physical camera simulator's detector (PhysicalResponse): what the live host and demo run.
std::shared_ptr<const SensorResponse> makePhysicalResponse();

} // namespace nordacam::sim
