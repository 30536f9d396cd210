#pragma once
// Shared by the fuzz targets: inputs that parsers read from files go through a scratch file.

#include <cstdio>
#include <string>
#include <unistd.h>

namespace norda::fuzz {

// A per-process scratch file holding the current input.
inline const std::string& writeScratch(const uint8_t* data, size_t size) {
    static const std::string path = "/tmp/norda-fuzz-" + std::to_string(::getpid()) + ".bin";
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (f) {
        if (size)
            std::fwrite(data, 1, size, f);
        std::fclose(f);
    }
    return path;
}

} // namespace norda::fuzz
