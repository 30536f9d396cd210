#include "nordalib/vision/imageio/ImageIO.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/logging/Logger.h"
#include "nordalib/core/utils/FileUtils.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace norda::vision {

namespace {
// Never destroyed, like the logger registry: a chain still reading files while the process exits
// logs through a valid pointer.
std::shared_ptr<logging::Logger> logger() {
    static const auto* log =
        new std::shared_ptr<logging::Logger>(logging::Logger::createSharedLogger("PXM", true));
    return *log;
}

} // namespace

ImageIO::ImageIO(int syncInterval) : m_syncInterval(syncInterval) {}

ImageIO::~ImageIO() {
    try {
        close();
    } catch (const std::exception& e) {
        logger()->log(logging::LogLevel::error, "{}", e.what());
    }
}

void ImageIO::open(const std::string& fileName) {
    close();
    int fd = ::open(fileName.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        NORDA_THROW(
            fmt::format("PXM file '{}' can not be opened for writing: {}", fileName, std::strerror(errno)),
            "norda::vision::ImageIO::open");
    m_fd = fd;
    m_fileName = fileName;
    m_frames = 0;
}

void ImageIO::close() {
    if (m_fd < 0)
        return;
    int fd = m_fd;
    m_fd = -1;
    bool synced = ::fsync(fd) == 0 || errno == EINVAL; // EINVAL: pipes and devices cannot sync
    int err = errno;
    bool closed = ::close(fd) == 0;
    if (!synced || !closed)
        NORDA_THROW(fmt::format("PXM file '{}' could not be closed cleanly: {}", m_fileName,
                                std::strerror(synced ? errno : err)),
                    "norda::vision::ImageIO::close");
}

void ImageIO::setMetaData(std::shared_ptr<exp::DataStorageBase> metaData) {
    m_metaData = std::move(metaData);
}

void ImageIO::write(const cv::Mat& image, const std::string& fileName) {
    if (fileName.empty()) {
        if (m_fd < 0)
            NORDA_THROW("PXM write without an open file", "norda::vision::ImageIO::write");
        // A frame that fails half-way (disk full) is cut off again, so the sequence still ends on
        // a complete frame and later frames, once there is room, follow it readably.
        const off_t end = ::lseek(m_fd, 0, SEEK_CUR);
        try {
            writeFrame(m_fd, m_fileName, image);
        } catch (...) {
            if (end >= 0 && ::ftruncate(m_fd, end) == 0)
                ::lseek(m_fd, end, SEEK_SET);
            throw;
        }
        ++m_frames;
        if (m_syncInterval > 0 && m_frames % uint64_t(m_syncInterval) == 0 && ::fsync(m_fd) != 0 &&
            errno != EINVAL)
            NORDA_THROW(fmt::format("PXM file '{}': sync failed: {}", m_fileName, std::strerror(errno)),
                        "norda::vision::ImageIO::write");
        return;
    }
    // A single image (a calibration table) replaces the old file atomically: a crash or a full disk
    // never leaves a half-written table behind.
    const auto encoded = encode(fileName, image);
    utils::writeFileAtomically(
        fileName, {{encoded.header->data(), encoded.header->size()}, {encoded.payload, encoded.payloadSize}});
}

PxmEncoder::Encoded ImageIO::encode(const std::string& fileName, const cv::Mat& image) {
    auto meta = std::move(m_metaData);
    m_metaData.reset();
    auto encoded = m_encoder.encode(image, meta.get());
    for (const auto& key : encoded.skippedKeys)
        if (m_warnedKeys.insert(key).second)
            logger()->log(logging::LogLevel::warning,
                          "metadata '{}' has no one-line text form and is not stored in '{}'", key, fileName);
    return encoded;
}

void ImageIO::writeFrame(int fd, const std::string& fileName, const cv::Mat& image) {
    const auto encoded = encode(fileName, image);
    if (!utils::writeAll(
            fd, {{encoded.header->data(), encoded.header->size()}, {encoded.payload, encoded.payloadSize}}))
        NORDA_THROW(fmt::format("PXM file '{}': writing frame failed: {}", fileName, std::strerror(errno)),
                    "norda::vision::ImageIO::write");
}

} // namespace norda::vision
