// Sensor correction at 640 x 480: each stage beside the OpenCV operation doing the nearest job,
// and the whole chain from raw counts to the undistorted temperature frame.
#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/imgproc/BadPixelCorrector.h"
#include "nordalib/vision/imgproc/DistortionCorrection.h"
#include "nordalib/vision/imgproc/GainTable.h"
#include "nordalib/vision/imgproc/SpatialNoiseRemover.h"
#include "nordalib/vision/imgproc/StaticPatternRemover.h"
#include "nordalib/vision/imgproc/TemporalNoiseReduction.h"
#include "nordalib/vision/radiometry/RadiometryTypeA.h"
#include "nordalib/vision/streaming/BadPixelElement.h"
#include "nordalib/vision/streaming/DistortionElement.h"
#include "nordalib/vision/streaming/GainElement.h"
#include "nordalib/vision/streaming/OffsetElement.h"
#include "nordalib/vision/streaming/RadiometryElement.h"
#include "nordalib/vision/streaming/SnrElement.h"
#include "nordalib/vision/streaming/SprElement.h"
#include "nordalib/vision/streaming/TnrElement.h"

#include <benchmark/benchmark.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <filesystem>
#include <random>

using namespace norda;
using namespace norda::vision;
using namespace norda::exp;
using namespace norda::exp::streaming;

namespace {
const cv::Size kSize(640, 480);
const std::string kCalibration = std::string(NORDA_SOURCE_DIR) + "/data/calibration/";

cv::Mat noisyRaw(int seed = 1) {
    cv::Mat raw(kSize, CV_16U);
    cv::randn(raw, 8000, 40);
    (void)seed;
    return raw;
}
cv::Mat noisyCorrected() {
    cv::Mat c(kSize, CV_16S);
    cv::randn(c, 1500, 30);
    return c;
}
cv::Mat lensMatrix() {
    return (cv::Mat_<double>(3, 3) << 576, 0, 319.5, 0, 576, 240.5, 0, 0, 1);
}
const cv::Mat kBarrel = (cv::Mat_<double>(1, 5) << -0.32, 0.11, 0.001, -0.0008, -0.02);

// OpenCV spreads large operations over its thread pool; the comparison is per core.
struct OneThread {
    OneThread() : previous(cv::getNumThreads()) { cv::setNumThreads(1); }
    ~OneThread() { cv::setNumThreads(previous); }
    int previous;
};

// Gains of a typical detector: 0.2 % spread.
cv::Mat someGains() {
    cv::Mat g(kSize, CV_32F);
    cv::theRNG().state = 3;
    cv::randn(g, 1.0, 0.002);
    return g;
}

BadPixelList someBadPixels() {
    std::mt19937 rng(5);
    BadPixelList list;
    for (int i = 0; i < 1500; ++i) // about 0.5 %, a few clusters among them
        list.push_back({static_cast<uint16_t>(rng() % 640), static_cast<uint16_t>(rng() % 480)});
    for (uint16_t y = 100; y < 104; ++y)
        for (uint16_t x = 200; x < 204; ++x)
            list.push_back({x, y});
    return list;
}

DataStorage<std::string> radiometricMeta() {
    DataStorage<std::string> m;
    auto t = [](float c) { return quantity::Temperature<MarkedFloat>(MarkedFloat(c)); };
    m.setValue(Id::Shutter::State, Id::Shutter::StateIdle);
    m.setValue(Id::Environment::EmissivityValue, 0.95f);
    m.setValue(Id::Environment::ReflectedTemperature, t(20));
    m.setValue(Id::Temperatures::Current::TBoardSens50, t(31));
    m.setValue(Id::Temperatures::Shuttering::TBoardSens50, t(30));
    m.setValue(Id::Temperatures::Shuttering::TShutter, t(25));
    m.setValue<unsigned char>(Id::ActiveMeasRange::Name, 1);
    m.setValue<unsigned long long>(Id::DeviceInfo::Uptime, 1000ull);
    m.setValue(Id::Temperatures::Current::TBoardSlope, 0.1f);
    m.setValue(Id::ActiveLens::Attached, true);
    m.setValue<unsigned char>(Id::ActiveLens::Index, 1);
    m.setValue(Id::ActiveLens::Serial, std::string("L25-000001"));
    m.setValue(Id::Temperatures::Current::TLens, t(27));
    m.setValue(Id::ProtectiveGlass::Attached, false);
    m.setValue(Id::ProtectiveGlass::Transmission, 0.92f);
    m.setValue(Id::ProtectiveGlass::Emissivity, 0.05f);
    return m;
}
} // namespace

