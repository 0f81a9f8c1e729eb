// PNG output checked with pngcheck and read back with libpng: lossless, alpha, iCCP.
#include "encode_test_support.h"
#include "imageio/image_io.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace velt::imageio {
namespace {

using namespace velt::imageio::testing;

TEST(EncodePNG, LosslessWithAlphaOnlyWhenTheBitmapHasIt) {
    struct Case {
        const char* label;
        AlphaInfo alphaInfo;
        bool pngAlpha;
    };
    const std::vector<Case> cases = {
        {"opaque", AlphaInfo::noneSkipLast, false},
        {"straight alpha", AlphaInfo::last, true},
        {"premultiplied alpha", AlphaInfo::premultipliedLast, true},
        {"none", AlphaInfo::none, false},
    };
    QTemporaryDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        Bitmap source = syntheticBitmap(97, 61, c.pngAlpha);
        source.alphaInfo = c.alphaInfo;
        const QString path = dir.filePath(QString::fromUtf8(c.label) + QStringLiteral(".png"));
        encodeImage(source, ImageFormat::png, 0, path);  // the quality is ignored
        EXPECT_EQ(runProcess(QStringLiteral("pngcheck"), {QStringLiteral("-q"), path}).exitCode, 0);
        const std::optional<PngContents> read = readPNG(path);
        ASSERT_TRUE(read);
        EXPECT_EQ(hasAlphaChannel(read->bitmap.alphaInfo), c.pngAlpha);
        EXPECT_EQ(read->bitmap.width, source.width);
        EXPECT_EQ(read->bitmap.height, source.height);
        EXPECT_EQ(read->bitmap.rgba, source.rgba);  // opaque sources carry A = 255 already
    }
}
}  // namespace
}  // namespace velt::imageio
