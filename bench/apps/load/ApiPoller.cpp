#include "bench/apps/load/ApiPoller.h"

#include <httplib.h>

#include <algorithm>

namespace nordaload {

void pollApi(int port, Load& load, ApiStats& stats) {
    httplib::Client c("127.0.0.1", port);
    c.set_keep_alive(true);
    c.set_connection_timeout(5, 0);
    c.set_read_timeout(10, 0);
    const char* paths[] = {"/api/status", "/api/measurements", "/api/temperature?x=320&y=240",
                           "/api/settings/Palette.ActivePalette", "/snapshot.jpg"};
    for (size_t i = 0; !load.stop; ++i) {
        const char* path = paths[i % 5];
        const auto t0 = Clock::now();
        auto res = c.Get(path);
        const double took = seconds(Clock::now() - t0);
        std::lock_guard<std::mutex> lock(stats.mutex);
        ++stats.requests;
        stats.slowest = std::max(stats.slowest, took);
        if (!res || res->status != 200) {
            if (++stats.failures == 1)
                stats.firstFailure = std::string(path) + ": " +
                                     (res ? std::to_string(res->status) + " " + res->body
                                          : "error " + httplib::to_string(res.error()));
        } else if (i % 5 == 0) {
            stats.status = nlohmann::json::parse(res->body, nullptr, false);
        }
        sleepFor(0.1);
    }
}

} // namespace nordaload
