#pragma once
// Gallery: the saved images of the output folder, opened into the live chain and re-analysed.
//
// Opening an image hands its name to the image read element (Gallery.ActiveFilename), which puts
// it in the live frame's place: measured and coloured like a live image, with the settings it was
// saved with; its user points and areas (positions and local parameters) become the current ones.
// Re-analysis sets Gallery.Reanalysis.* so the shown image's temperatures are recomputed for
// another emissivity or reflected temperature. saveAs writes the shown image, re-analysed, with
// the current measurement set-up and its overlay picture, as a new file; an existing file is only
// replaced when asked. Damaged or foreign files are reported (GalleryError) and the chain goes on.

#include "apps/nordacam/Camera.h"

#include <nlohmann/json.hpp>

#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace nordacam {

class GalleryError : public std::runtime_error {
public:
    GalleryError(int status, const std::string& what) : std::runtime_error(what), m_status(status) {}
    int status() const { return m_status; }

private:
    int m_status;
};

class Gallery {
public:
    explicit Gallery(Camera& camera) : m_camera(camera) {}

    // The RIX files of the output folder, newest number first, each with what it was taken with or
    // why it can not be read.
    nlohmann::json list() const;
    // A small JPEG of the image's preview; GalleryError 404/422 for a missing or unreadable file.
    std::string thumbnail(const std::string& name) const;
    // Shows the image in the chain; GalleryError when it can not be read (the live image stays).
    void open(const std::string& name);
    // Back to the live image.
    void close();
    // The shown image under another emissivity / reflected temperature (°C) / distance (m, 0: as
    // taken) / air (°C and % relative humidity; none: as taken); GalleryError when no image is
    // shown or it can not be re-analysed; SettingsError for values out of range.
    void reanalyse(float emissivity, float reflectedC, float distanceM = 0.0f,
                   std::optional<std::pair<float, float>> air = std::nullopt);
    // Writes the shown image as `name` (empty: the next image number) and its picture; returns the
    // file name. GalleryError 409 when the file exists and `overwrite` is false.
    std::string saveAs(const std::string& name, bool overwrite);
    // The shown image ("" when live) and its state.
    nlohmann::json state() const;

private:
    std::string path(const std::string& name) const;

    Camera& m_camera;
    mutable std::mutex m_mutex;
    std::string m_shown;
};

} // namespace nordacam
