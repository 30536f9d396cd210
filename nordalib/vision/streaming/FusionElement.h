#pragma once
// FusionElement: puts the visual camera's image into the display image (vision::Fusion) in the
// mode of Fusion.Mode: Off (untouched), PictureInPicture, AlphaBlend (Fusion.Alpha of the
// infrared) or Edges. It registers at the laser's distance while a spot is seen and
// Registration.UseLaserDistance is set, at Registration.Distance otherwise.
//
// Slots: inputs {5, visual slot}; output {5}: the fused display image replaces the palette image
// (metadata moved along). Run it after the image writer when saved previews are to stay infrared.
// Keys read: Fusion.Mode, Fusion.Alpha, Registration.CalibrationFile, .Distance,
//   .UseLaserDistance, Laser.Status, Laser.Distance. Written: Fusion.InfraredPlacement.
// Without a calibration, with an unknown mode or a visual frame of another type or aspect the
// display image passes unchanged; the trouble is logged once when it starts and once when it ends
// on the "FUSION" logger.

#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/registration/Fusion.h"
#include "nordalib/vision/registration/RegistrationCache.h"
#include "nordalib/vision/streaming/StreamingElement.h"

#include <memory>
#include <string>
#include <vector>

namespace norda::exp::streaming {

class FusionElement : public StreamingElement {
public:
    FusionElement(DataProxy<std::string>* proxy, STREAMING_DATATYPE visualSlot);
    bool process(FrameMap& inputs, FrameMap& outputs) override;

    // The distance the images are registered at (m): the laser's while a spot is seen and
    // Registration.UseLaserDistance is set, Registration.Distance otherwise; at least 0.1 m.
    static double distance(DataProxy<std::string>& proxy);

private:
    void publishPlacement(const std::vector<double>& placement);

    DataProxy<std::string>* m_proxy;
    STREAMING_DATATYPE m_slot;
    std::shared_ptr<logging::Logger> m_logger;
    vision::Fusion m_fusion;
    vision::RegistrationCache m_registration;
    std::string m_trouble;
    std::vector<double> m_placement;
};

} // namespace norda::exp::streaming
