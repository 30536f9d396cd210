// The chain of BM_WholeChain as a GStreamer pipeline of the plugin (nordacorrect !
// nordaradiometry ! nordameasure ! nordapalette ! fakesink), on the same kind of frames (a 25 °C
// background with a 60 °C object as raw counts of the default calibration), on one core. Range 0
// set against BM_WholeChainCameraFilters (BM_WholeChain with the pattern and spatial filters set
// as nordacorrect sets them): what the plugin adds per frame (buffers, metadata, the elements' own
// stores, the measurement of points and areas). Range 1: the overlay drawn too (BM_WholeChain draws
// none). Range 2: without the noise filters, for their share.
#ifdef NORDA_GST_PLUGIN_DIR

#include "nordalib/vision/imgproc/DistortionTable.h"
#include "nordalib/vision/radiometry/RadiometricCalibration.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

#include <benchmark/benchmark.h>
#include <gst/gst.h>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

#include <filesystem>
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
    GstElement* pipeline =
        gst_parse_launch((std::string("nordacorrect name=correct noise-filters=") +
                          (state.range(0) == 2 ? "false" : "true") + calib + " ! nordaradiometry" + calib +
                          " ! nordameasure post-messages=false ! nordapalette overlay=" +
                          (state.range(0) == 1 ? "true" : "false") + " ! fakesink name=sink sync=false")
                             .c_str(),
                         &error);
    if (!pipeline) {
        state.SkipWithError(error ? error->message : "no pipeline");
        return;
    }
    // The frames are pushed on this thread, which runs the whole chain in the push, as a capture
    // element's streaming thread does (v4l2src): no queue, no hand-over between threads.
    GstElement* correct = gst_bin_get_by_name(GST_BIN(pipeline), "correct");
    GstPad* sinkPad = gst_element_get_static_pad(correct, "sink");
    GstPad* src = gst_pad_new("src", GST_PAD_SRC);
    gst_pad_set_active(src, TRUE);
    gst_pad_link(src, sinkPad);
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    gst_pad_push_event(src, gst_event_new_stream_start("bench"));
    GstCaps* caps = gst_caps_from_string("video/x-raw,format=GRAY16_LE,width=640,height=480,framerate=30/1");
    gst_pad_push_event(src, gst_event_new_caps(caps));
    gst_caps_unref(caps);
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    gst_pad_push_event(src, gst_event_new_segment(&segment));
    GstClockTime pts = 0;
    auto push = [&](const cv::Mat& m) {
        GstBuffer* b = bufferOf(m);
        GST_BUFFER_PTS(b) = pts;
        GST_BUFFER_DURATION(b) = GST_SECOND / 30;
        pts += GST_SECOND / 30;
        return gst_pad_push(src, b) == GST_FLOW_OK;
    };
    // The first frames show the closed shutter.
    g_object_set(correct, "shutter-closed", TRUE, nullptr);
    for (int i = 0; i < kShutterFrames; ++i)
        push(shutter);
    g_object_set(correct, "shutter-closed", FALSE, nullptr);
    for (int i = 0; i < 4; ++i)
        push(scene);
    int pushed = 0;
    for (auto _ : state) {
        if (!push(scene)) {
            state.SkipWithError("the pipeline stopped");
            break;
        }
        ++pushed;
    }
    state.counters["fps"] = benchmark::Counter(static_cast<double>(pushed), benchmark::Counter::kIsRate);
    state.SetLabel(state.range(0) == 1   ? "with overlay"
                   : state.range(0) == 2 ? "no noise filters"
                                         : "no overlay");
    gst_pad_push_event(src, gst_event_new_eos());
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_pad_unlink(src, sinkPad);
    gst_object_unref(src);
    gst_object_unref(sinkPad);
    gst_object_unref(correct);
    gst_object_unref(pipeline);
    std::filesystem::remove_all(dir);
    cv::setNumThreads(threads);
}

} // namespace

// Process CPU time: on a loaded machine it is steadier than the wall clock, and BM_WholeChain's CPU
// time is the one to set it against.
BENCHMARK(BM_GstWholeChain)
    ->DenseRange(0, 2)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

#endif
