// The user's material table on arbitrary bytes: it parses or is refused with a norda::Exception;
// every material of a table that parses is found by its name.
#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/radiometry/MaterialTable.h"

#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    try {
        const auto table =
            norda::vision::MaterialTable::parse(std::string(reinterpret_cast<const char*>(data), size));
        for (const auto& m : table.materials())
            if (table.find(m.name) == nullptr)
                std::abort();
    } catch (const norda::Exception&) {
    }
    return 0;
}
