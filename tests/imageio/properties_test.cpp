// Sniffing, header properties and EXIF orientation, the decode size guard, and hostile files:
// every damaged input must end in a typed error, never a crash.
#include "imageio/decode_internal.h"
#include "imageio/image_io.h"
#include "support/test_images.h"

#include <QTemporaryDir>
#include <QtEndian>
#include <functional>
#include <random>

#include <gtest/gtest.h>
#include <png.h>

#include "support/test_environment.h"

namespace velt::imageio {
namespace {

using namespace velt::testing;
using velt::testing::readFile;
using velt::testing::writeFile;

QByteArray be32(quint32 value) {
    QByteArray bytes(4, '\0');
    qToBigEndian(value, bytes.data());
    return bytes;
}

// A TIFF whose IFD0 holds an unrelated tag, then the orientation.
QByteArray exifTiff(int orientation, bool bigEndian = true) {
    QByteArray t = bigEndian ? "MM" : "II";
    const auto put = [&](quint32 v, int bytes) {
        for (int i = 0; i < bytes; ++i) t += char(v >> 8 * (bigEndian ? bytes - 1 - i : i));
    };
    put(42, 2), put(8, 4), put(2, 2);
    put(0x010F, 2), put(2, 2), put(4, 4), t += QByteArray("ACM", 4);
    put(0x0112, 2), put(3, 2), put(1, 4), put(orientation, 2), put(0, 2), put(0, 4);
    return t;
}

// A JPEG of the card written by cjpeg, as bytes.
QByteArray cjpeg(const QTemporaryDir& dir, int width, int height) {
    writeFile(dir.filePath(QStringLiteral("in.ppm")), toPNM(card(width, height, false)));
    run("cjpeg -outfile %1/in.jpg %1/in.ppm", dir.path());
    return readFile(dir.filePath(QStringLiteral("in.jpg")));
}

TEST(Properties, ExifOrientationTurnsJpegPngAndWebPUpright) {
    QTemporaryDir dir;
    const QByteArray jpeg = cjpeg(dir, 64, 32);
    const auto app1 = [&](const QByteArray& tiff) {
        return jpeg.left(2) + "\xFF\xE1" + char(0) + char(tiff.size() + 8) +
               QByteArray("Exif\0\0", 6) + tiff + jpeg.mid(2);
    };
    writeFile(dir.filePath(QStringLiteral("6.jpg")), app1(exifTiff(6)));
    writeFile(dir.filePath(QStringLiteral("3.jpg")), app1(exifTiff(3, false)));
    writeFile(dir.filePath(QStringLiteral("9.jpg")), app1(exifTiff(9)));
    PngRecipe png(64, 32, PNG_COLOR_TYPE_GRAY, 8);
    png.rows.assign(32, std::vector<std::uint8_t>(64, 90));
    png.exif = exifTiff(8);
    writeFile(dir.filePath(QStringLiteral("8.png")), encodePng(png));
    writeFile(dir.filePath(QStringLiteral("exif")), exifTiff(5));
    run("cwebp -quiet %1/in.ppm -o %1/in.webp", dir.path());
    run("webpmux -set exif %1/exif %1/in.webp -o %1/5.webp", dir.path());
    const std::vector<std::tuple<const char*, const char*, std::optional<int>>> cases = {
        {"in.jpg", "public.jpeg", std::nullopt},
        {"6.jpg", "public.jpeg", 6},
        {"3.jpg", "public.jpeg", 3},
        {"9.jpg", "public.jpeg", std::nullopt},
        {"8.png", "public.png", 8},
        {"5.webp", "org.webmproject.webp", 5},
    };
    for (const auto& [name, type, orientation] : cases) {
        SCOPED_TRACE(name);
        const ImageProperties properties = readProperties(dir.filePath(QLatin1String(name)));
        EXPECT_EQ(properties.typeIdentifier, QLatin1String(type));
        EXPECT_EQ(properties.width, 64);  // as stored
        EXPECT_EQ(properties.height, 32);
        EXPECT_EQ(properties.orientation, orientation);
    }
}

TEST(Properties, ApplyOrientationForEachValue) {
    // Each letter is a pixel with distinct R, G, B and A bytes.
    const auto fromRows = [](const std::vector<std::string>& rows) {
        Bitmap bitmap{int(rows[0].size()), int(rows.size()), {}, AlphaInfo::last, {}};
        for (const std::string& row : rows) {
            for (const char l : row)
                bitmap.rgba.insert(bitmap.rgba.end(), {std::uint8_t(l), std::uint8_t(l * 2),
                                                       std::uint8_t(l + 7), std::uint8_t(l + 100)});
        }
        return bitmap;
    };
    const std::vector<std::pair<int, std::vector<std::string>>> cases = {
        {0, {"abc", "def"}},     {1, {"abc", "def"}},     {2, {"cba", "fed"}},
        {3, {"fed", "cba"}},     {4, {"def", "abc"}},     {5, {"ad", "be", "cf"}},
        {6, {"da", "eb", "fc"}}, {7, {"fc", "eb", "da"}}, {8, {"cf", "be", "ad"}},
        {9, {"abc", "def"}},
    };
    for (const auto& [orientation, rows] : cases) {
        const Bitmap upright = applyOrientation(fromRows({"abc", "def"}), orientation);
        const Bitmap expected = fromRows(rows);
        EXPECT_EQ(std::tie(upright.width, upright.height, upright.rgba, upright.alphaInfo),
                  std::tie(expected.width, expected.height, expected.rgba, expected.alphaInfo))
            << orientation;
    }
}

TEST(Properties, DeclaredSizesBeyondTheLimitsAreRefusedBeforeDecoding) {
    QTemporaryDir dir;
    // A valid IHDR (with its CRC) for 100000×100000 RGBA, then nothing.
    const QByteArray ihdr = "IHDR" + be32(100000) + be32(100000) + QByteArray("\x08\x06\0\0\0", 5);
    quint32 crc = 0xFFFFFFFFu;
    for (const char byte : ihdr) {
        crc ^= std::uint8_t(byte);
        for (int k = 0; k < 8; ++k) crc = (crc & 1) ? 0xEDB88320u ^ (crc >> 1) : crc >> 1;
    }
    writeFile(dir.filePath(QStringLiteral("huge.png")),
              "\x89PNG\r\n\x1A\n" + be32(13) + ihdr + be32(~crc));
    // A real JPEG whose frame header claims 60000×60000.
    QByteArray jpeg = cjpeg(dir, 16, 16);
    jpeg.replace(jpeg.indexOf("\xFF\xC0") + 5, 4, QByteArray("\xEA\x60\xEA\x60", 4));
    writeFile(dir.filePath(QStringLiteral("huge.jpg")), jpeg);
    for (const auto& [name, side] : {std::pair{"huge.png", 100000}, std::pair{"huge.jpg", 60000}}) {
        SCOPED_TRACE(name);
        const QString path = dir.filePath(QLatin1String(name));
        const ImageProperties properties = readProperties(path);
        EXPECT_EQ(std::pair(properties.width, properties.height),
                  std::pair(std::int64_t(side), std::int64_t(side)));
        QString message;
        EXPECT_EQ(errorOf([&] { decodeFirstFrame(path); }, &message), ImageIOError::tooLarge);
        EXPECT_EQ(
            message,
            QStringLiteral("The image is too large to process safely (%1\u00D7%1).").arg(side));
    }
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    const std::vector<std::tuple<std::int64_t, std::int64_t, std::optional<ImageIOError::Code>>>
        cases = {
            {7071, 7071, std::nullopt},           {50'000'000, 1, std::nullopt},
            {7072, 7071, ImageIOError::tooLarge}, {50'000'001, 1, ImageIOError::tooLarge},
            {most, 2, ImageIOError::tooLarge},    {most / 2, 3, ImageIOError::tooLarge},
            {0, 10, ImageIOError::corruptFile},   {10, -1, ImageIOError::corruptFile},
        };
    for (const auto& [width, height, expected] : cases)
        EXPECT_EQ(errorOf([&] { detail::checkDecodeSize(width, height); }), expected)
            << width << "x" << height;
}

TEST(Properties, HostileFilesGiveTypedErrors) {
    QTemporaryDir dir;
    const QByteArray jpeg = cjpeg(dir, 300, 200);
    writeFile(dir.filePath(QStringLiteral("good.png")), pngOf(card(64, 48, true), 8));
    run("cwebp -quiet %1/good.png -o %1/good.webp", dir.path());
    run("heif-enc -o %1/good.heic %1/good.png", dir.path());
    const auto good = [&](const char* name) { return readFile(dir.filePath(QLatin1String(name))); };
    const QByteArray png = good("good.png"), webp = good("good.webp"), heic = good("good.heic");
    std::mt19937 random(1234);
    QByteArray noise(4096, '\0');
    for (char& byte : noise) byte = static_cast<char>(random());
    constexpr auto corrupt = ImageIOError::corruptFile,
                   unsupported = ImageIOError::unsupportedFormat;
    const std::optional<ImageIOError::Code> intact;  // the headers are whole; the pixels are not
    const std::vector<
        std::tuple<const char*, QByteArray, std::optional<ImageIOError::Code>, ImageIOError::Code>>
        cases = {
            {"empty.jpg", {}, corrupt, corrupt},
            {"noise.jpg", noise, corrupt, corrupt},
            {"noise.png", noise, corrupt, corrupt},
            {"noise.webp", noise, corrupt, corrupt},
            {"noise.heic", noise, corrupt, corrupt},
            {"noise.txt", noise, unsupported, unsupported},
            {"bad-segment.jpg", jpeg.left(4) + '\x01' + jpeg.mid(5), corrupt, corrupt},  // length 1
            {"cut.jpg", jpeg.left(20), corrupt, corrupt},
            {"half.jpg", jpeg.left(jpeg.size() / 2), intact, corrupt},
            {"cut.png", png.left(30), corrupt, corrupt},
            {"half.png", png.left(png.size() / 2), intact, corrupt},
            {"cut.webp", webp.left(24), corrupt, corrupt},
            {"half.webp", webp.left(webp.size() / 2), intact, corrupt},
            {"cut.heic", heic.left(40), corrupt, corrupt},
            {"half.heic", heic.left(heic.size() / 2), corrupt, corrupt},  // libheif checks box ends
        };
    for (const auto& [name, bytes, properties, decode] : cases) {
        SCOPED_TRACE(name);
        const QString path = dir.filePath(QLatin1String(name));
        writeFile(path, bytes);
        EXPECT_EQ(errorOf([&] { readProperties(path); }), properties);
        EXPECT_EQ(errorOf([&] { decodeFirstFrame(path); }), decode);
    }
}

}  // namespace
}  // namespace velt::imageio
