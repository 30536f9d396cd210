#include "nordalib/vision/imgproc/BadPixel.h"

#include "nordalib/core/exception/Exception.h"

namespace norda::vision {

std::string toString(BadPixelOrigin origin) {
    switch (origin) {
    case BadPixelOrigin::Factory:
        return "factory";
    case BadPixelOrigin::Dead:
        return "dead";
    case BadPixelOrigin::Stuck:
        return "stuck";
    case BadPixelOrigin::Outlier:
        return "outlier";
    }
    return "unknown";
}

} // namespace norda::vision

namespace norda::exp {

namespace {
vision::BadPixelOrigin originOf(unsigned v, const char* function) {
    if (v > static_cast<unsigned>(vision::BadPixelOrigin::Outlier))
        NORDA_THROW("bad pixel origin " + std::to_string(v) + " is not one of 0..3", function);
    return static_cast<vision::BadPixelOrigin>(v);
}
} // namespace

void Serializer<vision::BadPixel>::write(MemoryBinary& m, const vision::BadPixel& v, Endianness e) {
    m.writeScalar<uint16_t>(v.x, e);
    m.writeScalar<uint16_t>(v.y, e);
    m.writeScalar<uint8_t>(static_cast<uint8_t>(v.origin), e);
}

vision::BadPixel Serializer<vision::BadPixel>::read(MemoryBinary& m, Endianness e) {
    vision::BadPixel p;
    p.x = m.readScalar<uint16_t>(e);
    p.y = m.readScalar<uint16_t>(e);
    p.origin = originOf(m.readScalar<uint8_t>(e), "norda::exp::Serializer<BadPixel>::read");
    return p;
}

std::string Serializer<vision::BadPixel>::toText(const vision::BadPixel& v) {
    return std::to_string(v.x) + ":" + std::to_string(v.y) + ":" +
           std::to_string(static_cast<unsigned>(v.origin));
}

vision::BadPixel Serializer<vision::BadPixel>::fromText(const std::string& s) {
    const auto a = s.find(':');
    const auto b = a == std::string::npos ? a : s.find(':', a + 1);
    if (b == std::string::npos)
        NORDA_THROW("not a bad pixel (x:y:origin): \"" + s + "\"",
                    "norda::exp::Serializer<BadPixel>::fromText");
    vision::BadPixel p;
    p.x = static_cast<uint16_t>(MemoryAcsii::parseUnsigned(s.substr(0, a), 65535));
    p.y = static_cast<uint16_t>(MemoryAcsii::parseUnsigned(s.substr(a + 1, b - a - 1), 65535));
    p.origin = originOf(static_cast<unsigned>(MemoryAcsii::parseUnsigned(s.substr(b + 1), 255)),
                        "norda::exp::Serializer<BadPixel>::fromText");
    return p;
}

} // namespace norda::exp
