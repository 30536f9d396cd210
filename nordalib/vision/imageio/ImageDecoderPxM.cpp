#include "nordalib/vision/imageio/ImageDecoderPxM.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/imageio/PxmFormat.h"

#include <fmt/format.h>

#include <sys/stat.h>

#include <algorithm>
#include <vector>

namespace norda::vision {

namespace {
// Never destroyed, like the logger registry: a chain still reading files while the process exits
// logs through a valid pointer.
std::shared_ptr<logging::Logger> logger() {
    static const auto* log =
        new std::shared_ptr<logging::Logger>(logging::Logger::createSharedLogger("PXM", true));
    return *log;
}

bool isSpace(int c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

constexpr size_t kReadBuffer = size_t(1) << 20;
} // namespace

struct ImageDecoderPxM::Header {
    char magic = 0;
    unsigned long width = 0, height = 0, depth = 0, maxval = 0;
    bool haveWidth = false, haveHeight = false, haveDepth = false, haveMaxval = false;
    std::string tupleType;
    int type = -1;
    uint64_t bytes = 0;
    std::vector<std::string> metaLines;
};

ImageDecoderPxM::ImageDecoderPxM() = default;

ImageDecoderPxM::~ImageDecoderPxM() {
    close();
}

bool ImageDecoderPxM::open(const std::string& fileName) {
    close();
    std::FILE* f = std::fopen(fileName.c_str(), "rb");
    if (!f)
        return false;
    struct stat st {};
    if (::fstat(fileno(f), &st) != 0 || S_ISDIR(st.st_mode)) {
        std::fclose(f);
        return false;
    }
    std::setvbuf(f, nullptr, _IOFBF, kReadBuffer);
    m_file = f;
    m_fileName = fileName;
    m_fileSize = S_ISREG(st.st_mode) ? int64_t(st.st_size) : -1;
    m_position = 0;
    m_frames = 0;
    m_ended = false;
    m_truncated = false;
    m_metaData.clear();
    return true;
}

void ImageDecoderPxM::close() {
    if (m_file)
        std::fclose(m_file);
    m_file = nullptr;
    m_ended = true;
}

bool ImageDecoderPxM::grab(cv::Mat& frame, const cv::Rect_<int>* region) {
    Header header;
    cv::Mat image;
    if (!readFrame(header, &image))
        return false;
    if (region) {
        const cv::Rect_<int> full(0, 0, image.cols, image.rows);
        if (region->width <= 0 || region->height <= 0 || (*region & full) != *region)
            fail(fmt::format("region {} x {} at ({}, {}) is not inside the {} x {} frame", region->width,
                             region->height, region->x, region->y, image.cols, image.rows));
        frame = image(*region).clone();
    } else {
        frame = image;
    }
    applyMetaData(header);
    ++m_frames;
    return true;
}

bool ImageDecoderPxM::skip() {
    Header header;
    if (!readFrame(header, nullptr))
        return false;
    m_metaData.clear();
    ++m_frames;
    return true;
}

bool ImageDecoderPxM::seek(uint64_t position, uint64_t frameIndex) {
    if (!m_file || m_fileSize < 0 || position > uint64_t(m_fileSize) ||
        fseeko(m_file, off_t(position), SEEK_SET) != 0)
        return false;
    m_position = position;
    m_frames = frameIndex;
    m_ended = false;
    m_truncated = false;
    m_metaData.clear();
    return true;
}

// One frame from the current position: header, checks, samples (decoded into `image`, or stepped
// over when it is null). False at the end of the sequence, clean or truncated.
bool ImageDecoderPxM::readFrame(Header& header, cv::Mat* image) {
    if (!m_file || m_ended)
        return false;
    m_headerBytes = 0;
    try {
        int c = get();
        if (c == EOF) {
            m_ended = true;
            return false;
        }
        if (c == 0) {
            endTruncated("zero bytes where the frame should start");
            return false;
        }
        int c2 = require();
        if (c != 'P' || (c2 != '2' && c2 != '3' && c2 != '5' && c2 != '6' && c2 != '7'))
            fail(fmt::format("wrong magic number 0x{:02X} 0x{:02X} (expected P2, P3, P5, P6 or P7)", c & 0xFF,
                             c2 & 0xFF));
        header.magic = char(c2);
        if (header.magic == '7')
            readPamHeader(header);
        else
            readNetpbmHeader(header);
        checkHeader(header);
        if (header.magic == '2' || header.magic == '3') {
            // every plain sample takes at least a digit and a separator
            const uint64_t minimum = header.bytes / (header.maxval < 256 ? 1 : 2) * 2 - 1;
            if (m_fileSize >= 0 && uint64_t(m_fileSize) - m_position < minimum) {
                endTruncated("the plain sample block is cut off");
                return false;
            }
            cv::Mat scratch;
            readPlainSamples(header, image ? *image : scratch);
        } else {
            if (m_fileSize >= 0 && uint64_t(m_fileSize) - m_position < header.bytes) {
                endTruncated(fmt::format("the sample block is cut off after {} of {} bytes",
                                         uint64_t(m_fileSize) - m_position, header.bytes));
                return false;
            }
            if (image)
                readBinarySamples(header, *image);
            else
                skipBinarySamples(header);
        }
    } catch (const Truncated&) {
        endTruncated("the file ends inside the frame");
        return false;
    }
    return true;
}

int ImageDecoderPxM::get() {
    int c = getc_unlocked(m_file);
    if (c != EOF)
        ++m_position;
    return c;
}

int ImageDecoderPxM::require() {
    int c = get();
    if (c == EOF)
        throw Truncated{};
    if (++m_headerBytes > pxm::kMaxHeaderBytes)
        fail(fmt::format("header longer than {} bytes", pxm::kMaxHeaderBytes));
    return c;
}

void ImageDecoderPxM::fail(const std::string& problem) const {
    throw Exception(fmt::format("PXM file '{}', frame {}: {}", m_fileName, m_frames, problem),
                    formatLocation("nordalib/vision/imageio/ImageDecoderPxM", __LINE__,
                                   "norda::vision::ImageDecoderPxM::grab"));
}

void ImageDecoderPxM::endTruncated(const std::string& why) {
    logger()->log(logging::LogLevel::warning, "PXM file '{}' ends at frame {}: {}; {} complete frames read",
                  m_fileName, m_frames, why, m_frames);
    m_ended = true;
    m_truncated = true;
}

void ImageDecoderPxM::readComment(Header& header) {
    // '#' has been read; the comment runs to the end of the line.
    std::string line;
    for (int c = require(); c != '\n' && c != '\r'; c = require())
        line += char(c);
    if (line.rfind(pxm::kMetaPrefix + 1, 0) == 0)
        header.metaLines.push_back(line.substr(std::char_traits<char>::length(pxm::kMetaPrefix) - 1));
}

void ImageDecoderPxM::skipSpaceAndComments(Header& header) {
    for (;;) {
        int c = require();
        if (c == '#') {
            readComment(header);
        } else if (!isSpace(c)) {
            ungetc(c, m_file);
            --m_position;
            --m_headerBytes;
            return;
        }
    }
}

unsigned long ImageDecoderPxM::readNumber(const char* field, Header& header) {
    skipSpaceAndComments(header);
    int c = require();
    if (c == '-')
        fail(fmt::format("negative {}", field));
    if (c < '0' || c > '9')
        fail(fmt::format("missing {} (found 0x{:02X})", field, c & 0xFF));
    unsigned long value = 0;
    int digits = 0;
    while (c >= '0' && c <= '9') {
        if (++digits > 10)
            fail(fmt::format("{} has more than 10 digits", field));
        value = value * 10 + unsigned(c - '0');
        c = require();
    }
    if (c == '#') {
        readComment(header);
    } else if (!isSpace(c)) {
        fail(fmt::format("malformed {} (0x{:02X} after the digits)", field, c & 0xFF));
    }
    return value;
}

unsigned long ImageDecoderPxM::parseField(const std::string& text, const char* field) const {
    if (text.empty())
        fail(fmt::format("missing {}", field));
    if (text[0] == '-')
        fail(fmt::format("negative {}", field));
    if (text.size() > 10 || text.find_first_not_of("0123456789") != std::string::npos)
        fail(fmt::format("malformed {} '{}'", field, text));
    return std::stoul(text);
}

void ImageDecoderPxM::readNetpbmHeader(Header& header) {
    header.width = readNumber("width", header);
    header.height = readNumber("height", header);
    header.maxval = readNumber("maxval", header);
    header.haveWidth = header.haveHeight = header.haveMaxval = true;
    header.depth = (header.magic == '3' || header.magic == '6') ? 3 : 1;
    header.haveDepth = true;
}

void ImageDecoderPxM::readPamHeader(Header& header) {
    int c = require();
    if (!isSpace(c))
        fail("malformed PAM magic line");
    if (c != '\n') {
        // rest of the magic line
        while (c != '\n')
            c = require();
    }
    for (;;) {
        std::string line;
        for (c = require(); c != '\n'; c = require())
            line += char(c);
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (!line.empty() && line[0] == '#') {
            if (line.rfind(pxm::kMetaPrefix, 0) == 0)
                header.metaLines.push_back(line.substr(std::char_traits<char>::length(pxm::kMetaPrefix)));
            continue;
        }
        size_t b = line.find_first_not_of(" \t");
        if (b == std::string::npos)
            continue;
        size_t e = line.find_first_of(" \t", b);
        const std::string word = line.substr(b, e == std::string::npos ? std::string::npos : e - b);
        std::string value;
        if (e != std::string::npos) {
            size_t vb = line.find_first_not_of(" \t", e);
            size_t ve = line.find_last_not_of(" \t");
            if (vb != std::string::npos)
                value = line.substr(vb, ve - vb + 1);
        }
        if (word == "ENDHDR")
            break;
        if (word == "WIDTH") {
            header.width = parseField(value, "WIDTH");
            header.haveWidth = true;
        } else if (word == "HEIGHT") {
            header.height = parseField(value, "HEIGHT");
            header.haveHeight = true;
        } else if (word == "DEPTH") {
            header.depth = parseField(value, "DEPTH");
            header.haveDepth = true;
        } else if (word == "MAXVAL") {
            header.maxval = parseField(value, "MAXVAL");
            header.haveMaxval = true;
        } else if (word == "TUPLTYPE") {
            if (!header.tupleType.empty())
                header.tupleType += ' ';
            header.tupleType += value;
        } else {
            fail(fmt::format("unknown PAM header line '{}'", line.substr(0, 80)));
        }
    }
    if (!header.haveWidth)
        fail("missing WIDTH");
    if (!header.haveHeight)
        fail("missing HEIGHT");
    if (!header.haveDepth)
        fail("missing DEPTH");
    if (!header.haveMaxval)
        fail("missing MAXVAL");
}

void ImageDecoderPxM::checkHeader(Header& header) {
    if (header.width == 0 || header.height == 0)
        fail(fmt::format("empty frame of {} x {}", header.width, header.height));
    if (header.width > unsigned(pxm::kMaxDimension) || header.height > unsigned(pxm::kMaxDimension))
        fail(fmt::format("frame of {} x {} exceeds the limit of {} x {}", header.width, header.height,
                         pxm::kMaxDimension, pxm::kMaxDimension));
    if (header.maxval == 0 || header.maxval > 65535)
        fail(fmt::format("maxval {} outside 1..65535", header.maxval));
    if (header.depth == 0 || header.depth > unsigned(CV_CN_MAX) * 4)
        fail(fmt::format("DEPTH {} outside 1..{}", header.depth, CV_CN_MAX * 4));
    const int sb = header.maxval < 256 ? 1 : 2;
    int type = -1;
    if (header.magic == '7' && pxm::parseCvTypeName(header.tupleType, type)) {
        const int e1 = int(CV_ELEM_SIZE1(type));
        if (pxm::sampleBytes(CV_MAT_DEPTH(type)) != sb ||
            header.depth * unsigned(sb) != unsigned(CV_MAT_CN(type)) * unsigned(e1))
            fail(fmt::format("TUPLTYPE {} does not match DEPTH {} and MAXVAL {}", header.tupleType,
                             header.depth, header.maxval));
    } else {
        if (header.depth > unsigned(CV_CN_MAX))
            fail(fmt::format("DEPTH {} exceeds {}", header.depth, CV_CN_MAX));
        type = CV_MAKETYPE(sb == 1 ? CV_8U : CV_16U, int(header.depth));
    }
    header.type = type;
    header.bytes = uint64_t(header.width) * header.height * header.depth * unsigned(sb);
    if (header.bytes > pxm::kMaxFrameBytes)
        fail(fmt::format("sample block of {} bytes exceeds the limit of {} bytes", header.bytes,
                         pxm::kMaxFrameBytes));
}

void ImageDecoderPxM::readBinarySamples(const Header& header, cv::Mat& image) {
    image.create(int(header.height), int(header.width), header.type);
    size_t n = std::fread(image.data, 1, header.bytes, m_file);
    m_position += n;
    if (n != header.bytes)
        throw Truncated{};
    const int e1 = int(image.elemSize1());
    if (e1 > 1)
        pxm::swapToBigEndian(image.data, image.data, image.total() * image.channels(), e1);
}

void ImageDecoderPxM::skipBinarySamples(const Header& header) {
    if (m_fileSize >= 0) { // the size check above found the samples present
        if (fseeko(m_file, off_t(header.bytes), SEEK_CUR) != 0)
            throw Truncated{};
        m_position += header.bytes;
        return;
    }
    char buffer[4096];
    for (uint64_t left = header.bytes; left > 0;) {
        const size_t n = std::fread(buffer, 1, size_t(std::min<uint64_t>(left, sizeof buffer)), m_file);
        m_position += n;
        if (n == 0)
            throw Truncated{};
        left -= n;
    }
}

void ImageDecoderPxM::readPlainSamples(Header& header, cv::Mat& image) {
    image.create(int(header.height), int(header.width), header.type);
    const size_t count = image.total() * image.channels();
    const bool wide = image.depth() == CV_16U;
    for (size_t i = 0; i < count; ++i) {
        m_headerBytes = 0; // the sample text is bounded by the sample count, not the header limit
        unsigned long v = readNumber("sample", header);
        if (v > header.maxval)
            fail(fmt::format("sample {} exceeds maxval {}", v, header.maxval));
        if (wide)
            reinterpret_cast<uint16_t*>(image.data)[i] = uint16_t(v);
        else
            image.data[i] = uint8_t(v);
    }
}

void ImageDecoderPxM::applyMetaData(const Header& header) {
    m_metaData.clear();
    for (const auto& line : header.metaLines) {
        std::string key, problem;
        std::shared_ptr<exp::Variant> value;
        if (pxm::decodeMetaLine(line, key, value, problem)) {
            m_metaData.set(key, std::move(value));
        } else if (m_warned.insert(problem).second) {
            logger()->log(logging::LogLevel::warning, "PXM file '{}', frame {}: {}; metadata line skipped",
                          m_fileName, m_frames, problem);
        }
    }
}

} // namespace norda::vision
