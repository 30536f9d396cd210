#pragma once
// PxmEncoder: turns one matrix and its metadata into a Netpbm header and sample block.
//
// It does no I/O; ImageIO writes what it produces. The layout is described in PxmFormat.h.
//
// Option::Plain selects the sample encoding of PGM and PPM frames:
//   0 (default) binary samples ("P5"/"P6"), the compact form used for recordings;
//   1 plain ASCII samples ("P2"/"P3"), readable in a text editor and by tools that only take
//     plain Netpbm; roughly four times larger and much slower. PAM frames ("P7") have no plain
//     form and are always binary.

#include "nordalib/core/datatypes/DataStorage.h"

#include <opencv2/core.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace norda::vision {

class PxmEncoder {
public:
    enum class Option { Plain };

    void setOption(Option option, int value);
    int getOption(Option option) const;

    struct Encoded {
        const std::string* header = nullptr; // magic, metadata comments, dimensions
        const uint8_t* payload = nullptr;    // sample block, valid until the next encode()
        size_t payloadSize = 0;
        std::vector<std::string> skippedKeys; // metadata values without a one-line text form
    };

    // Throws norda::Exception for an empty matrix, dimensions above the format limits or an
    // unsupported depth. Metadata may be null.
    Encoded encode(const cv::Mat& image, const exp::DataStorageBase* metaData);

private:
    void buildHeader(const cv::Mat& image, const exp::DataStorageBase* metaData, Encoded& out);
    void buildBinaryPayload(const cv::Mat& image, Encoded& out);
    void buildPlainPayload(const cv::Mat& image, Encoded& out);

    int m_plain = 0;
    std::string m_header;
    std::vector<uint8_t> m_buffer;
};

} // namespace norda::vision
