#include "nordalib/core/memory/Memory.h"

namespace norda::exp {

namespace {
constexpr int64_t kMaxMatBytes = int64_t(1) << 31; // 2 GiB: nothing the camera makes comes near it
}

void Serializer<cv::Mat>::write(MemoryBinary& m, const cv::Mat& v, Endianness e) {
    if (e != Endianness::no_swap)
        NORDA_THROW("Mat only serializable for no_swap endianes", "norda::exp::Memory::serializeT");
    if (v.dims > 2)
        NORDA_THROW("Mat with more than two dimensions can not be serialized",
                    "norda::exp::Memory::serializeT");
    m.writeScalar<int32_t>(v.rows);
    m.writeScalar<int32_t>(v.cols);
    m.writeScalar<int32_t>(v.type());
    if (v.empty())
        return;
    const size_t rowBytes = v.cols * v.elemSize();
    for (int r = 0; r < v.rows; ++r)
        m.write(v.ptr(r), rowBytes);
}

cv::Mat Serializer<cv::Mat>::read(MemoryBinary& m, Endianness e) {
    if (e != Endianness::no_swap)
        NORDA_THROW("Mat only serializable for no_swap endianes", "norda::exp::Memory::deserializeT");
    auto rows = m.readScalar<int32_t>();
    auto cols = m.readScalar<int32_t>();
    auto type = m.readScalar<int32_t>();
    if (rows < 0 || cols < 0 || (type & ~0xFFF) != 0 || CV_MAT_DEPTH(type) > CV_16F)
        NORDA_THROW("damaged Mat header (" + std::to_string(rows) + " x " + std::to_string(cols) + ", type " +
                        std::to_string(type) + ")",
                    "norda::exp::Memory::deserializeT");
    if (rows == 0 || cols == 0)
        return cv::Mat(rows, cols, type);
    // Each factor is below 2^31, so the product of the first two fits; bound it before the third.
    const int64_t elements = int64_t(rows) * cols;
    if (elements > kMaxMatBytes)
        NORDA_THROW("Mat of " + std::to_string(rows) + " x " + std::to_string(cols) + " exceeds the data",
                    "norda::exp::Memory::deserializeT");
    const int64_t bytes = elements * CV_ELEM_SIZE(type);
    if (bytes > kMaxMatBytes || bytes > static_cast<int64_t>(m.remaining()))
        NORDA_THROW("Mat of " + std::to_string(rows) + " x " + std::to_string(cols) + " exceeds the data",
                    "norda::exp::Memory::deserializeT");
    cv::Mat v(rows, cols, type);
    m.read(v.data, static_cast<size_t>(bytes));
    return v;
}

std::string Serializer<cv::Mat>::toText(const cv::Mat& v) {
    MemoryBinary m;
    write(m, v, Endianness::no_swap);
    return MemoryAcsii::toBase64(m.data().data(), m.size());
}

cv::Mat Serializer<cv::Mat>::fromText(const std::string& s) {
    MemoryBinary m(MemoryAcsii::fromBase64(s));
    return read(m, Endianness::no_swap);
}

void Serializer<cv::Point_<int>>::write(MemoryBinary& m, const cv::Point_<int>& v, Endianness e) {
    if (e != Endianness::no_swap)
        NORDA_THROW("cv::Point only serializable for no_swap endianes", "norda::exp::Memory::serializeT");
    m.writeScalar<int32_t>(v.x);
    m.writeScalar<int32_t>(v.y);
}

cv::Point_<int> Serializer<cv::Point_<int>>::read(MemoryBinary& m, Endianness e) {
    if (e != Endianness::no_swap)
        NORDA_THROW("cv::Point only serializable for no_swap endianes", "norda::exp::Memory::deserializeT");
    int x = m.readScalar<int32_t>();
    int y = m.readScalar<int32_t>();
    return {x, y};
}

std::string Serializer<cv::Point_<int>>::toText(const cv::Point_<int>& v) {
    return fmt::format("{},{}", v.x, v.y);
}

cv::Point_<int> Serializer<cv::Point_<int>>::fromText(const std::string& s) {
    auto parts = MemoryAcsii::splitEscaped(s);
    if (parts.size() != 2)
        NORDA_THROW("not a point: \"" + s + "\"", "norda::exp::intern::fromStringTimpl");
    return {Serializer<int>::fromText(parts[0]), Serializer<int>::fromText(parts[1])};
}

void Serializer<cv::Rect_<int>>::write(MemoryBinary& m, const cv::Rect_<int>& v, Endianness e) {
    if (e != Endianness::no_swap)
        NORDA_THROW("cv::Rect only serializable for no_swap endianes", "norda::exp::Memory::serializeT");
    m.writeScalar<int32_t>(v.x);
    m.writeScalar<int32_t>(v.y);
    m.writeScalar<int32_t>(v.width);
    m.writeScalar<int32_t>(v.height);
}

cv::Rect_<int> Serializer<cv::Rect_<int>>::read(MemoryBinary& m, Endianness e) {
    if (e != Endianness::no_swap)
        NORDA_THROW("cv::Rect only serializable for no_swap endianes", "norda::exp::Memory::deserializeT");
    cv::Rect_<int> r;
    r.x = m.readScalar<int32_t>();
    r.y = m.readScalar<int32_t>();
    r.width = m.readScalar<int32_t>();
    r.height = m.readScalar<int32_t>();
    return r;
}

std::string Serializer<cv::Rect_<int>>::toText(const cv::Rect_<int>& v) {
    return fmt::format("{},{},{},{}", v.x, v.y, v.width, v.height);
}

cv::Rect_<int> Serializer<cv::Rect_<int>>::fromText(const std::string& s) {
    auto parts = MemoryAcsii::splitEscaped(s);
    if (parts.size() != 4)
        NORDA_THROW("not a rectangle: \"" + s + "\"", "norda::exp::intern::fromStringTimpl");
    return {Serializer<int>::fromText(parts[0]), Serializer<int>::fromText(parts[1]),
            Serializer<int>::fromText(parts[2]), Serializer<int>::fromText(parts[3])};
}

} // namespace norda::exp
