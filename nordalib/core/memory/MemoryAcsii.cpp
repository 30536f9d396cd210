#include "nordalib/core/memory/MemoryAcsii.h"

#include "nordalib/core/exception/Exception.h"

#include <cerrno>
#include <charconv>
#include <cstdlib>

namespace norda::exp::MemoryAcsii {

std::string escape(const std::string& text) {
    static const char* hex = "0123456789ABCDEF";
    std::string out;
    out.reserve(text.size());
    for (unsigned char c : text) {
        switch (c) {
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        case ',':
            out += "\\,";
            break;
        default:
            if (c < 0x20 || c == 0x7F) {
                out += "\\x";
                out += hex[c >> 4];
                out += hex[c & 15];
            } else {
                out += static_cast<char>(c);
            }
        }
    }
    return out;
}

namespace {
int hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}
[[noreturn]] void fail(const std::string& what, const char* function) {
    NORDA_THROW(what, function);
}
} // namespace

std::string unescape(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c != '\\') {
            out += c;
            continue;
        }
        if (++i >= text.size())
            fail("dangling escape at the end of \"" + text + "\"", "norda::exp::MemoryAcsii::unescape");
        switch (text[i]) {
        case '\\':
            out += '\\';
            break;
        case 'n':
            out += '\n';
            break;
        case 'r':
            out += '\r';
            break;
        case 't':
            out += '\t';
            break;
        case ',':
            out += ',';
            break;
        case 'x': {
            int hi = i + 1 < text.size() ? hexDigit(text[i + 1]) : -1;
            int lo = i + 2 < text.size() ? hexDigit(text[i + 2]) : -1;
            if (hi < 0 || lo < 0)
                fail("bad \\x escape in \"" + text + "\"", "norda::exp::MemoryAcsii::unescape");
            out += static_cast<char>(hi * 16 + lo);
            i += 2;
            break;
        }
        default:
            fail("unknown escape in \"" + text + "\"", "norda::exp::MemoryAcsii::unescape");
        }
    }
    return out;
}

std::vector<std::string> splitEscaped(const std::string& text, char separator) {
    std::vector<std::string> parts(1);
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) {
            parts.back() += text[i];
            parts.back() += text[++i];
        } else if (text[i] == separator) {
            parts.emplace_back();
        } else {
            parts.back() += text[i];
        }
    }
    return parts;
}

std::string toHex(const uint8_t* data, size_t size) {
    static const char* hex = "0123456789abcdef";
    std::string out(size * 2, '0');
    for (size_t i = 0; i < size; ++i) {
        out[2 * i] = hex[data[i] >> 4];
        out[2 * i + 1] = hex[data[i] & 15];
    }
    return out;
}

std::vector<uint8_t> fromHex(const std::string& text) {
    if (text.size() % 2)
        fail("hex text of odd length", "norda::exp::MemoryAcsii::fromHex");
    std::vector<uint8_t> out(text.size() / 2);
    for (size_t i = 0; i < out.size(); ++i) {
        int hi = hexDigit(text[2 * i]), lo = hexDigit(text[2 * i + 1]);
        if (hi < 0 || lo < 0)
            fail("bad hex digit", "norda::exp::MemoryAcsii::fromHex");
        out[i] = static_cast<uint8_t>(hi * 16 + lo);
    }
    return out;
}

static const char* kB64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string toBase64(const uint8_t* data, size_t size) {
    std::string out;
    out.reserve((size + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 2 < size; i += 3) {
        uint32_t v = (data[i] << 16) | (data[i + 1] << 8) | data[i + 2];
        out += kB64[(v >> 18) & 63];
        out += kB64[(v >> 12) & 63];
        out += kB64[(v >> 6) & 63];
        out += kB64[v & 63];
    }
    if (i < size) {
        uint32_t v = data[i] << 16;
        if (i + 1 < size)
            v |= data[i + 1] << 8;
        out += kB64[(v >> 18) & 63];
        out += kB64[(v >> 12) & 63];
        out += (i + 1 < size) ? kB64[(v >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

std::vector<uint8_t> fromBase64(const std::string& text) {
    int table[256];
    for (int& t : table)
        t = -1;
    for (int k = 0; k < 64; ++k)
        table[static_cast<unsigned char>(kB64[k])] = k;
    if (text.size() % 4)
        fail("base64 text of bad length", "norda::exp::MemoryAcsii::fromBase64");
    std::vector<uint8_t> out;
    out.reserve(text.size() / 4 * 3);
    for (size_t i = 0; i < text.size(); i += 4) {
        int v[4];
        int pad = 0;
        for (int k = 0; k < 4; ++k) {
            char c = text[i + k];
            if (c == '=' && i + 4 == text.size() && k >= 2) {
                v[k] = 0;
                ++pad;
            } else {
                v[k] = table[static_cast<unsigned char>(c)];
                if (v[k] < 0 || pad)
                    fail("bad base64 character", "norda::exp::MemoryAcsii::fromBase64");
            }
        }
        uint32_t w = (v[0] << 18) | (v[1] << 12) | (v[2] << 6) | v[3];
        out.push_back(static_cast<uint8_t>(w >> 16));
        if (pad < 2)
            out.push_back(static_cast<uint8_t>(w >> 8));
        if (pad < 1)
            out.push_back(static_cast<uint8_t>(w));
    }
    return out;
}

long long parseSigned(const std::string& text, long long min, long long max) {
    long long v = 0;
    auto [p, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    if (ec == std::errc::result_out_of_range)
        fail("number is too big", "norda::exp::intern::fromStringTimpl");
    if (ec != std::errc() || p != text.data() + text.size() || text.empty())
        fail("not an integer: \"" + text + "\"", "norda::exp::intern::fromStringTimpl");
    if (v < min || v > max)
        fail("number is too big", "norda::exp::intern::fromStringTimpl");
    return v;
}

unsigned long long parseUnsigned(const std::string& text, unsigned long long max) {
    unsigned long long v = 0;
    if (!text.empty() && text[0] == '-')
        fail("number is too big", "norda::exp::intern::fromStringTimpl");
    auto [p, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    if (ec == std::errc::result_out_of_range)
        fail("number is too big", "norda::exp::intern::fromStringTimpl");
    if (ec != std::errc() || p != text.data() + text.size() || text.empty())
        fail("not an unsigned integer: \"" + text + "\"", "norda::exp::intern::fromStringTimpl");
    if (v > max)
        fail("number is too big", "norda::exp::intern::fromStringTimpl");
    return v;
}

double parseDouble(const std::string& text) {
    if (text.empty())
        fail("not a number: \"\"", "norda::exp::intern::fromStringTimpl");
    errno = 0;
    char* end = nullptr;
    double v = std::strtod(text.c_str(), &end);
    if (end != text.c_str() + text.size())
        fail("not a number: \"" + text + "\"", "norda::exp::intern::fromStringTimpl");
    if (errno == ERANGE && (v > 1.0 || v < -1.0))
        fail("number is too big", "norda::exp::intern::fromStringTimpl");
    return v;
}

} // namespace norda::exp::MemoryAcsii
