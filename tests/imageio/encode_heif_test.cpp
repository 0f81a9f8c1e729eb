// HEIC and AVIF output decoded by heif-convert (an independent process) to PNG and compared.
#include "encode_test_support.h"
#include "imageio/image_io.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace velt::imageio {
namespace {

using namespace velt::imageio::testing;

// Debian's libheif is built with x265 and aom, so both formats must be writable here.
TEST(WritableTypeIdentifiers, ListsJPEGPNGAndTheHEIFFormatsWithEncoders) {
    const QStringList identifiers = writableTypeIdentifiers();
    for (const char* identifier : {"public.jpeg", "public.png", "public.heic", "public.avif"}) {
        EXPECT_TRUE(identifiers.contains(QString::fromUtf8(identifier))) << identifier;
    }
    EXPECT_FALSE(identifiers.contains(QStringLiteral("org.webmproject.webp")));
}

TEST(EncodeHEIF, DecodesCloseToTheSourceAndKeepsAlpha) {
    struct Case {
        ImageFormat format;
        bool alpha;
        int quality;
        // libheif 1.15 reaches 33.0/34.3/32.2 dB (HEIC) and 32.9/34.2/30.6 dB (AVIF) in table
        // order (4:2:0 chroma limits it on this card); thresholds leave about 2 dB.
        double minimumPSNR;
    };
    const std::vector<Case> cases = {
        {ImageFormat::heic, false, 90, 31}, {ImageFormat::heic, true, 90, 31},
        {ImageFormat::heic, false, 40, 30}, {ImageFormat::avif, false, 90, 31},
        {ImageFormat::avif, true, 90, 31},  {ImageFormat::avif, false, 40, 28.5},
    };
    QTemporaryDir dir;
    int index = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << fileExtension(c.format).toStdString() << " alpha "
                                          << c.alpha << " q" << c.quality);
        const Bitmap source = syntheticBitmap(150, 100, c.alpha);
        const QString path =
            dir.filePath(QStringLiteral("%1.").arg(index++) + fileExtension(c.format));
        encodeImage(source, c.format, c.quality, path);
        const std::optional<PngContents> decoded = decodeWithHeifConvert(path);
        ASSERT_TRUE(decoded);
        EXPECT_EQ(hasAlphaChannel(decoded->bitmap.alphaInfo), c.alpha);
        // An opaque PNG reads back with A = 255, as the opaque source has.
        EXPECT_GT(psnr(source, decoded->bitmap, c.alpha), c.minimumPSNR);
        if (c.alpha) {
            EXPECT_LE(decoded->bitmap.pixel(2, 50)[3], 8);  // transparent quarter stays so
            EXPECT_NEAR(decoded->bitmap.pixel(50, 50)[3], 128, 8);
        }
    }
}
}  // namespace
}  // namespace velt::imageio
