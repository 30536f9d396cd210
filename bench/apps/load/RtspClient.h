#pragma once
// An ffmpeg process reading an RTSP stream without decoding it (eight decoders would take the
// machine's cores from the server), reconnecting when it ends; frames counted from its progress
// lines.

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace nordaload {

class RtspClient {
public:
    explicit RtspClient(std::string url);
    ~RtspClient();
    // Asks the running ffmpeg to end (it takes a moment) and starts no other.
    void stop();
    uint64_t frames() const { return m_total + m_current; }
    int connections() const { return m_connections; }
    const std::string& url() const { return m_url; }

private:
    void run();

    std::string m_url;
    std::thread m_thread;
    std::mutex m_mutex;
    pid_t m_pid = -1;
    std::atomic<bool> m_stop{false};
    std::atomic<uint64_t> m_total{0}, m_current{0};
    std::atomic<int> m_connections{0};
};

} // namespace nordaload