static void BM_Offset_Element(benchmark::State& state) {
    DataProxy<std::string> proxy;
    setDefaultParameters(proxy);
    OffsetElement e(&proxy, "/nonexistent/", nullptr);
    FrameMap in, out;
    const cv::Mat raw = noisyRaw();
    auto feed = [&](const std::string& s) {
        DataStorage<std::string> m;
        m.setValue(Id::Shutter::State, s);
        in[STREAMING_DATATYPE_RAW] = std::make_unique<Frame>(raw, std::move(m));
        e.process(in, out);
    };
    for (int i = 0; i < 4; ++i)
        feed(Id::Shutter::StateCaptureOffsetFrame);
    for (auto _ : state)
        feed(Id::Shutter::StateIdle);
}
BENCHMARK(BM_Offset_Element)->Unit(benchmark::kMicrosecond);

// The gain correction of a corrected frame beside OpenCV's multiplication by the reciprocal gains
// (float, the nearest job it does).
static void BM_Gain_Table(benchmark::State& state) {
    const GainTable table(someGains());
    cv::Mat frame = noisyCorrected(); // corrected in place each round: the values wander, the work does not
    for (auto _ : state) {
        table.apply(frame);
        benchmark::DoNotOptimize(frame.data);
    }
}
BENCHMARK(BM_Gain_Table)->Unit(benchmark::kMicrosecond);

static void BM_Gain_CvMultiply(benchmark::State& state) {
    OneThread oneThread;
    const cv::Mat frame = noisyCorrected();
    cv::Mat reciprocal, out;
    cv::divide(1.0, someGains(), reciprocal);
    for (auto _ : state)
        cv::multiply(frame, reciprocal, out, 1.0, CV_16S);
}
BENCHMARK(BM_Gain_CvMultiply)->Unit(benchmark::kMicrosecond);

static void BM_Offset_CvSubtract(benchmark::State& state) {
    OneThread oneThread;
    const cv::Mat raw = noisyRaw(), offset = noisyRaw(2);
    cv::Mat out;
    for (auto _ : state)
        cv::subtract(raw, offset, out, cv::noArray(), CV_16S);
}
BENCHMARK(BM_Offset_CvSubtract)->Unit(benchmark::kMicrosecond);

static void BM_Tnr(benchmark::State& state) {
    TemporalNoiseReduction<short> tnr(16, 1843);
    const cv::Mat src = noisyCorrected();
    cv::Mat f = src.clone();
    tnr.process(f);
    for (auto _ : state) {
        src.copyTo(f);
        tnr.process(f);
    }
}
BENCHMARK(BM_Tnr)->Unit(benchmark::kMicrosecond);

static void BM_Spr(benchmark::State& state) {
    StaticPatternRemover spr(40, 20, 32);
    const cv::Mat src = noisyCorrected();
    cv::Mat out;
    for (auto _ : state)
        spr.process(src, out);
}
BENCHMARK(BM_Spr)->Unit(benchmark::kMicrosecond);

static void BM_Snr(benchmark::State& state) {
    SpatialNoiseRemover snr(32);
    const cv::Mat src = noisyCorrected();
    cv::Mat out;
    for (auto _ : state)
        snr.process(src, out);
}
BENCHMARK(BM_Snr)->Unit(benchmark::kMicrosecond);

static void BM_Snr_CvBilateral(benchmark::State& state) {
    OneThread oneThread;
    cv::Mat src;
    noisyCorrected().convertTo(src, CV_32F);
    cv::Mat out;
    for (auto _ : state)
        cv::bilateralFilter(src, out, 3, 64, 1.0);
}
BENCHMARK(BM_Snr_CvBilateral)->Unit(benchmark::kMicrosecond);

