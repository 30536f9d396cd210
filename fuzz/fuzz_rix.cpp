// Radiometric image files on arbitrary bytes, from memory and from a file.
#include "FuzzSupport.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/rix/Rix.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    try {
        norda::vision::Rix rix;
        rix.load(data, size, "fuzz input");
    } catch (const norda::Exception&) {
    }
    try {
        norda::vision::Rix rix;
        rix.load(norda::fuzz::writeScratch(data, size));
    } catch (const norda::Exception&) {
    }
    return 0;
}
