#include "nordalib/core/exception/Exception.h"

#include <cstring>

namespace norda {

Exception::Exception(std::string message, std::string location)
    : m_message(std::move(message)), m_location(std::move(location)) {}

std::string Exception::fullText() const {
    return m_message + " [" + m_location + "]";
}

std::string formatLocation(const std::string& file, int line, const std::string& function) {
    return file + ": " + std::to_string(line) + ": " + function + "(..)";
}

std::string sourcePath(const char* file) {
    std::string path = file ? file : "";
    // Keep from the last "nordalib/" or "apps/" component on, so build directories do not leak in.
    for (const char* root : {"/nordalib/", "/apps/"}) {
        auto pos = path.rfind(root);
        if (pos != std::string::npos) {
            path = path.substr(pos + 1);
            break;
        }
    }
    auto slash = path.find_last_of('/');
    auto dot = path.find_last_of('.');
    if (dot != std::string::npos && (slash == std::string::npos || dot > slash))
        path.erase(dot);
    return path;
}

} // namespace norda
