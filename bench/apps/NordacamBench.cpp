#ifdef NORDACAM_CORE
// The host's own costs per frame: rendering a simulated detector frame (beside OpenCV drawing the
// same amount of Gaussian noise, the nearest library operation) and the pipeline's bookkeeping
// around cheap elements.
#include "apps/nordacam/sim/SceneSimulator.h"

#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/vision/streaming/Pipeline.h"

#include <benchmark/benchmark.h>

using namespace norda::exp;
using namespace norda::exp::streaming;

namespace {

void BM_SimulatorFrame(benchmark::State& state) {
    DataProxy<std::string> store;
    setDefaultParameters(store);
    nordacam::sim::SimulatorConfig config;
    config.shutterPeriodS = 1e6; // measure scene frames, not shutter frames
    nordacam::sim::SceneSimulator sim(store, config, nordacam::sim::makePhysicalResponse());
    for (int i = 0; i < 10; ++i)
        sim.nextFrame();
    for (auto _ : state)
        benchmark::DoNotOptimize(sim.nextFrame());
    state.SetItemsProcessed(state.iterations() * config.width * config.height);
}
BENCHMARK(BM_SimulatorFrame)->Unit(benchmark::kMillisecond);

void BM_OpenCvNoiseFrame(benchmark::State& state) {
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
