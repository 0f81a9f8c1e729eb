// Sniffing, header-only properties, the decode size guard, and hostile files: every damaged
// input must end in a typed error, never a crash.
#include "decode_test_support.h"
#include "imageio/decode_internal.h"
#include "imageio/image_io.h"

#include <QTemporaryDir>
#include <functional>
#include <limits>
#include <random>

#include <gtest/gtest.h>
#include <png.h>

#include "support/test_environment.h"

namespace velt::imageio {
namespace {

using namespace velt::imageio::decodetest;
using velt::testing::readFile;
using velt::testing::writeFile;

QByteArray ftyp(const QByteArray& major, const QList<QByteArray>& compatible) {
    QByteArray box = major + QByteArray(4, '\0');
    for (const QByteArray& brand : compatible) box += brand;
    const auto size = static_cast<char>(box.size() + 8);
    return QByteArray("\0\0\0", 3) + size + "ftyp" + box;
}

TEST(Sniff, MagicBytesAndBrandsDecideTheFormat) {
    const std::vector<std::pair<QByteArray, std::optional<ImageFormat>>> cases = {
        {QByteArray("\xFF\xD8\xFF\xE0\0\x10JFIF", 10), ImageFormat::jpeg},
        {QByteArray("\x89PNG\r\n\x1A\n\0\0\0\x0DIHDR", 16), ImageFormat::png},
        {QByteArray("RIFF\x10\0\0\0WEBPVP8 ", 16), ImageFormat::webp},
        {QByteArray("RIFF\x10\0\0\0WAVEfmt ", 16), std::nullopt},
        {ftyp("heic", {"mif1", "heic"}), ImageFormat::heic},
        {ftyp("heix", {}), ImageFormat::heic},
        {ftyp("avif", {"mif1", "miaf"}), ImageFormat::avif},
        {ftyp("avis", {}), ImageFormat::avif},
        {ftyp("mif1", {"mif1", "avif", "miaf"}), ImageFormat::avif},
        {ftyp("mif1", {"mif1", "heic"}), ImageFormat::heic},
        {ftyp("msf1", {}), ImageFormat::heic},
        {ftyp("isom", {"isom", "mp42"}), std::nullopt},
        // A box size far beyond the bytes at hand: only the bytes present are read.
        {QByteArray("\xFF\0\0\x20"
                    "ftypmif1\0\0\0\0"
                    "mif1avif",
                    24),
         ImageFormat::avif},
        {QByteArray("GIF89a"), std::nullopt},
        {QByteArray(), std::nullopt},
    };
    for (const auto& [bytes, expected] : cases) {
        SCOPED_TRACE(bytes.toHex().toStdString());
        EXPECT_EQ(sniffFormat(bytes), expected);
    }
}

struct Fixture {
    QTemporaryDir dir;
    QString file(const QString& name) const { return dir.filePath(name); }

