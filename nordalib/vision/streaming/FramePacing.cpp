#include "nordalib/vision/streaming/FramePacing.h"

#include <thread>

namespace norda::exp::streaming {

void sleepForPeriod(std::chrono::nanoseconds period) {
    const auto deadline = std::chrono::steady_clock::now() + period;
    while (std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_until(deadline);
}

} // namespace norda::exp::streaming
