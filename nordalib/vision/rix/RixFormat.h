#pragma once
// RixFormat: the chunked byte layout of a Rix (docs/rix-format.md). write() lays every item out in
// its chunk with length and checksum; read() checks every header, length, checksum and image size
// against the bytes present before it trusts them, and names the file and chunk of a fault.

#include "nordalib/vision/rix/Rix.h"

#include <string>
#include <vector>

namespace norda::vision {

class RixFormat {
public:
    // Throws norda::Exception (location Rix::save) without a radiometric image, or with
    // `superResolution` and no super-resolution image.
    static void write(const Rix& rix, bool superResolution, std::vector<char>& out);
    // Throws norda::Exception (location Rix::load) naming `name`, the chunk and its offset.
    static Rix read(const void* data, size_t size, const std::string& name,
                    Rix::Content content = Rix::Content::Everything);
};

} // namespace norda::vision
