#pragma once
// A growable byte buffer with a read cursor: the carrier of binary serialisation.
//
// Scalars are written in native byte order, or byte-swapped when the writer asks for
// Endianness::swap. Reads are bounds-checked: reading past the end throws instead of
// returning garbage, so damaged input can never make a reader run off its buffer.

#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

namespace norda::exp {

enum class Endianness { no_swap, swap };

class MemoryBinary {
public:
    MemoryBinary() = default;
    explicit MemoryBinary(std::vector<uint8_t> data) : m_data(std::move(data)) {}
    MemoryBinary(const void* data, size_t size)
        : m_data(static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + size) {}

    void write(const void* data, size_t size);
    void read(void* data, size_t size);
    // Skips `size` bytes of input (bounds-checked).
    void skip(size_t size);

    template <typename T> void writeScalar(T value, Endianness e = Endianness::no_swap) {
        static_assert(std::is_trivially_copyable_v<T>);
        if (e == Endianness::swap)
            value = byteSwap(value);
        write(&value, sizeof(T));
    }
    template <typename T> T readScalar(Endianness e = Endianness::no_swap) {
        static_assert(std::is_trivially_copyable_v<T>);
        T value;
        read(&value, sizeof(T));
        return e == Endianness::swap ? byteSwap(value) : value;
    }
    // A count or length, checked against what is left so that damaged input cannot request
    // more elements than the buffer could possibly hold (`minElementSize` bytes each).
    uint32_t readCount(size_t minElementSize, Endianness e = Endianness::no_swap);

    void writeString(const std::string& s, Endianness e = Endianness::no_swap);
    std::string readString(Endianness e = Endianness::no_swap);

    const std::vector<uint8_t>& data() const { return m_data; }
    std::vector<uint8_t>& data() { return m_data; }
    size_t size() const { return m_data.size(); }
    size_t remaining() const { return m_data.size() - m_readPos; }
    size_t readPosition() const { return m_readPos; }
    void rewind() { m_readPos = 0; }

    template <typename T> static T byteSwap(T value) {
        uint8_t bytes[sizeof(T)];
        std::memcpy(bytes, &value, sizeof(T));
        for (size_t i = 0; i < sizeof(T) / 2; ++i)
            std::swap(bytes[i], bytes[sizeof(T) - 1 - i]);
        std::memcpy(&value, bytes, sizeof(T));
        return value;
    }

private:
    std::vector<uint8_t> m_data;
    size_t m_readPos = 0;
};

} // namespace norda::exp
