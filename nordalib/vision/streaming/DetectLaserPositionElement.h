#pragma once
// DetectLaserPositionElement: finds the laser pointer's spot in the visual frame and puts its
// position in the infrared image into the store, so that the min/max element measures there.
//
// The spot (LaserSpotDetector: clipping red, small and round, on the laser's line) gives the
// distance of the surface from the laser's parallax; at that distance, or at the distance setting
// when Registration.UseLaserDistance is false, the registration maps it into the infrared image.
// Visual and infrared frames must show the same moment: the host runs this after the image buffer.
//
// Slots: inputs {the constructor's slot, 3}, the visual slot out (pass-through; neither frame is
// changed). The temperature frame gives the size of the infrared image the spot is placed in.
// Keys read: Registration.CalibrationFile (loaded at the first frame and again when it changes),
//   Registration.UseLaserDistance, Registration.Distance; frame metadata Viscam.Timestamp.
// Keys written: MeasPoints.LaserSpot.Visible (bool) and .Position (cv::Point_<int>, the infrared
//   pixel the spot lies on), Laser.InfraredPosition (std::vector<double> {x, y}: the spot's
//   infrared position, sub-pixel), Laser.Distance (float, m, from the sub-pixel spot; 0 without a
//   spot), Laser.VisualPosition (cv::Point_<int>),
//   Laser.Status: "Found", "NotFound", "Ambiguous" (several spots), "OutsideInfrared" (seen by the
//   visual camera only), "NoCalibration", "BadFrame" (another type, an odd width or an aspect that
//   is no readout of the calibrated camera), "StaleFrame" (a frame not newer than the last),
//   "NoFrame" (a cycle without a visual or a temperature frame, when the host runs the element
//   without one).
// Visible is true only with "Found". Trouble with the input (NoCalibration, BadFrame,
// StaleFrame) is logged once when it starts and once when it ends, on the "LASER_POS" logger.

#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/registration/LaserSpotDetector.h"
#include "nordalib/vision/registration/RegistrationCache.h"
#include "nordalib/vision/streaming/StreamingElement.h"

#include <memory>
#include <string>

namespace norda::exp::streaming {

class DetectLaserPositionElement : public StreamingElement {
public:
    // Throws for a null store.
    DetectLaserPositionElement(DataProxy<std::string>* proxy, STREAMING_DATATYPE slot);

    bool process(FrameMap& inputs, FrameMap& outputs) override;

private:
    std::string locate(const Frame& frame, cv::Size irSize);
    void publish(const std::string& status, const vision::LaserSpotDetector::Spot* spot,
                 cv::Point2d infrared);
    void report(const std::string& status, const std::string& detail);

    DataProxy<std::string>* m_proxy;
    STREAMING_DATATYPE m_slot;
    std::shared_ptr<logging::Logger> m_logger;
    vision::LaserSpotDetector m_detector;
    vision::RegistrationCache m_registration;
    unsigned long long m_lastTimestamp = 0;
    bool m_haveTimestamp = false;
    std::string m_status;
    std::string m_trouble; // the input trouble being reported, empty when none
};

} // namespace norda::exp::streaming
