#pragma once
// SystemError: a failure the operating system reported for a file (a missing folder, a full disk,
// no permission), with its error number (errno) and the file, so that callers can tell it from
// a damaged file or a wrong argument (plain Exception).

#include "nordalib/core/exception/Exception.h"

#include <string>

namespace norda {

class SystemError : public Exception {
public:
    SystemError(std::string message, std::string location, int error, std::string path);

    int error() const noexcept { return m_error; }
    const std::string& path() const noexcept { return m_path; }

private:
    int m_error;
    std::string m_path;
};

} // namespace norda
