// Saving an image: the radiometric container to memory and disk, the JPEG path, the overlay blend
// and the super-resolution calculation, each beside the OpenCV operation doing the nearest job.
#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/vision/rix/Crc32.h"
#include "nordalib/vision/rix/Rix.h"
#include "nordalib/vision/rix/SuperResolution.h"
#include "nordalib/vision/streaming/ImageWriteElement.h"

#include <benchmark/benchmark.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <filesystem>
#ifdef NORDA_HAVE_ZLIB
#include <zlib.h>
#endif
#include <unistd.h>

using namespace norda::exp;
using norda::exp::streaming::ImageWriteElement;
using norda::vision::Rix;

namespace {

cv::Mat_<uint16_t> radiometric(uint64_t seed = 1) {
    cv::Mat_<uint16_t> m(480, 640);
    cv::RNG(seed).fill(m, cv::RNG::UNIFORM, 29000, 33000);
    cv::GaussianBlur(m, m, cv::Size(0, 0), 1.5);
    return m;
}

// A camera image: 640 x 480 radiometric, preview, a 1024 x 768 visual image and the usual settings.
Rix cameraImage() {
    Rix rix;
    const auto rad = radiometric();
    rix.setRadiometricImage(rad);
    cv::Mat_<cv::Vec3b> preview(480, 640);
    cv::RNG(2).fill(preview, cv::RNG::UNIFORM, 0, 256);
    rix.setPreviewImageRgb(preview);
    cv::Mat_<cv::Vec2b> visual(768, 1024);
    cv::RNG(3).fill(visual, cv::RNG::UNIFORM, 0, 256);
    rix.setVisualImageYuv2(visual, 0.25f, false);
    using Temp = quantity::Temperature<MarkedFloat>;
    rix.setGeneric("Environment.Humidity", makeVariant(quantity::Relation<MarkedFloat>(MarkedFloat(0.5f))));
    rix.setGeneric("ActiveLens.Serial", makeVariant(std::string("L25-000001")));
    rix.extractMinMax(rad);
    rix.setScalingMax(Temp(MarkedFloat(40.0f)));
    rix.setScalingMin(Temp(MarkedFloat(15.0f)));
    rix.setEmissivityOriginal(0.95f);
    rix.setReflectedTempOriginal(Temp(MarkedFloat(20.0f)));
    rix.setFileUuid(rad);
    rix.setFileDateTime(1763719200000ull);
    return rix;
}

std::string benchFile(const char* name) {
    return (std::filesystem::temp_directory_path() /
            (std::string("nordabench-") + std::to_string(::getpid()) + name))
        .string();
}

} // namespace

static void BM_Rix_SaveToMemory(benchmark::State& state) {
    const Rix rix = cameraImage();
    std::vector<char> bytes;
    for (auto _ : state) {
        rix.save(bytes, false);
        benchmark::DoNotOptimize(bytes.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes.size()));
}
BENCHMARK(BM_Rix_SaveToMemory)->Unit(benchmark::kMillisecond);

static void BM_Rix_LoadFromMemory(benchmark::State& state) {
    std::vector<char> bytes;
    cameraImage().save(bytes, false);
    Rix rix;
    for (auto _ : state)
        rix.load(bytes);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes.size()));
}
BENCHMARK(BM_Rix_LoadFromMemory)->Unit(benchmark::kMillisecond);

// Includes fsync before the rename: what the camera pays for a file that survives a power cut.
static void BM_Rix_SaveToDisk(benchmark::State& state) {
    const Rix rix = cameraImage();
    const auto path = benchFile("-save.rix");
    for (auto _ : state)
        rix.save(path, false);
    std::filesystem::remove(path);
}
BENCHMARK(BM_Rix_SaveToDisk)->Unit(benchmark::kMillisecond);

static void BM_Rix_LoadFromDisk(benchmark::State& state) {
    const auto path = benchFile("-load.rix");
    cameraImage().save(path, false);
    Rix rix;
    for (auto _ : state)
        rix.load(path);
    std::filesystem::remove(path);
}
BENCHMARK(BM_Rix_LoadFromDisk)->Unit(benchmark::kMillisecond);

// Nearest OpenCV job: the 16-bit radiometric image alone as an uncompressed PNG.
static void BM_OpenCV_ImencodePng16(benchmark::State& state) {
    const auto rad = radiometric();
    std::vector<uchar> bytes;
    for (auto _ : state)
        cv::imencode(".png", rad, bytes, {cv::IMWRITE_PNG_COMPRESSION, 0});
}
BENCHMARK(BM_OpenCV_ImencodePng16)->Unit(benchmark::kMillisecond);

static void BM_Rix_Uuid(benchmark::State& state) {
    const auto rad = radiometric();
    for (auto _ : state)
        benchmark::DoNotOptimize(Rix::uuidFromPixels(rad));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(rad.total() * 2));
}
BENCHMARK(BM_Rix_Uuid);

// The checksum over a saved image's 3 MB: the dispatched path (carry-less multiplication where the
// processor has it), the portable table, and zlib's crc32 doing the same job.
template <typename F> void crcOverAFile(benchmark::State& state, F crc) {
    std::vector<uint8_t> data(3 << 20);
    cv::RNG(2).fill(data, cv::RNG::UNIFORM, 0, 256);
    for (auto _ : state)
        benchmark::DoNotOptimize(crc(data.data(), data.size()));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(data.size()));
}
static void BM_Crc32(benchmark::State& state) {
    state.SetLabel(norda::vision::Crc32::hardware() ? "carry-less multiplication" : "table");
    crcOverAFile(state, [](const uint8_t* p, size_t n) { return norda::vision::Crc32::compute(p, n); });
}
BENCHMARK(BM_Crc32);
static void BM_Crc32_Table(benchmark::State& state) {
    crcOverAFile(state,
                 [](const uint8_t* p, size_t n) { return norda::vision::Crc32::updateTable(0, p, n); });
}
BENCHMARK(BM_Crc32_Table);
#ifdef NORDA_HAVE_ZLIB
static void BM_Zlib_Crc32(benchmark::State& state) {
    crcOverAFile(state, [](const uint8_t* p, size_t n) { return crc32(0, p, static_cast<uInt>(n)); });
}
BENCHMARK(BM_Zlib_Crc32);
#endif

