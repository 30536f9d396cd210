#pragma once
// `nordacam serve` as its own process on a free loopback port (the built program, NORDACAM_BINARY);
// its memory and threads are read from /proc.

#include <sys/types.h>

#include <string>

namespace nordaload {

class ServerProcess {
public:
    // Starts the server with its output in `out`, paced at `fps`, with RTSP streams if `rtsp`; waits
    // for it to name its port (port() stays 0 when it did not).
    ServerProcess(const std::string& out, double fps, bool rtsp);
    ~ServerProcess();
    int port() const { return m_port; }
    const std::string& output() const { return m_output; }
    // The RTSP port the server printed before the HTTP one, or 0.
    int rtspPort() const;

    // A line of /proc/<pid>/status as a number (VmRSS in kB, Threads).
    long status(const std::string& field) const;

    // SIGTERM, then waits up to `timeout` seconds. Returns the wait status, -1 if it did not end.
    int stop(double timeout, double& took);

private:
    pid_t m_pid = -1;
    int m_out = -1;
    int m_port = 0;
    bool m_exited = false;
    std::string m_output;
};

} // namespace nordaload
