#include "nordalib/vision/rix/RixFormat.h"

#include "nordalib/core/datatypes/VariantRegistry.h"
#include "nordalib/vision/rix/Crc32.h"

#include <fmt/format.h>
#include <opencv2/core.hpp>

#include <bit>
#include <climits>
#include <cstring>
#include <set>

namespace norda::vision {

// The layout is little-endian; multi-byte fields are copied as they lie in memory.
static_assert(std::endian::native == std::endian::little,
              "radiometric image files assume a little-endian host");

namespace {

constexpr uint8_t kMagic[8] = {0x8A, 'R', 'I', 'X', '\r', '\n', 0x1A, '\n'};
constexpr size_t kHeaderSize = 8 + 2 * 4 + 4; // magic, version and flags, header CRC
constexpr size_t kChunkHeadSize = 12;         // type, length, CRC
constexpr uint16_t kFlagSuperResolution = 0x0001;

// Chunk types (docs/rix-format.md).
constexpr char kRadiometric[] = "RADI";
constexpr char kPreview[] = "PREV";
constexpr char kVisual[] = "VISI";
constexpr char kGeneric[] = "META";
constexpr char kScaling[] = "SCAL";
constexpr char kEmissivity[] = "EMIS";
constexpr char kReflected[] = "REFT";
constexpr char kUuid[] = "UUID";
constexpr char kDateTime[] = "DATE";
constexpr char kMinMax[] = "MMAX";
constexpr char kSrFrames[] = "SRFR";
constexpr char kSrImage[] = "SRIM";
constexpr char kEnd[] = "IEND";

constexpr uint8_t kRawLittleEndian = 0; // pixel encoding of RADI, SRFR and SRIM

const char* const kFunctionSave = "norda::vision::Rix::save";
const char* const kFunctionLoad = "norda::vision::Rix::load";

// ---- writing ---------------------------------------------------------------------------------
class Writer {
public:
    explicit Writer(std::vector<char>& out) : m_out(out) {}

    void bytes(const void* data, size_t size) {
        const auto* p = static_cast<const char*>(data);
        m_out.insert(m_out.end(), p, p + size);
    }
    template <typename T> void scalar(T value) { bytes(&value, sizeof(T)); }
    void temperature(const Rix::Temperature& t) {
        scalar<uint32_t>(t.getValue().raw());
        scalar<uint8_t>(static_cast<uint8_t>(t.getUnit()));
    }
    void image(const cv::Mat& m) {
        scalar<uint32_t>(static_cast<uint32_t>(m.cols));
        scalar<uint32_t>(static_cast<uint32_t>(m.rows));
        const size_t rowBytes = m.cols * m.elemSize();
        for (int r = 0; r < m.rows; ++r)
            bytes(m.ptr(r), rowBytes);
    }

    void beginChunk(const char* type) {
        m_chunkStart = m_out.size();
        bytes(type, 4);
        scalar<uint32_t>(0); // length and CRC are patched in endChunk
        scalar<uint32_t>(0);
    }
    void endChunk() {
        const size_t payload = m_out.size() - m_chunkStart - kChunkHeadSize;
        if (payload > UINT32_MAX)
            NORDA_THROW(fmt::format("chunk '{}' of {} bytes exceeds the format's 4 GiB limit",
                                    std::string(m_out.data() + m_chunkStart, 4), payload),
                        kFunctionSave);
        const auto length = static_cast<uint32_t>(payload);
        char* head = m_out.data() + m_chunkStart;
        uint32_t crc = Crc32::update(0, head, 4);
        crc = Crc32::update(crc, head + kChunkHeadSize, payload);
        std::memcpy(head + 4, &length, 4);
        std::memcpy(head + 8, &crc, 4);
    }

private:
    std::vector<char>& m_out;
    size_t m_chunkStart = 0;
};

// ---- reading ---------------------------------------------------------------------------------
// Thrown while a chunk is parsed; load() turns it into the message naming file and chunk.
struct ParseError {
    std::string detail;
};

class Reader {
public:
    Reader(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}

