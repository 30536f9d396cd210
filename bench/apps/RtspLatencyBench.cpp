#if defined(NORDACAM_CORE) && defined(NORDACAM_RTSP)
// Latency of the RTSP stream from the camera to a client's decoded picture: the palette is switched
// between iron (coloured) and grey (no colour) and a GStreamer client in this process
// (rtspsrc latency=0, TCP, avdec_h264) watches /thermal for the picture to change. One iteration is
// one switch, timed from setting the palette to the first decoded picture in the new palette. It
// includes the wait for the next cycle (0 to 33 ms) and the chain's cycle, so it bounds the time from
// a frame's capture to the client from above.
#include "apps/nordacam/Camera.h"
#include "apps/nordacam/RtspStreams.h"

#include "nordalib/core/keys/Keys.h"

#include <benchmark/benchmark.h>
#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <opencv2/core.hpp>

#include <algorithm>
#include <filesystem>
#include <thread>

using namespace nordacam;
namespace Id = norda::exp::Id;

namespace {

// Mean |R - G| + |G - B| of a decoded picture: about 0 for grey, tens for iron.
double colourfulness(GstSample* sample) {
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    GstStructure* s = gst_caps_get_structure(gst_sample_get_caps(sample), 0);
    int w = 0, h = 0;
    gst_structure_get_int(s, "width", &w);
    gst_structure_get_int(s, "height", &h);
    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, GST_MAP_READ))
        return -1;
    const cv::Mat rgb(h, w, CV_8UC3, map.data, GST_ROUND_UP_4(w * 3));
    std::vector<cv::Mat> c;
    cv::split(rgb, c);
    const double value = cv::mean(cv::abs(c[0] - c[1]) + cv::abs(c[1] - c[2]))[0];
    gst_buffer_unmap(buffer, &map);
    return value;
}

void BM_RtspPaletteSwitchToClient(benchmark::State& state) {
    const auto out = std::filesystem::temp_directory_path() / "nordacam-rtsp-bench";
    std::filesystem::create_directories(out);
    CameraOptions o;
    o.outputDir = out.string();
    o.settingsFile = (out / "settings.json").string();
    o.rtsp = true;
    Camera camera(o);
    RtspStreams rtsp(camera, "127.0.0.1", 0);
    camera.start();
    const std::string launch =
        "rtspsrc location=rtsp://127.0.0.1:" + std::to_string(rtsp.port()) +
        "/thermal latency=0 protocols=tcp ! rtph264depay ! avdec_h264 ! videoconvert ! "
        "video/x-raw,format=RGB ! appsink name=sink sync=false";
    GstElement* client = gst_parse_launch(launch.c_str(), nullptr);
    GstAppSink* sink = GST_APP_SINK(gst_bin_get_by_name(GST_BIN(client), "sink"));
    gst_element_set_state(client, GST_STATE_PLAYING);
    auto pull = [&] {
        GstSample* sample = gst_app_sink_try_pull_sample(sink, 5 * GST_SECOND);
        if (!sample)
            return -1.0;
        const double value = colourfulness(sample);
        gst_sample_unref(sample);
        return value;
    };
    // Settle on each palette once to learn the two levels.
    auto settle = [&](const std::string& palette) {
        camera.store().setValue(Id::Palette::ActivePalette, palette, true);
        double value = pull();
        for (int i = 0; i < 45; ++i)
            value = pull();
        return value;
    };
    const double grey = settle("grey"), iron = settle("iron");
    const double threshold = (grey + iron) / 2;
    bool isIron = true;
    std::vector<double> latencies;
    for (auto _ : state) {
        isIron = !isIron;
        const auto start = std::chrono::steady_clock::now();
        camera.store().setValue(Id::Palette::ActivePalette, std::string(isIron ? "iron" : "grey"), true);
        double value;
        do
            value = pull();
        while (value >= 0 && (value > threshold) != isIron);
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(seconds);
        latencies.push_back(seconds * 1e3);
        std::this_thread::sleep_for(std::chrono::milliseconds(300)); // switches apart
    }
    std::sort(latencies.begin(), latencies.end());
    state.counters["median_ms"] = latencies[latencies.size() / 2];
    state.counters["max_ms"] = latencies.back();
    state.counters["grey_level"] = grey;
    state.counters["iron_level"] = iron;
    gst_element_set_state(client, GST_STATE_NULL);
    gst_object_unref(sink);
    gst_object_unref(client);
    camera.stop();
}
BENCHMARK(BM_RtspPaletteSwitchToClient)->UseManualTime()->Iterations(30)->Unit(benchmark::kMillisecond);

} // namespace

#endif
