// Stored values (binary and text forms) on arbitrary bytes.
#include "nordalib/core/datatypes/VariantRegistry.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace norda::exp;
    try {
        MemoryBinary m(data, size);
        while (m.remaining() > 0) {
            auto v = readVariant(m);
            if (v && !v->typeTag().empty()) {
                auto text = v->toString();
                (void)VariantRegistry::instance().fromText(v->typeTag(), text);
            }
        }
    } catch (const norda::Exception&) {
    }
    // Text form: "<tag> <text>".
    std::string s(reinterpret_cast<const char*>(data), size);
    auto blank = s.find(' ');
    if (blank != std::string::npos) {
        try {
            (void)VariantRegistry::instance().fromText(s.substr(0, blank), s.substr(blank + 1));
        } catch (const norda::Exception&) {
        }
    }
    return 0;
}
