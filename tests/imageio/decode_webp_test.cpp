// WebP decoding of files written by the real "cwebp" and "webpmux": lossy, lossless, with
// alpha, the first frame of an animation, and an ICCP profile.
#include "decode_test_support.h"
#include "encode_test_support.h"
#include "imageio/image_io.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include "support/test_environment.h"

namespace velt::imageio {
namespace {

using namespace velt::imageio::decodetest;
using velt::testing::writeFile;

// Writes `bitmap` as WebP through cwebp (PAM input when it has alpha).
QString cwebp(const QTemporaryDir& dir, const QString& name, const Bitmap& bitmap,
              const QStringList& options) {
    const bool alpha = bitmap.alphaInfo == AlphaInfo::last;
    const QString input =
        dir.filePath(name + (alpha ? QStringLiteral(".pam") : QStringLiteral(".ppm")));
    const QString output = dir.filePath(name + QStringLiteral(".webp"));
    writeFile(input, alpha ? pam(bitmap) : ppm(bitmap));
    runTool(QStringLiteral("cwebp"), QStringList{QStringLiteral("-quiet")}
                                         << options
                                         << QStringList{input, QStringLiteral("-o"), output});
    return output;
}

TEST(DecodeWebP, StillImagesDecodeCloseToTheCard) {
    struct Case {
        const char* name;
        QStringList options;
        bool alpha;
        double tolerance;  // mean absolute error per channel
    };
    const std::vector<Case> cases = {
        {"lossy", {QStringLiteral("-q"), QStringLiteral("92")}, false, 6.0},
        {"lossy-alpha", {QStringLiteral("-q"), QStringLiteral("92")}, true, 6.0},
        {"lossless", {QStringLiteral("-lossless")}, false, 0.0},
        {"lossless-alpha", {QStringLiteral("-lossless"), QStringLiteral("-exact")}, true, 0.0},
    };
    QTemporaryDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Bitmap expected = card(67, 45, c.alpha);
        const Bitmap decoded =
            decodeFirstFrame(cwebp(dir, QLatin1String(c.name), expected, c.options));
        ASSERT_EQ(decoded.width, 67);
        ASSERT_EQ(decoded.height, 45);
        EXPECT_EQ(decoded.alphaInfo, c.alpha ? AlphaInfo::last : AlphaInfo::noneSkipLast);
        EXPECT_EQ(decoded.colorSpace, sRGBColorSpace());
        EXPECT_LE(meanAbsoluteError(decoded, expected), c.tolerance);
        if (c.alpha) {  // the transparent corner stays transparent
            EXPECT_EQ(decoded.pixel(2, 2)[3], 0);
            EXPECT_EQ(decoded.pixel(60, 40)[3], 255);
        }
    }
}

TEST(DecodeWebP, AnimationGivesItsFirstFrame) {
    QTemporaryDir dir;
    const Bitmap first = card(48, 32, true);
    Bitmap second = card(48, 32, false);
    for (auto& value : second.rgba) value = static_cast<std::uint8_t>(255 - value);
    const QStringList lossless{QStringLiteral("-lossless"), QStringLiteral("-exact")};
    const QString a = cwebp(dir, QStringLiteral("a"), first, lossless);
    const QString b = cwebp(dir, QStringLiteral("b"), second, lossless);
    const QString animation = dir.filePath(QStringLiteral("animation.webp"));
    runTool(QStringLiteral("webpmux"),
            {QStringLiteral("-frame"), a, QStringLiteral("+100"), QStringLiteral("-frame"), b,
             QStringLiteral("+100"), QStringLiteral("-loop"), QStringLiteral("0"),
             QStringLiteral("-o"), animation});
    const Bitmap decoded = decodeFirstFrame(animation);
    ASSERT_EQ(decoded.width, 48);
    ASSERT_EQ(decoded.height, 32);
    EXPECT_EQ(decoded.alphaInfo, AlphaInfo::last);
    EXPECT_EQ(meanAbsoluteError(decoded, first), 0.0);
    EXPECT_EQ(readProperties(animation).width, 48);
}

TEST(DecodeWebP, IccpProfileIsKept) {
    QTemporaryDir dir;
    const Bitmap expected = card(32, 24, false);
    const QString plain =
        cwebp(dir, QStringLiteral("plain"), expected, {QStringLiteral("-lossless")});
    const QByteArray profile = testing::displayP3Profile();
    writeFile(dir.filePath(QStringLiteral("p3.icc")), profile);
    const QString tagged = dir.filePath(QStringLiteral("tagged.webp"));
    runTool(QStringLiteral("webpmux"),
            {QStringLiteral("-set"), QStringLiteral("icc"), dir.filePath(QStringLiteral("p3.icc")),
             plain, QStringLiteral("-o"), tagged});
    const Bitmap decoded = decodeFirstFrame(tagged);
    EXPECT_EQ(decoded.colorSpace.iccData, profile);
    EXPECT_EQ(decoded.colorSpace.name, QStringLiteral("Display P3"));
    EXPECT_EQ(meanAbsoluteError(decoded, expected), 0.0);
}

}  // namespace
}  // namespace velt::imageio
