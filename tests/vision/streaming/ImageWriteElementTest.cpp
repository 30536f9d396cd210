#include "nordalib/vision/streaming/ImageWriteElement.h"
#include "nordalib/core/cmd/CommandProxy.h"
#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/rix/Rix.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

using namespace norda::exp;
using namespace norda::exp::streaming;
using norda::logging::Logger;
using norda::logging::LogLevel;
using norda::vision::Rix;
namespace fs = std::filesystem;
using Temp = quantity::Temperature<MarkedFloat>;

namespace {

// The host's settings command, counting its calls.
class HostControl : public cmd::ICallable {
public:
    HostControl() : cmd::ICallable(Cmd::ApplicationControlGroup) {
        registerDelegate(new cmd::Delegate<void>([this] { ++calls; }),
                         cmd::DelegateDescription(Cmd::SaveUserSettings, typeid(void), "save settings", {}));
    }
    std::atomic<int> calls{0};
};

class ImageWriteTest : public ::testing::Test {
protected:
    void SetUp() override {
        setDefaultParameters(proxy);
        proxy.setValue(Id::Miscellaneous::SaveJpeg, false,
                       false); // the 500 ms overlay wait only where wanted
        proxy.setValue<unsigned int>(Id::Miscellaneous::ImageCounter, 41, false);
    }
    // Detached super-resolution threads use the store and the fixture: let them finish first.
    void TearDown() override { waitForSuperResolution(); }

    std::unique_ptr<ImageWriteElement> makeElement(STREAMING_DATATYPE visualSlot = STREAMING_DATATYPE_YUV422,
                                                   std::vector<std::string> keys = {
                                                       Id::Environment::Humidity}) {
        return std::make_unique<ImageWriteElement>(
            folder, &proxy, &commands, keys,
            [this](DataStorage<std::string> m) { gallery.push_back(std::move(m)); }, 3, busy, visualSlot);
    }

