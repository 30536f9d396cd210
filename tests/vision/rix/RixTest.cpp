#include "nordalib/vision/rix/Rix.h"
#include "nordalib/core/datatypes/MeasPoint.h"
#include "nordalib/core/datatypes/VariantRegistry.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/rix/Crc32.h"
#include "tests/support/Messages.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#ifdef NORDA_HAVE_ZLIB
#include <zlib.h>
#endif

using namespace norda::exp;
using norda::vision::Crc32;
using norda::vision::Rix;
namespace fs = std::filesystem;

namespace {

using Temp = quantity::Temperature<MarkedFloat>;

template <typename M> M randomImage(int rows, int cols, uint64_t seed) {
    M m(rows, cols);
    cv::RNG rng(seed);
    rng.fill(m, cv::RNG::UNIFORM, 0, 256 * (m.elemSize1() == 2 ? 256 : 1));
    return m;
}

// A container with every item set to a value that differs from its default.
Rix fullRix() {
    Rix rix;
    const auto rad = randomImage<cv::Mat_<uint16_t>>(48, 64, 1);
    rix.setRadiometricImage(rad);
    rix.setPreviewImageRgb(randomImage<cv::Mat_<cv::Vec3b>>(48, 64, 2));
    rix.setVisualImageYuv2(randomImage<cv::Mat_<cv::Vec2b>>(30, 40, 3), 1.0f / 12.0f, true);
    rix.setGeneric("Environment.Humidity", makeVariant(quantity::Relation<MarkedFloat>(MarkedFloat(0.47f))));
    rix.setGeneric("MeasPoints.HotSpot.MeasPoint", makeVariant(MeasPoint(3, 4, Temp(MarkedFloat(81.25f)))));
    rix.setGeneric("ActiveLens.Serial", makeVariant(std::string("L25-000001")));
    rix.setGeneric("Palette.Colors", makeVariant(std::vector<unsigned char>{1, 2, 3}));
    rix.setGeneric("Shutter.OffsetFrame", makeVariant(cv::Mat(4, 5, CV_16U, cv::Scalar(77))));
    rix.extractMinMax(rad);
    rix.setScalingMax(Temp(MarkedFloat::withMark(40.5f, MarkedFloat::OverRange)));
    rix.setScalingMin(Temp(MarkedFloat(-12.25f), quantity::TemperatureUnit::Kelvin));
    rix.setEmissivityOriginal(0.93f);
    rix.setReflectedTempOriginal(Temp(MarkedFloat(21.5f)));
    rix.setFileVersion(Version(2, 1, 3));
    rix.setFileUuid(rad);
    rix.setFileDateTime(1763719200123ull);
    rix.addSrFrame({randomImage<cv::Mat_<uint16_t>>(48, 64, 4), randomImage<cv::Mat_<uint16_t>>(48, 64, 5)});
    return rix;
}

// Every item the format carries is equal when the two containers save to the same bytes.
void expectSameItems(const Rix& a, const Rix& b, bool superResolution = false) {
    std::vector<char> x, y;
    a.save(x, superResolution);
    b.save(y, superResolution);
    EXPECT_TRUE(x == y);
}

using norda::test::messageOf;

std::string loadError(const std::vector<char>& bytes, Rix::Content content = Rix::Content::Everything) {
    Rix rix;
    return messageOf([&] { rix.load(bytes.data(), bytes.size(), "test.rix", content); });
}

struct ChunkPos {
    std::string type;
    size_t offset;
    uint32_t length;
};
// Walks the chunk list of a well-formed file (header of 20 bytes, chunks of type, length, CRC).
std::vector<ChunkPos> chunks(const std::vector<char>& bytes) {
    std::vector<ChunkPos> out;
    for (size_t pos = 20; pos + 12 <= bytes.size();) {
        ChunkPos c{std::string(bytes.data() + pos, 4), pos, 0};
        std::memcpy(&c.length, bytes.data() + pos + 4, 4);
        out.push_back(c);
        pos += 12 + c.length;
    }
    return out;
}

void fixChunkCrc(std::vector<char>& bytes, const ChunkPos& c) {
    uint32_t crc =
        Crc32::update(Crc32::update(0, bytes.data() + c.offset, 4), bytes.data() + c.offset + 12, c.length);
    std::memcpy(bytes.data() + c.offset + 8, &crc, 4);
}

} // namespace