// The JPEG path of a saved image without its 500 ms wait for the user interface's overlay.
static void BM_Jpeg_ComposeAndWrite(benchmark::State& state) {
    cv::Mat_<cv::Vec3b> preview(480, 640);
    cv::RNG(4).fill(preview, cv::RNG::UNIFORM, 0, 256);
    cv::Mat_<cv::Vec4b> overlay(240, 320, cv::Vec4b(0, 0, 0, 0));
    cv::rectangle(overlay, cv::Rect(100, 80, 60, 40), cv::Scalar(255, 255, 255, 255), cv::FILLED);
    const auto path = benchFile("-jpeg.jpg");
    for (auto _ : state) {
        const auto picture = ImageWriteElement::composeJpegImage(preview, overlay);
        cv::imwrite(path, picture, {});
    }
    std::filesystem::remove(path);
}
BENCHMARK(BM_Jpeg_ComposeAndWrite)->Unit(benchmark::kMillisecond);

static void BM_Jpeg_Compose(benchmark::State& state) {
    cv::Mat_<cv::Vec3b> preview(480, 640);
    cv::RNG(4).fill(preview, cv::RNG::UNIFORM, 0, 256);
    cv::Mat_<cv::Vec4b> overlay(240, 320, cv::Vec4b(0, 0, 0, 0));
    for (auto _ : state)
        benchmark::DoNotOptimize(ImageWriteElement::composeJpegImage(preview, overlay).data);
}
BENCHMARK(BM_Jpeg_Compose)->Unit(benchmark::kMillisecond);

static void BM_OpenCV_ImwriteJpeg640(benchmark::State& state) {
    cv::Mat picture(480, 640, CV_8UC3);
    cv::RNG(4).fill(picture, cv::RNG::UNIFORM, 0, 256);
    cv::resize(picture, picture, picture.size(), 0, 0, cv::INTER_CUBIC);
    const auto path = benchFile("-plain.jpg");
    for (auto _ : state)
        cv::imwrite(path, picture);
    std::filesystem::remove(path);
}
BENCHMARK(BM_OpenCV_ImwriteJpeg640)->Unit(benchmark::kMillisecond);

static void BM_BlendArgb_640x480(benchmark::State& state) {
    cv::Mat_<cv::Vec4b> over(480, 640), under(480, 640);
    cv::RNG(5).fill(over, cv::RNG::UNIFORM, 0, 256);
    cv::RNG(6).fill(under, cv::RNG::UNIFORM, 0, 256);
    for (auto _ : state)
        benchmark::DoNotOptimize(ImageWriteElement::blendArgb(over, under).data);
    state.SetItemsProcessed(state.iterations() * 640 * 480);
}
BENCHMARK(BM_BlendArgb_640x480);

// Nearest OpenCV job: a constant-weight blend (no per-pixel alpha).
static void BM_OpenCV_AddWeighted_640x480x4(benchmark::State& state) {
    cv::Mat over(480, 640, CV_8UC4), under(480, 640, CV_8UC4), out;
    cv::RNG(5).fill(over, cv::RNG::UNIFORM, 0, 256);
    cv::RNG(6).fill(under, cv::RNG::UNIFORM, 0, 256);
    for (auto _ : state)
        cv::addWeighted(over, 0.5, under, 0.5, 0, out);
    state.SetItemsProcessed(state.iterations() * 640 * 480);
}
BENCHMARK(BM_OpenCV_AddWeighted_640x480x4);

static void BM_SuperResolution_5x640x480(benchmark::State& state) {
    const auto base = radiometric(7);
    std::vector<cv::Mat_<uint16_t>> frames;
    const cv::Point2d shifts[] = {{0, 0}, {0.5, 0.25}, {-0.4, 0.6}, {1.2, -0.3}, {0.1, -0.9}};
    for (const auto& s : shifts) {
        cv::Mat m = (cv::Mat_<double>(2, 3) << 1, 0, -s.x, 0, 1, -s.y);
        cv::Mat_<uint16_t> f;
        cv::warpAffine(base, f, m, base.size(), cv::INTER_CUBIC | cv::WARP_INVERSE_MAP,
                       cv::BORDER_REFLECT101);
        frames.push_back(f);
    }
    float quality = 0;
    for (auto _ : state)
        quality = norda::vision::SuperResolution::compute(frames).quality;
    state.counters["quality"] = quality;
}
BENCHMARK(BM_SuperResolution_5x640x480)->Unit(benchmark::kMillisecond);

// Nearest OpenCV job: a bicubic 2x enlargement of one frame.
static void BM_OpenCV_ResizeBicubic2x_640x480(benchmark::State& state) {
    const auto base = radiometric(7);
    cv::Mat out;
    for (auto _ : state)
        cv::resize(base, out, cv::Size(1280, 960), 0, 0, cv::INTER_CUBIC);
}
BENCHMARK(BM_OpenCV_ResizeBicubic2x_640x480)->Unit(benchmark::kMillisecond);
