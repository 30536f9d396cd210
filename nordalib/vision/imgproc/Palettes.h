#pragma once
// The standard colour tables shipped with the library.
//
// Every table is 256 RGB triples (768 bytes, entry 0 for the coldest value, entry 255 for the
// hottest), the form Id::Palette::Colors carries and ColorPaletteConverter takes:
//   "iron"          black, blue, magenta, orange, yellow, white: the classic thermography palette
//   "rainbow"       dark blue, blue, cyan, green, yellow, orange, red
//   "rainbow_hc"    high-contrast rainbow: the rainbow's hues run twice, the first pass dark and
//                   the second bright, so small differences cross several distinct colours
//   "grey"          white hot: black to white
//   "grey_inverted" black hot: white to black
//   "inferno"       the perceptually uniform black-purple-orange-yellow map (published table)
//   "viridis"       the perceptually uniform blue-green-yellow map (published table)
// Names are lower case and matched exactly.

#include <cstdint>
#include <string>
#include <vector>

namespace norda::vision {

class Palettes {
public:
    static constexpr size_t kEntries = 256;
    static constexpr size_t kBytes = 3 * kEntries;

    // All palette names, in the order above.
    static const std::vector<std::string>& names();
    static bool exists(const std::string& name);
    // The 768-byte RGB table of `name`; an unknown name throws norda::Exception listing the names.
    static const std::vector<uint8_t>& colors(const std::string& name);
};

} // namespace norda::vision
