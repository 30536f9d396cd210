#include "nordalib/core/utils/FileUtils.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/exception/SystemError.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/uio.h>
#include <unistd.h>
#include <vector>

namespace norda::utils {

bool existsFile(const std::string& path) {
    std::error_code ec;
    return !path.empty() && std::filesystem::is_regular_file(path, ec);
}

bool existsDirectory(const std::string& path) {
    std::error_code ec;
    return !path.empty() && std::filesystem::is_directory(path, ec);
}

unsigned long long getSystemDateTime() {
    using namespace std::chrono;
    return static_cast<unsigned long long>(
        duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

bool writeAll(int fd, std::initializer_list<ByteRange> parts) {
    std::vector<iovec> left;
    for (const ByteRange& p : parts)
        if (p.size > 0)
            left.push_back({const_cast<void*>(p.data), p.size});
    size_t index = 0;
    while (index < left.size()) {
        const int count = static_cast<int>(std::min<size_t>(left.size() - index, IOV_MAX));
        const ssize_t n = ::writev(fd, left.data() + index, count);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            if (n == 0)
                errno = EIO;
            return false;
        }
        size_t done = static_cast<size_t>(n);
        while (index < left.size() && done >= left[index].iov_len)
            done -= left[index++].iov_len;
        if (index < left.size()) {
            left[index].iov_base = static_cast<char*>(left[index].iov_base) + done;
            left[index].iov_len -= done;
        }
    }
    return true;
}

void writeFileAtomically(const std::string& path, std::initializer_list<ByteRange> parts) {
    static std::atomic<unsigned> counter{0};
    constexpr const char* kFunction = "norda::utils::writeFileAtomically";
    const std::filesystem::path target(path);
    const std::filesystem::path temp =
        target.parent_path() /
        fmt::format(".{}.{}-{}.tmp", target.filename().string(), ::getpid(), counter++);
    auto fail = [&](const char* step, int error, int fd) {
        if (fd >= 0)
            ::close(fd);
        ::unlink(temp.c_str());
        throw SystemError(fmt::format("can not write {}: {}: {}", path, step, std::strerror(error)),
                          NORDA_LOCATION(kFunction), error, path);
    };
    const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) {
        const int error = errno;
        throw SystemError(fmt::format("can not write {}: {}", path, std::strerror(error)),
                          NORDA_LOCATION(kFunction), error, path);
    }
    if (!writeAll(fd, parts))
        fail("write", errno, fd);
    // Some file systems (pipes, special mounts) cannot sync; that is no reason to lose the file.
    if (::fsync(fd) != 0 && errno != EINVAL && errno != EROFS)
        fail("sync", errno, fd);
    if (::close(fd) != 0)
        fail("close", errno, -1);
    if (::rename(temp.c_str(), target.c_str()) != 0)
        fail("rename", errno, -1);
    // The rename itself survives a power loss once the folder is synced.
    const std::string folder = target.has_parent_path() ? target.parent_path().string() : ".";
    const int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
}

} // namespace norda::utils
