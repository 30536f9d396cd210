#pragma once
// The JSON API polled while the streams run, as the viewer page does: status, measurements, a
// temperature, a setting and a snapshot in turn, ten requests a second; every answer must be a 200.

#include "bench/apps/load/StreamReaders.h"

#include <nlohmann/json.hpp>

#include <mutex>
#include <string>

namespace nordaload {

struct ApiStats {
    std::mutex mutex;
    long requests = 0, failures = 0;
    double slowest = 0;
    std::string firstFailure;
    nlohmann::json status; // the last /api/status
};

// Until the run stops.
void pollApi(int port, Load& load, ApiStats& stats);

} // namespace nordaload