    size_t remaining() const { return m_size - m_pos; }
    void need(size_t n) const {
        if (n > remaining())
            throw ParseError{
                fmt::format("{} bytes needed at payload offset {}, {} present", n, m_pos, remaining())};
    }
    void bytes(void* out, size_t n) {
        need(n);
        std::memcpy(out, m_data + m_pos, n);
        m_pos += n;
    }
    const uint8_t* current() const { return m_data + m_pos; }
    template <typename T> T scalar() {
        T v;
        bytes(&v, sizeof(T));
        return v;
    }
    Rix::Temperature temperature() {
        const auto raw = scalar<uint32_t>();
        const auto unit = scalar<uint8_t>();
        if (unit > 2)
            throw ParseError{"unknown temperature unit " + std::to_string(unit)};
        return Rix::Temperature(exp::MarkedFloat::fromRaw(raw),
                                static_cast<exp::quantity::TemperatureUnit>(unit));
    }
    // An image of `elemBytes` per pixel; its size is bounded by the bytes actually present, so a
    // damaged size can never cause a large allocation. Not `keep`: checked the same, not copied.
    template <typename M> M image(bool keep = true) {
        const auto cols = scalar<uint32_t>();
        const auto rows = scalar<uint32_t>();
        if (cols > INT_MAX || rows > INT_MAX)
            throw ParseError{fmt::format("image size {} x {} out of range", cols, rows)};
        if (cols == 0 || rows == 0) {
            if (cols != rows)
                throw ParseError{fmt::format("image size {} x {} out of range", cols, rows)};
            return M();
        }
        const uint64_t size = uint64_t(cols) * rows * sizeof(typename M::value_type);
        if (size > remaining())
            throw ParseError{
                fmt::format("image of {} x {} needs {} bytes, {} present", cols, rows, size, remaining())};
        if (!keep) {
            m_pos += static_cast<size_t>(size);
            return M();
        }
        M m(static_cast<int>(rows), static_cast<int>(cols));
        bytes(m.data, static_cast<size_t>(size));
        return m;
    }
    void expectEnd() const {
        if (remaining() != 0)
            throw ParseError{fmt::format("{} unexpected bytes at the end", remaining())};
    }

private:
    const uint8_t* m_data;
    size_t m_size;
    size_t m_pos = 0;
};

std::string chunkName(const uint8_t* type) {
    std::string s;
    for (int i = 0; i < 4; ++i)
        s += (type[i] >= 0x20 && type[i] < 0x7F) ? std::string(1, static_cast<char>(type[i]))
                                                 : fmt::format("\\x{:02X}", type[i]);
    return s;
}

void expectEncoding(Reader& r) {
    const auto encoding = r.scalar<uint8_t>();
    if (encoding != kRawLittleEndian)
        throw ParseError{"unsupported pixel encoding " + std::to_string(encoding)};
}

} // namespace

void RixFormat::write(const Rix& rix, bool superResolution, std::vector<char>& out) {
    if (rix.m_radiometric.empty())
        NORDA_THROW("no radiometric image to save", kFunctionSave);
    if (superResolution && rix.m_srImage.empty())
        NORDA_THROW("no super-resolution image calculated", kFunctionSave);

    out.clear();
    out.reserve(kHeaderSize + 16 * kChunkHeadSize + 256 + rix.m_radiometric.total() * 2 +
                rix.m_preview.total() * 3 + rix.m_visual.total() * 2 + rix.m_srImage.total() * 2 +
                (rix.m_srFrames.size() * rix.m_radiometric.total() * 2));
    Writer w(out);
    w.bytes(kMagic, sizeof kMagic);
    w.scalar<uint16_t>(rix.m_fileVersion.getMajor());
    w.scalar<uint16_t>(rix.m_fileVersion.getMinor());
    w.scalar<uint16_t>(rix.m_fileVersion.getPatch());
    w.scalar<uint16_t>(superResolution ? kFlagSuperResolution : 0);
    w.scalar<uint32_t>(Crc32::compute(out.data(), out.size()));

    w.beginChunk(kRadiometric);
    w.scalar<uint8_t>(kRawLittleEndian);
    w.image(rix.m_radiometric);
    w.endChunk();

    w.beginChunk(kPreview);
    w.image(rix.m_preview);
    w.endChunk();

    w.beginChunk(kVisual);
    w.scalar<float>(rix.m_visualPreviewFactor);
    w.scalar<uint8_t>(rix.m_visualHighResolution ? 1 : 0);
    w.image(rix.m_visual);
    w.endChunk();

    w.beginChunk(kGeneric);
    {
        exp::MemoryBinary m;
        m.writeScalar<uint32_t>(static_cast<uint32_t>(rix.m_generic.size()));
        for (const auto& [key, value] : rix.m_generic) {
            m.writeString(key);
            exp::writeVariant(m, *value);
        }
        w.bytes(m.data().data(), m.size());
    }
    w.endChunk();

    w.beginChunk(kScaling);
    w.temperature(rix.m_scalingMax);
    w.temperature(rix.m_scalingMin);
    w.endChunk();

    w.beginChunk(kEmissivity);
    w.scalar<float>(rix.m_emissivity);
    w.endChunk();

    w.beginChunk(kReflected);
    w.temperature(rix.m_reflected);
    w.endChunk();

    w.beginChunk(kUuid);
    w.bytes(rix.m_uuid.data(), rix.m_uuid.size());
    w.endChunk();

    w.beginChunk(kDateTime);
    w.scalar<uint64_t>(rix.m_dateTime);
    w.endChunk();

    w.beginChunk(kMinMax);
    w.scalar<uint16_t>(rix.m_minMax.min);
    w.scalar<uint16_t>(rix.m_minMax.max);
    w.scalar<int32_t>(rix.m_minMax.minPosition.x);
    w.scalar<int32_t>(rix.m_minMax.minPosition.y);
    w.scalar<int32_t>(rix.m_minMax.maxPosition.x);
    w.scalar<int32_t>(rix.m_minMax.maxPosition.y);
    w.endChunk();

    if (!superResolution && rix.m_superResolutionActive && !rix.m_srFrames.empty()) {
        w.beginChunk(kSrFrames);
        w.scalar<uint8_t>(kRawLittleEndian);
        w.scalar<uint32_t>(static_cast<uint32_t>(rix.m_srFrames.size()));
        for (const auto& f : rix.m_srFrames)
            w.image(f);
        w.endChunk();
    }
    if (!rix.m_srImage.empty() && (superResolution || rix.m_superResolutionActive)) {
        w.beginChunk(kSrImage);
        w.scalar<uint8_t>(kRawLittleEndian);
        w.scalar<float>(rix.m_srQuality);
        w.image(rix.m_srImage);
        w.endChunk();
    }

    w.beginChunk(kEnd);
    w.endChunk();
}

Rix RixFormat::read(const void* data, size_t size, const std::string& name, Rix::Content content) {
    const bool pictures = content == Rix::Content::Everything;
    const auto* bytes = static_cast<const uint8_t*>(data);
    auto fail = [&](const std::string& what) { NORDA_THROW(name + ": " + what, kFunctionLoad); };

    if (size < kHeaderSize || std::memcmp(bytes, kMagic, sizeof kMagic) != 0)
        fail("not a radiometric image file");
    uint32_t headerCrc;
    std::memcpy(&headerCrc, bytes + kHeaderSize - 4, 4);
    if (Crc32::compute(bytes, kHeaderSize - 4) != headerCrc)
        fail("damaged file header (checksum mismatch)");
    uint16_t header[4];
    std::memcpy(header, bytes + sizeof kMagic, sizeof header);
    const exp::Version version(header[0], header[1], header[2]);
    if (version.getMajor() != Rix::formatVersion().getMajor())
        fail("file version " + version.toString() + " is not supported (this reader handles " +
             std::to_string(Rix::formatVersion().getMajor()) + ".x)");

    Rix rix;
    rix.m_fileVersion = version;
    rix.m_superResolutionFile = (header[3] & kFlagSuperResolution) != 0;
    std::set<std::string> seen;
    bool ended = false;
    size_t pos = kHeaderSize;
    while (!ended) {
        if (pos == size)
            fail(fmt::format("truncated: the end chunk is missing after offset {}", pos));
        if (size - pos < kChunkHeadSize)
            fail(fmt::format("truncated chunk header at offset {}", pos));
        const uint8_t* head = bytes + pos;
        const std::string type = chunkName(head);
        uint32_t length, crc;
        std::memcpy(&length, head + 4, 4);
        std::memcpy(&crc, head + 8, 4);
        const size_t available = size - pos - kChunkHeadSize;
        if (length > available)
            fail(fmt::format("truncated chunk '{}' at offset {}: {} bytes declared, {} present", type, pos,
                             length, available));
        const uint8_t* payload = head + kChunkHeadSize;
        if (Crc32::update(Crc32::update(0, head, 4), payload, length) != crc)
            fail(fmt::format("damaged chunk '{}' at offset {}: checksum mismatch", type, pos));
        if (!seen.insert(type).second)
            fail(fmt::format("damaged chunk '{}' at offset {}: the chunk occurs twice", type, pos));

        Reader r(payload, length);
        try {
            if (type == kRadiometric) {
                expectEncoding(r);
                rix.m_radiometric = r.image<cv::Mat_<uint16_t>>();
                if (rix.m_radiometric.empty())
                    throw ParseError{"empty radiometric image"};
            } else if (type == kPreview) {
                rix.m_preview = r.image<cv::Mat_<cv::Vec3b>>(pictures);
            } else if (type == kVisual) {
                rix.m_visualPreviewFactor = r.scalar<float>();
                rix.m_visualHighResolution = r.scalar<uint8_t>() != 0;
                rix.m_visual = r.image<cv::Mat_<cv::Vec2b>>(pictures);
            } else if (type == kGeneric) {
                exp::MemoryBinary m(payload, length);
                const auto count = m.readCount(8);
                for (uint32_t i = 0; i < count; ++i) {
                    auto key = m.readString();
                    if (auto value =
                            exp::readVariant(m)) // values of types this reader does not know are skipped
                        rix.m_generic.set(key, std::move(value));
                }
                if (m.remaining() != 0)
                    throw ParseError{fmt::format("{} unexpected bytes at the end", m.remaining())};
                r = Reader(payload + length, 0);
            } else if (type == kScaling) {
                rix.m_scalingMax = r.temperature();
                rix.m_scalingMin = r.temperature();
            } else if (type == kEmissivity) {
                rix.m_emissivity = r.scalar<float>();
            } else if (type == kReflected) {
                rix.m_reflected = r.temperature();
            } else if (type == kUuid) {
                r.bytes(rix.m_uuid.data(), rix.m_uuid.size());
            } else if (type == kDateTime) {
                rix.m_dateTime = r.scalar<uint64_t>();
            } else if (type == kMinMax) {
                rix.m_minMax.min = r.scalar<uint16_t>();
                rix.m_minMax.max = r.scalar<uint16_t>();
                rix.m_minMax.minPosition.x = r.scalar<int32_t>();
                rix.m_minMax.minPosition.y = r.scalar<int32_t>();
                rix.m_minMax.maxPosition.x = r.scalar<int32_t>();
                rix.m_minMax.maxPosition.y = r.scalar<int32_t>();
            } else if (type == kSrFrames) {
                expectEncoding(r);
                const auto count = r.scalar<uint32_t>();
                if (count > r.remaining() / 8)
                    throw ParseError{fmt::format("{} frames can not fit in {} bytes", count, r.remaining())};
                for (uint32_t i = 0; i < count; ++i)
                    if (auto frame = r.image<cv::Mat_<uint16_t>>(pictures); pictures)
                        rix.m_srFrames.push_back(std::move(frame));
            } else if (type == kSrImage) {
                expectEncoding(r);
                rix.m_srQuality = r.scalar<float>();
                rix.m_srImage = r.image<cv::Mat_<uint16_t>>();
            } else if (type == kEnd) {
                ended = true;
            } else {
                r = Reader(payload + length, 0); // a chunk of a later version: skipped
            }
            r.expectEnd();
        } catch (const ParseError& e) {
            fail(fmt::format("damaged chunk '{}' at offset {}: {}", type, pos, e.detail));
        } catch (const norda::Exception& e) {
            fail(fmt::format("damaged chunk '{}' at offset {}: {}", type, pos, e.message()));
        } catch (const cv::Exception& e) {
            fail(fmt::format("damaged chunk '{}' at offset {}: {}", type, pos, e.what()));
        }
        pos += kChunkHeadSize + length;
    }
    if (rix.m_radiometric.empty())
        fail("no radiometric image chunk");
    return rix;
}

} // namespace norda::vision