// The carry-less multiplication path (where the processor has it), the table path and zlib's crc32
// agree with the bit-by-bit definition at every length around the 16- and 64-byte blocks, from
// every alignment, and over a file-sized buffer; a running checksum continues across pieces.
TEST(Crc32, MatchesTheStandardCheckValueTheBitwiseReferenceAndZlib) {
    EXPECT_EQ(Crc32::compute("123456789", 9), 0xCBF43926u);
    EXPECT_EQ(Crc32::compute("", 0), 0u);
    std::mt19937 gen(5);
    std::vector<uint8_t> data(3 << 20);
    for (auto& b : data)
        b = static_cast<uint8_t>(gen());
    auto expectAll = [&](size_t offset, size_t len) {
        const uint8_t* p = data.data() + offset;
        const uint32_t bitwise = Crc32::reference(p, len);
        EXPECT_EQ(Crc32::compute(p, len), bitwise) << offset << "+" << len;
        EXPECT_EQ(Crc32::updateTable(0, p, len), bitwise) << offset << "+" << len;
#ifdef NORDA_HAVE_ZLIB
        EXPECT_EQ(crc32(0, p, static_cast<uInt>(len)), bitwise) << offset << "+" << len;
#endif
        EXPECT_EQ(Crc32::update(Crc32::compute(p, len / 3), p + len / 3, len - len / 3), bitwise);
    };
    for (size_t offset = 0; offset < 16; offset += 5)
        for (size_t len = 0; len < 300; ++len)
            expectAll(offset, len);
    expectAll(3, data.size() - 3);
}