    QString cjpeg(const QString& name, int width, int height) {
        writeFile(file(name + QStringLiteral(".ppm")), ppm(card(width, height, false)));
        runTool(QStringLiteral("cjpeg"),
                {QStringLiteral("-outfile"), file(name), file(name + QStringLiteral(".ppm"))});
        return file(name);
    }
    QString cwebp(const QString& name, const QStringList& options) {
        writeFile(file(name + QStringLiteral(".ppm")), ppm(card(67, 45, false)));
        runTool(QStringLiteral("cwebp"), QStringList{QStringLiteral("-quiet")}
                                             << options << file(name + QStringLiteral(".ppm"))
                                             << QStringLiteral("-o") << file(name));
        return file(name);
    }
    QString heifEnc(const QString& name) {
        const QString input = png(name + QStringLiteral(".png"), {});
        runTool(QStringLiteral("heif-enc"), {QStringLiteral("-o"), file(name), input});
        return file(name);
    }
    QString png(const QString& name, const QByteArray& exif) {
        PngRecipe recipe;
        recipe.width = 67;
        recipe.height = 45;
        recipe.colorType = PNG_COLOR_TYPE_GRAY;
        recipe.rows.assign(45, std::vector<std::uint8_t>(67, 90));
        recipe.exif = exif;
        writeFile(file(name), encodePng(recipe));
        return file(name);
    }
};

TEST(Properties, HeadersGiveFormatSizeAndOrientation) {
    Fixture f;
    const QString jpeg = f.cjpeg(QStringLiteral("plain.jpg"), 67, 45);
    const QByteArray jpegBytes = readFile(jpeg);
    writeFile(f.file(QStringLiteral("big-endian.jpg")), jpegWithOrientation(jpegBytes, 6, true));
    writeFile(f.file(QStringLiteral("little-endian.jpg")),
              jpegWithOrientation(jpegBytes, 3, false));
    writeFile(f.file(QStringLiteral("out-of-range.jpg")), jpegWithOrientation(jpegBytes, 9, false));
    writeFile(f.file(QStringLiteral("jpeg-named.png")), jpegBytes);
    // Stray zero bytes after the 16-byte JFIF segment: tolerated, as libjpeg tolerates them.
    writeFile(f.file(QStringLiteral("stray-bytes.jpg")),
              QByteArray(jpegBytes).insert(20, QByteArray(3, '\0')));
    f.png(QStringLiteral("plain.png"), {});
    f.png(QStringLiteral("exif.png"), tiffWithOrientation(8, false));
    f.cwebp(QStringLiteral("lossy.webp"), {});
    const QString lossless =
        f.cwebp(QStringLiteral("lossless.webp"), {QStringLiteral("-lossless")});
    writeFile(f.file(QStringLiteral("exif.tiff")), tiffWithOrientation(5, true));
    runTool(QStringLiteral("webpmux"),
            {QStringLiteral("-set"), QStringLiteral("exif"), f.file(QStringLiteral("exif.tiff")),
             lossless, QStringLiteral("-o"), f.file(QStringLiteral("exif.webp"))});

    struct Case {
        const char* file;
        ImageFormat format;
        const char* typeIdentifier;
        std::optional<int> orientation;
    };
    const std::vector<Case> cases = {
        {"plain.jpg", ImageFormat::jpeg, "public.jpeg", std::nullopt},
        {"big-endian.jpg", ImageFormat::jpeg, "public.jpeg", 6},
        {"little-endian.jpg", ImageFormat::jpeg, "public.jpeg", 3},
        {"out-of-range.jpg", ImageFormat::jpeg, "public.jpeg", std::nullopt},
        {"jpeg-named.png", ImageFormat::jpeg, "public.jpeg", std::nullopt},
        {"stray-bytes.jpg", ImageFormat::jpeg, "public.jpeg", std::nullopt},
        {"plain.png", ImageFormat::png, "public.png", std::nullopt},
        {"exif.png", ImageFormat::png, "public.png", 8},
        {"lossy.webp", ImageFormat::webp, "org.webmproject.webp", std::nullopt},
        {"lossless.webp", ImageFormat::webp, "org.webmproject.webp", std::nullopt},
        {"exif.webp", ImageFormat::webp, "org.webmproject.webp", 5},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        const ImageProperties properties = readProperties(f.file(QLatin1String(c.file)));
        EXPECT_EQ(properties.format, c.format);
        EXPECT_EQ(properties.typeIdentifier, QLatin1String(c.typeIdentifier));
        EXPECT_EQ(properties.width, 67);
        EXPECT_EQ(properties.height, 45);
        EXPECT_EQ(properties.orientation, c.orientation);
        EXPECT_EQ(decodeFirstFrame(f.file(QLatin1String(c.file))).width, 67);
    }
}

std::uint32_t crc(const QByteArray& bytes) {
    std::uint32_t value = 0xFFFFFFFFu;
    for (char byte : bytes) {
        value ^= static_cast<std::uint8_t>(byte);
        for (int k = 0; k < 8; ++k) value = (value & 1) ? 0xEDB88320u ^ (value >> 1) : value >> 1;
    }
    return ~value;
}

QByteArray bigEndian32(std::uint32_t v) {
    const char bytes[] = {char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
    return QByteArray(bytes, 4);
}

std::optional<ImageIOError::Code> errorOf(const std::function<void()>& call,
                                          QString* message = nullptr) {
    try {
        call();
    } catch (const ImageIOError& error) {
        if (message) *message = QString::fromStdString(error.what());
        return error.code();
    }
    return std::nullopt;
}

TEST(Properties, DeclaredSizesBeyondTheLimitsAreRefusedBeforeDecoding) {
    Fixture f;
    // A valid IHDR (with its CRC) for 100000×100000 RGBA, then nothing.
    const QByteArray ihdr =
        "IHDR" + bigEndian32(100000) + bigEndian32(100000) + QByteArray("\x08\x06\0\0\0", 5);
    writeFile(f.file(QStringLiteral("huge.png")),
              "\x89PNG\r\n\x1A\n" + bigEndian32(13) + ihdr + bigEndian32(crc(ihdr)));
    // A real JPEG whose frame header claims 60000×60000.
    QByteArray jpeg = readFile(f.cjpeg(QStringLiteral("small.jpg"), 16, 16));
    const qsizetype frame = jpeg.indexOf("\xFF\xC0");
    ASSERT_GT(frame, 0);
    jpeg.replace(frame + 5, 4, QByteArray("\xEA\x60\xEA\x60", 4));
    writeFile(f.file(QStringLiteral("huge.jpg")), jpeg);

    const std::vector<std::pair<const char*, std::int64_t>> cases = {{"huge.png", 100000},
                                                                     {"huge.jpg", 60000}};
    for (const auto& [name, side] : cases) {
        SCOPED_TRACE(name);
        const QString path = f.file(QLatin1String(name));
        const ImageProperties properties = readProperties(path);
        EXPECT_EQ(properties.width, side);
        EXPECT_EQ(properties.height, side);
        QString message;
        EXPECT_EQ(errorOf([&] { detail::checkDecodeSize(properties.width, properties.height); }),
                  ImageIOError::tooLarge);
        EXPECT_EQ(errorOf([&] { decodeFirstFrame(path); }, &message), ImageIOError::tooLarge);
        EXPECT_EQ(
            message,
            QStringLiteral("The image is too large to process safely (%1\u00D7%1).").arg(side));
    }
}

TEST(Properties, SizeGuardBoundaries) {
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    const std::vector<std::tuple<std::int64_t, std::int64_t, std::optional<ImageIOError::Code>>>
        cases = {
            {7071, 7071, std::nullopt},           {50'000'000, 1, std::nullopt},
            {7072, 7071, ImageIOError::tooLarge}, {50'000'001, 1, ImageIOError::tooLarge},
            {most, 2, ImageIOError::tooLarge},    {most / 2, 3, ImageIOError::tooLarge},
            {0, 10, ImageIOError::corruptFile},   {10, -1, ImageIOError::corruptFile},
        };
    for (const auto& [width, height, expected] : cases) {
        SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
        EXPECT_EQ(errorOf([&] { detail::checkDecodeSize(width, height); }), expected);
    }
}

TEST(Properties, HostileFilesGiveTypedErrors) {
    Fixture f;
    const QByteArray jpeg = readFile(f.cjpeg(QStringLiteral("good.jpg"), 300, 200));
    const QByteArray png = readFile(f.png(QStringLiteral("good.png"), {}));
    const QByteArray webp = readFile(f.cwebp(QStringLiteral("good.webp"), {}));
    const QByteArray heic = readFile(f.heifEnc(QStringLiteral("good.heic")));
    std::mt19937 random(1234);
    QByteArray noise(4096, '\0');
    for (char& byte : noise) byte = static_cast<char>(random());
    QByteArray damagedSegment = jpeg;
    damagedSegment[5] = '\x01';  // the first segment after SOI claims a length of 1

    constexpr auto corrupt = ImageIOError::corruptFile;
    struct Case {
        const char* name;
        QByteArray bytes;
        std::optional<ImageIOError::Code> properties;  // nothing: the headers are intact
        ImageIOError::Code decode;
    };
    const std::vector<Case> cases = {
        {"empty.jpg", {}, corrupt, corrupt},
        {"noise.jpg", noise, corrupt, corrupt},
        {"noise.png", noise, corrupt, corrupt},
        {"noise.webp", noise, corrupt, corrupt},
        {"noise.heic", noise, corrupt, corrupt},
        {"noise.avif", noise, corrupt, corrupt},
        {"noise.txt", noise, ImageIOError::unsupportedFormat, ImageIOError::unsupportedFormat},
        {"damaged-segment.jpg", damagedSegment, corrupt, corrupt},
        {"header-cut.jpg", jpeg.left(20), corrupt, corrupt},
        {"half.jpg", jpeg.left(jpeg.size() / 2), std::nullopt, corrupt},
        {"header-cut.png", png.left(30), corrupt, corrupt},
        {"half.png", png.left(png.size() / 2), std::nullopt, corrupt},
        {"header-cut.webp", webp.left(24), corrupt, corrupt},
        {"half.webp", webp.left(webp.size() / 2), std::nullopt, corrupt},
        {"header-cut.heic", heic.left(40), corrupt, corrupt},
        // libheif checks every top-level box against the file's end, the image data's too.
        {"half.heic", heic.left(heic.size() / 2), corrupt, corrupt},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const QString path = f.file(QLatin1String(c.name));
        writeFile(path, c.bytes);
        EXPECT_EQ(errorOf([&] { readProperties(path); }), c.properties);
        EXPECT_EQ(errorOf([&] { decodeFirstFrame(path); }), c.decode);
    }
}

}  // namespace
}  // namespace velt::imageio
