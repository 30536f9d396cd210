// Parameter store and metadata access: the per-frame cost every element pays.
#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/core/datatypes/DataStorage.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"

#include <benchmark/benchmark.h>

using namespace norda::exp;

static void BM_DataStorage_GetFloat(benchmark::State& state) {
    DataStorage<std::string> meta;
    for (int i = 0; i < 40; ++i)
        meta.setValue("Group.Key" + std::to_string(i), static_cast<float>(i));
    for (auto _ : state)
        benchmark::DoNotOptimize(meta.get<float>("Group.Key17"));
}
BENCHMARK(BM_DataStorage_GetFloat);

static void BM_DataStorage_SetValue(benchmark::State& state) {
    DataStorage<std::string> meta;
    for (auto _ : state)
        meta.setValue(Id::Temperatures::Validity, true);
}
BENCHMARK(BM_DataStorage_SetValue);

static void BM_DataProxy_GetNested(benchmark::State& state) {
    DataProxy<std::string> proxy;
    setDefaultParameters(proxy);
    for (auto _ : state)
        benchmark::DoNotOptimize(proxy.getValue<bool>(Id::MeasPoints::HotSpot::Visible));
}
BENCHMARK(BM_DataProxy_GetNested);

static void BM_DataProxy_SetWithOneObserver(benchmark::State& state) {
    DataProxy<std::string> proxy;
    setDefaultParameters(proxy);
    std::atomic<int> seen{0};
    auto sub = proxy.subscribeValue<bool>(Id::Streaming::UpdateValues, [&](const bool&) { ++seen; });
    for (auto _ : state)
        proxy.setValue(Id::Streaming::UpdateValues, true, true);
    proxy.flush();
    state.counters["delivered"] = seen.load();
}
BENCHMARK(BM_DataProxy_SetWithOneObserver);
