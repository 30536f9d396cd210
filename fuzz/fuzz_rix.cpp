// Radiometric image files on arbitrary bytes: every input is loaded or refused with an exception,
// from memory and from a file; what loads saves again to the same bytes. The input is also tried
// with every checksum made valid, so that the fuzzer reaches the chunk parsers behind them. What
// loads is re-analysed as the gallery does with a stored image: its own entries (Planck constants,
// glass, palette, scale) drive that.
#include "FuzzSupport.h"
#include "nordalib/vision/rix/Crc32.h"
#include "nordalib/vision/rix/Rix.h"
#include "nordalib/vision/rix/RixReanalysis.h"

#include <cstring>
#include <vector>

namespace {

void loadAndResave(const void* data, size_t size) {
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
        return;
    }
    try {
        auto to = norda::vision::RixReanalysis::storedParameters(rix);
        to.emissivity = to.emissivity > 0.5 ? 0.5 : 0.95;
        (void)norda::vision::RixReanalysis::reanalysed(rix, to);
    } catch (const norda::Exception&) {
    }
}

// Header of 20 bytes (CRC at 16), then chunks of type, length, CRC over type and payload.
void fixChecksums(std::vector<uint8_t>& b) {
    using norda::vision::Crc32;
    if (b.size() < 20)
        return;
    uint32_t crc = Crc32::compute(b.data(), 16);
    std::memcpy(b.data() + 16, &crc, 4);
    for (size_t pos = 20; pos + 12 <= b.size();) {
        uint32_t length;
        std::memcpy(&length, b.data() + pos + 4, 4);
        if (length > b.size() - pos - 12)
            return;
        crc = Crc32::update(Crc32::update(0, b.data() + pos, 4), b.data() + pos + 12, length);
        std::memcpy(b.data() + pos + 8, &crc, 4);
        pos += 12 + length;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    loadAndResave(data, size);
    std::vector<uint8_t> fixed(data, data + size);
    fixChecksums(fixed);
    loadAndResave(fixed.data(), fixed.size());
    try {
        norda::vision::Rix fromFile;
        fromFile.load(norda::fuzz::writeScratch(data, size));
    } catch (const norda::Exception&) {
    }
    return 0;
}
