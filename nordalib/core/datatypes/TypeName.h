#pragma once
// Readable names of C++ types for messages ("float", "std::string", "cv::Mat", ...).

#include <string>
#include <typeindex>
#include <typeinfo>

namespace norda::exp {

// The demangled name of a type, with the standard string spelled "std::string".
std::string typeName(const std::type_info& type);
std::string typeName(std::type_index type);

template <typename T> std::string typeName() {
    if constexpr (std::is_const_v<T>)
        return "const " + typeName(typeid(T));
    else
        return typeName(typeid(T));
}

} // namespace norda::exp
