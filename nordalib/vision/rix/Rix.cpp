#include "nordalib/vision/rix/Rix.h"

#include "nordalib/core/utils/FileUtils.h"
#include "nordalib/vision/rix/RixFormat.h"
#include "nordalib/vision/rix/SuperResolution.h"

#include <fmt/format.h>
#include <opencv2/core.hpp>

#include <bit>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace norda::vision {

namespace {

const char* const kFunctionLoad = "norda::vision::Rix::load";

// 64-bit finaliser of MurmurHash3.
uint64_t mix64(uint64_t k) {
    k ^= k >> 33;
    k *= 0xFF51AFD7ED558CCDull;
    k ^= k >> 33;
    k *= 0xC4CEB9FE1A85EC53ull;
    k ^= k >> 33;
    return k;
}

// Room for a file's bytes. A thread keeps the room of its last file (up to 8 MB, a camera image
// with its pictures is about 3) for the next: asked for megabytes anew each time, an allocator told
// to give memory back at once (as in Dask's workers) hands out fresh pages whose zeroing costs more
// than reading the file.
char* fileBuffer(size_t size, std::unique_ptr<char[]>& own) {
    constexpr size_t kKept = size_t(8) << 20;
    if (size > kKept) {
        own.reset(new char[size]);
        return own.get();
    }
    thread_local std::unique_ptr<char[]> kept;
    thread_local size_t capacity = 0;
    if (capacity < size) {
        kept.reset(new char[size]);
        capacity = size;
    }
    return kept.get();
}

} // namespace

Rix::Rix() : m_fileVersion(formatVersion()) {}

void Rix::setRadiometricImage(const cv::Mat_<uint16_t>& image) {
    m_radiometric = image.clone();
}

void Rix::setPreviewImageRgb(const cv::Mat_<cv::Vec3b>& image) {
    m_preview = image.clone();
}

void Rix::setVisualImageYuv2(const cv::Mat_<cv::Vec2b>& image, float previewFactor, bool highResolution) {
    m_visual = image.clone();
    m_visualPreviewFactor = previewFactor;
    m_visualHighResolution = highResolution;
}

void Rix::setGeneric(const std::string& key, std::shared_ptr<exp::Variant> value) {
    if (!value)
        NORDA_THROW("no value given for generic entry " + key, "norda::vision::Rix::setGeneric");
    if (value->typeTag().empty())
        NORDA_THROW("value of " + key + " (type " + value->typeName() +
                        ") can not be stored in an image file",
                    "norda::vision::Rix::setGeneric");
    m_generic.set(key, std::move(value));
}

void Rix::extractMinMax(const cv::Mat& image) {
    if (image.empty() || image.type() != CV_16UC1)
        NORDA_THROW("min/max needs a non-empty 16-bit one-channel image",
                    "norda::vision::Rix::extractMinMax");
    double mn = 0, mx = 0;
    cv::Point pMin, pMax;
    cv::minMaxLoc(image, &mn, &mx, &pMin, &pMax);
    m_minMax = {static_cast<uint16_t>(mn), static_cast<uint16_t>(mx), pMin, pMax};
}

void Rix::setFileVersion(const exp::Version& version) {
    if (version.getMajor() != formatVersion().getMajor())
        NORDA_THROW("file version " + version.toString() + " can not be written (this writer produces " +
                        formatVersion().toString() + ")",
                    "norda::vision::Rix::setFileVersion");
    m_fileVersion = version;
}

std::string Rix::getFileUuidString() const {
    const auto& u = m_uuid;
    return fmt::format("{:02x}{:02x}{:02x}{:02x}-{:02x}{:02x}-{:02x}{:02x}-{:02x}{:02x}-{:02x}{:02x}{:02x}{:"
                       "02x}{:02x}{:02x}",
                       u[0], u[1], u[2], u[3], u[4], u[5], u[6], u[7], u[8], u[9], u[10], u[11], u[12], u[13],
                       u[14], u[15]);
}

