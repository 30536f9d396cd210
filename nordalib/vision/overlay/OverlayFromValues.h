#pragma once
// The content of the thermal overlay (ThermalOverlay) from named values, and the overlay of one
// frame drawn from its own metadata: its results, the settings it was shown with and the time it
// was taken. A saved picture, a saved image shown again and a report draw it from the same values,
// so the picture never shows other values or another time than the image it belongs to.

#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/core/datatypes/DataStorage.h"
#include "nordalib/vision/overlay/ThermalOverlay.h"
#include "nordalib/vision/rix/Rix.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace norda::vision {

// A named value or nullptr.
using ValueLookup = std::function<std::shared_ptr<norda::exp::Variant>(const std::string&)>;

ValueLookup storeLookup(const norda::exp::DataProxy<std::string>& store);
ValueLookup metadataLookup(const norda::exp::DataStorage<std::string>& metadata);

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
OverlayContent overlayContent(const ValueLookup& values, cv::Size imageSize, const std::string& dateTime);

// The names overlayContent reads: what a host copies into a frame that is drawn later.
const std::vector<std::string>& overlayKeys();

// The local time now (or of `msSinceEpoch`), as the status line shows it.
std::string overlayDateTime(unsigned long long msSinceEpoch = 0);

// The overlay of one frame from its metadata, with the time it was taken (Id::Images::DateTime)
// in the status line; without that time, none is shown. `infraredPlacement` as in OverlayContent.
OverlayContent frameOverlayContent(const norda::exp::DataStorage<std::string>& metadata, cv::Size imageSize,
                                   const std::vector<double>& infraredPlacement = {});
cv::Mat frameOverlay(const norda::exp::DataStorage<std::string>& metadata, cv::Size imageSize,
                     const std::vector<double>& infraredPlacement = {},
                     cv::Size canvasSize = cv::Size(320, 240), OverlayLayout* layout = nullptr);

// The metadata of the frame a saved image was taken from, as far as the image holds it: its
// generic entries, with its scaling, object parameters and time in their own fields.
norda::exp::DataStorage<std::string> savedFrameMetadata(const Rix& rix);

} // namespace norda::vision
