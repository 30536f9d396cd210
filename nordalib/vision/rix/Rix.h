#pragma once
// Rix: the radiometric image container, one saved thermal image with everything it was taken with.
//
// It holds the 16-bit radiometric image (every temperature, lossless), the palette preview as the
// user saw it, the visual camera's image (YUV 4:2:2), optionally the raw frames for, or the
// result of, a super-resolution calculation, and the settings: generic metadata entries (any
// storable Variant under its parameter key), scaling limits, emissivity and reflected temperature
// at capture, the min/max of the radiometric image, a content-derived UUID and the capture time.
//
// The file layout is documented in docs/rix-format.md: a magic number and the file version, then
// chunks of type, length and CRC-32, so that a reader skips chunks it does not know and notices
// any damage. save() writes to a temporary file beside the target and renames it into place;
// load() accepts only complete, undamaged files and otherwise throws norda::Exception naming the
// file and the chunk, leaving the container unchanged.
//
// Images passed to the setters are copied; a copy of a Rix shares pixel memory with the original
// (nothing modifies pixels in place), so handing a copy to another thread is cheap and safe.

#include "nordalib/core/datatypes/DataStorage.h"
#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/datatypes/Version.h"

#include <opencv2/core.hpp>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace norda::vision {

class Rix {
public:
    using Temperature = exp::quantity::Temperature<exp::MarkedFloat>;
    using Uuid = std::array<uint8_t, 16>;

    // Extremes of the radiometric image (pixel values) and where they were found first.
    struct MinMax {
        uint16_t min = 0;
        uint16_t max = 0;
        cv::Point minPosition{-1, -1};
        cv::Point maxPosition{-1, -1};
        bool operator==(const MinMax&) const = default;
    };

    // The layout this code writes; files of another major version are refused.
    static exp::Version formatVersion() { return exp::Version(2, 0, 0); }
    // Files beyond this size are refused before they are read.
    static constexpr uint64_t kMaxFileSize = uint64_t(1) << 30;

    Rix();

    // ---- images --------------------------------------------------------------------------
    void setRadiometricImage(const cv::Mat_<uint16_t>& image);
    const cv::Mat_<uint16_t>& getRadiometricImage() const { return m_radiometric; }
    void setPreviewImageRgb(const cv::Mat_<cv::Vec3b>& image);
    const cv::Mat_<cv::Vec3b>& getPreviewImageRgb() const { return m_preview; }
    // `previewFactor`: scale at which viewers show the visual image beside the thermal one;
    // `highResolution`: the image comes from the full-resolution visual mode.
    void setVisualImageYuv2(const cv::Mat_<cv::Vec2b>& image, float previewFactor, bool highResolution);
    const cv::Mat_<cv::Vec2b>& getVisualImageYuv2() const { return m_visual; }
    float getVisualPreviewFactor() const { return m_visualPreviewFactor; }
    bool isVisualHighResolution() const { return m_visualHighResolution; }

    // ---- settings ------------------------------------------------------------------------
    // A storable value (one with a Serializer) under its parameter key; a key set twice keeps the
    // later value. Throws for values that cannot be stored, naming the key.
    void setGeneric(const std::string& key, std::shared_ptr<exp::Variant> value);
    // Whether the entry was there.
    bool removeGeneric(const std::string& key) { return m_generic.remove(key); }
    std::shared_ptr<exp::Variant> getGeneric(const std::string& key) const {
        return m_generic.getVariant(key);
    }
    const exp::DataStorage<std::string>& getGenerics() const { return m_generic; }

    // Min/max of a CV_16UC1 image (normally the radiometric one).
    void extractMinMax(const cv::Mat& image);
    const MinMax& getMinMax() const { return m_minMax; }
    void setScalingMax(Temperature t) { m_scalingMax = t; }
    void setScalingMin(Temperature t) { m_scalingMin = t; }
    const Temperature& getScalingMax() const { return m_scalingMax; }
    const Temperature& getScalingMin() const { return m_scalingMin; }
    void setEmissivityOriginal(const float& emissivity) { m_emissivity = emissivity; }
    float getEmissivityOriginal() const { return m_emissivity; }
    void setReflectedTempOriginal(const Temperature& t) { m_reflected = t; }
    const Temperature& getReflectedTempOriginal() const { return m_reflected; }

