#include "nordalib/vision/imageio/PxmFormat.h"

#include "nordalib/core/datatypes/VariantRegistry.h"

#include <cstring>

namespace norda::vision::pxm {

namespace {
const char* depthName(int depth) {
    switch (depth) {
    case CV_8U:
        return "8U";
    case CV_8S:
        return "8S";
    case CV_16U:
        return "16U";
    case CV_16S:
        return "16S";
    case CV_32S:
        return "32S";
    case CV_32F:
        return "32F";
    case CV_64F:
        return "64F";
    case CV_16F:
        return "16F";
    default:
        return nullptr;
    }
}
} // namespace

std::string cvTypeName(int type) {
    const char* d = depthName(CV_MAT_DEPTH(type));
    return std::string("CV_") + (d ? d : "?") + "C" + std::to_string(CV_MAT_CN(type));
}

bool parseCvTypeName(const std::string& text, int& type) {
    if (text.rfind("CV_", 0) != 0)
        return false;
    auto c = text.find('C', 3);
    if (c == std::string::npos || c + 1 >= text.size() || text.size() - c - 1 > 3)
        return false;
    const std::string depth = text.substr(3, c - 3);
    int d = -1;
    for (int candidate : {CV_8U, CV_8S, CV_16U, CV_16S, CV_32S, CV_32F, CV_64F, CV_16F})
        if (depth == depthName(candidate))
            d = candidate;
    if (d < 0)
        return false;
    int channels = 0;
    for (size_t i = c + 1; i < text.size(); ++i) {
        if (text[i] < '0' || text[i] > '9')
            return false;
        channels = channels * 10 + (text[i] - '0');
    }
    if (channels < 1 || channels > CV_CN_MAX)
        return false;
    type = CV_MAKETYPE(d, channels);
    return true;
}

void swapToBigEndian(const uint8_t* src, uint8_t* dst, size_t count, int elemSize1) {
    // Plain loops over fixed-width words: the compiler turns them into vector byte shuffles.
    switch (elemSize1) {
    case 1:
        if (src != dst)
            std::memcpy(dst, src, count);
        break;
    case 2:
        for (size_t i = 0; i < count; ++i) {
            uint16_t v;
            std::memcpy(&v, src + 2 * i, 2);
            v = __builtin_bswap16(v);
            std::memcpy(dst + 2 * i, &v, 2);
        }
        break;
    case 4:
        for (size_t i = 0; i < count; ++i) {
            uint32_t v;
            std::memcpy(&v, src + 4 * i, 4);
            v = __builtin_bswap32(v);
            std::memcpy(dst + 4 * i, &v, 4);
        }
        break;
    case 8:
        for (size_t i = 0; i < count; ++i) {
            uint64_t v;
            std::memcpy(&v, src + 8 * i, 8);
            v = __builtin_bswap64(v);
            std::memcpy(dst + 8 * i, &v, 8);
        }
        break;
    default:
        break;
    }
}

std::string percentEncode(const std::string& text) {
    static const char* hex = "0123456789ABCDEF";
    std::string out;
    out.reserve(text.size());
    for (unsigned char c : text) {
        if (c <= 0x20 || c == 0x7F || c == '%') {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 15];
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

std::string percentDecode(const std::string& text) {
    auto digit = [](char c) -> int {
        if (c >= '0' && c <= '9')
            return c - '0';
        if (c >= 'A' && c <= 'F')
            return c - 'A' + 10;
        if (c >= 'a' && c <= 'f')
            return c - 'a' + 10;
        return -1;
    };
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && digit(text[i + 1]) >= 0 && digit(text[i + 2]) >= 0) {
            out += static_cast<char>(digit(text[i + 1]) * 16 + digit(text[i + 2]));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

std::string encodeMetaLine(const std::string& key, const exp::Variant& value) {
    const std::string tag = value.typeTag();
    if (tag.empty() || tag.find_first_of(" \t\r\n") != std::string::npos)
        return {};
    std::string text = value.toString();
    if (text.find_first_of("\r\n") != std::string::npos)
        return {};
    std::string line = kMetaPrefix;
    line.reserve(line.size() + tag.size() + key.size() + text.size() + 2);
    line += tag;
    line += ' ';
    line += percentEncode(key);
    line += ' ';
    line += text;
    return line;
}

bool decodeMetaLine(const std::string& line, std::string& key, std::shared_ptr<exp::Variant>& value,
                    std::string& problem) {
    auto sp1 = line.find(' ');
    auto sp2 = sp1 == std::string::npos ? std::string::npos : line.find(' ', sp1 + 1);
    if (sp1 == std::string::npos || sp2 == std::string::npos || sp1 == 0 || sp2 == sp1 + 1) {
        problem = "malformed metadata line";
        return false;
    }
    const std::string tag = line.substr(0, sp1);
    key = percentDecode(line.substr(sp1 + 1, sp2 - sp1 - 1));
    auto& registry = exp::VariantRegistry::instance();
    if (!registry.knows(tag)) {
        problem = "unknown value type '" + tag + "'";
        return false;
    }
    try {
        value = registry.fromText(tag, line.substr(sp2 + 1));
    } catch (const std::exception& e) {
        problem = std::string("unreadable '") + tag + "' value: " + e.what();
        return false;
    }
    return true;
}

} // namespace norda::vision::pxm
