#include "bench/apps/load/ServerProcess.h"

#include "bench/apps/load/LoadTime.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

namespace nordaload {

ServerProcess::ServerProcess(const std::string& out, double fps, bool rtsp) {
    const std::string fpsText = std::to_string(fps);
    int fds[2];
    if (::pipe(fds) != 0)
        return;
    m_pid = ::fork();
    if (m_pid == 0) {
        ::dup2(fds[1], STDOUT_FILENO);
        ::close(fds[0]);
        ::close(fds[1]);
        if (rtsp)
            ::execl(NORDACAM_BINARY, "nordacam", "serve", "--port", "0", "--out", out.c_str(), "--fps",
                    fpsText.c_str(), "--rtsp-port", "0", static_cast<char*>(nullptr));
        else
            ::execl(NORDACAM_BINARY, "nordacam", "serve", "--port", "0", "--out", out.c_str(), "--fps",
                    fpsText.c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    ::close(fds[1]);
    m_out = fds[0];
    // The first line names the port; the program may take a while to start under sanitizers.
    const auto deadline = Clock::now() + std::chrono::seconds(60);
    while (Clock::now() < deadline && m_port == 0) {
        pollfd p{m_out, POLLIN, 0};
        if (::poll(&p, 1, 200) <= 0)
            continue;
        char buf[512];
        const ssize_t n = ::read(m_out, buf, sizeof buf);
        if (n <= 0)
            break;
        m_output.append(buf, static_cast<size_t>(n));
        const std::string marker = "serving http://127.0.0.1:";
        const auto at = m_output.find(marker);
        if (at != std::string::npos && m_output.find('/', at + marker.size()) != std::string::npos)
            m_port = std::atoi(m_output.c_str() + at + marker.size());
    }
}

ServerProcess::~ServerProcess() {
    if (m_pid > 0 && !m_exited) {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
    if (m_out >= 0)
        ::close(m_out);
}

int ServerProcess::rtspPort() const {
    const std::string marker = "rtsp://127.0.0.1:";
    const auto at = m_output.find(marker);
    return at == std::string::npos ? 0 : std::atoi(m_output.c_str() + at + marker.size());
}

long ServerProcess::status(const std::string& field) const {
    std::ifstream in("/proc/" + std::to_string(m_pid) + "/status");
    std::string line;
    while (std::getline(in, line))
        if (line.rfind(field + ":", 0) == 0)
            return std::atol(line.c_str() + field.size() + 1);
    return -1;
}

int ServerProcess::stop(double timeout, double& took) {
    const auto start = Clock::now();
    ::kill(m_pid, SIGTERM);
    int st = 0;
    while (seconds(Clock::now() - start) < timeout) {
        if (::waitpid(m_pid, &st, WNOHANG) == m_pid) {
            m_exited = true;
            break;
        }
        sleepFor(0.01);
    }
    took = seconds(Clock::now() - start);
    if (!m_exited)
        return -1;
    char buf[4096];
    ssize_t n;
    while ((n = ::read(m_out, buf, sizeof buf)) > 0)
        m_output.append(buf, static_cast<size_t>(n));
    return st;
}

} // namespace nordaload
