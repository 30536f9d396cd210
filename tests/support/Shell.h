#pragma once
// Runs a shell command for tests that check files against standard tools.

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace norda::test {

inline bool haveTool(const std::string& tool) {
    return std::system(("command -v " + tool + " >/dev/null 2>&1").c_str()) == 0;
}

// Standard output of the command (standard error discarded); `status` receives the exit status.
inline std::string runCommand(const std::string& command, int* status = nullptr) {
    std::string out;
    std::FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r");
    if (!pipe)
        return out;
    std::array<char, 4096> buffer{};
    size_t n;
    while ((n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0)
        out.append(buffer.data(), n);
    int rc = pclose(pipe);
    if (status)
        *status = rc;
    return out;
}

inline size_t countOf(const std::string& text, const std::string& needle) {
    size_t count = 0;
    for (size_t p = text.find(needle); p != std::string::npos; p = text.find(needle, p + needle.size()))
        ++count;
    return count;
}

} // namespace norda::test
