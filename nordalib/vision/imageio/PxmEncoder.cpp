#include "nordalib/vision/imageio/PxmEncoder.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/imageio/PxmFormat.h"

#include <fmt/format.h>

#include <cstdio>

namespace norda::vision {

namespace {
enum class Kind { Pgm, Ppm, Pam };

Kind kindOf(int type) {
    if (type == CV_8UC1 || type == CV_16UC1)
        return Kind::Pgm;
    if (type == CV_8UC3)
        return Kind::Ppm;
    return Kind::Pam;
}
} // namespace

void PxmEncoder::setOption(Option option, int value) {
    switch (option) {
    case Option::Plain:
        if (value != 0 && value != 1)
            NORDA_THROW(fmt::format("PXM option Plain takes 0 or 1, not {}", value),
                        "norda::vision::PxmEncoder::setOption");
        m_plain = value;
        break;
    }
}

int PxmEncoder::getOption(Option option) const {
    switch (option) {
    case Option::Plain:
        return m_plain;
    }
    return 0;
}

PxmEncoder::Encoded PxmEncoder::encode(const cv::Mat& image, const exp::DataStorageBase* metaData) {
    if (image.empty() || image.dims != 2)
        NORDA_THROW("PXM frames must be non-empty two-dimensional matrices",
                    "norda::vision::PxmEncoder::encode");
    if (image.cols > pxm::kMaxDimension || image.rows > pxm::kMaxDimension)
        NORDA_THROW(fmt::format("PXM frame of {} x {} exceeds the limit of {} x {}", image.cols, image.rows,
                                pxm::kMaxDimension, pxm::kMaxDimension),
                    "norda::vision::PxmEncoder::encode");
    if (uint64_t(image.total()) * image.elemSize() > pxm::kMaxFrameBytes)
        NORDA_THROW(fmt::format("PXM frame of {} bytes exceeds the limit of {} bytes",
                                uint64_t(image.total()) * image.elemSize(), pxm::kMaxFrameBytes),
                    "norda::vision::PxmEncoder::encode");
    Encoded out;
    buildHeader(image, metaData, out);
    if (m_plain && kindOf(image.type()) != Kind::Pam)
        buildPlainPayload(image, out);
    else
        buildBinaryPayload(image, out);
    out.header = &m_header;
    return out;
}

void PxmEncoder::buildHeader(const cv::Mat& image, const exp::DataStorageBase* metaData, Encoded& out) {
    const Kind kind = kindOf(image.type());
    const bool plain = m_plain && kind != Kind::Pam;
    m_header.clear();
    m_header += kind == Kind::Pgm   ? (plain ? "P2\n" : "P5\n")
                : kind == Kind::Ppm ? (plain ? "P3\n" : "P6\n")
                                    : "P7\n";
    if (metaData) {
        for (const auto& key : metaData->keyList()) {
            auto value = metaData->variantAt(key);
            std::string line;
            if (value) {
                try {
                    line = pxm::encodeMetaLine(key, *value);
                } catch (const std::exception&) {
                    line.clear();
                }
            }
            if (line.empty()) {
                out.skippedKeys.push_back(key);
                continue;
            }
            m_header += line;
            m_header += '\n';
        }
    }
    if (kind == Kind::Pam) {
        const int sb = pxm::sampleBytes(image.depth());
        const int planes = image.channels() * int(image.elemSize1()) / sb;
        m_header += fmt::format("WIDTH {}\nHEIGHT {}\nDEPTH {}\nMAXVAL {}\nTUPLTYPE {}\nENDHDR\n", image.cols,
                                image.rows, planes, sb == 1 ? 255 : 65535, pxm::cvTypeName(image.type()));
    } else {
        m_header += fmt::format("{} {}\n{}\n", image.cols, image.rows, image.depth() == CV_8U ? 255 : 65535);
    }
}

void PxmEncoder::buildBinaryPayload(const cv::Mat& image, Encoded& out) {
    const size_t rowBytes = size_t(image.cols) * image.elemSize();
    out.payloadSize = rowBytes * image.rows;
    const int e1 = int(image.elemSize1());
    if (e1 == 1 && image.isContinuous()) {
        out.payload = image.data; // already in file order
        return;
    }
    m_buffer.resize(out.payloadSize);
    const size_t perRow = size_t(image.cols) * image.channels();
    if (image.isContinuous()) {
        pxm::swapToBigEndian(image.data, m_buffer.data(), perRow * image.rows, e1);
    } else {
        for (int r = 0; r < image.rows; ++r)
            pxm::swapToBigEndian(image.ptr(r), m_buffer.data() + r * rowBytes, perRow, e1);
    }
    out.payload = m_buffer.data();
}

void PxmEncoder::buildPlainPayload(const cv::Mat& image, Encoded& out) {
    // Netpbm asks for plain lines of at most 70 characters.
    std::string text;
    text.reserve(size_t(image.total()) * image.channels() * 4);
    const bool wide = image.depth() == CV_16U;
    char number[8];
    for (int r = 0; r < image.rows; ++r) {
        size_t lineLength = 0;
        const int n = image.cols * image.channels();
        for (int i = 0; i < n; ++i) {
            unsigned v = wide ? image.ptr<uint16_t>(r)[i] : image.ptr<uint8_t>(r)[i];
            int len = std::snprintf(number, sizeof(number), "%u", v);
            if (lineLength && lineLength + 1 + len > 70) {
                text += '\n';
                lineLength = 0;
            } else if (lineLength) {
                text += ' ';
                ++lineLength;
            }
            text.append(number, len);
            lineLength += len;
        }
        text += '\n';
    }
    m_buffer.assign(text.begin(), text.end());
    out.payload = m_buffer.data();
    out.payloadSize = m_buffer.size();
}

} // namespace norda::vision
