// The chain of BM_WholeChain as a GStreamer pipeline of the plugin (appsrc ! nordacorrect !
// nordaradiometry ! nordameasure ! nordapalette ! fakesink), on the same kind of frames (a 25 °C
// background with a 60 °C object as raw counts of the default calibration), on one core. Set
// against BM_WholeChain/640/480: what the plugin adds per frame (buffers, metadata, caps, the
// elements' own stores). Range 1: the overlay drawn too (BM_WholeChain draws none). Range 2: without
// the noise filters, for the filters' share (BM_WholeChain's pattern and spatial filters stay off:
// it does not write their keys again, see SprElement, while nordacorrect does, as the camera).
#ifdef NORDA_GST_PLUGIN_DIR

#include "nordalib/vision/imgproc/DistortionTable.h"
#include "nordalib/vision/radiometry/RadiometricCalibration.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

#include <benchmark/benchmark.h>
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

#include <atomic>
#include <filesystem>
#include <thread>
#include <unistd.h>

using namespace norda::vision;

namespace {

constexpr int kShutterFrames = 4;

GstBuffer* bufferOf(const cv::Mat& m) {
    GstBuffer* b = gst_buffer_new_allocate(nullptr, m.total() * m.elemSize(), nullptr);
    gst_buffer_fill(b, 0, m.data, m.total() * m.elemSize());
    return b;
}

void BM_GstWholeChain(benchmark::State& state) {
    const int threads = cv::getNumThreads();
    cv::setNumThreads(1);
    const cv::Size size(640, 480);
    const auto dir =
        std::filesystem::temp_directory_path() / ("norda-gst-bench-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir / "lens1");
    RadiometricCalibration::makeDefault().save((dir / RadiometricCalibration::kFileName).string());
    cv::Mat k = (cv::Mat_<double>(3, 3) << size.width * 0.9, 0, size.width / 2.0, 0, size.width * 0.9,
                 size.height / 2.0, 0, 0, 1);
    cv::Mat d = (cv::Mat_<double>(1, 5) << -0.12, 0.03, 0.0005, -0.0004, 0.0);
    DistortionTable::fromCameraModel(k, d, size).save((dir / "lens1" / "distort.pxm").string());
    const auto cal = RadiometricCalibration::makeDefault().ranges.at(1);
    RadiometricConditions cond;
    cond.emissivity = 0.95;
    const cv::Mat shutter(size, CV_16UC1, cv::Scalar(RadiometricTools::shutterCounts(cal, cond, 8000.0)));
    cv::Mat scene(size, CV_16UC1, cv::Scalar(RadiometricTools::rawCounts(cal, cond, 298.15, 8000.0)));
    cv::circle(scene, {size.width / 3, size.height / 2}, size.height / 6,
               cv::Scalar(RadiometricTools::rawCounts(cal, cond, 333.15, 8000.0)), -1);
    cv::Mat noise(size, CV_16SC1);
    cv::randn(noise, 0, 3);
    cv::add(scene, noise, scene, cv::noArray(), CV_16U);

    gst_init(nullptr, nullptr);
    g_setenv("GST_PLUGIN_PATH", NORDA_GST_PLUGIN_DIR, TRUE);
    gst_registry_scan_path(gst_registry_get(), NORDA_GST_PLUGIN_DIR);
    const std::string calib = " calibration-dir=" + dir.string();
    GError* error = nullptr;
    GstElement* pipeline = gst_parse_launch(
        (std::string("appsrc name=src format=time block=true max-buffers=2 "
                     "caps=video/x-raw,format=GRAY16_LE,width=640,"
                     "height=480,framerate=30/1 ! nordacorrect name=correct noise-filters=") +
         (state.range(0) == 2 ? "false" : "true") + calib + " ! nordaradiometry" + calib +
         " ! nordameasure post-messages=false ! nordapalette overlay=" +
         (state.range(0) == 1 ? "true" : "false") + " ! fakesink name=sink sync=false signal-handoffs=true")
            .c_str(),
        &error);
    if (!pipeline) {
        state.SkipWithError(error ? error->message : "no pipeline");
        return;
    }
    GstElement* src = gst_bin_get_by_name(GST_BIN(pipeline), "src");
    GstElement* correct = gst_bin_get_by_name(GST_BIN(pipeline), "correct");
    GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline), "sink");
    // The first frames show the closed shutter: the shutter state follows the frame count.
    std::atomic<int> seen{0}, shown{0};
    GstPad* pad = gst_element_get_static_pad(correct, "sink");
    gst_pad_add_probe(
        pad, GST_PAD_PROBE_TYPE_BUFFER,
        [](GstPad*, GstPadProbeInfo*, gpointer data) {
            auto* counter = static_cast<std::pair<std::atomic<int>*, GstElement*>*>(data);
            g_object_set(counter->second, "shutter-closed", ++*counter->first <= kShutterFrames, nullptr);
            return GST_PAD_PROBE_OK;
        },
        new std::pair<std::atomic<int>*, GstElement*>(&seen, correct),
        [](gpointer data) { delete static_cast<std::pair<std::atomic<int>*, GstElement*>*>(data); });
    gst_object_unref(pad);
    g_signal_connect(sink, "handoff", G_CALLBACK(+[](GstElement*, GstBuffer*, GstPad*, gpointer count) {
                         ++*static_cast<std::atomic<int>*>(count);
                     }),
                     &shown);
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstClockTime pts = 0;
    auto push = [&](const cv::Mat& m) {
        GstBuffer* b = bufferOf(m);
        GST_BUFFER_PTS(b) = pts;
        GST_BUFFER_DURATION(b) = GST_SECOND / 30;
        pts += GST_SECOND / 30;
        return gst_app_src_push_buffer(GST_APP_SRC(src), b) == GST_FLOW_OK;
    };
    for (int i = 0; i < kShutterFrames; ++i)
        push(shutter);
    for (int i = 0; i < 4; ++i)
        push(scene);
    while (shown < 4)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    int pushed = 0;
    for (auto _ : state) {
        if (!push(scene)) {
            state.SkipWithError("the pipeline stopped");
            break;
        }
        ++pushed;
    }
    const int expected = 4 + pushed;
    while (shown < expected)
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    state.counters["fps"] = benchmark::Counter(static_cast<double>(pushed), benchmark::Counter::kIsRate);
    state.SetLabel(state.range(0) == 1   ? "with overlay"
                   : state.range(0) == 2 ? "no noise filters"
                                         : "no overlay");
    gst_app_src_end_of_stream(GST_APP_SRC(src));
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(src);
    gst_object_unref(correct);
    gst_object_unref(sink);
    gst_object_unref(pipeline);
    std::filesystem::remove_all(dir);
    cv::setNumThreads(threads);
}

} // namespace

// Process CPU time: the streaming thread does the work; on a loaded machine it is steadier than
// the wall clock, and BM_WholeChain's CPU time is the one to set it against.
BENCHMARK(BM_GstWholeChain)
    ->DenseRange(0, 2)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

#endif
