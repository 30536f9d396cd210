#pragma once
// The overlay of saved pictures: what the camera's screen shows over the palette image (colour
// scale, spots and areas with their values, delta-T, emissivity, reflected temperature, date and
// time), drawn with the library's ThermalOverlay.
//
// The content comes from named values: the live store, or the settings and results saved with an
// image (its generic entries), so a re-analysed image gets the same overlay as a live one.
// OverlayPublisher draws it into Id::Images::GuiJpeg whenever the image writer starts a save
// (Id::Miscellaneous::SpinnerVisible goes true); the writer waits 500 ms before it blends it in.
// With picture-in-picture fusion in the JPEG, the marks follow the inset infrared image
// (Id::Fusion::InfraredPlacement).

#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/vision/overlay/OverlayFromValues.h"

#include <memory>
#include <string>

namespace nordacam {

using norda::vision::deltaTReading;
using norda::vision::DeltaTReading;
using norda::vision::overlayContent;
using norda::vision::overlayDateTime;
using norda::vision::storeLookup;
using norda::vision::ValueLookup;

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