static void setRadiometry(RadiometryBase& model, float emissivity) {
    auto m = radiometricMeta();
    model.setData(RadiometryId::Emis, makeVariant(emissivity));
    model.setData(RadiometryId::Treflected, m.getVariant(Id::Environment::ReflectedTemperature));
    model.setData(RadiometryId::TboardCurrent, m.getVariant(Id::Temperatures::Current::TBoardSens50));
    model.setData(RadiometryId::TboardShuttering, m.getVariant(Id::Temperatures::Shuttering::TBoardSens50));
    model.setData(RadiometryId::TShutterShuttering, m.getVariant(Id::Temperatures::Shuttering::TShutter));
    model.setData(RadiometryId::MeasRange, m.getVariant(Id::ActiveMeasRange::Name));
    model.setData(RadiometryId::TBoardSlope, m.getVariant(Id::Temperatures::Current::TBoardSlope));
    model.setData(RadiometryId::TauPg, makeVariant(1.0f));
    model.setData(RadiometryId::EmisPg, makeVariant(0.0f));
}

static void BM_Radiometry_TableBuild(benchmark::State& state) {
    RadiometryTypeA model(1, 1, 0.01f, kCalibration);
    cv::Mat_<short> one(1, 1, short(100));
    int i = 0;
    for (auto _ : state) {
        setRadiometry(model, 0.9f + 0.0001f * float(i++ % 100)); // a new condition every time
        benchmark::DoNotOptimize(model.processFrame(one));
    }
}
BENCHMARK(BM_Radiometry_TableBuild)->Unit(benchmark::kMicrosecond);

static void BM_Radiometry_Apply(benchmark::State& state) {
    RadiometryTypeA model(640, 480, 0.01f, kCalibration);
    setRadiometry(model, 0.95f);
    cv::Mat_<short> frame = noisyCorrected();
    for (auto _ : state)
        benchmark::DoNotOptimize(model.processFrame(frame));
}
BENCHMARK(BM_Radiometry_Apply)->Unit(benchmark::kMicrosecond);

static void BM_Radiometry_CvLut(benchmark::State& state) {
    OneThread oneThread;
    // Nearest OpenCV job: an 8-bit table read per pixel (cv::LUT has no 16-bit index).
    cv::Mat src(kSize, CV_8U), out, lut(1, 256, CV_8U);
    cv::randu(src, 0, 255);
    cv::randu(lut, 0, 255);
    for (auto _ : state)
        cv::LUT(src, lut, out);
}
BENCHMARK(BM_Radiometry_CvLut)->Unit(benchmark::kMicrosecond);

static void BM_BadPixel_Replace(benchmark::State& state) {
    BadPixelCorrector corrector(someBadPixels(), kSize);
    cv::Mat frame = noisyCorrected();
    for (auto _ : state)
        corrector.apply(frame);
    state.counters["pixels"] = double(corrector.replaced());
}
BENCHMARK(BM_BadPixel_Replace)->Unit(benchmark::kMicrosecond);

static void BM_BadPixel_PlanBuild(benchmark::State& state) {
    const auto list = someBadPixels();
    for (auto _ : state)
        benchmark::DoNotOptimize(BadPixelCorrector(list, kSize));
}
BENCHMARK(BM_BadPixel_PlanBuild)->Unit(benchmark::kMicrosecond);

static void BM_Distortion_Table(benchmark::State& state) {
    DistortionCorrection<> dc(DistortionTable::fromCameraModel(lensMatrix(), kBarrel, kSize));
    cv::Mat in = noisyRaw(), out;
    for (auto _ : state)
        dc.processImpl(in, out);
}
BENCHMARK(BM_Distortion_Table)->Unit(benchmark::kMicrosecond);

