#pragma once
// The overlay of saved pictures: what the camera's screen shows over the palette image (colour
// scale, spots and areas with their values, delta-T, emissivity, reflected temperature, date and
// time), drawn with the library's ThermalOverlay.
//
// The content comes from named values: the live store, or the settings and results saved with an
// image (its generic entries), so a re-analysed image gets the same overlay as a live one.
// OverlayPublisher draws it into Id::Images::GuiJpeg whenever the image writer starts a save
// (Id::Miscellaneous::SpinnerVisible goes true); the writer waits 500 ms before it blends it in.

#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/vision/overlay/ThermalOverlay.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace nordacam {

// A named value or nullptr.
using ValueLookup = std::function<std::shared_ptr<norda::exp::Variant>(const std::string&)>;

ValueLookup storeLookup(const norda::exp::DataProxy<std::string>& store);

// Delta-T as the screen shows it: DeltaT.First minus DeltaT.Second in the unit the two results
// are shown in. Temperatures differ in kelvin (DeltaT.Difference); in the humidity mode the
// results are relative humidities at the surface, and they differ in percentage points of
// relative humidity. None while delta-T is off or a result is not measured (in its unit).
struct DeltaTReading {
    std::string first, second;
    float difference = 0;
    bool humidity = false;
    const char* unit() const { return humidity ? "%pt" : "K"; } // %pt: percentage points of RH
    std::string label() const;                                  // "dT +1.2 K", "dRH +12.0 %pt"
};
std::optional<DeltaTReading> deltaTReading(const ValueLookup& values);

// `dateTime` goes into the status line as it is.
norda::vision::OverlayContent overlayContent(const ValueLookup& values, cv::Size imageSize,
                                             const std::string& dateTime);

// The local time now (or of `msSinceEpoch`), as the status line shows it.
std::string overlayDateTime(unsigned long long msSinceEpoch = 0);

class OverlayPublisher {
public:
    explicit OverlayPublisher(norda::exp::DataProxy<std::string>& store);
    ~OverlayPublisher();
    // Draws the overlay of the store's current values into Id::Images::GuiJpeg.
    void publish();

private:
    norda::exp::DataProxy<std::string>& m_store;
    norda::exp::Subscription m_subscription;
};

} // namespace nordacam
