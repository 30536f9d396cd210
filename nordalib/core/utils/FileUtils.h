#pragma once
// File-system and clock helpers.

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>

namespace norda::utils {

bool existsFile(const std::string& path);      // a regular file (or a link to one)
bool existsDirectory(const std::string& path); // a directory (or a link to one)
// Wall-clock time as milliseconds since 1970-01-01 UTC.
unsigned long long getSystemDateTime();

struct ByteRange {
    const void* data;
    size_t size;
};

// Writes every part to `fd`, one after another, retrying short and interrupted writes. False with
// errno set when the system refuses (a full disk, a file-size limit).
bool writeAll(int fd, std::initializer_list<ByteRange> parts);

// Replaces `path` by the parts written one after another, so that readers and a crash see either
// the old file or the whole new one, never a part: the bytes are written and synced under a unique
// temporary name beside the file, then renamed over it. Throws a norda::Exception naming the file,
// the step that failed and the system's reason ("can not write <path>: write: No space left on
// device"); the temporary file is removed and the old file stays as it was.
void writeFileAtomically(const std::string& path, std::initializer_list<ByteRange> parts);
inline void writeFileAtomically(const std::string& path, const void* data, size_t size) {
    writeFileAtomically(path, {ByteRange{data, size}});
}

} // namespace norda::utils
