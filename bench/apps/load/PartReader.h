#pragma once
// Splits the server's multipart stream into parts as a viewer does; checks the framing and each
// part's first bytes (a JPEG or a PXM header).

#include <cstddef>
#include <string>

namespace nordaload {

class PartReader {
public:
    explicit PartReader(bool jpeg) : m_jpeg(jpeg) {}

    // Complete parts in the new bytes; -1 when the stream is not what the server must send.
    int feed(const char* data, size_t n);
    // Bytes of a part begun but not complete.
    size_t pending() const { return m_headerDone ? m_buf.size() - m_pos : 0; }
    const std::string& error() const { return m_error; }

private:
    int fail(const std::string& what) {
        m_error = what;
        return -1;
    }
    bool m_jpeg;
    bool m_headerDone = false;
    std::string m_buf;
    size_t m_pos = 0;
    std::string m_error;
};

} // namespace nordaload
