#pragma once
// The overlay of saved pictures: what the camera's screen shows over the palette image (colour
// scale, spots and areas with their values, delta-T, emissivity, reflected temperature, date and
// time), drawn by the library's frameOverlay from the metadata of the frame being saved, which
// OverlayFrameTap hands over in every cycle before the image writer sees the frame.
//
// OverlayPublisher draws it into Id::Images::GuiJpeg whenever the image writer starts a save
// (Id::Miscellaneous::SpinnerVisible goes true); the writer waits 500 ms before it blends it in.
// The pipeline stands still in that wait, so the last frame handed over is the one saved. With
// picture-in-picture fusion in the JPEG, the marks follow the inset infrared image
// (Id::Fusion::InfraredPlacement).

#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/vision/overlay/OverlayFromValues.h"

#include <mutex>
#include <string>

namespace nordacam {

using norda::vision::deltaTReading;
using norda::vision::DeltaTReading;
using norda::vision::metadataLookup;
using norda::vision::overlayContent;
using norda::vision::overlayDateTime;
using norda::vision::storeLookup;
using norda::vision::ValueLookup;

class OverlayPublisher {
public:
    explicit OverlayPublisher(norda::exp::DataProxy<std::string>& store);
    ~OverlayPublisher();
    // The display frame the image writer sees next: its metadata and image size.
    void frameShown(norda::exp::DataStorage<std::string> metadata, cv::Size imageSize);
    // Draws the overlay of that frame into Id::Images::GuiJpeg (nothing before the first frame).
    void publish();

private:
    norda::exp::DataProxy<std::string>& m_store;
    std::mutex m_mutex; // guards the frame, handed over on the pipeline's thread, drawn on the store's
    norda::exp::DataStorage<std::string> m_frame;
    cv::Size m_size;
    norda::exp::Subscription m_subscription;
};

} // namespace nordacam
