#include "nordalib/vision/calibration/CalibrationFile.h"

#include "nordalib/core/exception/Exception.h"

#include <atomic>
#include <filesystem>
#include <system_error>

#include <unistd.h>

namespace norda::vision {

void CalibrationFile::replace(const std::string& target, const std::function<void(const std::string&)>& write,
                              const std::function<void(const std::string&)>& verify) {
    static std::atomic<unsigned> counter{0};
    const std::filesystem::path path(target);
    // The extension stays last: some writers pick the format from it.
    const std::filesystem::path temp =
        path.parent_path() / (".partial-" + std::to_string(::getpid()) + "-" + std::to_string(counter++) +
                              "-" + path.filename().string());
    std::error_code ignored;
    if (path.has_parent_path())
        std::filesystem::create_directories(path.parent_path(), ignored); // "lens2/distort.pxm"
    try {
        write(temp.string());
        verify(temp.string());
    } catch (...) {
        std::filesystem::remove(temp, ignored);
        throw;
    }
    std::error_code error;
    std::filesystem::rename(temp, path, error);
    if (error) {
        std::filesystem::remove(temp, ignored);
        NORDA_THROW("can not replace calibration file " + target + ": " + error.message(),
                    "norda::vision::CalibrationFile::replace");
    }
}

} // namespace norda::vision
