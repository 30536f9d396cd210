#pragma once
// ImageDecoderPxM: reads PXM files, sequences of Netpbm frames (layout in PxmFormat.h).
//
// Besides the library's own files it reads any binary or plain PGM/PPM ("P5", "P6", "P2", "P3")
// and any PAM ("P7") image or sequence: maxval up to 255 gives 8-bit, above that 16-bit samples
// (taken as they are, not rescaled); a PAM TUPLTYPE naming an OpenCV type ("CV_16SC1") restores
// exactly that type.
//
//   ImageDecoderPxM decoder;
//   if (!decoder.open(path)) ...;             // false: the file cannot be opened
//   cv::Mat frame;
//   while (decoder.grab(frame, nullptr))      // false: no further complete frame
//       use(frame, decoder.getMetaData());
//
// Damage: a file that ends inside a frame (a recording cut off by a crash or power loss), or
// continues with zero bytes where a frame should start, ends the sequence cleanly after the last
// complete frame (one warning on logger "PXM"; wasTruncated() tells). A frame header that is
// present but wrong (wrong magic number, missing or negative field, dimensions above 16384 x
// 16384 or a sample block above 1 GiB, inconsistent PAM fields, samples above maxval in plain
// files) throws a norda::Exception naming the file, the frame index and the problem. Nothing is
// allocated before the header has been checked against these limits and against the bytes left
// in the file. Metadata lines that cannot be read (a value type unknown to this build) are skipped
// with a warning; the frame is still delivered.

#include "nordalib/core/datatypes/DataStorage.h"

#include <opencv2/core.hpp>

#include <cstdint>
#include <cstdio>
#include <set>
#include <string>

namespace norda::vision {

class ImageDecoderPxM {
public:
    ImageDecoderPxM();
    virtual ~ImageDecoderPxM();
    ImageDecoderPxM(const ImageDecoderPxM&) = delete;
    ImageDecoderPxM& operator=(const ImageDecoderPxM&) = delete;

    // Opens a file for reading from its first frame; false when it cannot be opened (missing,
    // unreadable, a directory). A file open before is closed first.
    virtual bool open(const std::string& fileName);
    // Reads the next frame into `frame` (a new buffer; matrices handed out earlier are not
    // touched). With a region, only that rectangle of the frame is returned; a region not inside
    // the frame throws. Returns false when the sequence has ended.
    virtual bool grab(cv::Mat& frame, const cv::Rect_<int>* region);
    virtual void close();

    // Random access. position() is the byte offset at which the next frame starts (0 after
    // open); skip() reads the next frame's header, checks it exactly as grab() does and steps
    // over its samples without decoding them, so a pass of skip()s indexes a file cheaply.
    // seek() continues at an offset position() reported before, as frame number `frameIndex`
    // (used in messages and framesRead()); false when no regular file is open or the offset lies
    // beyond its end.
    uint64_t position() const { return m_position; }
    bool skip();
    bool seek(uint64_t position, uint64_t frameIndex);

    // Metadata of the frame returned by the last successful grab.
    const exp::DataStorage<std::string>& getMetaData() const { return m_metaData; }
    uint64_t framesRead() const { return m_frames; }
    // Whether the sequence ended at a cut-off or zero-filled frame rather than at the file's end.
    bool wasTruncated() const { return m_truncated; }

private:
    struct Header;
    struct Truncated {};

    int get();
    int require();
    void fail(const std::string& problem) const;
    void skipSpaceAndComments(Header& header);
    void readComment(Header& header);
    unsigned long readNumber(const char* field, Header& header);
    unsigned long parseField(const std::string& text, const char* field) const;
    void readNetpbmHeader(Header& header);
    void readPamHeader(Header& header);
    void checkHeader(Header& header);
    bool readFrame(Header& header, cv::Mat* image);
    void readBinarySamples(const Header& header, cv::Mat& image);
    void skipBinarySamples(const Header& header);
    void readPlainSamples(Header& header, cv::Mat& image);
    void applyMetaData(const Header& header);
    void endTruncated(const std::string& why);

    std::FILE* m_file = nullptr;
    std::string m_fileName;
    int64_t m_fileSize = -1; // -1: not a regular file, size unknown
    uint64_t m_position = 0;
    uint64_t m_headerBytes = 0;
    uint64_t m_frames = 0;
    bool m_ended = false;
    bool m_truncated = false;
    exp::DataStorage<std::string> m_metaData;
    std::set<std::string> m_warned;
};

} // namespace norda::vision
