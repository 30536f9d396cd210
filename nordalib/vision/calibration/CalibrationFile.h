#pragma once
// CalibrationFile: replaces a calibration file so that the camera never reads a partial or unchecked
// one. The new content is written under a temporary name beside the target, read back with the
// library's own reader, and only then renamed over the target; on any failure the temporary file is
// removed and the old file stays as it was. Missing folders of the target are created.

#include <functional>
#include <string>

namespace norda::vision {

class CalibrationFile {
public:
    // `write` writes the content to the path it is given; `verify` reads that path back and throws
    // when the library would refuse it.
    static void replace(const std::string& target, const std::function<void(const std::string&)>& write,
                        const std::function<void(const std::string&)>& verify);
};

} // namespace norda::vision
