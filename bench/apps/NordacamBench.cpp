#ifdef NORDACAM_CORE
// The host's own costs per frame: rendering a live frame of the simulated camera (the hall through
// the physical camera: air, PSF, distortion, read-out; goal a few ms on one core) and with it the
// visual camera's 640 x 480 frame (goal 10 ms for both), beside OpenCV drawing the same amount of
// Gaussian noise, the nearest library operation; and the pipeline's bookkeeping around cheap
// elements.
#include "apps/nordacam/sim/SceneSimulator.h"
#include "apps/nordacam/sim/VisualCamera.h"

#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/vision/streaming/Pipeline.h"

#include <benchmark/benchmark.h>
#include <opencv2/core/utility.hpp>

using namespace norda::exp;
using namespace norda::exp::streaming;

namespace {

// One core, as the goal says: OpenCV would otherwise spread blur and remap over its threads.
struct OneThread {
    int saved = cv::getNumThreads();
    OneThread() { cv::setNumThreads(1); }
    ~OneThread() { cv::setNumThreads(saved); }
};

// Range 0: the infrared frame; 1: with the visual camera's frame of the same moment.
void BM_SimulatorFrame(benchmark::State& state) {
    const OneThread one;
    DataProxy<std::string> store;
    setDefaultParameters(store);
    nordacam::sim::SimulatorConfig config;
    config.shutterPeriodS = 1e6; // measure scene frames, not shutter frames
    nordacam::sim::SceneSimulator sim(store, config);
    nordacam::sim::VisualCamera visual(store, sim.scene(), {});
    for (int i = 0; i < 10; ++i) {
        sim.nextFrame();
        visual.nextLive();
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(sim.nextFrame());
        if (state.range(0) == 1)
            benchmark::DoNotOptimize(visual.nextLive());
    }
    state.SetItemsProcessed(state.iterations() * config.width * config.height);
}
BENCHMARK(BM_SimulatorFrame)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_OpenCvNoiseFrame(benchmark::State& state) {
    const OneThread one;
    cv::Mat noise(480, 640, CV_32F), raw;
    for (auto _ : state) {
        cv::randn(noise, 4000.0, 2.0);
        noise.convertTo(raw, CV_16U);
        benchmark::DoNotOptimize(raw.data);
    }
    state.SetItemsProcessed(state.iterations() * 640 * 480);
}
BENCHMARK(BM_OpenCvNoiseFrame)->Unit(benchmark::kMillisecond);

class Source : public StreamingElement {
public:
    Source()
        : StreamingElement({}, {STREAMING_DATATYPE_RAW}, "Source", nullptr, true, 0),
          m_image(480, 640, CV_16U) {}
    bool process(FrameMap&, FrameMap& outputs) override {
        emit(outputs, STREAMING_DATATYPE_RAW, std::make_unique<Frame>(m_image));
        return true;
    }

private:
    cv::Mat m_image;
};

class PassOn : public StreamingElement {
public:
    PassOn()
        : StreamingElement({STREAMING_DATATYPE_RAW}, {STREAMING_DATATYPE_RAW}, "PassOn", nullptr, false, 0) {}
    bool process(FrameMap& inputs, FrameMap& outputs) override {
        passThrough(inputs, STREAMING_DATATYPE_RAW, outputs, STREAMING_DATATYPE_RAW);
        return true;
    }
};

void BM_PipelineCycleOverhead(benchmark::State& state) {
    Pipeline pipeline;
    pipeline.emplace<Source>();
    for (int i = 0; i < state.range(0); ++i)
        pipeline.emplace<PassOn>();
    for (auto _ : state)
        benchmark::DoNotOptimize(pipeline.runCycle());
    state.SetItemsProcessed(state.iterations() * (state.range(0) + 1));
}
BENCHMARK(BM_PipelineCycleOverhead)->Arg(16);

} // namespace
#endif
