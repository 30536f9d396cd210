#include "bench/apps/load/StreamReaders.h"

#include "bench/apps/load/PartReader.h"
#include "tests/support/LoopbackStream.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace nordaload {

namespace {

using norda::test::openStream;

// Reads until `parts` parts arrived, the stream failed or the deadline passed.
int readParts(int fd, PartReader& reader, int parts, double timeout, const std::atomic<bool>& stop) {
    char buf[65536];
    int got = 0;
    const auto deadline = Clock::now() + std::chrono::duration<double>(timeout);
    while (got < parts && !stop && Clock::now() < deadline) {
        const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
        if (n == 0)
            return -1;
        if (n < 0) {
            if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)
                continue;
            return -1;
        }
        const int p = reader.feed(buf, static_cast<size_t>(n));
        if (p < 0)
            return -1;
        got += p;
    }
    return got;
}

} // namespace

void steadyReader(Client& c, Load& load) {
    const int fd = openStream(load.port, c.path);
    if (fd < 0)
        return c.setError("can not connect");
    ++c.connections;
    PartReader reader(c.jpeg());
    std::vector<char> buf(1 << 16);
    while (!load.stop) {
        const ssize_t n = ::recv(fd, buf.data(), buf.size(), 0);
        if (n > 0) {
            const int parts = reader.feed(buf.data(), static_cast<size_t>(n));
            if (parts < 0) {
                c.setError(reader.error());
                break;
            }
            if (parts > 0) {
                const double t = load.now();
                std::lock_guard<std::mutex> lock(c.mutex);
                c.arrivals.insert(c.arrivals.end(), static_cast<size_t>(parts), t);
                c.frames += static_cast<uint64_t>(parts);
            }
        } else if (n == 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) {
            c.setError("the server ended a steady reader's stream at " + std::to_string(load.now()) + " s");
            break;
        }
    }
    ::close(fd);
}

// Takes the first part, then stops reading; after `stallSeconds` it drains what the connection
// still holds and expects the server to have hung up. Then again, until the end, where the last
// stalled connection stays open for the shutdown.
void stalledReader(Client& c, Load& load) {
    while (!load.stop) {
        const int fd = openStream(load.port, c.path, 8192);
        if (fd < 0)
            return c.setError("can not connect");
        ++c.connections;
        PartReader reader(c.jpeg());
        if (readParts(fd, reader, 1, 20.0, load.stop) < 1) {
            ::close(fd);
            if (!load.stop)
                c.setError("no first part: " + reader.error());
            return;
        }
        ++c.frames;
        const double until = load.now() + load.stallSeconds;
        while (!load.stop && load.now() < until)
            sleepFor(0.05);
        if (load.stop) {
            c.openAtEnd = fd;
            return;
        }
        ++c.stalls;
        // The server must have given up on this connection: what is left is read, then the end.
        bool ended = false;
        char buf[65536];
        const double drainUntil = load.now() + 5.0;
        while (load.now() < drainUntil) {
            const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
            if (n == 0 || (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) {
                ended = true;
                break;
            }
        }
        ++(ended ? c.stallsDropped : c.stallsNotDropped);
        ::close(fd);
    }
}

// Hangs up in the middle of a part (half of the time with a reset), and reconnects.
void reconnectingReader(Client& c, Load& load) {
    bool reset = false;
    while (!load.stop) {
        const int fd = openStream(load.port, c.path);
        if (fd < 0)
            return c.setError("can not connect");
        ++c.connections;
        PartReader reader(c.jpeg());
        const int got = readParts(fd, reader, 1, 20.0, load.stop);
        if (got < 1 && !load.stop)
            c.setError("no first part: " + reader.error());
        c.frames += static_cast<uint64_t>(std::max(got, 0));
        // Into the next part.
        char buf[4096];
        for (int i = 0; i < 50 && !load.stop && reader.pending() == 0; ++i) {
            const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
            if (n > 0)
                reader.feed(buf, static_cast<size_t>(n));
        }
        if (reset) {
            linger l{1, 0};
            ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &l, sizeof l);
        }
        reset = !reset;
        ::close(fd);
        sleepFor(0.1);
    }
}

} // namespace nordaload
