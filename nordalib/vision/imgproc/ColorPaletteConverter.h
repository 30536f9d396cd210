#pragma once
// ColorPaletteConverter: turns radiometric frames (16-bit pixel values, 0.01 K per count) into
// 8-bit colour display images.
//
// Every view goes through a 65536-entry lookup table from pixel value to colour, built only when
// its inputs change, so a frame costs one table read per pixel (rows run in parallel).
//
// Palette view (palletize): the pixel values [lower, upper] are mapped linearly onto the colour
// table in equal-width bins: with n colours, value v gets entry floor((v - lower) * n / (upper -
// lower)), so `lower` gets the first colour and only `upper` itself and values above it get the
// last; values below `lower` clamp to the first colour. When lower > upper the map keeps its
// meaning (`lower` first colour, `upper` last), which shows the palette inverted over
// [upper, lower]; when lower == upper the image is a two-colour threshold (values up to the
// limit in the first colour, above it in the last). Nothing divides by the span.
//
// Colour table: R, G, B bytes per colour, coldest first. The standard tables (Palettes.h) have 256
// colours (768 bytes); any whole number of triples from 2 to 65536 colours is a table of that many
// colours. Anything else is rejected with a norda::Exception naming the length.
//
// Colour regions paint a band of pixel values [lower, upper] (both inclusive) in one colour over
// the palette: 1 isotherm, 2 upper alarm, 3 lower alarm, painted in that order, so where bands
// overlap the lower alarm wins over the upper alarm, which wins over the isotherm. Region colours
// are 0x00RRGGBB: red in bits 16..23, green in bits 8..15, blue in bits 0..7; the top byte is
// ignored. Regions apply to the palette view only.
//
// Humidity view (palletizeHumid): each pixel is coloured by the relative humidity right at a
// surface of its temperature (DewPoint::calcSurfaceMoisture, given the air temperature and
// humidity), on the traffic-light scale building surveyors use:
//   below 64 %       green (0, 200, 0): dry, no risk
//   64 % .. 72 %     green to yellow (255, 255, 0)
//   72 % .. 80 %     yellow to red
//   80 % .. 100 %    red (255, 0, 0): mould can grow when this lasts
//   100 % and above  blue (0, 0, 255): the surface is at or below the dew point, water condenses
//
// The `changed` argument of both views forces a rebuild of the table; the converter also rebuilds
// by itself whenever limits, colour table, regions or climate values differ from those the table
// was built from, so an image is never painted from a stale table.
//
// Output channel order: the constructor's flag. false gives R, G, B bytes per pixel (the library's
// display-image slot); true gives B, G, R, OpenCV's own order, for imwrite or imshow.
//
// A converter keeps its tables between calls and is not safe to share between threads; give each
// pipeline its own.

#include "nordalib/core/datatypes/Quantity.h"

#include <opencv2/core.hpp>

#include <array>
#include <cstdint>
#include <vector>

namespace norda::vision {

class ColorPaletteConverter {
public:
    using Temperature = exp::quantity::Temperature<exp::MarkedFloat>;
    using Relation = exp::quantity::Relation<exp::MarkedFloat>;

    static constexpr uint32_t kIsotherm = 1;
    static constexpr uint32_t kUpperAlarm = 2;
    static constexpr uint32_t kLowerAlarm = 3;

    // Humidity scale thresholds, as fractions (1.0 = 100 %).
    static constexpr float kHumidWarnFrom = 0.64f;
    static constexpr float kHumidYellowAt = 0.72f;
    static constexpr float kHumidMouldFrom = 0.80f;
    static constexpr float kHumidCondensationFrom = 1.00f;

    // `bgr`: write B, G, R instead of R, G, B (see above).
    explicit ColorPaletteConverter(bool bgr = false);

    // Colours `raw` into `rgb` (allocated with create(): same size, CV_8UC3).
    void palletize(const cv::Mat_<uint16_t>& raw, cv::Mat_<cv::Vec3b>& rgb, uint16_t lower, uint16_t upper,
                   bool changed, const std::vector<uint8_t>& colours);

    // Humidity view. The scale has fixed colours, so `colours` is not used; it is taken so that
    // both views are called alike.
    void palletizeHumid(const cv::Mat_<uint16_t>& raw, cv::Mat_<cv::Vec3b>& rgb,
                        const Temperature& airTemperature, const Relation& humidity, bool changed,
                        const std::vector<uint8_t>& colours);

    // Paints pixel values in [lower, upper] of `region` (1, 2 or 3) in `colour` (0x00RRGGBB).
    // Another region number or upper < lower throws norda::Exception.
    void createColorRegion(uint32_t region, uint16_t upper, uint16_t lower, uint32_t colour);
    // Removes a region (nothing happens when it is not set); another region number throws.
    void deleteColorRegion(uint32_t region);
    bool hasColorRegion(uint32_t region) const;

    // The colour the humidity view gives a surface humidity `ratio` (1.0 = 100 %), as R, G, B.
    static cv::Vec3b humidityColour(float ratio);

    bool isBgr() const { return m_bgr; }
    // Number of lookup tables built so far (both views): shows whether frames reuse the table.
    uint64_t tableBuilds() const { return m_tableBuilds; }

private:
    struct ColorRegion {
        bool active = false;
        uint16_t lower = 0;
        uint16_t upper = 0;
        uint32_t colour = 0;
        bool operator==(const ColorRegion&) const = default;
    };

    static void checkColours(const std::vector<uint8_t>& colours);
    static void checkRaw(const cv::Mat_<uint16_t>& raw, const char* function);
    static size_t regionIndex(uint32_t region, const char* function);
    // A colour as a table entry: its three output bytes in memory order, then a spare byte.
    uint32_t entry(uint8_t r, uint8_t g, uint8_t b) const;
    void buildPaletteTable(uint16_t lower, uint16_t upper, const std::vector<uint8_t>& colours);
    void buildHumidTable(const Temperature& airTemperature, const Relation& humidity);
    static void applyTable(const cv::Mat_<uint16_t>& raw, cv::Mat_<cv::Vec3b>& rgb,
                           const std::vector<uint32_t>& table);

    bool m_bgr;
    uint64_t m_tableBuilds = 0;

    // Palette view: the table and what it was built from.
    std::vector<uint32_t> m_paletteTable;
    bool m_paletteBuilt = false;
    uint16_t m_builtLower = 0;
    uint16_t m_builtUpper = 0;
    std::vector<uint8_t> m_builtColours;
    std::array<ColorRegion, 3> m_regions{};
    bool m_regionsChanged = false;

    // Humidity view: the table and the climate it was built for (bit patterns, so marks count).
    std::vector<uint32_t> m_humidTable;
    bool m_humidBuilt = false;
    uint32_t m_builtAir = 0;
    uint8_t m_builtAirUnit = 0;
    uint32_t m_builtHumidity = 0;
};

} // namespace norda::vision