Rix::Uuid Rix::uuidFromPixels(const cv::Mat& image) {
    // Two independent 64-bit lanes over size, type and pixel rows (strides do not matter), each
    // word multiplied, rotated and folded in, then finalised: a content fingerprint, not a
    // cryptographic hash.
    uint64_t a = 0x9E3779B97F4A7C15ull, b = 0xC2B2AE3D27D4EB4Full;
    auto add = [&](uint64_t w) {
        a = std::rotl(a ^ (w * 0x87C37B91114253D5ull), 31) * 0x4CF5AD432745937Full + 0x52DCE729;
        b = std::rotl(b ^ (w * 0x4CF5AD432745937Full), 33) * 0x87C37B91114253D5ull + 0x38495AB5;
    };
    add(static_cast<uint64_t>(image.rows) << 32 | static_cast<uint32_t>(image.cols));
    add(static_cast<uint64_t>(image.type()));
    const size_t rowBytes = image.empty() ? 0 : image.cols * image.elemSize();
    for (int r = 0; r < image.rows; ++r) {
        const uint8_t* p = image.ptr(r);
        size_t i = 0;
        for (; i + 8 <= rowBytes; i += 8) {
            uint64_t w;
            std::memcpy(&w, p + i, 8);
            add(w);
        }
        uint64_t tail = 0;
        std::memcpy(&tail, p + i, rowBytes - i);
        add(tail ^ (uint64_t(rowBytes - i) << 56));
    }
    const uint64_t h1 = mix64(a ^ std::rotl(b, 17)), h2 = mix64(b + a);
    Uuid u;
    for (int i = 0; i < 8; ++i) {
        u[i] = static_cast<uint8_t>(h1 >> (56 - 8 * i));
        u[8 + i] = static_cast<uint8_t>(h2 >> (56 - 8 * i));
    }
    u[6] = static_cast<uint8_t>((u[6] & 0x0F) | 0x80); // version 8: custom
    u[8] = static_cast<uint8_t>((u[8] & 0x3F) | 0x80); // variant 10
    return u;
}

void Rix::addSrFrame(const std::vector<cv::Mat_<uint16_t>>& frames) {
    for (const auto& f : frames) {
        if (f.empty())
            NORDA_THROW("empty super-resolution frame", "norda::vision::Rix::addSrFrame");
        m_srFrames.push_back(f.clone());
    }
}

float Rix::calculateSuperResolutionImage(const std::vector<cv::Mat_<uint16_t>>& frames) {
    auto result = SuperResolution::compute(frames);
    if (result.quality > 0) {
        m_srImage = result.image;
        m_srQuality = result.quality;
        m_srFailure.clear();
    } else {
        m_srImage.release();
        m_srQuality = 0;
        m_srFailure = result.failure;
    }
    return result.quality;
}

void Rix::save(std::vector<char>& out, bool superResolution) const {
    RixFormat::write(*this, superResolution, out);
}

void Rix::save(const std::string& path, bool superResolution) const {
    std::vector<char> bytes;
    save(bytes, superResolution);

    // Readers and a crash see the old file or the new one, never a part.
    utils::writeFileAtomically(path, bytes.data(), bytes.size());
}

void Rix::load(const std::string& path, Content content) {
    std::error_code ec;
    const auto status = std::filesystem::status(path, ec);
    if (ec || !std::filesystem::is_regular_file(status))
        NORDA_THROW(fmt::format("{}: no such radiometric image file", path), kFunctionLoad);
    const auto size = std::filesystem::file_size(path, ec);
    if (ec)
        NORDA_THROW(fmt::format("{}: can not read: {}", path, ec.message()), kFunctionLoad);
    if (size > kMaxFileSize)
        NORDA_THROW(fmt::format("{}: {} bytes is larger than any radiometric image file", path, size),
                    kFunctionLoad);
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        const int error = errno;
        NORDA_THROW(fmt::format("{}: can not open: {}", path, std::strerror(error)), kFunctionLoad);
    }
    std::unique_ptr<char[]> own;
    char* const data = fileBuffer(static_cast<size_t>(size), own);
    size_t done = 0;
    while (done < size) {
        const ssize_t n = ::read(fd, data + done, static_cast<size_t>(size) - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break; // shrank while reading: parsed as the truncated file it now is
        done += static_cast<size_t>(n);
    }
    ::close(fd);
    load(data, done, path, content);
}

void Rix::load(const std::vector<char>& data, const std::string& name) {
    load(data.data(), data.size(), name);
}

void Rix::load(const void* data, size_t size, const std::string& name, Content content) {
    *this = RixFormat::read(data, size, name, content);
}

} // namespace norda::vision
