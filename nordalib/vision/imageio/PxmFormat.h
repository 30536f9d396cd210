#pragma once
// Pieces of the PXM raw-frame format shared by the encoder and the decoder.
//
// A PXM file is a sequence of Netpbm images written back to back, so every standard Netpbm tool
// reads it:
//   - CV_8UC1 and CV_16UC1 frames are binary PGM ("P5"; maxval 255 or 65535, 16-bit samples
//     big-endian);
//   - CV_8UC3 frames are binary PPM ("P6", maxval 255). Channels are stored in matrix order; the
//     library keeps display images in RGB order, which is what PPM expects;
//   - every other type is PAM ("P7") with TUPLTYPE naming the OpenCV type ("CV_16SC1",
//     "CV_8UC2", "CV_32FC1", ...). 8-bit depths use one byte per sample (MAXVAL 255); wider
//     depths store each value's big-endian bytes as 16-bit samples (MAXVAL 65535), so a CV_32FC1
//     frame has DEPTH 2 and a CV_64FC1 frame DEPTH 4. Standard tools see a valid multi-plane
//     image; the decoder turns it back into the original type bit for bit.
// A frame's metadata travels in comment lines of its own header, one key per line:
//   "#meta <type tag> <key> <value text>"
// where the tag and text are the value's Serializer tag and one-line text form, and the key is
// percent-encoded where it holds '%', blanks or control bytes.

#include "nordalib/core/datatypes/Variant.h"

#include <opencv2/core.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace norda::vision::pxm {

// Frames larger than this in either dimension are rejected as damaged.
constexpr int kMaxDimension = 16384;
// Upper bound of one frame's sample block (1 GiB), checked before anything is allocated.
constexpr uint64_t kMaxFrameBytes = uint64_t(1) << 30;
// Upper bound of one frame's header, metadata comments included (64 MiB).
constexpr uint64_t kMaxHeaderBytes = uint64_t(64) << 20;

constexpr const char* kMetaPrefix = "#meta ";

// "CV_16SC1"; channel counts above 4 included ("CV_8UC7").
std::string cvTypeName(int type);
// Inverse of cvTypeName; false for anything else.
bool parseCvTypeName(const std::string& text, int& type);

// Bytes per stored sample for a matrix depth: 1 for 8-bit depths, 2 otherwise.
inline int sampleBytes(int depth) {
    return CV_ELEM_SIZE1(depth) == 1 ? 1 : 2;
}

// Copies `count` elements of `elemSize1` bytes each from native to big-endian order (and back:
// the operation is its own inverse). Source and destination may be the same buffer.
void swapToBigEndian(const uint8_t* src, uint8_t* dst, size_t count, int elemSize1);

// One metadata comment line without the terminating newline; empty when the value has no
// one-line text form (the caller decides whether to warn).
std::string encodeMetaLine(const std::string& key, const exp::Variant& value);
// Parses the text after "#meta ". Returns false with `problem` set when the line is malformed or
// the tag is unknown; the caller logs and skips it.
bool decodeMetaLine(const std::string& line, std::string& key, std::shared_ptr<exp::Variant>& value,
                    std::string& problem);

std::string percentEncode(const std::string& text);
std::string percentDecode(const std::string& text);

} // namespace norda::vision::pxm
