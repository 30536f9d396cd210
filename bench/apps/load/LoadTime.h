#pragma once
// The load run's clock: seconds since a steady point, and sleeping for a fraction of a second.

#include <chrono>
#include <thread>

namespace nordaload {

using Clock = std::chrono::steady_clock;

inline double seconds(Clock::duration d) {
    return std::chrono::duration<double>(d).count();
}

inline void sleepFor(double s) {
    std::this_thread::sleep_for(std::chrono::duration<double>(s));
}

} // namespace nordaload
