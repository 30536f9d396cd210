#include "nordalib/core/exception/SystemError.h"

namespace norda {

SystemError::SystemError(std::string message, std::string location, int error, std::string path)
    : Exception(std::move(message), std::move(location)), m_error(error), m_path(std::move(path)) {}

} // namespace norda
