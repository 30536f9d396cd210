// The factory calibration's view folders on arbitrary text: the input as views.json beside a few
// small frame files (raw frames, a shutter frame, corrected frames), read as blackbody, flat-field,
// grid and stereo views; the views that load go through the radiometric and bad-pixel fits, whose
// input checks (saturation, drift, too few views, inconsistent fits) see what got through.
// Anything but a norda::Exception escaping is a find.
#include "FuzzSupport.h"
#include "apps/nordacam/CalibrationViews.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/imageio/PxmEncoder.h"

#include <opencv2/core.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

std::string g_folder;

void writeFrames(const std::string& file, const std::vector<cv::Mat>& frames) {
    std::ofstream out(g_folder + file, std::ios::binary | std::ios::trunc);
    norda::vision::PxmEncoder encoder;
    for (const auto& f : frames) {
        const auto e = encoder.encode(f, nullptr);
        out << *e.header;
        out.write(reinterpret_cast<const char*>(e.payload), static_cast<std::streamsize>(e.payloadSize));
    }
}

template <typename F> void attempt(F&& f) {
    try {
        f();
    } catch (const norda::Exception&) {
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("NORDA_LOG_LEVEL", "off", 0);
    g_folder = "/tmp/norda-fuzz-views-" + std::to_string(::getpid()) + "/";
    std::filesystem::create_directories(g_folder);
    std::atexit([] { std::filesystem::remove_all(g_folder); });
    // Frames the seeds name: a warm and a cold raw stack with a shutter frame, a saturated frame,
    // corrected frames and an 8-bit image where 16 bits are expected.
    cv::Mat warm(24, 32, CV_16UC1), cold(24, 32, CV_16UC1);
    cv::randu(warm, 9000, 9010);
    cv::randu(cold, 7000, 7010);
    writeFrames("warm.pxm", {warm, warm.clone()});
    writeFrames("cold.pxm", {cold, cold});
    writeFrames("shutter.pxm", {cv::Mat(24, 32, CV_16UC1, cv::Scalar(8000))});
    writeFrames("saturated.pxm", {cv::Mat(24, 32, CV_16UC1, cv::Scalar(65535))});
    writeFrames("corrected.pxm", {cv::Mat(24, 32, CV_16SC1, cv::Scalar(-120))});
    writeFrames("grey8.pxm", {cv::Mat(24, 32, CV_8UC1, cv::Scalar(128))});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    {
        std::ofstream json(g_folder + nordacam::CalibrationViews::kFileName,
                           std::ios::binary | std::ios::trunc);
        json.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    attempt([] {
        norda::vision::RadiometryFitSettings settings;
        const auto views = nordacam::CalibrationViews::blackbody(g_folder, settings);
        norda::vision::RadiometryFit(settings).fit(views);
    });
    attempt([] {
        const auto views = nordacam::CalibrationViews::flatFields(g_folder);
        norda::vision::BadPixelCalibration().find(views);
    });
    attempt([] {
        norda::vision::GridTarget target;
        nordacam::CalibrationViews::grid(g_folder, target);
    });
    attempt([] {
        norda::vision::GridTarget target;
        std::vector<norda::vision::LaserSpot> laser;
        nordacam::CalibrationViews::stereo(g_folder, target, laser);
    });
    return 0;
}
