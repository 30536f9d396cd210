#pragma once
// The server's state sampled through the run: pipeline cycles from the API, resident memory and
// threads from /proc; and the memory curve those samples draw after the warm-up.

#include "bench/apps/load/ServerProcess.h"

#include <cstdint>
#include <vector>

namespace nordaload {

struct Sample {
    double t;
    uint64_t cycles;
    long rssKb, threads;
};

// The pipeline's cycle count, straight from the API.
uint64_t cycles(int port);
// The server at `t` seconds into the run.
Sample sample(const ServerProcess& server, double t);

// Its extremes after the warm-up and the least-squares slope through the samples: a leak shows as
// a slope, where a single high sample is a moment's garbage.
struct MemoryCurve {
    double samples = 0, lowMb = 0, highMb = 0, slopeMbPerMinute = 0;
};
MemoryCurve memoryCurve(const std::vector<Sample>& samples);

} // namespace nordaload
