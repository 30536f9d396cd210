#pragma once
// The saved-image tools of nordacam (rix info, rix export), and the words they describe a capture
// time and a validity mark with, which the report uses too.

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

namespace nordacam {

// "2026-11-25 20:13:14.474 UTC" of a capture time (milliseconds since 1970).
std::string utcTime(unsigned long long ms);
// A validity mark as words: "valid", "outside tolerance", "under range", "over range".
std::string markText(uint8_t mark);

// Size, date, UUID, settings (measurement points and areas as positions and temperatures with their
// validity), min/max/centre temperatures and contents of a saved image.
int rixInfo(const std::string& file, std::ostream& out);

enum class ExportFormat { Csv, Png, Tiff };
// The temperatures of a saved image: CSV in °C (one row per image row), or the radiometric image
// as 16-bit PNG/TIFF (pixel = 0.01 K from absolute zero); for PNG and TIFF the preview and the
// visual image are written beside it (<name>-preview.png, <name>-visual.png) when present.
// With any of `to`'s values the temperatures are first re-analysed for them (the stored value
// stands in for one not given; a distance turns the air correction on); an image without Planck
// constants is refused.
struct ReanalysisRequest {
    std::optional<float> emissivity, reflectedC, distanceM, airC, humidityPercent;
    bool any() const { return emissivity || reflectedC || distanceM || airC || humidityPercent; }
};
int rixExport(const std::string& file, ExportFormat format, const std::string& outFile, std::ostream& out,
              const ReanalysisRequest& to = {});

} // namespace nordacam
