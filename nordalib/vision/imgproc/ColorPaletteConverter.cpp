#include "nordalib/vision/imgproc/ColorPaletteConverter.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/climate/DewPoint.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

#include <opencv2/core/utility.hpp>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

namespace norda::vision {

namespace {
constexpr size_t kTableSize = 65536;
constexpr size_t kMinColours = 2;
constexpr size_t kMaxColours = 65536;
// Below this many pixels the thread hand-off costs more than it saves.
constexpr int kParallelPixels = 64 * 1024;
} // namespace

ColorPaletteConverter::ColorPaletteConverter(bool bgr)
    : m_bgr(bgr), m_paletteTable(kTableSize), m_humidTable(kTableSize) {}

uint32_t ColorPaletteConverter::entry(uint8_t r, uint8_t g, uint8_t b) const {
    const uint8_t bytes[4] = {m_bgr ? b : r, g, m_bgr ? r : b, 0};
    uint32_t e;
    std::memcpy(&e, bytes, sizeof e);
    return e;
}

void ColorPaletteConverter::checkColours(const std::vector<uint8_t>& colours) {
    if (colours.size() % 3 != 0)
        NORDA_THROW("colour table of " + std::to_string(colours.size()) +
                        " bytes is not a whole number of RGB triples",
                    "norda::vision::ColorPaletteConverter::palletize");
    const size_t n = colours.size() / 3;
    if (n < kMinColours || n > kMaxColours)
        NORDA_THROW("colour table must hold 2 to 65536 colours, not " + std::to_string(n),
                    "norda::vision::ColorPaletteConverter::palletize");
}

void ColorPaletteConverter::checkRaw(const cv::Mat_<uint16_t>& raw, const char* function) {
    if (raw.empty())
        NORDA_THROW("raw image is empty", function);
}

size_t ColorPaletteConverter::regionIndex(uint32_t region, const char* function) {
    if (region < kIsotherm || region > kLowerAlarm)
        NORDA_THROW("invalid colour region " + std::to_string(region) +
                        " (1 isotherm, 2 upper alarm, 3 lower alarm)",
                    function);
    return region - 1;
}

void ColorPaletteConverter::palletize(const cv::Mat_<uint16_t>& raw, cv::Mat_<cv::Vec3b>& rgb, uint16_t lower,
                                      uint16_t upper, bool changed, const std::vector<uint8_t>& colours) {
    checkRaw(raw, "norda::vision::ColorPaletteConverter::palletize");
    checkColours(colours);
    if (changed || !m_paletteBuilt || m_regionsChanged || lower != m_builtLower || upper != m_builtUpper ||
        colours != m_builtColours)
        buildPaletteTable(lower, upper, colours);
    applyTable(raw, rgb, m_paletteTable);
}

void ColorPaletteConverter::palletizeHumid(const cv::Mat_<uint16_t>& raw, cv::Mat_<cv::Vec3b>& rgb,
                                           const Temperature& airTemperature, const Relation& humidity,
                                           bool changed, const std::vector<uint8_t>& /*colours*/) {
    checkRaw(raw, "norda::vision::ColorPaletteConverter::palletizeHumid");
    if (changed || !m_humidBuilt || airTemperature.getValue().raw() != m_builtAir ||
        static_cast<uint8_t>(airTemperature.getUnit()) != m_builtAirUnit ||
        humidity.getValue().raw() != m_builtHumidity)
        buildHumidTable(airTemperature, humidity);
    applyTable(raw, rgb, m_humidTable);
}

void ColorPaletteConverter::createColorRegion(uint32_t region, uint16_t upper, uint16_t lower,
                                              uint32_t colour) {
    const size_t i = regionIndex(region, "norda::vision::ColorPaletteConverter::createColorRegion");
    if (upper < lower)
        NORDA_THROW("colour region " + std::to_string(region) + ": upper limit " + std::to_string(upper) +
                        " is below lower limit " + std::to_string(lower),
                    "norda::vision::ColorPaletteConverter::createColorRegion");
    const ColorRegion wanted{true, lower, upper, colour & 0x00FFFFFFu};
    if (!(m_regions[i] == wanted)) {
        m_regions[i] = wanted;
        m_regionsChanged = true;
    }
}

void ColorPaletteConverter::deleteColorRegion(uint32_t region) {
    const size_t i = regionIndex(region, "norda::vision::ColorPaletteConverter::deleteColorRegion");
    if (m_regions[i].active) {
        m_regions[i] = ColorRegion{};
        m_regionsChanged = true;
    }
}

bool ColorPaletteConverter::hasColorRegion(uint32_t region) const {
    return region >= kIsotherm && region <= kLowerAlarm && m_regions[region - 1].active;
}

cv::Vec3b ColorPaletteConverter::humidityColour(float ratio) {
    auto ramp = [](float from, float to, float v) {
        return std::clamp((v - from) / (to - from), 0.0f, 1.0f);
    };
    if (ratio >= kHumidCondensationFrom)
        return {0, 0, 255};
    if (ratio >= kHumidMouldFrom)
        return {255, 0, 0};
    if (ratio >= kHumidYellowAt) {
        const float f = ramp(kHumidYellowAt, kHumidMouldFrom, ratio);
        return {255, static_cast<uint8_t>(std::lround(255.0f * (1.0f - f))), 0};
    }
    if (ratio >= kHumidWarnFrom) {
        const float f = ramp(kHumidWarnFrom, kHumidYellowAt, ratio);
        return {static_cast<uint8_t>(std::lround(255.0f * f)),
                static_cast<uint8_t>(std::lround(200.0f + 55.0f * f)), 0};
    }
    return {0, 200, 0}; // also NaN
}

void ColorPaletteConverter::buildPaletteTable(uint16_t lower, uint16_t upper,
                                              const std::vector<uint8_t>& colours) {
    const size_t n = colours.size() / 3;
    const bool inverted = lower > upper;
    const uint32_t lo = inverted ? upper : lower;
    const uint32_t hi = inverted ? lower : upper;
    const uint64_t span = hi - lo;
    auto colour = [&](size_t index) {
        const size_t k = inverted ? n - 1 - index : index;
        return entry(colours[3 * k], colours[3 * k + 1], colours[3 * k + 2]);
    };

    uint32_t* t = m_paletteTable.data();
    std::fill(t, t + lo + 1, colour(0));
    std::fill(t + std::max(hi, lo + 1), t + kTableSize, colour(n - 1)); // a zero span keeps the limit first

    // Inside (lo, hi): index = floor((v - lo) * n / span), stepped without a division per value.
    uint64_t acc = 0;
    size_t index = 0;
    for (uint32_t v = lo + 1; v < hi; ++v) {
        acc += n;
        while ((index + 1) * span <= acc)
            ++index;
        t[v] = colour(index);
    }

    for (const ColorRegion& r : m_regions) // isotherm, upper alarm, lower alarm: later ones win
        if (r.active)
            std::fill(t + r.lower, t + r.upper + 1,
                      entry(static_cast<uint8_t>(r.colour >> 16), static_cast<uint8_t>(r.colour >> 8),
                            static_cast<uint8_t>(r.colour)));

    m_builtLower = lower;
    m_builtUpper = upper;
    m_builtColours = colours;
    m_regionsChanged = false;
    m_paletteBuilt = true;
    ++m_tableBuilds;
}

void ColorPaletteConverter::buildHumidTable(const Temperature& airTemperature, const Relation& humidity) {
    // The surface humidity only varies where DewPoint does not clamp the surface temperature;
    // outside that span the two end values hold.
    const uint32_t first = RadiometricTools::getUint16(DewPoint::kMinTemperature);
    const uint32_t last = RadiometricTools::getUint16(DewPoint::kMaxTemperature);
    auto colourAt = [&](uint32_t v) {
        const Temperature surface(exp::MarkedFloat(RadiometricTools::getFloat(static_cast<uint16_t>(v))));
        const cv::Vec3b c =
            humidityColour(DewPoint::calcSurfaceMoisture(surface, airTemperature, humidity).ratio());
        return entry(c[0], c[1], c[2]);
    };
    uint32_t* t = m_humidTable.data();
    std::fill(t, t + first, colourAt(first));
    for (uint32_t v = first; v <= last; ++v)
        t[v] = colourAt(v);
    std::fill(t + last + 1, t + kTableSize, colourAt(last));

    m_builtAir = airTemperature.getValue().raw();
    m_builtAirUnit = static_cast<uint8_t>(airTemperature.getUnit());
    m_builtHumidity = humidity.getValue().raw();
    m_humidBuilt = true;
    ++m_tableBuilds;
}

void ColorPaletteConverter::applyTable(const cv::Mat_<uint16_t>& raw, cv::Mat_<cv::Vec3b>& rgb,
                                       const std::vector<uint32_t>& table) {
    rgb.create(raw.rows, raw.cols);
    const uint32_t* lut = table.data();
    const int cols = raw.cols;
    // One 4-byte store per pixel: its spare byte lands on the next pixel, which is written right
    // after; the last pixel of a row stores only its 3 bytes, so nothing is written past the row.
    auto rows = [&](const cv::Range& range) {
        for (int y = range.start; y < range.end; ++y) {
            const uint16_t* src = raw[y];
            uint8_t* dst = rgb.ptr<uint8_t>(y);
            int x = 0;
            for (; x < cols - 1; ++x)
                std::memcpy(dst + 3 * x, &lut[src[x]], 4);
            std::memcpy(dst + 3 * x, &lut[src[x]], 3);
        }
    };
    if (raw.total() >= static_cast<size_t>(kParallelPixels) && cv::getNumThreads() > 1)
        cv::parallel_for_(cv::Range(0, raw.rows), rows, cv::getNumThreads());
    else
        rows(cv::Range(0, raw.rows));
}

} // namespace norda::vision
