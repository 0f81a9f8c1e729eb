#include "engine/encoders/webp_path.h"

#include "encoders/encoding_path_rig.h"
#include "engine/encoders/tool_runner.h"
#include "engine/errors.h"

#include <gtest/gtest.h>

namespace velt {
namespace {

using testing::PathRig;

QStringList words(const char* text) {
    return QString::fromUtf8(text).split(u' ', Qt::SkipEmptyParts);
}

ImagePlan planOf(imageio::Bitmap image, std::optional<QByteArray> icc = std::nullopt) {
    ImagePlan plan;
    plan.target = ImageFormat::webp;
    plan.colorSpace = image.colorSpace;
    plan.image = std::move(image);
    plan.iccData = std::move(icc);
    return plan;
}

TEST(WebPPath, ArgumentsFollowThePresetTable) {
    const struct {
        CompressionPreset preset;
        int quality;
        bool alpha;
        const char* label;
        const char* arguments;  // before input "-o" output
    } cases[] = {
        {CompressionPreset::balanced, 78, true, "default",
         "-quiet -q 78 -m 3 -mt -alpha_q 85 -alpha_filter best"},
        {CompressionPreset::balanced, 90, true, "default",
         "-quiet -q 90 -m 3 -mt -alpha_q 90 -alpha_filter best"},
        {CompressionPreset::custom, 60, true, "default",
         "-quiet -q 60 -m 3 -mt -alpha_q 85 -alpha_filter best"},
        {CompressionPreset::jpegCompatible, 150, true, "default",
         "-quiet -q 100 -m 3 -mt -alpha_q 100 -alpha_filter best"},
        {CompressionPreset::balanced, 85, true, "default",
         "-quiet -q 85 -m 3 -mt -alpha_q 85 -alpha_filter best"},
        {CompressionPreset::balanced, -3, false, "default", "-quiet -q 0 -m 3 -mt"},
        {CompressionPreset::gentle, 80, false, "photo", "-preset photo -quiet -q 80 -m 3 -mt"},
        {CompressionPreset::maximum, 70, false, "sharp", "-quiet -q 70 -m 4 -mt -sharp_yuv"},
        {CompressionPreset::maximum, 86, true, "sharp",
         "-quiet -q 86 -m 4 -mt -sharp_yuv -alpha_q 86 -alpha_filter best"},
    };
    for (const auto& test : cases) {
        const auto candidates =
            webPCandidates(QStringLiteral("photo"), QStringLiteral("/d/"),
                           QStringLiteral("/d/in.pam"), test.alpha, test.preset, test.quality);
        ASSERT_EQ(candidates.size(), 1u);
        const EncoderCandidate& only = candidates.front();
        const QString prefix = QStringLiteral("/d/.photo.velt-temp-cwebp-") +
                               QString::fromUtf8(test.label) + QLatin1Char('-');
        EXPECT_TRUE(only.url.startsWith(prefix) && only.url.endsWith(QStringLiteral(".webp")) &&
                    only.url.size() == prefix.size() + 36 + 5)
            << only.url.toStdString();
        const QStringList tail = {QStringLiteral("/d/in.pam"), QStringLiteral("-o"), only.url};
        EXPECT_EQ(only.arguments, words(test.arguments) + tail) << test.arguments;
    }
    EXPECT_TRUE(webPIntermediateURL(QStringLiteral("/d/a.webp"), true)
                    .startsWith(QStringLiteral("/d/.a.velt-temp-webp-source-")));
    EXPECT_TRUE(webPIntermediateURL(QStringLiteral("/d/a.webp"), true).endsWith(u".pam"));
    EXPECT_TRUE(webPIntermediateURL(QStringLiteral("/d/a.webp"), false).endsWith(u".ppm"));
}

TEST(WebPPath, AlphaChannelDecidesTheIntermediateEvenWhenOpaque) {
    for (const auto alpha : {imageio::AlphaInfo::last, imageio::AlphaInfo::noneSkipLast}) {
        PathRig rig;
        const QString record = rig.tools.filePath(QStringLiteral("calls.txt"));
        const testing::ScopedEnvironment recordFile("VELT_STANDIN_RECORD", record.toUtf8());
        const QString cwebp = rig.standin("record", "cwebp");
        auto opaque = testing::makeBitmap(
            4, 4,
            [](int, int) {
                return testing::Rgba{9, 9, 9, 255};
            },
            alpha);
        // The stand-in copies the intermediate, which does not decode as WebP.
        EXPECT_THROW(writeWebPImage(rig.context, rig.file("out.webp"), planOf(opaque),
                                    testing::locatorOf({{QStringLiteral("cwebp"), cwebp}})),
                     FileSystemError);
        const QStringList arguments =
            QString::fromUtf8(testing::readFile(record)).split(u'\n', Qt::SkipEmptyParts);
        const bool hasAlpha = alpha == imageio::AlphaInfo::last;
        EXPECT_EQ(arguments.contains(QStringLiteral("-alpha_q")), hasAlpha);
        EXPECT_TRUE(arguments.at(arguments.size() - 3).endsWith(hasAlpha ? u".pam" : u".ppm"));
        EXPECT_TRUE(rig.entries().isEmpty()) << rig.entries().join(u',').toStdString();
    }
}

TEST(WebPPath, RealEncoderEmbedsTheProfileWithWebpmuxOnly) {
    const auto cwebp = toolURL(QStringLiteral("cwebp"));
    const auto webpmux = toolURL(QStringLiteral("webpmux"));
    if (!cwebp || !webpmux) GTEST_SKIP() << "cwebp or webpmux is not installed";
    const QByteArray profile = testing::fakeProfile();
    for (const bool withWebpmux : {true, false}) {
        PathRig rig;
        QMap<QString, QString> tools = {{QStringLiteral("cwebp"), *cwebp}};
        if (withWebpmux) tools.insert(QStringLiteral("webpmux"), *webpmux);
        const QString destination = rig.file("out.webp");
        writeWebPImage(rig.context, destination,
                       planOf(testing::photoLikeBitmap(64, 48, true), profile),
                       testing::locatorOf(tools));
        EXPECT_EQ(rig.entries(), QStringList{QStringLiteral("out.webp")});
        EXPECT_EQ(testing::runProgram(QStringLiteral("dwebp"),
                                      {destination, QStringLiteral("-o"), rig.file("check.png")}),
                  0);
        const QString extracted = rig.file("extracted.icc");
        const int status =
            testing::runProgram(*webpmux, {QStringLiteral("-get"), QStringLiteral("icc"),
                                           destination, QStringLiteral("-o"), extracted});
        EXPECT_EQ(status == 0 && testing::readFile(extracted) == profile, withWebpmux);
    }
}

TEST(WebPPath, FailuresDropTheCandidate) {
    PathRig rig;
    const QString exit1 = rig.standin("exit1", "webpmux");
    const auto cwebp = toolURL(QStringLiteral("cwebp"));
    if (!cwebp) GTEST_SKIP() << "cwebp is not installed";
    const ImagePlan plan = planOf(testing::photoLikeBitmap(16, 16), testing::fakeProfile());
    const auto codeOf = [&](const QMap<QString, QString>& tools) {
        try {
            writeWebPImage(rig.context, rig.file("out.webp"), plan, testing::locatorOf(tools));
        } catch (const FileSystemError& error) {
            return error.code();
        }
        return FileSystemError::noSuchFile;  // "no error" for this table
    };
    EXPECT_EQ(codeOf({}), FileSystemError::writeUnsupportedScheme);
    EXPECT_EQ(codeOf({{QStringLiteral("cwebp"), *cwebp}, {QStringLiteral("webpmux"), exit1}}),
              FileSystemError::writeUnknown);
    EXPECT_EQ(codeOf({{QStringLiteral("cwebp"), rig.standin("garbage", "cwebp")}}),
              FileSystemError::writeUnknown);
    EXPECT_TRUE(rig.entries().isEmpty()) << rig.entries().join(u',').toStdString();
}

}  // namespace
}  // namespace velt