static void BM_Distortion_CvRemapFloatMaps(benchmark::State& state) {
    OneThread oneThread;
    cv::Mat mapX, mapY;
    cv::initUndistortRectifyMap(lensMatrix(), kBarrel, cv::Mat(), lensMatrix(), kSize, CV_32FC1, mapX, mapY);
    cv::Mat in = noisyRaw(), out;
    for (auto _ : state)
        cv::remap(in, out, mapX, mapY, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
}
BENCHMARK(BM_Distortion_CvRemapFloatMaps)->Unit(benchmark::kMicrosecond);

static void BM_Distortion_CvRemapFixedMaps(benchmark::State& state) {
    OneThread oneThread;
    cv::Mat mapX, mapY;
    cv::initUndistortRectifyMap(lensMatrix(), kBarrel, cv::Mat(), lensMatrix(), kSize, CV_16SC2, mapX, mapY);
    cv::Mat in = noisyRaw(), out;
    for (auto _ : state)
        cv::remap(in, out, mapX, mapY, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
}
BENCHMARK(BM_Distortion_CvRemapFixedMaps)->Unit(benchmark::kMicrosecond);

// Raw counts -> offset -> bad pixels -> TNR -> SPR -> SNR -> radiometry -> distortion, through the
// elements and their frame maps, as a host runs them.
static void BM_CorrectionChain(benchmark::State& state) {
    OneThread oneThread;
    const bool filters = state.range(0) != 0;
    const std::string dir = (std::filesystem::temp_directory_path() / "nordabench-calibration/").string();
    std::filesystem::create_directories(dir);
    std::filesystem::copy_file(kCalibration + "radiometry.json", dir + "radiometry.json",
                               std::filesystem::copy_options::overwrite_existing);
    DistortionTable::fromCameraModel(lensMatrix(), kBarrel, kSize).save(dir + "distort.pxm");
    GainTable(someGains()).save(dir + "gain.pxm");

    DataProxy<std::string> proxy;
    setDefaultParameters(proxy);
    proxy.setValue(Id::IrSensor::BadPixelList, someBadPixels(), false);
    OffsetElement offset(&proxy, dir, nullptr);
    GainElement gain(&proxy, dir);
    BadPixelElement badPixels(&proxy, "BadPixelElement", STREAMING_DATATYPE_CORRECTED);
    TnrElement tnr(&proxy);
    SprElement spr(&proxy);
    SnrElement snr(&proxy);
    proxy.setValue<short>(Id::SprElement::Threshold, 40);
    proxy.setValue<short>(Id::SprElement::LineLimit, 20);
    proxy.setValue<short>(Id::SprElement::FrameLimit, 32);
    proxy.flush();
    RadiometryElement radiometry(&proxy, dir, RadiometricCamTypeA);
    DistortionElement distortion(&proxy, dir, RadiometricCamTypeA);
    proxy.setValue(Id::IrSensor::BadPixelList, someBadPixels()); // after the offset's own publication
    proxy.flush();

    const cv::Mat raw = noisyRaw();
    FrameMap a, b;
    auto rawFrame = [&](const std::string& s) {
        auto m = radiometricMeta();
        m.setValue(Id::Shutter::State, s);
        a[STREAMING_DATATYPE_RAW] = std::make_unique<Frame>(raw, std::move(m));
    };
    for (int i = 0; i < 4; ++i) {
        rawFrame(Id::Shutter::StateCaptureOffsetFrame);
        offset.process(a, b);
    }
    for (auto _ : state) {
        rawFrame(Id::Shutter::StateIdle);
        b.clear();
        offset.process(a, b);
        gain.process(b, b);
        badPixels.process(b, a);
        if (filters) {
            tnr.process(a, b);
            spr.process(b, a);
            snr.process(a, b);
            radiometry.process(b, a);
        } else {
            radiometry.process(a, b);
            std::swap(a, b);
        }
        distortion.process(a, b);
        benchmark::DoNotOptimize(b[STREAMING_DATATYPE_RAD]);
    }
    std::filesystem::remove_all(dir);
}
BENCHMARK(BM_CorrectionChain)->Arg(0)->Arg(1)->ArgName("filters")->Unit(benchmark::kMicrosecond);
