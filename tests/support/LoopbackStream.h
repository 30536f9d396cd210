#pragma once
// A raw HTTP stream request on loopback, for the tests and the load tool that read the host's
// multipart streams the way a viewer does, or stop reading as a stalled viewer does.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdint>
#include <string>

namespace norda::test {

// A connection to 127.0.0.1:`port` that asked for `path` (-1 if that failed); reads time out after
// 0.2 s. `rcvbuf` > 0 makes the receive buffer that small, so that a reader that stops reading backs
// up into the server at once.
inline int openStream(int port, const std::string& path, int rcvbuf = 0) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    if (rcvbuf > 0)
        ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &rcvbuf, sizeof rcvbuf);
    timeval tv{0, 200000};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = htons(static_cast<uint16_t>(port));
    const std::string request = "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
    if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
        ::send(fd, request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size())) {
        ::close(fd);
        return -1;
    }
    return fd;
}

} // namespace norda::test
