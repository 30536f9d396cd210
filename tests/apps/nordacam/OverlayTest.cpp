#ifdef NORDACAM_CORE
// The overlay of saved pictures over the picture the JPEG shows: marks on what they mark in every
// fusion mode (the simulator's rig registers the visual camera), and the values and time of the
// image the picture belongs to.
#include "apps/nordacam/Overlay.h"

#include "apps/nordacam/Camera.h"
#include "apps/nordacam/RigRegistration.h"

#include "apps/nordacam/sim/SceneSimulator.h"

#include "nordalib/core/datatypes/MeasPoint.h"
#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/logging/Logger.h"
#include "nordalib/core/utils/FileUtils.h"
#include "nordalib/vision/registration/Fusion.h"
#include "nordalib/vision/rix/Rix.h"
#include "nordalib/vision/streaming/FusionElement.h"
#include "nordalib/vision/streaming/JpegImageCreator.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <filesystem>
#include <thread>

using namespace norda::exp;

namespace {

// The centroid of the pixels where `score` is above half its maximum and above `minimum`.
cv::Point2d centroidOf(const cv::Mat& score, double minimum = 0) {
    double top = 0;
    cv::minMaxLoc(score, nullptr, &top);
    const cv::Moments m = cv::moments(score > std::max(minimum, top / 2), true);
    return m.m00 > 0 ? cv::Point2d(m.m10 / m.m00, m.m01 / m.m00) : cv::Point2d(-1000, -1000);
}

} // namespace

// A green hot spot in the infrared image is found in the JPEG without overlay (where the fusion
// puts it); the hot-spot mark (red, its out-of-tolerance label amber) is found by differencing the
// JPEG with overlay against it, left of the colour scale.
TEST(NordacamOverlay, MarksSitOnWhatTheyMarkInEveryFusionMode) {
    using Temp = quantity::Temperature<MarkedFloat>;
    norda::test::TempDir dir;
    DataProxy<std::string> store;
    setDefaultParameters(store);
    nordacam::sim::SimulatorConfig config;
    nordacam::rigRegistration(config.rig, config.lens, {640, 480}).save(dir.file("registration.json"));
    store.setValue(Id::Registration::CalibrationFile, dir.file("registration.json"), false);
    store.setValue(Id::Miscellaneous::SaveJpeg, true, false);
    store.setValue(Id::Fusion::InJpeg, true, false);
    store.setValue(Id::Fusion::Alpha, 0.6f, false);
    const cv::Point hot(250, 60);
    DataStorage<std::string> frame;
    frame.setValue("MeasPoints.HotSpot.Visible", true);
    frame.setValue("MeasPoints.HotSpot.MeasPoint",
                   MeasPoint(hot.x, hot.y, Temp(MarkedFloat(80.0f, MarkedFloat::OutOfTolerance))));

    cv::Mat_<cv::Vec3b> preview(240, 320, cv::Vec3b(20, 30, 90));
    cv::rectangle(preview, cv::Rect(hot - cv::Point(2, 2), cv::Size(5, 5)), cv::Vec3b(0, 255, 0), cv::FILLED);
    const cv::Mat uyvy(480, 640, CV_8UC2, cv::Scalar(128, 128));
    norda::exp::streaming::JpegImageCreator creator(&store,
                                                    norda::logging::Logger::createSharedLogger("TEST", true));
    nordacam::OverlayPublisher publisher(store);
    publisher.frameShown(frame, {320, 240});
    norda::vision::Fusion display; // the display's fusion, which publishes the placement

    for (const char* mode : {"Off", "AlphaBlend", "PictureInPicture", "Edges"}) {
        SCOPED_TRACE(mode);
        store.setValue(Id::Fusion::Mode, std::string(mode), false);
        const auto m = norda::vision::Fusion::modeOf(mode);
        if (m != norda::vision::FusionMode::Off) {
            const norda::vision::Registration r =
                norda::vision::Registration::load(dir.file("registration.json"));
            display.compose(m, preview, uyvy, r, norda::exp::streaming::FusionElement::distance(store), 0.6f);
        }
        store.setValue(Id::Fusion::InfraredPlacement,
                       m == norda::vision::FusionMode::PictureInPicture ? display.infraredPlacement()
                                                                        : std::vector<double>(),
                       false);

        store.setValue(Id::Images::GuiJpeg, cv::Mat(240, 320, CV_8UC4, cv::Scalar::all(0)), false);
        creator.createJpegImage(preview, dir.file("plain.jpg"), uyvy);
        publisher.publish();
        creator.createJpegImage(preview, dir.file("marked.jpg"), uyvy);
        const cv::Mat plain = cv::imread(dir.file("plain.jpg")), marked = cv::imread(dir.file("marked.jpg"));
        ASSERT_EQ(marked.size(), cv::Size(640, 480));
        std::filesystem::create_directories(std::string(NORDA_BINARY_DIR) + "/test-pictures");
        cv::imwrite(std::string(NORDA_BINARY_DIR) + "/test-pictures/fusion-" + mode + ".png",
                    marked); // for a look

        const cv::Rect left(0, 0, 560, 440); // clear of the colour scale and the status line
        cv::Mat p[3], k[3], change;
        cv::split(cv::Mat(plain, left), p);
        cv::split(cv::Mat(marked, left), k);
        cv::Mat green, red;
        cv::subtract(p[1], cv::max(p[0], p[2]), green, cv::noArray(), CV_32F);
        const cv::Point2d spot = centroidOf(green, 40);
        cv::absdiff(plain, marked, change);
        cv::cvtColor(cv::Mat(change, left), change, cv::COLOR_BGR2GRAY);
        cv::Mat_<float> redness(left.size(), 0.0f);
        for (int y = 0; y < left.height; ++y)
            for (int x = 0; x < left.width; ++x)
                if (change.at<uchar>(y, x) > 40)
                    redness(y, x) = float(std::min(int(k[2].at<uchar>(y, x)) - k[1].at<uchar>(y, x),
                                                   int(k[2].at<uchar>(y, x)) - k[0].at<uchar>(y, x)));
        const cv::Point2d mark = centroidOf(redness, 90);
        EXPECT_LT(cv::norm(mark - spot), 4.0) << "spot " << spot << " mark " << mark;
        if (m == norda::vision::FusionMode::PictureInPicture) { // the inset moves it well off full frame
            EXPECT_GT(cv::norm(spot - cv::Point2d(2 * hot.x + 1, 2 * hot.y + 1)), 10.0);
        }
    }
}

