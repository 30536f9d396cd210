// Radiometric image files on arbitrary bytes: every input is loaded or refused with an exception,
// from memory and from a file; what loads saves again to the same bytes.
#include "FuzzSupport.h"
#include "nordalib/vision/rix/Rix.h"

#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    norda::vision::Rix rix;
    try {
        rix.load(data, size, "fuzz input");
        std::vector<char> first, second;
        rix.save(first, false);
        norda::vision::Rix again;
        again.load(first, "saved again");
        again.save(second, false);
        if (first != second)
            __builtin_trap();
    } catch (const norda::Exception&) {
    }
    try {
        norda::vision::Rix fromFile;
        fromFile.load(norda::fuzz::writeScratch(data, size));
    } catch (const norda::Exception&) {
    }
    return 0;
}
