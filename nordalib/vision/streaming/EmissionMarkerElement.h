#pragma once
// EmissionMarkerElement: the emissivity of a surface from a reference label stuck on it.
//
// A label of known emissivity (EmissionMarker.MarkerEmissivity, 0.95) takes the temperature of
// the surface it sticks to. Found in the visual frame (EmissionMarkerFinder) and mapped into the
// temperature frame, the label's pixels, measured with the frame's emissivity, reflected
// temperature and protective glass and re-analysed with the label's own emissivity
// (vision::Reanalysis), give the surface's true temperature. The surface's own pixels around the
// label, measured with the same settings, then give its emissivity through the model's inverse:
//   eps = (S(measured) - S(Trefl)) / (S(Ttrue) - S(Trefl))   (window signals; Reanalysis::emissivity)
// The result is the mean of the last `averaging` measurements of the same label; it is marked
// valid once that many agree in place.
//
// Slots: inputs {visual slot, 4}; no outputs (both frames stay for later elements). The temperature
// frame must still carry its metadata (run it before the palette element) and show the moment of
// the visual frame (after the image buffer).
// Keys read: Registration.CalibrationFile, EmissionMarker.MarkerEmissivity, .Size, .SearchPoint;
//   frame metadata of slot 4: Radiometry.Planck, Environment.EmissivityValue and
//   .ReflectedTemperature, ProtectiveGlass.*, DeviceInfo.Uptime; of the visual frame:
//   Viscam.Timestamp, Viscam.CaptureTime.
// Keys written: EmissionMarker.Emissivity (Relation, mark 0 valid, 1 not), .SurfaceTemperature,
//   .Rect (the label in the infrared image), .Status: "Valid", "Measuring" (fewer than `averaging`
//   results so far), "NotFound", "OutsideImage" (the label is cut by the visual frame's border),
//   "PartlyCovered", "OutsideInfrared" (not wholly inside the temperature frame with its
//   surroundings), "TooSmall" (too far away), "LowContrast" (the surface is less than
//   `minContrast` kelvin from the reflected temperature: the emissivity is undetermined),
//   "SurfaceNotUniform" (the surroundings are no single surface), "UnderRange" / "OverRange" (a
//   pixel of the label or the surroundings below or beyond the scale: no temperature there),
//   "Implausible" (an emissivity under 0.02, or above 1 by more than 0.2 K of error in the
//   label's and the surface's temperatures explains: the label is not at the surface's
//   temperature; within that, 1), "NotAligned" (visual and
//   infrared frames of different moments), "NoCalibration", "BadFrame", "NoRadiometry" (no Planck
//   constants with the temperature frame).
// Command: EmissionMarker.Apply set true copies a valid emissivity into
//   Environment.EmissivityValue and resets itself.
// Trouble with the input is logged on "EMISSION_MARKER" once when it starts and once when it ends.

#include "nordalib/core/dataproxy/Observer.h"
#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/registration/EmissionMarkerFinder.h"
#include "nordalib/vision/registration/RegistrationCache.h"
#include "nordalib/vision/streaming/StreamingElement.h"

#include <deque>
#include <memory>
#include <string>

namespace norda::exp::streaming {

class EmissionMarkerElement : public StreamingElement {
public:
    // `averaging`: results averaged (at least 1); `minContrast`: kelvin between the surface and the
    // reflected temperature below which no emissivity is given. Throws for a null store.
    EmissionMarkerElement(DataProxy<std::string>* proxy, uint8_t averaging, uint8_t minContrast,
                          STREAMING_DATATYPE slot);
    ~EmissionMarkerElement() override;

    bool process(FrameMap& inputs, FrameMap& outputs) override;

private:
    struct Measurement {
        Measurement(std::string s = {}, double e = 0, double t = 0, cv::Rect r = {})
            : status(std::move(s)), emissivity(e), trueC(t), rect(r) {}
        std::string status;
        double emissivity, trueC;
        cv::Rect rect;
    };
    Measurement measure(const Frame& visual, const Frame& temperatures);
    void publish(const Measurement& m);
    void apply(bool requested);

    DataProxy<std::string>* m_proxy;
    uint8_t m_averaging;
    uint8_t m_minContrast;
    STREAMING_DATATYPE m_slot;
    std::shared_ptr<logging::Logger> m_logger;
    vision::EmissionMarkerFinder m_finder;
    vision::RegistrationCache m_registration;
    std::deque<double> m_recent;
    cv::Rect m_recentRect;
    std::string m_status, m_trouble;
    Subscription m_applySubscription;
};

} // namespace norda::exp::streaming
