#pragma once
// Typed serialisation of values, binary and text.
//
// Serializer<T> is specialised for every type that can be stored persistently (in PXM frame
// headers, radiometric image files, settings files). A specialisation provides
//   static std::string tag();                                   stable type name in files
//   static void write(MemoryBinary&, const T&, Endianness);      binary form
//   static T read(MemoryBinary&, Endianness);                    inverse of write
//   static std::string toText(const T&);                         one-line text form
//   static T fromText(const std::string&);                       inverse of toText
// and `available = true`. A type's specialisation lives in the header that defines the type, so
// it is visible wherever a Variant_ of that type is made. Memory::serializeT and
// intern::toStringTimpl are the entry points the rest of the library calls.

#include "nordalib/core/datatypes/TypeName.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/memory/MemoryAcsii.h"
#include "nordalib/core/memory/MemoryBinary.h"

#include <fmt/format.h>
#include <opencv2/core.hpp>

#include <cmath>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

namespace norda::exp {

template <typename T, typename Enable = void> struct Serializer { static constexpr bool available = false; };

template <typename T> inline constexpr bool isSerializable = Serializer<std::remove_cv_t<T>>::available;

// ---- arithmetic ----------------------------------------------------------------------------
namespace intern {
template <typename T> constexpr const char* arithmeticTag() {
    if constexpr (std::is_same_v<T, bool>)
        return "bool";
    else if constexpr (std::is_same_v<T, char>)
        return "char";
    else if constexpr (std::is_same_v<T, signed char>)
        return "i8";
    else if constexpr (std::is_same_v<T, unsigned char>)
        return "u8";
    else if constexpr (std::is_same_v<T, short>)
        return "i16";
    else if constexpr (std::is_same_v<T, unsigned short>)
        return "u16";
    else if constexpr (std::is_same_v<T, int>)
        return "i32";
    else if constexpr (std::is_same_v<T, unsigned int>)
        return "u32";
    else if constexpr (std::is_same_v<T, long>)
        return "i64";
    else if constexpr (std::is_same_v<T, unsigned long>)
        return "u64";
    else if constexpr (std::is_same_v<T, long long>)
        return "ll";
    else if constexpr (std::is_same_v<T, unsigned long long>)
        return "ull";
    else if constexpr (std::is_same_v<T, float>)
        return "f32";
    else if constexpr (std::is_same_v<T, double>)
        return "f64";
    else
        return nullptr;
}
} // namespace intern

template <typename T>
struct Serializer<T, std::enable_if_t<std::is_arithmetic_v<T> && intern::arithmeticTag<T>() != nullptr>> {
    static constexpr bool available = true;
    static std::string tag() { return intern::arithmeticTag<T>(); }
    static void write(MemoryBinary& m, const T& v, Endianness e) {
        if constexpr (std::is_same_v<T, bool>)
            m.writeScalar<uint8_t>(v ? 1 : 0, e);
        else
            m.writeScalar<T>(v, e);
    }
    static T read(MemoryBinary& m, Endianness e) {
        if constexpr (std::is_same_v<T, bool>)
            return m.readScalar<uint8_t>(e) != 0;
        else
            return m.readScalar<T>(e);
    }
    static std::string toText(const T& v) {
        if constexpr (std::is_same_v<T, bool>)
            return v ? "true" : "false";
        else if constexpr (std::is_same_v<T, char> || std::is_same_v<T, signed char>)
            return std::to_string(static_cast<int>(v));
        else if constexpr (std::is_same_v<T, unsigned char>)
            return std::to_string(static_cast<unsigned>(v));
        else
            return fmt::format("{}", v);
    }
    static T fromText(const std::string& s) {
        if constexpr (std::is_same_v<T, bool>) {
            if (s == "true" || s == "1")
                return true;
            if (s == "false" || s == "0")
                return false;
            NORDA_THROW("not a bool: \"" + s + "\"", "norda::exp::intern::fromStringTimpl");
        } else if constexpr (std::is_floating_point_v<T>) {
            double d = MemoryAcsii::parseDouble(s);
            if (std::is_same_v<T, float> && std::isfinite(d) &&
                std::abs(d) > std::numeric_limits<float>::max())
                NORDA_THROW("number is too big", "norda::exp::intern::fromStringTimpl");
            return static_cast<T>(d);
        } else if constexpr (std::is_signed_v<T>) {
            return static_cast<T>(
                MemoryAcsii::parseSigned(s, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
        } else {
            return static_cast<T>(MemoryAcsii::parseUnsigned(s, std::numeric_limits<T>::max()));
        }
    }
};

// ---- strings -------------------------------------------------------------------------------
template <> struct Serializer<std::string> {
    static constexpr bool available = true;
    static std::string tag() { return "string"; }
    static void write(MemoryBinary& m, const std::string& v, Endianness e) { m.writeString(v, e); }
    static std::string read(MemoryBinary& m, Endianness e) { return m.readString(e); }
    static std::string toText(const std::string& v) { return MemoryAcsii::escape(v); }
    static std::string fromText(const std::string& s) { return MemoryAcsii::unescape(s); }
};

// ---- vectors -------------------------------------------------------------------------------
template <typename T> struct Serializer<std::vector<T>, std::enable_if_t<Serializer<T>::available>> {
    static constexpr bool available = true;
    static std::string tag() { return "vec<" + Serializer<T>::tag() + ">"; }
    static void write(MemoryBinary& m, const std::vector<T>& v, Endianness e) {
        m.writeScalar<uint32_t>(static_cast<uint32_t>(v.size()), e);
        if constexpr (std::is_arithmetic_v<T> && !std::is_same_v<T, bool>) {
            if (e == Endianness::no_swap || sizeof(T) == 1) {
                m.write(v.data(), v.size() * sizeof(T));
                return;
            }
        }
        for (const auto& x : v)
            Serializer<T>::write(m, x, e);
    }
    static std::vector<T> read(MemoryBinary& m, Endianness e) {
        auto n = m.readCount(std::is_arithmetic_v<T> ? sizeof(T) : 1, e);
        std::vector<T> v;
        if constexpr (std::is_arithmetic_v<T> && !std::is_same_v<T, bool>) {
            if (e == Endianness::no_swap || sizeof(T) == 1) {
                v.resize(n);
                m.read(v.data(), n * sizeof(T));
                return v;
            }
        }
        v.reserve(n);
        for (uint32_t i = 0; i < n; ++i)
            v.push_back(Serializer<T>::read(m, e));
        return v;
    }
    static std::string toText(const std::vector<T>& v) {
        if constexpr (sizeof(T) == 1 && std::is_integral_v<T> && !std::is_same_v<T, bool>) {
            return MemoryAcsii::toHex(reinterpret_cast<const uint8_t*>(v.data()), v.size());
        } else {
            std::string out;
            for (size_t i = 0; i < v.size(); ++i) {
                if (i)
                    out += ',';
                // Element texts are escaped once more so that commas inside them survive the split.
                out += MemoryAcsii::escape(Serializer<T>::toText(v[i]));
            }
            return out;
        }
    }
    static std::vector<T> fromText(const std::string& s) {
        std::vector<T> v;
        if constexpr (sizeof(T) == 1 && std::is_integral_v<T> && !std::is_same_v<T, bool>) {
            auto bytes = MemoryAcsii::fromHex(s);
            v.assign(reinterpret_cast<const T*>(bytes.data()),
                     reinterpret_cast<const T*>(bytes.data()) + bytes.size());
        } else {
            if (s.empty())
                return v;
            for (const auto& part : MemoryAcsii::splitEscaped(s))
                v.push_back(Serializer<T>::fromText(MemoryAcsii::unescape(part)));
        }
        return v;
    }
};

// ---- OpenCV types --------------------------------------------------------------------------
template <> struct Serializer<cv::Mat> {
    static constexpr bool available = true;
    static std::string tag() { return "mat"; }
    static void write(MemoryBinary& m, const cv::Mat& v, Endianness e);
    static cv::Mat read(MemoryBinary& m, Endianness e);
    static std::string toText(const cv::Mat& v);
    static cv::Mat fromText(const std::string& s);
};

template <> struct Serializer<cv::Point_<int>> {
    static constexpr bool available = true;
    static std::string tag() { return "point"; }
    static void write(MemoryBinary& m, const cv::Point_<int>& v, Endianness e);
    static cv::Point_<int> read(MemoryBinary& m, Endianness e);
    static std::string toText(const cv::Point_<int>& v);
    static cv::Point_<int> fromText(const std::string& s);
};

template <> struct Serializer<cv::Rect_<int>> {
    static constexpr bool available = true;
    static std::string tag() { return "rect"; }
    static void write(MemoryBinary& m, const cv::Rect_<int>& v, Endianness e);
    static cv::Rect_<int> read(MemoryBinary& m, Endianness e);
    static std::string toText(const cv::Rect_<int>& v);
    static cv::Rect_<int> fromText(const std::string& s);
};

// ---- entry points --------------------------------------------------------------------------
namespace Memory {

template <typename T>
void serializeT(MemoryBinary& memory, const T& value, Endianness e = Endianness::no_swap) {
    using U = std::remove_cv_t<T>;
    if constexpr (Serializer<U>::available)
        Serializer<U>::write(memory, value, e);
    else
        NORDA_THROW("type '" + typeName(typeid(U)) + "' can not be serialized",
                    "norda::exp::Memory::serializeT");
}

template <typename T> T deserializeT(MemoryBinary& memory, Endianness e = Endianness::no_swap) {
    static_assert(Serializer<T>::available, "no Serializer for this type");
    return Serializer<T>::read(memory, e);
}

} // namespace Memory

namespace intern {

template <typename T> std::string toStringTimpl(const T& value) {
    using U = std::remove_cv_t<T>;
    if constexpr (Serializer<U>::available)
        return Serializer<U>::toText(value);
    else
        NORDA_THROW("type '" + typeName(typeid(U)) + "' can not be serialized to string",
                    "norda::exp::intern::toStringTimpl");
}

template <typename T> T fromStringTimpl(const std::string& text) {
    static_assert(Serializer<T>::available, "no Serializer for this type");
    return Serializer<T>::fromText(text);
}

} // namespace intern

} // namespace norda::exp
