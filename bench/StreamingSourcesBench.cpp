// Frame sources, sinks and reshaping: element paths beside the nearest OpenCV operation.

#include "nordalib/vision/imgproc/ColorConvert.h"

#include <benchmark/benchmark.h>
#include <opencv2/imgproc.hpp>

namespace {

cv::Mat randomMat(int rows, int cols, int type) {
    cv::Mat m(rows, cols, type);
    cv::randu(m, cv::Scalar::all(0), cv::Scalar::all(CV_MAT_DEPTH(type) == CV_8U ? 256 : 65536));
    return m;
}

void BM_ColorConvert_UY1VY0ToRGB_640x480(benchmark::State& state) {
    cv::Mat yuv = randomMat(480, 640, CV_8UC2);
    cv::Mat_<cv::Vec3b> rgb;
    for (auto _ : state) {
        norda::vision::ColorConvert::convertUY1VY0ToRGB(yuv, rgb);
        benchmark::DoNotOptimize(rgb.data);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ColorConvert_UY1VY0ToRGB_640x480)->UseRealTime();

void BM_ColorConvert_UYVYToRGB_640x480(benchmark::State& state) {
    cv::Mat yuv = randomMat(480, 640, CV_8UC2);
    cv::Mat_<cv::Vec3b> rgb;
    for (auto _ : state) {
        norda::vision::ColorConvert::convertUYVYToRGB(yuv, rgb);
        benchmark::DoNotOptimize(rgb.data);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ColorConvert_UYVYToRGB_640x480)->UseRealTime();

void BM_OpenCV_cvtColor_YUV2RGB_UYVY_640x480(benchmark::State& state) {
    cv::Mat yuv = randomMat(480, 640, CV_8UC2);
    cv::Mat rgb;
    for (auto _ : state) {
        cv::cvtColor(yuv, rgb, cv::COLOR_YUV2RGB_UYVY);
        benchmark::DoNotOptimize(rgb.data);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_OpenCV_cvtColor_YUV2RGB_UYVY_640x480)->UseRealTime();

} // namespace

// ---- elements and the PXM codec ----

#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/imageio/ImageDecoderPxM.h"
#include "nordalib/vision/imageio/ImageIO.h"
#include "nordalib/vision/streaming/ImageBufferElement.h"
#include "nordalib/vision/streaming/ResizeElement.h"
#include "nordalib/vision/streaming/WindowingElement.h"
#include "nordalib/vision/streaming/Yuv422ToRgb888Element.h"

#include <opencv2/imgcodecs.hpp>

#include <cstdio>
#include <filesystem>

namespace {

using namespace norda::exp;
using namespace norda::exp::streaming;

void BM_WindowingElement_640x480_to_320x240(benchmark::State& state) {
    cv::Mat raw = randomMat(480, 640, CV_16UC1);
    WindowingElement element(320, 240, STREAMING_DATATYPE_RAW, STREAMING_DATATYPE_CORRECTED);
    FrameMap in, out;
    for (auto _ : state) {
        in[STREAMING_DATATYPE_RAW] = std::make_unique<Frame>(raw);
        element.process(in, out);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WindowingElement_640x480_to_320x240);

void BM_OpenCV_RoiCopy_640x480_to_320x240(benchmark::State& state) {
    cv::Mat raw = randomMat(480, 640, CV_16UC1);
    for (auto _ : state) {
        cv::Mat window = raw(cv::Rect(160, 120, 320, 240)).clone();
        benchmark::DoNotOptimize(window.data);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_OpenCV_RoiCopy_640x480_to_320x240);

void BM_ResizeElement_320x240_to_640x480_RGB(benchmark::State& state) {
    cv::Mat rgb = randomMat(240, 320, CV_8UC3);
    ResizeElement element(STREAMING_DATATYPE_RGB, cv::Size(640, 480));
    FrameMap in, out;
    for (auto _ : state) {
        in[STREAMING_DATATYPE_RGB] = std::make_unique<Frame>(rgb);
        element.process(in, out);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ResizeElement_320x240_to_640x480_RGB)->UseRealTime();

void BM_OpenCV_resize_320x240_to_640x480_RGB(benchmark::State& state) {
    cv::Mat rgb = randomMat(240, 320, CV_8UC3), result;
    for (auto _ : state) {
        cv::resize(rgb, result, cv::Size(640, 480), 0, 0, cv::INTER_LINEAR);
        benchmark::DoNotOptimize(result.data);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_OpenCV_resize_320x240_to_640x480_RGB)->UseRealTime();

void BM_ColorConversionElement_640x480(benchmark::State& state) {
    cv::Mat yuv = randomMat(480, 640, CV_8UC2);
    ColorConversionElement element;
    FrameMap in, out;
    for (auto _ : state) {
        in[STREAMING_DATATYPE_YUV422] = std::make_unique<Frame>(yuv);
        element.process(in, out);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ColorConversionElement_640x480)->UseRealTime();

std::shared_ptr<DataStorage<std::string>> recordingMeta() {
    auto meta = std::make_shared<DataStorage<std::string>>();
    meta->setValue("FrameCnt", 12345ull);
    meta->setValue(norda::exp::Id::Shutter::Closed, false);
    meta->setValue("Sensor.Temperature", 31.25f);
    return meta;
}

// Encoding plus the write system call; /dev/null keeps the disk out of the figure.
void BM_PxmEncoder_Write_640x480_16bit(benchmark::State& state) {
    cv::Mat raw = randomMat(480, 640, CV_16UC1);
    norda::vision::ImageIO writer(0);
    writer.open("/dev/null");
    for (auto _ : state) {
        writer.setMetaData(recordingMeta());
        writer.write(raw, "");
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * int64_t(raw.total() * 2));
}
BENCHMARK(BM_PxmEncoder_Write_640x480_16bit);

void BM_OpenCV_imencode_PGM_640x480_16bit(benchmark::State& state) {
    cv::Mat raw = randomMat(480, 640, CV_16UC1);
    std::vector<uchar> buffer;
    for (auto _ : state) {
        cv::imencode(".pgm", raw, buffer);
        benchmark::DoNotOptimize(buffer.data());
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * int64_t(raw.total() * 2));
}
BENCHMARK(BM_OpenCV_imencode_PGM_640x480_16bit);

void BM_PxmDecoder_Grab_640x480_16bit(benchmark::State& state) {
    const std::string path = (std::filesystem::temp_directory_path() / "nordabench-decoder.pxm").string();
    cv::Mat raw = randomMat(480, 640, CV_16UC1);
    {
        norda::vision::ImageIO writer(0);
        writer.open(path);
        for (int i = 0; i < 32; ++i) {
            writer.setMetaData(recordingMeta());
            writer.write(raw, "");
        }
    }
    norda::vision::ImageDecoderPxM decoder;
    decoder.open(path);
    cv::Mat frame;
    for (auto _ : state) {
        if (!decoder.grab(frame, nullptr)) {
            state.PauseTiming();
            decoder.open(path);
            state.ResumeTiming();
            decoder.grab(frame, nullptr);
        }
        benchmark::DoNotOptimize(frame.data);
    }
    decoder.close();
    std::remove(path.c_str());
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * int64_t(raw.total() * 2));
}
BENCHMARK(BM_PxmDecoder_Grab_640x480_16bit);

void BM_OpenCV_imdecode_PGM_640x480_16bit(benchmark::State& state) {
    cv::Mat raw = randomMat(480, 640, CV_16UC1);
    std::vector<uchar> buffer;
    cv::imencode(".pgm", raw, buffer);
    for (auto _ : state) {
        cv::Mat frame = cv::imdecode(buffer, cv::IMREAD_UNCHANGED);
        benchmark::DoNotOptimize(frame.data);
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * int64_t(raw.total() * 2));
}
BENCHMARK(BM_OpenCV_imdecode_PGM_640x480_16bit);

// One cycle of a buffer five frames deep: the frame in, the oldest out.
void BM_ImageBufferElement_Depth5(benchmark::State& state) {
    DataProxy<std::string> proxy;
    norda::exp::setDefaultParameters(proxy);
    proxy.setValue(norda::exp::Id::Viscam::MaximumImageLatency, 200.0f);
    ImageBufferElement element(10, STREAMING_DATATYPE_YUV422, &proxy);
    cv::Mat yuv = randomMat(480, 640, CV_8UC2);
    FrameMap in, out;
    for (auto _ : state) {
        DataStorage<std::string> meta;
        meta.setValue(norda::exp::Id::Viscam::CaptureTime, 40.0f);
        in[STREAMING_DATATYPE_YUV422] = std::make_unique<Frame>(yuv, std::move(meta));
        benchmark::DoNotOptimize(element.process(in, out));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ImageBufferElement_Depth5);

} // namespace
