#pragma once
// Tests that time the server and tests that run a browser take both cores for
// seconds; ctest runs tests side by side, so each of them holds this lock while it runs and they
// never overlap (the lock file is per build folder).

#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <unistd.h>

namespace norda::test {

class ExclusiveRun {
public:
    ExclusiveRun()
        : m_fd(
              ::open((std::string(NORDA_BINARY_DIR) + "/heavy-tests.lock").c_str(), O_CREAT | O_RDWR, 0644)) {
        if (m_fd >= 0)
            ::flock(m_fd, LOCK_EX);
    }
    ~ExclusiveRun() {
        if (m_fd >= 0)
            ::close(m_fd); // releases the lock
    }
    ExclusiveRun(const ExclusiveRun&) = delete;
    ExclusiveRun& operator=(const ExclusiveRun&) = delete;

private:
    int m_fd;
};

} // namespace norda::test
