#include "bench/apps/load/ServerSampler.h"

#include <httplib.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace nordaload {

uint64_t cycles(int port) {
    httplib::Client c("127.0.0.1", port);
    c.set_read_timeout(10, 0);
    auto res = c.Get("/api/status");
    if (!res || res->status != 200)
        return 0;
    return nlohmann::json::parse(res->body).value("cycles", uint64_t{0});
}

Sample sample(const ServerProcess& server, double t) {
    return Sample{t, cycles(server.port()), server.status("VmRSS"), server.status("Threads")};
}

MemoryCurve memoryCurve(const std::vector<Sample>& samples) {
    double n = 0, st = 0, sr = 0, stt = 0, str = 0, lowMb = 1e9, highMb = 0;
    for (const auto& x : samples) {
        const double mb = x.rssKb / 1024.0, minutes = x.t / 60.0;
        n += 1, st += minutes, sr += mb, stt += minutes * minutes, str += minutes * mb;
        lowMb = std::min(lowMb, mb), highMb = std::max(highMb, mb);
    }
    const double slope = n > 1 && n * stt != st * st ? (n * str - st * sr) / (n * stt - st * st) : 0;
    return {n, lowMb, highMb, slope};
}

} // namespace nordaload