TEST(Rix, SaveLoadRoundTripKeepsEveryItemBitForBit) {
    Rix original = fullRix();
    std::vector<char> bytes;
    original.save(bytes, false);
    Rix back;
    back.load(bytes);
    expectSameItems(original, back);
    // (Saved bytes alone would not notice an item dropped on both ways.)
    EXPECT_EQ(back.getSrFrames().size(), 2u);
    EXPECT_EQ(back.getGenerics().size(), original.getGenerics().size());
    EXPECT_EQ(back.getScalingMax(), original.getScalingMax());
    EXPECT_EQ(back.getMinMax(), original.getMinMax());
    EXPECT_FALSE(back.isSuperResolutionFile());

    // Through a file: the same bytes, nothing left beside the target.
    norda::test::TempDir dir;
    const std::string path = dir.path().string() + "/IR000001.RIX";
    original.save(path, false);
    Rix fromDisk;
    fromDisk.load(path);
    expectSameItems(original, fromDisk);
    // Loaded without its pictures: every other item the same.
    Rix values;
    values.load(path, Rix::Content::Radiometric);
    EXPECT_TRUE(values.getPreviewImageRgb().empty() && values.getVisualImageYuv2().empty() &&
                values.getSrFrames().empty());
    EXPECT_EQ(cv::norm(values.getRadiometricImage(), original.getRadiometricImage(), cv::NORM_INF), 0.0);
    EXPECT_EQ(values.getGenerics().size(), original.getGenerics().size());
    EXPECT_EQ(values.getMinMax(), original.getMinMax());
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), 1);
    std::ifstream in(path, std::ios::binary);
    std::vector<char> disk((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(disk, bytes);

    // Without super-resolution data the frames stay out of the file.
    original.setSuperResolutionActive(false);
    original.save(bytes, false);
    back.load(bytes);
    EXPECT_TRUE(back.getSrFrames().empty());
}

TEST(Rix, SuperResolutionFileCarriesTheFusedImage) {
    cv::Mat_<uint16_t> scene(60, 80);
    cv::RNG rng(3);
    rng.fill(scene, cv::RNG::UNIFORM, 29000, 31000);
    Rix rix = fullRix();
    ASSERT_GT(rix.calculateSuperResolutionImage({scene, scene, scene, scene, scene}), 0.0f)
        << rix.getSuperResolutionFailure();
    EXPECT_EQ(rix.getSuperResolutionImage().size(), cv::Size(160, 120));
    std::vector<char> bytes;
    rix.save(bytes, true);
    Rix back;
    back.load(bytes);
    EXPECT_TRUE(back.isSuperResolutionFile());
    expectSameItems(back, rix, true);
    EXPECT_TRUE(back.getSrFrames().empty()) << "the raw frames are consumed by the fused image";
}

TEST(Rix, RefusesWhatCanNotBeSaved) {
    Rix rix;
    std::vector<char> bytes;
    EXPECT_THROW(rix.save(bytes, false), norda::Exception) << "no radiometric image";
    rix.setRadiometricImage(randomImage<cv::Mat_<uint16_t>>(4, 4, 1));
    EXPECT_THROW(rix.save(bytes, true), norda::Exception) << "no super-resolution image";
    struct Opaque {
        bool operator==(const Opaque&) const = default;
    };
    EXPECT_NE(messageOf([&] { rix.setGeneric("Some.Key", makeVariant(Opaque{})); }).find("Some.Key"),
              std::string::npos);
    EXPECT_THROW(rix.setFileVersion(Version(3, 0, 0)), norda::Exception);
    EXPECT_THROW(rix.extractMinMax(cv::Mat(4, 4, CV_8U)), norda::Exception);
}

TEST(Rix, DamagedTruncatedOrForeignInputIsReportedNotTrusted) {
    std::vector<char> good;
    fullRix().save(good, false);
    const auto list = chunks(good);
    ASSERT_GE(list.size(), 12u);
    ASSERT_EQ(list.back().type, "IEND");

    // Any truncation is refused with the file's name (the fuzz target tries them all); cut in the
    // middle of each chunk's payload, the chunk is named.
    EXPECT_EQ(loadError(std::vector<char>(good.begin(), good.begin() + 30)).rfind("test.rix: ", 0), 0u);
    for (const auto& c : list)
        if (c.length > 1) {
            const std::vector<char> cut(good.begin(), good.begin() + c.offset + 12 + c.length / 2);
            EXPECT_NE(loadError(cut).find("truncated chunk '" + c.type + "'"), std::string::npos)
                << loadError(cut);
        }

    // A flipped bit anywhere in a chunk is found and the chunk named, also in the pictures a
    // radiometric load does not keep.
    for (const auto& c : list) {
        auto bad = good;
        bad[c.length ? c.offset + 12 + c.length / 2 : c.offset + 8] ^= 0x10; // payload, or the CRC itself
        EXPECT_NE(loadError(bad).find("damaged chunk '" + c.type + "'"), std::string::npos)
            << c.type << ": " << loadError(bad);
        EXPECT_EQ(loadError(bad, Rix::Content::Radiometric), loadError(bad));
    }

    // Foreign data and a damaged header.
    EXPECT_NE(loadError(std::vector<char>(30, 'J')).find("not a radiometric image file"), std::string::npos);
    auto badHeader = good;
    badHeader[9] ^= 1;
    EXPECT_NE(loadError(badHeader).find("damaged file header"), std::string::npos);
    auto nextMajor = good;
    nextMajor[8] = 3;
    const uint32_t crc = Crc32::compute(nextMajor.data(), 16);
    std::memcpy(nextMajor.data() + 16, &crc, 4);
    EXPECT_NE(loadError(nextMajor).find("file version 3.1.3 is not supported"), std::string::npos);

    // An absurd length is bounded by the bytes present: no allocation, a clear message.
    auto hugeLength = good;
    const uint32_t huge = 0xFFFFFFF0u;
    std::memcpy(hugeLength.data() + list[0].offset + 4, &huge, 4);
    EXPECT_NE(loadError(hugeLength).find("truncated chunk 'RADI'"), std::string::npos);
    // Damaged generic entries, checksum made valid: reported, not crashed on.
    const auto meta =
        *std::find_if(list.begin(), list.end(), [](const ChunkPos& c) { return c.type == "META"; });
    auto badMeta = good;
    std::memset(badMeta.data() + meta.offset + 12 + 4, 0xFF, 4); // first key's length
    fixChunkCrc(badMeta, meta);
    EXPECT_NE(loadError(badMeta).find("damaged chunk 'META'"), std::string::npos) << loadError(badMeta);

    // Without the end chunk the file is incomplete.
    const std::vector<char> noEnd(good.begin(), good.begin() + list.back().offset);
    EXPECT_NE(loadError(noEnd).find("end chunk is missing"), std::string::npos);

    // A failed load leaves the container as it was.
    Rix rix = fullRix();
    EXPECT_THROW(rix.load(noEnd, "x"), norda::Exception);
    expectSameItems(rix, fullRix());
}

// A file laid out by hand after docs/rix-format.md: header, a 3 x 2 radiometric image, the
// emissivity, a chunk of a later version (skipped), the end chunk.
TEST(Rix, ReadsAFileLaidOutByHandAndSkipsChunksOfALaterVersion) {
    std::vector<char> file;
    auto put = [&](const void* p, size_t n) { file.insert(file.end(), (const char*)p, (const char*)p + n); };
    auto u32 = [&](uint32_t v) { put(&v, 4); };
    auto chunk = [&](const char* type, std::vector<char> payload) {
        put(type, 4);
        u32(uint32_t(payload.size()));
        u32(Crc32::update(Crc32::update(0, type, 4), payload.data(), payload.size()));
        put(payload.data(), payload.size());
    };
    put("\x8ARIX\r\n\x1A\n"
        "\x02\0\0\0\0\0\0\0",
        16); // version 2.0.0, no flags
    u32(Crc32::compute(file.data(), 16));
    const uint16_t pixels[6] = {29315, 29316, 0, 65535, 37315, 1};
    std::vector<char> radi = {0, 3, 0, 0, 0, 2, 0, 0, 0}; // raw, 3 columns, 2 rows
    radi.insert(radi.end(), (const char*)pixels, (const char*)pixels + sizeof pixels);
    chunk("RADI", radi);
    const float emissivity = 0.5f;
    chunk("EMIS", std::vector<char>((const char*)&emissivity, (const char*)&emissivity + 4));
    chunk("XTRA", {'a', 'b', 'c'});
    chunk("IEND", {});
    Rix rix;
    rix.load(file, "hand.rix");
    EXPECT_EQ(cv::norm(rix.getRadiometricImage(), cv::Mat_<uint16_t>(2, 3, const_cast<uint16_t*>(pixels)),
                       cv::NORM_INF),
              0);
    EXPECT_EQ(rix.getEmissivityOriginal(), 0.5f);
    EXPECT_EQ(rix.getFileVersion().getMajor(), 2);
    EXPECT_TRUE(rix.getPreviewImageRgb().empty());

    // A known chunk twice is damage, not a later version.
    std::vector<char> good;
    fullRix().save(good, false);
    const auto list = chunks(good);
    const auto emis =
        *std::find_if(list.begin(), list.end(), [](const ChunkPos& c) { return c.type == "EMIS"; });
    auto twice = good;
    twice.insert(twice.begin() + list.back().offset, good.begin() + emis.offset,
                 good.begin() + emis.offset + 12 + emis.length);
    EXPECT_NE(loadError(twice).find("the chunk occurs twice"), std::string::npos) << loadError(twice);
}