    static DataStorage<std::string> previewMetaData() {
        DataStorage<std::string> m;
        m.setValue(Id::Scaling::TempMax, Temp(MarkedFloat(40.0f)));
        m.setValue(Id::Scaling::TempMin, Temp(MarkedFloat(15.0f)));
        m.setValue(Id::Environment::EmissivityValue, 0.93f);
        m.setValue(Id::Environment::ReflectedTemperature, Temp(MarkedFloat(21.0f)));
        m.setValue(Id::Environment::Humidity, quantity::Relation<MarkedFloat>(MarkedFloat(0.5f)));
        return m;
    }
    // A textured radiometric frame around 27 °C, the palette preview, and a visual frame.
    FrameMap frames(cv::Size visual = {1024, 768}, STREAMING_DATATYPE visualSlot = STREAMING_DATATYPE_YUV422,
                    uint64_t seed = 1) {
        FrameMap in;
        cv::Mat_<uint16_t> rad(120, 160);
        cv::RNG rng(seed);
        rng.fill(rad, cv::RNG::UNIFORM, 29000, 31000);
        cv::GaussianBlur(rad, rad, cv::Size(0, 0), 1.0);
        in[STREAMING_DATATYPE_RAD_CONST] = std::make_unique<Frame>(rad);
        cv::Mat_<cv::Vec3b> rgb(120, 160, cv::Vec3b(10, 120, 230));
        in[STREAMING_DATATYPE_RGB] = std::make_unique<Frame>(rgb, previewMetaData());
        if (!visual.empty())
            in[visualSlot] = std::make_unique<Frame>(cv::Mat(visual, CV_8UC2, cv::Scalar(128, 60)));
        return in;
    }
    bool logged(const std::string& text, LogLevel level) const {
        const auto records = logs.records();
        return std::any_of(records.begin(), records.end(), [&](const norda::test::LogRecord& r) {
            return r.level == level && r.message.find(text) != std::string::npos;
        });
    }
    // One cycle of `e` on `in`; returns what the element left of its inputs.
    FrameMap cycle(ImageWriteElement& e, FrameMap in) {
        FrameMap out;
        e.process(in, out);
        return in;
    }
    FrameMap cycle(ImageWriteElement& e) { return cycle(e, frames()); }
    std::string file(const std::string& name) const { return folder + "/" + name; }
    void touch(const std::string& name) { std::ofstream(file(name)) << "old"; }
    // Waits for the end of the `srStarted` background calculations themselves (their last log
    // line), not for a busy flag that a thread which has not yet run has not raised.
    void waitForSuperResolution() {
        for (int i = 0; i < 3000 && logs.countPrefix("Calculate SuperResolutionImage END") < srStarted; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    int srStarted = 0;

    DataProxy<std::string> proxy;
    cmd::CommandProxy commands;
    std::atomic<bool> busy{false};
    norda::test::TempDir dir;
    std::string folder = dir.path().string();
    std::vector<DataStorage<std::string>> gallery;
    norda::test::LogCapture logs;
};

} // namespace

TEST_F(ImageWriteTest, Commands) {
    auto element = makeElement(STREAMING_DATATYPE_YUV422_HIRES);
    std::vector<std::string> described;
    for (const auto& d : commands.getDescriptions("ImageWrite")) {
        described.push_back(d.getName() + ": " + d.getDescription());
        for (const auto& p : d.getParameters())
            described.back() += ", " + typeName(p.getType()) + " " + p.getDescription();
        if (d.getName() == "CaptureImage") {
            EXPECT_EQ(d.getReturnType(), std::type_index(typeid(std::vector<char>)));
        }
    }
    std::sort(described.begin(), described.end());
    EXPECT_EQ(described,
              (std::vector<std::string>{"CaptureImage: Capture image and transfer",
                                        "TriggerImageSave: Save image, bool Set for preview image"}));

    // "TriggerImageSave" through the registry: the request and its bookkeeping.
    proxy.setValue(Id::Miscellaneous::LastImageFileName, std::string("old"), false);
    EXPECT_FALSE(commands.call("ImageWrite", "TriggerImageSave", {makeVariant(true)}));
    EXPECT_EQ(proxy.getValue<std::string>(Id::Miscellaneous::LastImageFileName), "");
    EXPECT_TRUE(proxy.getValue<bool>(Id::Miscellaneous::SaveImageMode));
}

TEST_F(ImageWriteTest, SaveReplacesFilesOfTheSameNumberAndAdvancesTheCounter) {
    HostControl host;
    commands.registerCallable(&host, false);
    proxy.setValue(Id::Miscellaneous::SaveJpeg, true, false);
    for (const char* name : {"IR000041.RIX", "SR000041.RIX", "TR000041.JPG", "XY000041.DAT"})
        touch(name);
    for (const char* name : {"IR000040.RIX", "IR000041.RIX.bak", "notes.txt", "TR000042.JPG"})
        touch(name);
    auto element = makeElement(STREAMING_DATATYPE_YUV422, {Id::Environment::Humidity, "Not.There"});
    element->triggerSave(false);

    auto in = frames();
    const cv::Mat rad = in[STREAMING_DATATYPE_RAD_CONST]->getFrameData().clone();
    const unsigned long long taken = 1764000000123ull; // the image's time is when its frame was taken
    in[STREAMING_DATATYPE_RGB]->getMetaData().setValue(Id::Images::DateTime, taken);
    FrameMap out;
    testing::internal::CaptureStdout(); // the missing key is reported there
    EXPECT_FALSE(element->process(in, out));
    testing::internal::GetCapturedStdout();

    for (const char* name : {"SR000041.RIX", "XY000041.DAT"})
        EXPECT_FALSE(fs::exists(file(name))) << name;
    for (const char* name : {"IR000040.RIX", "IR000041.RIX.bak", "notes.txt", "TR000042.JPG"})
        EXPECT_TRUE(fs::exists(file(name))) << name;
    Rix saved;
    saved.load(file("IR000041.RIX"));
    EXPECT_EQ(cv::norm(saved.getRadiometricImage(), rad, cv::NORM_INF), 0);
    EXPECT_EQ(saved.getVisualPreviewFactor(), 0.25f);
    EXPECT_EQ(saved.getEmissivityOriginal(), 0.93f);
    EXPECT_EQ(saved.getScalingMax().celsius(), 40.0f);
    EXPECT_EQ(saved.getFileVersion(), Version(2, 0, 0));
    EXPECT_EQ(saved.getFileDateTime(), taken);
    EXPECT_TRUE(saved.getGeneric(Id::Environment::Humidity));
    EXPECT_TRUE(fs::exists(file("TR000041.JPG")));

    EXPECT_EQ(proxy.getValue<unsigned int>(Id::Miscellaneous::ImageCounter), 42u);
    EXPECT_EQ(proxy.getValue<std::string>(Id::Miscellaneous::LastImageFileName), file("IR000041.RIX"));
    EXPECT_FALSE(proxy.getValue<bool>(Id::Miscellaneous::SpinnerVisible));
    EXPECT_FALSE(proxy.getValue<bool>(Id::Miscellaneous::ImageRealSave));
    EXPECT_EQ(host.calls, 1);

    // The request is done: the next cycle saves nothing.
    EXPECT_TRUE(cycle(*element)[STREAMING_DATATYPE_RAD_CONST]);
    EXPECT_EQ(proxy.getValue<unsigned int>(Id::Miscellaneous::ImageCounter), 42u);

    // A preview-mode save marks the real save; without a host command the failure is logged.
    commands.unregisterCallable(Cmd::ApplicationControlGroup);
    proxy.setValue(Id::Miscellaneous::SaveJpeg, false, false);
    element->triggerSave(true);
    cycle(*element);
    EXPECT_TRUE(fs::exists(file("IR000042.RIX")));
    EXPECT_TRUE(proxy.getValue<bool>(Id::Miscellaneous::ImageRealSave));
    EXPECT_TRUE(logged("Can not save user settings: ", LogLevel::error));
}

TEST_F(ImageWriteTest, FileNamesAndPlaceFolders) {
    auto element = makeElement();
    EXPECT_EQ(element->getFilename(0, "IR", "RIX"), folder + "/IR000000.RIX");
    EXPECT_EQ(element->getFilename(1234567, "IR", "RIX"), folder + "/IR1234567.RIX");

    // Without place tags the place folder is not even read.
    proxy.remove(Id::PlaceTag::MeasSiteFolder);
    EXPECT_EQ(element->getFilename(41, "SR", "RIX"), folder + "/SR000041.RIX");

    proxy.setValue(Id::PlaceTag::SiteInUse, true, false);
    proxy.setValue(Id::PlaceTag::MeasSiteFolder, std::string("/site1"), false);
    EXPECT_EQ(element->getFilename(41, "IR", "RIX"), folder + "/site1/IR000041.RIX");
    EXPECT_TRUE(fs::is_directory(folder + "/site1"));
    EXPECT_TRUE(
        logged("Site image folder " + folder + "/site1 does not exsists ... create it!", LogLevel::info));

    proxy.setValue(Id::PlaceTag::MeasSiteFolder, std::string("hall 2/line3/"), false);
    EXPECT_EQ(element->getFilename(41, "TR", "JPG"), folder + "/hall 2/line3/TR000041.JPG");

    // A place folder that cannot be made: logged, and the plain folder is used.
    touch("blocked");
    proxy.setValue(Id::PlaceTag::MeasSiteFolder, std::string("blocked/site"), false);
    EXPECT_EQ(element->getFilename(41, "IR", "RIX"), folder + "/IR000041.RIX");
    EXPECT_TRUE(
        logged("Could not create place tag image folder: " + folder + "/blocked/site!", LogLevel::error));

    // Saving into a place folder; superseded files are still looked for in the image folder.
    proxy.setValue(Id::PlaceTag::MeasSiteFolder, std::string("site1"), false);
    touch("TR000041.JPG");
    element->triggerSave(false);
    cycle(*element);
    EXPECT_TRUE(fs::exists(folder + "/site1/IR000041.RIX"));
    EXPECT_FALSE(fs::exists(file("TR000041.JPG")));
}

TEST_F(ImageWriteTest, FrameSelectionAndGalleryFrames) {
    auto element = makeElement();
    FrameMap out;

    // Gallery image: its metadata goes to the callback and nothing is saved, request or not.
    element->triggerSave(false);
    auto in = frames();
    in[STREAMING_DATATYPE_RAD_CONST]->addMetaDate(Id::Gallery::ActiveFilename, makeVariant("IR000007.RIX"));
    EXPECT_FALSE(element->process(in, out));
    ASSERT_EQ(gallery.size(), 1u);
    EXPECT_EQ(gallery[0].get<std::string>(Id::Gallery::ActiveFilename), "IR000007.RIX");
    EXPECT_TRUE(fs::is_empty(folder));

    // Missing preview: logged, request kept for the next complete cycle.
    auto partial = frames();
    partial.erase(STREAMING_DATATYPE_RGB);
    element->process(partial, out);
    EXPECT_TRUE(logged("Not all required frametypes available!", LogLevel::error));
    EXPECT_TRUE(fs::is_empty(folder));

    // Slots 6 and 7 both present: 6 is taken, 7 left alone.
    auto both = frames();
    both[STREAMING_DATATYPE_YUV422_HIRES] =
        std::make_unique<Frame>(cv::Mat(1944, 2592, CV_8UC2, cv::Scalar(1, 2)));
    both = cycle(*element, std::move(both));
    EXPECT_FALSE(both[STREAMING_DATATYPE_YUV422]);
    EXPECT_TRUE(both[STREAMING_DATATYPE_YUV422_HIRES]);
    Rix saved;
    saved.load(file("IR000041.RIX"));
    EXPECT_EQ(saved.getVisualImageYuv2().cols, 1024);

    // No visual frame at all: saved without one.
    element->triggerSave(false);
    cycle(*element, frames({}));
    saved.load(file("IR000042.RIX"));
    EXPECT_TRUE(saved.getVisualImageYuv2().empty());
}

TEST_F(ImageWriteTest, HighResolutionVisualSwitchesTheCameraAndWaitsForTheFullImage) {
    EXPECT_EQ(ImageWriteElement::visualPreviewFactor(2591), std::make_pair(0.25f, false));

    auto element = makeElement(STREAMING_DATATYPE_YUV422_HIRES);
    proxy.setValue(Id::Viscam::CurrentImageResolution, std::string("VGA"), false);
    element->triggerSave(false);
    for (int i = 0; i < 2; ++i) { // preview-sized frames until the camera has switched
        cycle(*element, frames({640, 480}, STREAMING_DATATYPE_YUV422_HIRES));
        EXPECT_EQ(proxy.getValue<std::string>(Id::Viscam::CurrentImageResolution),
                  Id::Viscam::Resolution::Qsxga);
    }
    EXPECT_TRUE(fs::is_empty(folder));
    EXPECT_EQ(proxy.getValue<unsigned int>(Id::Miscellaneous::ImageCounter), 41u);

    cycle(*element, frames({2592, 1944}, STREAMING_DATATYPE_YUV422_HIRES));
    EXPECT_EQ(proxy.getValue<std::string>(Id::Viscam::CurrentImageResolution), "VGA") << "old mode restored";
    Rix saved;
    saved.load(file("IR000041.RIX"));
    EXPECT_EQ(saved.getVisualImageYuv2().size(), cv::Size(2592, 1944));
    EXPECT_EQ(saved.getVisualPreviewFactor(), 1.0f / 12.0f);
    EXPECT_TRUE(saved.isVisualHighResolution());
}

TEST_F(ImageWriteTest, SuperResolutionCollectsFiveFramesThenFusesInTheBackground) {
    proxy.setValue(Id::Miscellaneous::SuperResolution, true, false);
    auto element = makeElement();
    element->triggerSave(false);
    for (int i = 0; i < 4; ++i) {
        cycle(*element);
        EXPECT_TRUE(fs::is_empty(folder)) << "cycle " << i;
    }
    cycle(*element);
    EXPECT_TRUE(fs::exists(file("IR000041.RIX")));
    EXPECT_EQ(proxy.getValue<unsigned int>(Id::Miscellaneous::ImageCounter), 42u);
    srStarted = 1;
    waitForSuperResolution();
    EXPECT_FALSE(busy);
    EXPECT_EQ(proxy.getValue<int>(Id::Miscellaneous::SuperResolutionCount), 0);
    Rix sr;
    ASSERT_NO_THROW(sr.load(file("SR000041.RIX")));
    EXPECT_TRUE(sr.isSuperResolutionFile());
    EXPECT_EQ(sr.getSuperResolutionImage().size(), cv::Size(320, 240));
    EXPECT_TRUE(logged("Sr: SR2 Calc Time: ", LogLevel::debug));
    Rix ir;
    ir.load(file("IR000041.RIX"));
    EXPECT_TRUE(ir.getSrFrames().empty());

    // The collected frames were cleared: the next image collects five again.
    element->triggerSave(false);
    for (int i = 0; i < 4; ++i)
        cycle(*element);
    EXPECT_FALSE(fs::exists(file("IR000042.RIX")));
}

TEST_F(ImageWriteTest, CaptureAndTransferHandsTheImageToTheWaitingCaller) {
    auto element = makeElement();
    FrameMap out;

    // In preview mode the command refuses at once.
    element->triggerSave(true);
    auto refused = commands.call("ImageWrite", "CaptureImage", {});
    ASSERT_TRUE(refused);
    EXPECT_TRUE(refused->value<std::vector<char>>().empty());
    cycle(*element); // the preview save itself
    proxy.setValue(Id::Miscellaneous::SaveImageMode, false, false);
    const auto counter = proxy.getValue<unsigned int>(Id::Miscellaneous::ImageCounter);

    proxy.setValue(Id::Miscellaneous::SuperResolution, true, false);
    auto result = std::async(std::launch::async, [&] {
        return commands.call("ImageWrite", "CaptureImage", {})->value<std::vector<char>>();
    });
    cv::Mat rad;
    for (int cycle = 0;
         result.wait_for(std::chrono::milliseconds(5)) != std::future_status::ready && cycle < 2000;
         ++cycle) {
        auto in = frames();
        rad = in[STREAMING_DATATYPE_RAD_CONST]->getFrameData().clone();
        element->process(in, out);
    }
    const auto bytes = result.get();
    ASSERT_FALSE(bytes.empty());
    Rix transferred;
    transferred.load(bytes, "transfer");
    EXPECT_EQ(cv::norm(transferred.getRadiometricImage(), rad, cv::NORM_INF), 0);
    EXPECT_EQ(transferred.getSrFrames().size(), 5u);
    EXPECT_EQ(proxy.getValue<unsigned int>(Id::Miscellaneous::ImageCounter), counter) << "no file written";
    EXPECT_FALSE(fs::exists(file("IR" + ImageWriteElement::getFormatedFileNumber(counter) + ".RIX")));
}

TEST_F(ImageWriteTest, DestroyingTheElementReleasesAWaitingCapture) {
    auto element = makeElement();
    auto result =
        std::async(std::launch::async, [&] { return commands.call("ImageWrite", "CaptureImage", {}); });
    ASSERT_EQ(result.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout)
        << "should be waiting";
    element.reset();
    const auto bytes = result.get();
    ASSERT_TRUE(bytes);
    EXPECT_TRUE(bytes->value<std::vector<char>>().empty());
}

TEST_F(ImageWriteTest, CaptureTimesOutAndTheRequestBecomesASave) {
    auto element = makeElement();
    EXPECT_EQ(element->transferTimeout(), std::chrono::seconds(15));
    element->setTransferTimeout(std::chrono::milliseconds(50));
    testing::internal::CaptureStdout();
    const auto bytes = element->triggerImageAndTransfer(); // no cycle ever runs
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error: Timeout waiting for image caputure!\n");
    EXPECT_TRUE(bytes.empty());
    // The request stays and becomes an ordinary save on the next cycle.
    cycle(*element);
    EXPECT_TRUE(fs::exists(file("IR000041.RIX")));
}

// (A file that can not be written: Faults.DiskFullWhileSavingAnImage...)
TEST_F(ImageWriteTest, UnusableFramesEndTheRequest) {
    auto element = makeElement();
    // Metadata without the scaling limits: the save is abandoned as a whole.
    auto noScaling = frames();
    noScaling[STREAMING_DATATYPE_RGB]->removeMetaDate(Id::Scaling::TempMax);
    element->triggerSave(false);
    cycle(*element, std::move(noScaling));
    EXPECT_TRUE(logged("Erro during process: Could not find parameter Scaling.TempMax", LogLevel::error));
    EXPECT_TRUE(cycle(*element)[STREAMING_DATATYPE_RAD_CONST]) << "request was cleared";

    // A radiometric frame of the wrong type is refused, not converted.
    auto eightBit = frames();
    eightBit[STREAMING_DATATYPE_RAD_CONST]->getFrameData() = cv::Mat(120, 160, CV_8UC1, cv::Scalar(7));
    element->triggerSave(false);
    cycle(*element, std::move(eightBit));
    EXPECT_TRUE(logged("Erro during process: radiometric image has type CV_8UC1, expected CV_16UC1",
                       LogLevel::error));
}

TEST_F(ImageWriteTest, SuperResolutionThreadBookkeeping) {
    cv::Mat_<uint16_t> scene(240, 320);
    cv::RNG(4).fill(scene, cv::RNG::UNIFORM, 29000, 31000);
    cv::GaussianBlur(scene, scene, cv::Size(0, 0), 1.0);
    const std::vector<cv::Mat_<uint16_t>> still(5, scene);
    Rix rix;
    rix.setRadiometricImage(scene);

    // Wrong number of frames: nothing happens at all.
    ImageWriteElement::calculateSuperResolutionImage(file("SR000001.RIX"), rix, {scene, scene}, &proxy, busy,
                                                     nullptr);
    EXPECT_EQ(proxy.getValue<int>(Id::Miscellaneous::SuperResolutionCount), 0);
    EXPECT_FALSE(busy);

    // Two images in quick succession; the first is on the remove list.
    proxy.setValue(Id::Miscellaneous::SuperResolutionDeleteRequest,
                   std::vector<std::string>{file("SR000001.RIX")}, false);
    std::thread first(&ImageWriteElement::calculateSuperResolutionImage, file("SR000001.RIX"), rix, still,
                      &proxy, std::ref(busy), nullptr);
    std::thread second(&ImageWriteElement::calculateSuperResolutionImage, file("SR000002.RIX"), rix, still,
                       &proxy, std::ref(busy), nullptr);
    first.join();
    second.join();
    proxy.flush();
    EXPECT_FALSE(fs::exists(file("SR000001.RIX")));
    EXPECT_TRUE(fs::exists(file("SR000002.RIX")));
    EXPECT_TRUE(
        logged("skip save " + file("SR000001.RIX") + " since it is one the remove list", LogLevel::debug));
    EXPECT_EQ(proxy.getValue<int>(Id::Miscellaneous::SuperResolutionCount), 0);
    EXPECT_FALSE(busy);
    EXPECT_TRUE(
        proxy.getValue<std::vector<std::string>>(Id::Miscellaneous::SuperResolutionDeleteRequest).empty());

    // Frames that moved too much: the movement warning and no file.
    std::vector<cv::Mat_<uint16_t>> moving;
    for (int i = 0; i < 5; ++i) {
        cv::Mat_<uint16_t> shifted;
        cv::Mat m = (cv::Mat_<double>(2, 3) << 1, 0, 8.0 * i, 0, 1, 0);
        cv::warpAffine(scene, shifted, m, scene.size(), cv::INTER_LINEAR, cv::BORDER_REFLECT101);
        moving.push_back(shifted);
    }
    ImageWriteElement::calculateSuperResolutionImage(file("SR000003.RIX"), rix, moving, &proxy, busy,
                                                     nullptr);
    EXPECT_TRUE(proxy.getValue<bool>(Id::Miscellaneous::WarnSrMovementDetected));
    EXPECT_FALSE(fs::exists(file("SR000003.RIX")));

    // A calculation that throws is logged with its two blanks.
    std::vector<cv::Mat_<uint16_t>> mixed = still;
    mixed[4] = cv::Mat_<uint16_t>(10, 10, uint16_t(0));
    ImageWriteElement::calculateSuperResolutionImage(file("SR000004.RIX"), rix, mixed, &proxy, busy, nullptr);
    EXPECT_TRUE(logged("SR Image " + file("SR000004.RIX") + "  Calculation fail: ", LogLevel::error));
    EXPECT_EQ(proxy.getValue<int>(Id::Miscellaneous::SuperResolutionCount), 0);
}

TEST(ImageWriteBlend, TwoLaneIntegerBlendMatchesPerChannelReference) {
    cv::Mat_<cv::Vec4b> over(37, 53), under(37, 53);
    cv::RNG rng(12);
    rng.fill(over, cv::RNG::UNIFORM, 0, 256);
    rng.fill(under, cv::RNG::UNIFORM, 0, 256);
    over(0, 0) = cv::Vec4b(255, 255, 255, 255); // opaque white: one step darker (255 * 255 >> 8)
    over(0, 1) = cv::Vec4b(200, 100, 50, 0);    // transparent: the under pixel scaled by 255/256
    const auto out = ImageWriteElement::blendArgb(over, under);
    ASSERT_EQ(out.size(), over.size());
    for (int r = 0; r < over.rows; ++r)
        for (int c = 0; c < over.cols; ++c) {
            const int a = over(r, c)[3];
            for (int ch = 0; ch < 3; ++ch)
                ASSERT_EQ(out(r, c)[ch], (over(r, c)[ch] * a + under(r, c)[ch] * (255 - a)) >> 8)
                    << r << "," << c;
            ASSERT_EQ(out(r, c)[3], a);
        }
    EXPECT_TRUE(ImageWriteElement::blendArgb(cv::Mat_<cv::Vec4b>(), under).empty());
    EXPECT_TRUE(ImageWriteElement::blendArgb(over, cv::Mat_<cv::Vec4b>(37, 52)).empty());
}

TEST_F(ImageWriteTest, JpegOverlayRules) {
    auto element = makeElement();
    cv::Mat_<cv::Vec3b> preview(120, 160);
    cv::RNG(5).fill(preview, cv::RNG::UNIFORM, 0, 256);

    // JPEG switched off: nothing written.
    proxy.setValue(Id::Miscellaneous::SaveJpeg, false, false);
    element->createJpegImage(preview, file("TR000001.JPG"));
    EXPECT_FALSE(fs::exists(file("TR000001.JPG")));

    // An opaque overlay mark shows in the JPEG.
    proxy.setValue(Id::Miscellaneous::SaveJpeg, true, false);
    cv::Mat overlay(240, 320, CV_8UC4, cv::Scalar::all(0));
    cv::rectangle(overlay, cv::Rect(100, 80, 60, 40), cv::Scalar(0, 0, 255, 255), cv::FILLED);
    proxy.setValue(Id::Images::GuiJpeg, overlay, false);
    element->createJpegImage(preview, file("TR000003.JPG"));
    const cv::Mat jpeg = cv::imread(file("TR000003.JPG"));
    ASSERT_EQ(jpeg.size(), cv::Size(640, 480));
    const auto mark = jpeg.at<cv::Vec3b>(200, 260);
    EXPECT_GT(mark[2], 240);
    EXPECT_LT(mark[0], 15);

    // A red display image is a red picture.
    proxy.setValue(Id::Images::GuiJpeg, cv::Mat(240, 320, CV_8UC4, cv::Scalar::all(0)), false);
    element->createJpegImage(cv::Mat_<cv::Vec3b>(120, 160, cv::Vec3b(255, 0, 0)), file("TR000009.JPG"));
    const cv::Vec3b red = cv::imread(file("TR000009.JPG")).at<cv::Vec3b>(240, 320); // B, G, R
    EXPECT_GT(red[2], 240);
    EXPECT_LT(red[0], 15);
}
