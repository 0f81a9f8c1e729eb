#include "engine/encoders/png_chunks.h"

#include "encoders/encoding_path_rig.h"
#include "engine/errors.h"

#include <gtest/gtest.h>
#include <zlib.h>
#include <random>

namespace velt {
namespace {

const QByteArray signature("\x89PNG\r\n\x1a\n", 8);

QByteArray randomBytes(int size, unsigned seed) {
    std::mt19937 generator(seed);
    QByteArray bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(generator());
    return bytes;
}

// A chunk with a correct length and CRC (computed by zlib, independently of ours).
QByteArray chunk(const char* type, const QByteArray& data) {
    const QByteArray typeAndData = QByteArray(type) + data;
    const auto be = [](std::uint32_t value) {
        return QByteArray(1, static_cast<char>(value >> 24)) + char(value >> 16) +
               char(value >> 8) + char(value);
    };
    const auto crc = static_cast<std::uint32_t>(
        ::crc32(0, reinterpret_cast<const Bytef*>(typeAndData.constData()), typeAndData.size()));
    return be(static_cast<std::uint32_t>(data.size())) + typeAndData + be(crc);
}

// The chunk types of a PNG in order, read by a walker of the test's own.
QList<QByteArray> chunkTypes(const QByteArray& png) {
    QList<QByteArray> types;
    for (qsizetype at = 8; at + 12 <= png.size();) {
        const auto length =
            static_cast<std::uint32_t>((uchar(png[at]) << 24) | (uchar(png[at + 1]) << 16) |
                                       (uchar(png[at + 2]) << 8) | uchar(png[at + 3]));
        types << png.mid(at + 4, 4);
        at += length + 12;
    }
    return types;
}

QByteArray inflateZlib(const QByteArray& stream, uLongf expectedSize) {
    QByteArray out(static_cast<qsizetype>(expectedSize), '\0');
    uLongf size = expectedSize;
    if (::uncompress(reinterpret_cast<Bytef*>(out.data()), &size,
                     reinterpret_cast<const Bytef*>(stream.constData()), stream.size()) != Z_OK)
        return "inflate failed";
    out.truncate(static_cast<qsizetype>(size));
    return out;
}

const QByteArray ihdr = chunk("IHDR", QByteArray::fromHex("00000001000000010806000000"));
const QByteArray idat = chunk("IDAT", QByteArray::fromHex("789c63f8cfc0f01f0005000201"));
const QByteArray iend = chunk("IEND", {});
const QByteArray taggedPNG = signature + ihdr + chunk("sRGB", QByteArray(1, '\0')) +
                             chunk("gAMA", QByteArray::fromHex("0000b18f")) + idat + iend +
                             "trailing bytes";

TEST(PNGChecksums, KnownValuesAndAgreementWithZlib) {
    EXPECT_EQ(adler32({}), 1u);
    EXPECT_EQ(crc32({}), 0u);
    EXPECT_EQ(crc32("IEND"), 0xAE426082u);
    EXPECT_EQ(crc32("123456789"), 0xCBF43926u);
    EXPECT_EQ(adler32("Wikipedia"), 0x11E60398u);
    // Long runs of 0xFF make both sums wrap many times: reduction must happen per byte.
    for (const QByteArray& data : {randomBytes(100'000, 1), QByteArray(300'000, '\xFF')}) {
        const auto* bytes = reinterpret_cast<const Bytef*>(data.constData());
        EXPECT_EQ(crc32(data), ::crc32(0, bytes, data.size()));
        EXPECT_EQ(adler32(data), ::adler32(1, bytes, data.size()));
    }
}

TEST(PNGChecksums, ZlibStreamsDecodeWithZlib) {
    for (const QByteArray& input : {QByteArray(), QByteArray("a"), randomBytes(1000, 2),
                                    randomBytes(200'000, 3), QByteArray(50'000, 'v')}) {
        const QByteArray stream = zlibCompressedData(input);
        ASSERT_GE(stream.size(), 6);
        EXPECT_EQ(stream.left(2), QByteArray("\x78\x9C"));
        EXPECT_EQ(stream.right(4).toHex(),
                  QByteArray::number(adler32(input), 16).rightJustified(8, '0'));
        EXPECT_EQ(inflateZlib(stream, static_cast<uLongf>(input.size()) + 16), input)
            << "size " << input.size();
    }
}

TEST(PNGICCChunk, LayoutIsExact) {
    const QByteArray profile = testing::fakeProfile();
    const QByteArray chunkBytes = iccpChunk(profile);
    const QByteArray data = chunkBytes.mid(8, chunkBytes.size() - 12);
    EXPECT_EQ(chunk("iCCP", data), chunkBytes);  // length and CRC as zlib computes them
    EXPECT_EQ(data.left(10), QByteArray("VELT ICC\0\0", 10));
    EXPECT_EQ(inflateZlib(data.mid(10), profile.size()), profile);
}

TEST(PNGICCChunk, InsertionReplacesColourChunksRightAfterIHDR) {
    const QByteArray profile = testing::fakeProfile();
    const auto once = pngWithICCProfile(taggedPNG, profile);
    ASSERT_TRUE(once);
    EXPECT_EQ(*once, signature + ihdr + iccpChunk(profile) + idat + iend);  // trailing bytes gone
    const auto twice = pngWithICCProfile(*once, profile);
    ASSERT_TRUE(twice);
    EXPECT_EQ(chunkTypes(*twice), (QList<QByteArray>{"IHDR", "iCCP", "IDAT", "IEND"}));
    const auto other = pngWithICCProfile(signature + ihdr + chunk("cHRM", QByteArray(32, 1)) +
                                             chunk("cICP", QByteArray(4, 1)) + idat + iend,
                                         "P");
    ASSERT_TRUE(other);
    EXPECT_EQ(chunkTypes(*other), (QList<QByteArray>{"IHDR", "iCCP", "IDAT", "IEND"}));
}

TEST(PNGICCChunk, DamagedOrForeignDataIsLeftAlone) {
    const struct {
        const char* name;
        QByteArray data;
    } cases[] = {
        {"not a PNG", QByteArray("GIF89a") + ihdr + iend},
        {"chunk past the end", taggedPNG.left(signature.size() + ihdr.size() + 5)},
        {"length beyond the file", signature + ihdr + QByteArray::fromHex("7fffffff49444154")},
        {"no IHDR", signature + idat + iend},
        {"too short", signature.left(5)},
    };
    for (const auto& test : cases) EXPECT_FALSE(pngWithICCProfile(test.data, "P")) << test.name;
}

TEST(PNGICCChunk, FileIsRewrittenOnlyWithAProfile) {
    testing::PathRig rig;
    const QString path = rig.file("a.png");
    for (const std::optional<QByteArray>& none :
         {std::optional<QByteArray>(), std::optional(QByteArray())}) {
        testing::writeFile(path, taggedPNG);
        attachICCProfileToPNGIfNeeded(path, none);
        EXPECT_EQ(testing::readFile(path), taggedPNG);  // trailing bytes kept
    }
    attachICCProfileToPNGIfNeeded(path, testing::fakeProfile());
    EXPECT_EQ(testing::readFile(path), *pngWithICCProfile(taggedPNG, testing::fakeProfile()));
    EXPECT_THROW(attachICCProfileToPNGIfNeeded(rig.file("missing.png"), "P"), FileSystemError);
}

}  // namespace
}  // namespace velt
