#include "nordalib/core/utils/FileUtils.h"

#include <chrono>
#include <filesystem>

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
    return static_cast<unsigned long long>(duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

} // namespace norda::utils