// The live values move on between the frame being saved and the overlay's draw (the hot spot
// jumps, the emissivity changes): the picture still shows the saved image's values and time, as
// the RIX reader gives them back from the file, drawn over the file's own preview image.
TEST(NordacamOverlay, PictureShowsTheValuesAndTimeOfItsImage) {
    using Temp = quantity::Temperature<MarkedFloat>;
    norda::test::TempDir dir;
    nordacam::CameraOptions o;
    o.outputDir = dir.file("out");
    o.realTime = false;
    o.visual = false;
    o.sim.uptimeStartMs = 130000;
    nordacam::Camera camera(o);
    auto& store = camera.store();
    store.setValue(Id::MeasPoints::HotSpot::Visible, true, true);
    store.setValue(Id::Environment::EmissivityValue, 0.9f, true); // not the default: a value of its own
    for (int i = 0; i < 3; ++i)
        camera.runCycle();
    // Queued on the store's notifier before the saving signal, this runs before the overlay is
    // drawn: it waits for the save to start, then moves the live values on.
    auto moveOn = store.subscribeValue<std::string>(
        Id::Miscellaneous::LastImageFileName, [&store](const std::string& name) {
            if (!name.empty())
                return;
            const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
            while (!store.getValue<bool>(Id::Miscellaneous::SpinnerVisible) &&
                   std::chrono::steady_clock::now() < until)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            store.setValue(Id::Environment::EmissivityValue, 0.5f, false);
            store.setValue(Id::MeasPoints::HotSpot::MeasPoint, MeasPoint(40, 40, Temp(MarkedFloat(444.0f))),
                           false);
        });
    const auto before = norda::utils::getSystemDateTime();
    const std::string name = camera.saveImage(std::chrono::seconds(20));
    const auto after = norda::utils::getSystemDateTime();
    moveOn.reset();

    norda::vision::Rix rix;
    rix.load(name);
    EXPECT_GE(rix.getFileDateTime(), before);
    EXPECT_LE(rix.getFileDateTime(), after);
    ASSERT_EQ(store.getValue<float>(Id::Environment::EmissivityValue), 0.5f) << "the live values moved on";
    EXPECT_NE(rix.getEmissivityOriginal(), 0.5f);
    const cv::Mat expected = norda::exp::streaming::JpegImageCreator::composeJpegImage(
        rix.getPreviewImageRgb(), norda::vision::frameOverlay(norda::vision::savedFrameMetadata(rix),
                                                              rix.getRadiometricImage().size()));
    const std::filesystem::path file(name);
    const auto jpeg = file.parent_path() / ("TR" + file.stem().string().substr(2) + ".JPG");
    const cv::Mat picture = cv::imread(jpeg.string());
    ASSERT_EQ(picture.size(), cv::Size(640, 480)) << jpeg;
    cv::Mat bgr, diff;
    cv::cvtColor(expected, bgr, cv::COLOR_BGRA2BGR);
    cv::absdiff(bgr, picture, diff);
    cv::cvtColor(diff, diff, cv::COLOR_BGR2GRAY);
    EXPECT_LT(cv::countNonZero(diff > 60), 40) << "pixels of the picture that its image does not show";
}

#endif
