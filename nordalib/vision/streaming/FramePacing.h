#pragma once
// Pacing of source elements that stand in for a camera (file playback, test image).

#include <chrono>

namespace norda::exp::streaming {

// One frame period of a paced source: 30 ms.
inline constexpr std::chrono::nanoseconds kFramePeriod{30'000'000};

// Sleeps until `period` has passed on the steady clock, measured from the call. The clock is read
// again after every wake-up, so early wake-ups (signals, coarse timers) never shorten the period.
void sleepForPeriod(std::chrono::nanoseconds period);

} // namespace norda::exp::streaming
