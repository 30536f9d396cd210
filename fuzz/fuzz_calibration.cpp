// Calibration files on arbitrary bytes: the radiometric constants (JSON), the bad-pixel file, the
// distortion table and the registration of the visual camera (JSON).
#include "FuzzSupport.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/imgproc/BadPixelMap.h"
#include "nordalib/vision/imgproc/DistortionCorrection.h"
#include "nordalib/vision/imgproc/DistortionTable.h"
#include "nordalib/vision/radiometry/RadiometricCalibration.h"
#include "nordalib/vision/registration/Registration.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto& path = norda::fuzz::writeScratch(data, size);
    try {
        (void)norda::vision::RadiometricCalibration::load(path);
    } catch (const norda::Exception&) {
    }
    try {
        cv::Size sensor;
        (void)norda::vision::BadPixelMap::read(path, &sensor);
    } catch (const norda::Exception&) {
    }
    try {
        // A table that loads must be safe to apply: every entry reads inside the frame.
        norda::vision::DistortionCorrection<unsigned short> correction(path, 4, 6);
        cv::Mat frame(4, 6, CV_16UC1, cv::Scalar(1000)), out;
        correction.processImpl(frame, out);
    } catch (const norda::Exception&) {
    }
    try {
        // A registration that loads must be safe to use the way the chain does: points both ways,
        // the laser's distance, the fusion maps of a (small) infrared frame.
        const auto r = norda::vision::Registration::load(path);
        const cv::Size visual = r.visual.size, visualHalf(visual.width / 2, visual.height / 2);
        const cv::Point2d centre(visual.width / 2.0, visual.height / 2.0);
        const cv::Size infrared(8, 6);
        for (const double distance : {0.3, 1.0, 1e6}) {
            (void)r.infraredToVisual(r.visualToInfrared(centre, distance, visual, infrared), distance, visual,
                                     infrared);
            (void)r.laserInVisual(distance, visual);
            cv::Mat mapX, mapY;
            r.infraredToVisualMaps(distance, infrared, visual, mapX, mapY);
        }
        (void)r.laserTriangulation(centre, visual, infrared);
        (void)r.visualAt(visualHalf);
    } catch (const norda::Exception&) {
    }
    return 0;
}
