#pragma once
// The one exception type of the library: a message plus the place it was raised.
//
// The location reads "<source path>: <line>: <qualified function>(..)", for example
// "nordalib/vision/streaming/WindowingElement: 50: norda::exp::streaming::WindowingElement::process(..)".
// Source paths are given relative to the repository root and without extension.

#include <exception>
#include <string>

namespace norda {

class Exception : public std::exception {
public:
    Exception(std::string message, std::string location);

    const char* what() const noexcept override { return m_message.c_str(); }
    const std::string& message() const noexcept { return m_message; }
    const std::string& location() const noexcept { return m_location; }
    // Message and location on one line, for logs.
    std::string fullText() const;

private:
    std::string m_message;
    std::string m_location;
};

// "<file>: <line>: <function>(..)"
std::string formatLocation(const std::string& file, int line, const std::string& function);

// Turns a compiler __FILE__ into the repository-relative path without extension
// ("/x/y/nordalib/core/cmd/CommandProxy.cpp" -> "nordalib/core/cmd/CommandProxy").
std::string sourcePath(const char* file);

} // namespace norda

// Location of the current line, naming the function explicitly (qualified name without "(..)").
#define NORDA_LOCATION(function) ::norda::formatLocation(::norda::sourcePath(__FILE__), __LINE__, function)
#define NORDA_THROW(message, function) throw ::norda::Exception((message), NORDA_LOCATION(function))
