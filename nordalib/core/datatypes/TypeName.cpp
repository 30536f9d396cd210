#include "nordalib/core/datatypes/TypeName.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>

namespace norda::exp {

namespace {
void replaceAll(std::string& s, const std::string& from, const std::string& to) {
    for (auto pos = s.find(from); pos != std::string::npos; pos = s.find(from, pos + to.size()))
        s.replace(pos, from.size(), to);
}
} // namespace

std::string typeName(const std::type_info& type) {
    return typeName(std::type_index(type));
}

std::string typeName(std::type_index type) {
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> demangled(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
    std::string name = (status == 0 && demangled) ? demangled.get() : type.name();
    replaceAll(name, "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >",
               "std::string");
    replaceAll(name, "std::__cxx11::", "std::");
    replaceAll(name, " >", ">"); // the demangler's pre-C++11 spacing of nested templates
    return name;
}

} // namespace norda::exp
