// Encoder output read back by independent decoders (djpeg, pngcheck + libpng, heif-convert),
// embedded profiles, and failures that must leave nothing behind.
#include "imageio/image_io.h"
#include "support/test_images.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include "support/test_environment.h"

namespace velt::imageio {
namespace {

using namespace velt::testing;

// Debian's libheif is built with x265 and aom, so both HEIF formats must be writable here.
TEST(Encode, WritableTypeIdentifiers) {
    EXPECT_EQ(writableTypeIdentifiers(),
              (QStringList{QStringLiteral("public.jpeg"), QStringLiteral("public.png"),
                           QStringLiteral("public.heic"), QStringLiteral("public.avif")}));
}

// Read back by independent decoders: pixels close to the source (lossless for PNG), alpha only
// where the format keeps it, and an ICC profile only for a non-sRGB space.
TEST(Encode, IndependentDecodersReadItBack) {
    const QByteArray p3 = displayP3Profile();
    const std::vector<ColorSpace> spaces = {sRGBColorSpace(), colorSpaceFromICC(p3),
                                            colorSpaceFromICC(srgbProfile())};
    const auto jpeg = ImageFormat::jpeg, png = ImageFormat::png, heic = ImageFormat::heic,
               avif = ImageFormat::avif;
    // Format, alpha, quality, colour space (index), lowest PSNR. libjpeg-turbo 2.1.5 reaches
    // 33.5/29.9/31.9/22.2 dB and libheif 1.15 33.8/37.0/32.9 (HEIC) and 33.7/36.8/31.3 (AVIF):
    // 4:2:0 chroma against the card's hard edges; the thresholds leave about 2 dB.
    const std::vector<std::tuple<ImageFormat, bool, int, int, double>> cases = {
        {jpeg, 0, 95, 1, 31.5}, {jpeg, 0, 30, 2, 28}, {jpeg, 1, 75, 0, 30}, {jpeg, 0, 0, 0, 20},
        {png, 0, 0, 1, 99},     {png, 1, 50, 2, 99},  {heic, 0, 90, 1, 31}, {heic, 1, 90, 2, 31},
        {heic, 0, 40, 0, 30},   {avif, 0, 90, 1, 31}, {avif, 1, 90, 2, 31}, {avif, 0, 40, 0, 28.5},
    };
    QTemporaryDir dir;
    for (const auto& [format, alpha, quality, space, minimumPSNR] : cases) {
        const QString path = dir.filePath(
            QStringLiteral("%1-%2-%3.").arg(alpha).arg(quality).arg(space) + fileExtension(format));
        SCOPED_TRACE(path.toStdString());
        Bitmap source = card(203, 117, alpha);  // odd sizes: partial blocks
        source.colorSpace = spaces[space];
        encodeImage(source, format, quality, path);
        QByteArray icc;
        const std::optional<Bitmap> decoded = decodeIndependently(path, &icc);
        ASSERT_TRUE(decoded);
        const bool keepsAlpha = alpha && format != jpeg;
        EXPECT_EQ(hasAlphaChannel(decoded->alphaInfo), keepsAlpha);
        EXPECT_GE(psnr(source, *decoded, keepsAlpha), minimumPSNR);  // 0 when sizes differ
        EXPECT_EQ(icc, space == 1 ? p3 : QByteArray());
    }
}

TEST(Encode, FailuresThrowAndLeaveNothing) {
    QTemporaryDir dir;
    const Bitmap good = card(32, 24, false);
    Bitmap shortPixels = good;
    shortPixels.rgba.resize(shortPixels.rgba.size() - 4);
    const QString taken = dir.filePath(QStringLiteral("taken.png"));  // a folder in the way
    ASSERT_TRUE(QDir().mkdir(taken));
    const std::vector<std::tuple<Bitmap, ImageFormat, QString, ImageIOError::Code>> cases = {
        {good, ImageFormat::webp, QStringLiteral("a.webp"), ImageIOError::unsupportedFormat},
        {good, ImageFormat::jpeg, QStringLiteral("missing/a.jpg"), ImageIOError::writeFailed},
        {good, ImageFormat::heic, QStringLiteral("missing/a.heic"), ImageIOError::writeFailed},
        {good, ImageFormat::png, QString(300, QLatin1Char('n')), ImageIOError::writeFailed},
        {good, ImageFormat::png, QStringLiteral("taken.png"), ImageIOError::writeFailed},
        {shortPixels, ImageFormat::png, QStringLiteral("s.png"), ImageIOError::writeFailed},
        {Bitmap{}, ImageFormat::jpeg, QStringLiteral("e.jpg"), ImageIOError::writeFailed},
    };
    for (const auto& [bitmap, format, name, expected] : cases) {
        SCOPED_TRACE(name.left(20).toStdString());
        EXPECT_EQ(errorOf([&] { encodeImage(bitmap, format, 80, dir.filePath(name)); }), expected);
        // No partial file, no temporary, and the folder in the way is still a folder.
        EXPECT_EQ(
            QDir(dir.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::Hidden),
            QStringList{QStringLiteral("taken.png")});
        EXPECT_TRUE(QDir(taken).isEmpty());
    }
}

}  // namespace
}  // namespace velt::imageio
