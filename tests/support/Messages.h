#pragma once
// The message a call throws, for comparing failure texts.

#include "nordalib/core/exception/Exception.h"

#include <string>
#include <utility>

namespace norda::test {

// The norda::Exception message of f() ("std: ..." for other standard exceptions, "<no exception>").
template <typename F> std::string messageOf(F&& f) {
    try {
        f();
    } catch (const norda::Exception& e) {
        return e.what();
    } catch (const std::exception& e) {
        return std::string("std: ") + e.what();
    }
    return "<no exception>";
}

// The message and location of the norda::Exception f() throws ({"<no exception>", ""} if none).
template <typename F> std::pair<std::string, std::string> failureOf(F&& f) {
    try {
        f();
    } catch (const norda::Exception& e) {
        return {e.what(), e.location()};
    }
    return {"<no exception>", ""};
}

} // namespace norda::test