    // The version written into the file header; its major version must be formatVersion()'s.
    void setFileVersion(const exp::Version& version);
    const exp::Version& getFileVersion() const { return m_fileVersion; }
    // UUID (RFC 9562 version 8) derived from the pixels of `image`: the same pixels give the same
    // UUID, any changed pixel another.
    void setFileUuid(const cv::Mat& image) { m_uuid = uuidFromPixels(image); }
    const Uuid& getFileUuid() const { return m_uuid; }
    std::string getFileUuidString() const; // "xxxxxxxx-xxxx-8xxx-xxxx-xxxxxxxxxxxx"
    static Uuid uuidFromPixels(const cv::Mat& image);
    // Capture time, milliseconds since 1970-01-01 UTC.
    void setFileDateTime(const unsigned long long& millisecondsSinceEpoch) {
        m_dateTime = millisecondsSinceEpoch;
    }
    unsigned long long getFileDateTime() const { return m_dateTime; }

    // ---- super-resolution ----------------------------------------------------------------
    // Whether save(..., false) includes the super-resolution frames and image (default true).
    void setSuperResolutionActive(bool active) { m_superResolutionActive = active; }
    bool isSuperResolutionActive() const { return m_superResolutionActive; }
    // Appends raw frames for a super-resolution calculation done elsewhere (CV_16UC1 each).
    void addSrFrame(const std::vector<cv::Mat_<uint16_t>>& frames);
    const std::vector<cv::Mat_<uint16_t>>& getSrFrames() const { return m_srFrames; }
    // Fuses the frames (see SuperResolution.h) into an image of twice the resolution, kept for
    // save(..., true). Returns the quality (> 0), or 0 when the frames cannot be fused (movement);
    // the reason is then getSuperResolutionFailure(). Bad input throws.
    float calculateSuperResolutionImage(const std::vector<cv::Mat_<uint16_t>>& frames);
    const cv::Mat_<uint16_t>& getSuperResolutionImage() const { return m_srImage; }
    float getSuperResolutionQuality() const { return m_srQuality; }
    const std::string& getSuperResolutionFailure() const { return m_srFailure; }
    // True for a file written with save(..., true).
    bool isSuperResolutionFile() const { return m_superResolutionFile; }

    // ---- files ---------------------------------------------------------------------------
    // `superResolution` false: the container as it is. True: the super-resolution file, which
    // requires a calculated super-resolution image and carries it instead of the raw frames.
    // A radiometric image is required. Throws norda::Exception naming the path on failure; an
    // existing file is replaced only by a complete new one.
    void save(const std::string& path, bool superResolution) const;
    void save(std::vector<char>& out, bool superResolution) const;
    // What load() keeps. Radiometric: everything but the pictures (preview, visual image and
    // super-resolution frames), which are checked as always but not copied: analyses of many
    // files read the temperatures and settings only, a fifth of a camera image's bytes.
    enum class Content { Everything, Radiometric };
    void load(const std::string& path, Content content = Content::Everything);
    // `name` names the data in error messages.
    void load(const std::vector<char>& data, const std::string& name = "memory buffer");
    void load(const void* data, size_t size, const std::string& name, Content content = Content::Everything);

private:
    friend class RixFormat; // the file layout reads and writes the items directly
    cv::Mat_<uint16_t> m_radiometric;
    cv::Mat_<cv::Vec3b> m_preview;
    cv::Mat_<cv::Vec2b> m_visual;
    float m_visualPreviewFactor = 0.0f;
    bool m_visualHighResolution = false;
    exp::DataStorage<std::string> m_generic;
    MinMax m_minMax;
    Temperature m_scalingMax, m_scalingMin, m_reflected;
    float m_emissivity = 1.0f;
    exp::Version m_fileVersion;
    Uuid m_uuid{};
    unsigned long long m_dateTime = 0;
    bool m_superResolutionActive = true;
    bool m_superResolutionFile = false;
    std::vector<cv::Mat_<uint16_t>> m_srFrames;
    cv::Mat_<uint16_t> m_srImage;
    float m_srQuality = 0.0f;
    std::string m_srFailure;
};

} // namespace norda::vision
