#pragma once
// The load run's HTTP stream readers, a thread each: steady readers that read every part, stalled
// readers that stop reading after the first part, and readers that hang up in the middle of a part
// and reconnect. Each counts what it got and keeps the first error it met.

#include "bench/apps/load/LoadTime.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace nordaload {

enum class Kind { Steady, Stalled, Reconnecting };

// One HTTP reader: its kind, the stream it reads, and what it got and met (its thread writes, the run
// reads).
struct Client {
    Kind kind;
    std::string path;
    std::atomic<uint64_t> frames{0};
    std::mutex mutex;
    std::vector<double> arrivals; // seconds since the start, steady readers only
    std::string error;
    int stalls = 0, stallsDropped = 0, stallsNotDropped = 0;
    int connections = 0;
    int openAtEnd = -1; // a stalled reader's connection left open for the shutdown

    bool jpeg() const { return path == "/stream.mjpg"; }
    const char* kindName() const {
        return kind == Kind::Steady ? "steady" : kind == Kind::Stalled ? "stalled" : "reconnecting";
    }
    void setError(const std::string& e) {
        std::lock_guard<std::mutex> lock(mutex);
        if (error.empty())
            error = e;
    }
};

// What every reader shares: the server's port, the run's start and its stop flag.
struct Load {
    int port;
    Clock::time_point start;
    std::atomic<bool> stop{false};
    double stallSeconds;
    double now() const { return seconds(Clock::now() - start); }
};

// Reads every part and notes when each arrived, until the run stops; a stream the server ends is an
// error.
void steadyReader(Client& c, Load& load);
// Takes the first part, then stops reading; after `stallSeconds` it drains what the connection
// still holds and expects the server to have hung up. Then again, until the end, where the last
// stalled connection stays open for the shutdown.
void stalledReader(Client& c, Load& load);
// Hangs up in the middle of a part (half of the time with a reset), and reconnects.
void reconnectingReader(Client& c, Load& load);

} // namespace nordaload
