// Sniffing, header properties, the decode size guard, and hostile files: every damaged input
// must end in a typed error, never a crash. (Orientation: engine/pipeline/orientation_test.cpp.)
#include "imageio/decode_internal.h"
#include "imageio/image_io.h"
#include "support/test_images.h"

#include <QTemporaryDir>
#include <QtEndian>
#include <functional>
#include <random>

#include <gtest/gtest.h>

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

// A JPEG of the card written by cjpeg, as bytes.
QByteArray cjpeg(const QTemporaryDir& dir, int width, int height) {
    writeFile(dir.filePath(QStringLiteral("in.ppm")), toPNM(card(width, height, false)));
    run("cjpeg -outfile %1/in.jpg %1/in.ppm", dir.path());
    return readFile(dir.filePath(QStringLiteral("in.jpg")));
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
    // The shared limit (its table: RasterLimits in the pipeline tests) reaches a decoder as a
    // typed error.
    EXPECT_EQ(errorOf([] { detail::checkDecodeSize(7071, 7071); }), std::nullopt);
    EXPECT_EQ(errorOf([] { detail::checkDecodeSize(0, 10); }), ImageIOError::corruptFile);
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
    constexpr auto corrupt = ImageIOError::corruptFile, cut = ImageIOError::truncated,
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
            {"half.jpg", jpeg.left(jpeg.size() / 2), intact, cut},
            {"cut.png", png.left(30), corrupt, cut},
            {"half.png", png.left(png.size() / 2), intact, cut},
            {"cut.webp", webp.left(24), corrupt, cut},
            {"half.webp", webp.left(webp.size() / 2), intact, cut},
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
