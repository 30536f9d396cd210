#pragma once
// Shared by the fuzz targets: inputs that parsers read from files go through a scratch file; hosts
// that run threads live as long as the main thread.

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <unistd.h>
#include <utility>

namespace norda::fuzz {

// A per-process scratch file holding the current input, removed when the process exits.
inline const char* writeScratch(const uint8_t* data, size_t size) {
    static char path[64] = {};
    if (!path[0]) {
        std::snprintf(path, sizeof path, "/tmp/norda-fuzz-%ld.bin", static_cast<long>(::getpid()));
        std::atexit([] { std::remove(path); });
    }
    std::FILE* f = std::fopen(path, "wb");
    if (f) {
        if (size)
            std::fwrite(data, 1, size, f);
        std::fclose(f);
    }
    return path;
}

// The fuzz target's host (a camera with its chain running, say), made once on the main thread and
// destroyed when that thread ends the process. libFuzzer ends it with exit() at any moment between
// inputs; exit() runs the main thread's thread-local destructors before any static one, so the
// host stops and joins its threads while everything they use still exists. (A static host would
// be destroyed among the static objects, after those made later, which a cycle still running may
// read.)
template <typename T, typename... Args> T& hostForThisProcess(Args&&... args) {
    static thread_local std::unique_ptr<T> host = std::make_unique<T>(std::forward<Args>(args)...);
    return *host;
}

} // namespace norda::fuzz
