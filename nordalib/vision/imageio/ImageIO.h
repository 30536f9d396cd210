#pragma once
// ImageIO: writes PXM files, a sequence of frames with their metadata (layout in PxmFormat.h).
//
//   ImageIO writer(8);                    // force the data to disk every 8 frames
//   writer.open("/data/rec.pxm");         // creates or truncates; throws when impossible
//   writer.getEncoder().setOption(PxmEncoder::Option::Plain, 0);
//   writer.setMetaData(meta);             // metadata of the next frame only
//   writer.write(frame, "");              // appends one frame and flushes it to the system
//
// Every write hands the complete frame to the operating system before it returns, so a crash of
// the program keeps every frame written so far. The constructor's sync interval additionally
// forces the data onto the storage medium (fsync) every that many frames, which bounds what a
// power loss can take to the last interval; 0 or less syncs only when the file is closed.
// Metadata values whose type has no one-line text form are left out of the file with one warning
// per key (logger "PXM"); the frame itself is always written. The destructor closes the file.

#include "nordalib/core/datatypes/DataStorage.h"
#include "nordalib/vision/imageio/PxmEncoder.h"

#include <opencv2/core.hpp>

#include <cstdint>
#include <memory>
#include <set>
#include <string>

namespace norda::vision {

class ImageIO {
public:
    explicit ImageIO(int syncInterval);
    virtual ~ImageIO();
    ImageIO(const ImageIO&) = delete;
    ImageIO& operator=(const ImageIO&) = delete;

    // Creates (or truncates) the sequence file. Throws a norda::Exception naming the file and the
    // system's reason when it cannot be opened. A file open before is closed first.
    void open(const std::string& fileName);
    bool isOpen() const { return m_fd >= 0; }
    // Syncs and closes; harmless when nothing is open. Throws when the final sync fails.
    void close();

    PxmEncoder& getEncoder() { return m_encoder; }

    // Metadata written with the next frame; it is dropped after that frame.
    void setMetaData(std::shared_ptr<exp::DataStorageBase> metaData);

    // With an empty `fileName`, appends the frame to the open sequence (throws when none is
    // open). Otherwise writes the frame as a single-image file under that name, leaving the
    // sequence alone. Throws a norda::Exception naming the file on any write failure.
    void write(const cv::Mat& image, const std::string& fileName);

    uint64_t framesWritten() const { return m_frames; }
    const std::string& fileName() const { return m_fileName; }

private:
    PxmEncoder::Encoded encode(const std::string& fileName, const cv::Mat& image);
    void writeFrame(int fd, const std::string& fileName, const cv::Mat& image);

    int m_syncInterval;
    int m_fd = -1;
    std::string m_fileName;
    uint64_t m_frames = 0;
    PxmEncoder m_encoder;
    std::shared_ptr<exp::DataStorageBase> m_metaData;
    std::set<std::string> m_warnedKeys;
};

} // namespace norda::vision
