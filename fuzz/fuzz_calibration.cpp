// Calibration files on arbitrary bytes: the radiometric constants (JSON) and the bad-pixel file.
#include "FuzzSupport.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/imgproc/BadPixelMap.h"
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
    return 0;
}
