#pragma once
// File-system and clock helpers.

#include <cstdint>
#include <string>

namespace norda::utils {

bool existsFile(const std::string& path);      // a regular file (or a link to one)
bool existsDirectory(const std::string& path); // a directory (or a link to one)
// Wall-clock time as milliseconds since 1970-01-01 UTC.
unsigned long long getSystemDateTime();

} // namespace norda::utils
