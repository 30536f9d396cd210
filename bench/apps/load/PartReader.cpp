#include "bench/apps/load/PartReader.h"

#include <cstdlib>

namespace nordaload {

int PartReader::feed(const char* data, size_t n) {
    m_buf.append(data, n);
    if (!m_headerDone) {
        const auto end = m_buf.find("\r\n\r\n");
        if (end == std::string::npos)
            return m_buf.size() > 8192 ? fail("no end of the response header") : 0;
        if (m_buf.rfind("HTTP/1.1 200", 0) != 0)
            return fail("answer " + m_buf.substr(0, m_buf.find('\r')));
        m_headerDone = true;
        m_pos = end + 4;
    }
    int parts = 0;
    static const std::string boundary = "--nordacamframe\r\n";
    while (true) {
        if (m_buf.size() - m_pos < boundary.size())
            break;
        if (m_buf.compare(m_pos, boundary.size(), boundary) != 0)
            return fail("no boundary where a part must start");
        const auto headEnd = m_buf.find("\r\n\r\n", m_pos);
        if (headEnd == std::string::npos)
            break;
        const auto lenAt = m_buf.find("Content-Length: ", m_pos);
        if (lenAt == std::string::npos || lenAt > headEnd)
            return fail("a part without Content-Length");
        const size_t len = std::strtoul(m_buf.c_str() + lenAt + 16, nullptr, 10);
        const size_t body = headEnd + 4;
        if (m_buf.size() < body + len + 2)
            break;
        const bool ok = m_jpeg ? len > 4 && static_cast<unsigned char>(m_buf[body]) == 0xFF &&
                                     static_cast<unsigned char>(m_buf[body + 1]) == 0xD8 &&
                                     static_cast<unsigned char>(m_buf[body + len - 1]) == 0xD9
                               : len > 640 * 480 * 2 && m_buf[body] == 'P';
        if (!ok || m_buf.compare(body + len, 2, "\r\n") != 0)
            return fail("a damaged part");
        m_pos = body + len + 2;
        ++parts;
    }
    if (m_pos > (1u << 20)) {
        m_buf.erase(0, m_pos);
        m_pos = 0;
    }
    return parts;
}

} // namespace nordaload
