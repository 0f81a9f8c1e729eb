// JPEG output checked with djpeg (an independent decoder) and by reading the markers.
#include "encode_test_support.h"
#include "imageio/image_io.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include "support/test_environment.h"

namespace velt::imageio {
namespace {

using namespace velt::imageio::testing;

TEST(EncodeJPEG, DecodesCloseToTheSourceAtEachQuality) {
    struct Case {
        int quality;
        bool alpha;  // ignored by the encoder: RGB must still come through
        double minimumPSNR;
    };
    // libjpeg-turbo 2.1.5 reaches 33.5, 31.9, 29.9, 31.9 and 22.2 dB: the card's hard colour edges
    // cap it through 4:2:0 chroma. Thresholds leave about 2 dB for other codec versions.
    const std::vector<Case> cases = {
        {95, false, 31.5}, {75, false, 30}, {30, false, 28}, {75, true, 30}, {0, false, 20}};
    QTemporaryDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.quality);
        const Bitmap source = syntheticBitmap(203, 117, c.alpha);  // odd sizes: partial MCUs
        const QString path = dir.filePath(QStringLiteral("q%1.jpg").arg(c.quality));
        encodeImage(source, ImageFormat::jpeg, c.quality, path);
        const ProcessResult decoded =
            runProcess(QStringLiteral("djpeg"), {QStringLiteral("-ppm"), path});
        ASSERT_EQ(decoded.exitCode, 0);
        const std::optional<Bitmap> pixels = readPPM(decoded.output);
        ASSERT_TRUE(pixels);
        EXPECT_GT(psnr(source, *pixels, false), c.minimumPSNR);
        const QByteArray bytes = velt::testing::readFile(path);
        EXPECT_EQ(jpegLumaSampling(bytes), 0x22);  // 4:2:0
    }
}

TEST(EncodeJPEG, HigherQualityGivesLargerFiles) {
    QTemporaryDir dir;
    const Bitmap source = syntheticBitmap(160, 120, false);
    qint64 previous = 0;
    for (const int quality : {10, 50, 90, 100}) {
        const QString path = dir.filePath(QStringLiteral("%1.jpg").arg(quality));
        encodeImage(source, ImageFormat::jpeg, quality, path);
        const qint64 size = QFileInfo(path).size();
        EXPECT_GT(size, previous) << quality;
        previous = size;
    }
}
}  // namespace
}  // namespace velt::imageio
