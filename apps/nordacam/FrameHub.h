#pragma once
// FrameHub: hands the newest encoded frame of a stream to any number of readers.
//
// The pipeline publishes; each reader waits for a frame newer than the one it had and always gets
// the newest, so a slow reader skips frames instead of queueing them and never slows the
// publisher. Readers register while they stream, so the stream can be started for the first and
// stopped after the last.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace nordacam {

class FrameHub {
public:
    using Data = std::shared_ptr<const std::string>;

    void publish(Data data);
    // Waits up to `timeout` for a frame newer than `seen` (updated); nullptr on time-out or close.
    Data waitNewer(uint64_t& seen, std::chrono::milliseconds timeout);
    Data latest() const;
    uint64_t published() const;
    // Wakes every reader; waitNewer returns nullptr from now on.
    void close();
    bool closed() const;

    // Called with true when the first reader arrives, with false when the last leaves.
    void setDemandCallback(std::function<void(bool)> callback);
    class Reader {
    public:
        explicit Reader(FrameHub& hub);
        ~Reader();
        Reader(const Reader&) = delete;
        Reader& operator=(const Reader&) = delete;

    private:
        FrameHub& m_hub;
    };
    int readers() const;

private:
    mutable std::mutex m_mutex;
    std::mutex m_demandMutex;
    std::condition_variable m_cv;
    Data m_data;
    uint64_t m_sequence = 0;
    bool m_closed = false;
    int m_readers = 0;
    std::function<void(bool)> m_demand;
};

} // namespace nordacam
