#include "bench/apps/load/RtspClient.h"

#include "bench/apps/load/LoadTime.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace nordaload {

RtspClient::RtspClient(std::string url) : m_url(std::move(url)) {
    m_thread = std::thread([this] { run(); });
}

RtspClient::~RtspClient() {
    stop();
    m_thread.join();
}

void RtspClient::stop() {
    m_stop = true;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_pid > 0)
        ::kill(m_pid, SIGINT);
}

void RtspClient::run() {
    while (!m_stop) {
        // Close-on-exec: another client's ffmpeg must not hold this pipe open after this one ends.
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0)
            return;
        const pid_t pid = ::fork();
        if (pid == 0) {
            ::dup2(fds[1], STDOUT_FILENO);
            const int null = ::open("/dev/null", O_WRONLY);
            ::dup2(null, STDERR_FILENO);
            ::close(fds[0]);
            ::close(fds[1]);
            ::execlp("ffmpeg", "ffmpeg", "-nostdin", "-nostats", "-loglevel", "error", "-progress", "pipe:1",
                     "-rtsp_transport", "tcp", "-i", m_url.c_str(), "-c", "copy", "-f", "null", "-",
                     static_cast<char*>(nullptr));
            ::_exit(127);
        }
        ::close(fds[1]);
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_pid = pid;
        }
        ++m_connections;
        std::string text;
        char buf[1024];
        ssize_t n;
        while ((n = ::read(fds[0], buf, sizeof buf)) > 0) {
            text.append(buf, static_cast<size_t>(n));
            for (auto end = text.find('\n'); end != std::string::npos; end = text.find('\n')) {
                if (text.rfind("frame=", 0) == 0)
                    m_current = std::strtoull(text.c_str() + 6, nullptr, 10);
                text.erase(0, end + 1);
            }
        }
        ::close(fds[0]);
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            ::waitpid(pid, nullptr, 0);
            m_pid = -1;
        }
        m_total += m_current;
        m_current = 0;
        if (!m_stop)
            sleepFor(1.0);
    }
}

} // namespace nordaload
