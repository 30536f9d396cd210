// Calibration files on arbitrary bytes: the radiometric constants (JSON), the bad-pixel file and
// the distortion table.
#include "FuzzSupport.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/imgproc/BadPixelMap.h"
#include "nordalib/vision/imgproc/DistortionCorrection.h"
#include "nordalib/vision/imgproc/DistortionTable.h"
#include "nordalib/vision/radiometry/RadiometricCalibration.h"

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
    return 0;
}
