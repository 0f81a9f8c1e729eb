#include "engine/encoders/png_path.h"

#include "encoders/encoding_path_rig.h"
#include "engine/encoders/png_chunks.h"
#include "engine/encoders/tool_runner.h"
#include "engine/errors.h"
#include "engine/pipeline/image_writer.h"

#include <gtest/gtest.h>
#include <QFileInfo>

namespace velt {
namespace {

using testing::PathRig;

ImagePlan pngPlan(ImageFormat source, std::optional<QByteArray> icc = std::nullopt) {
    ImagePlan plan;
    plan.source = source;
    plan.target = ImageFormat::png;
    plan.image = testing::photoLikeBitmap(96, 64);
    plan.colorSpace = plan.image.colorSpace;
    plan.iccData = std::move(icc);
    return plan;
}

// A real PNG source, written by the built-in encoder, with bytes after IEND.
QString writeSourcePNG(const PathRig& rig, const ImagePlan& plan) {
    const QString path = rig.file("source.png");
    writeImageWithImageIO(path, plan.image, ImageFormat::png, {});
    testing::writeFile(path, testing::readFile(path) + "after the end");
    return path;
}

TEST(PNGPath, OptimizerArgumentsAreExact) {
    const struct {
        int setting;
        const char* range;
    } cases[] = {{100, "80-100"}, {80, "60-80"},   {20, "0-20"}, {19, "0-19"},
                 {15, "0-15"},    {150, "80-100"}, {-5, "0-0"}};
    for (const auto& test : cases) {
        const QStringList expected = {
            QStringLiteral("--force"),   QStringLiteral("--skip-if-larger"),
            QStringLiteral("--quality"), QString::fromUtf8(test.range),
            QStringLiteral("--speed"),   QStringLiteral("3"),
            QStringLiteral("--output"),  QStringLiteral("/d/out.png"),
            QStringLiteral("/d/in.png")};
        EXPECT_EQ(pngquantArguments(test.setting, QStringLiteral("/d/in.png"),
                                    QStringLiteral("/d/out.png")),
                  expected)
            << test.setting;
    }
    const QStringList oxipng = {QStringLiteral("-q"),   QStringLiteral("-o"),
                                QStringLiteral("4"),    QStringLiteral("--strip"),
                                QStringLiteral("safe"), QStringLiteral("/d/a.png")};
    EXPECT_EQ(oxipngArguments(QStringLiteral("/d/a.png")), oxipng);
}

TEST(PNGPath, StrictlySmallerLaterFilesWinTiesKeepTheEarlier) {
    PathRig rig;
    const auto filesOf = [&](std::initializer_list<int> sizes) {
        QStringList files;
        for (const int size : sizes) {
            files << rig.file("f") + QString::number(files.size());
            testing::writeFile(files.back(), QByteArray(size, 'x'));
        }
        return files;
    };
    const struct {
        std::initializer_list<int> sizes;
        int winner;
    } cases[] = {{{5}, 0}, {{5, 5}, 0}, {{5, 4}, 1}, {{3, 4, 2, 2}, 2}, {{1, 0}, 1}};
    for (const auto& test : cases) {
        const QStringList files = filesOf(test.sizes);
        EXPECT_EQ(smallestFile(files), files.at(test.winner));
    }
    EXPECT_THROW(smallestFile({rig.file("f0"), rig.file("missing")}), FileSystemError);
}

TEST(PNGPath, WithoutToolsTheBaselineIsTheResult) {
    const QByteArray profile = testing::fakeProfile();
    for (const std::optional<QByteArray>& icc :
         {std::optional<QByteArray>(), std::optional(profile)}) {
        PathRig rig;
        const ImagePlan plan = pngPlan(ImageFormat::png, icc);
        const QString source = writeSourcePNG(rig, plan);
        const QByteArray sourceBytes = testing::readFile(source);
        const QString destination = rig.file("out.png");
        writePNGImage(rig.context, source, destination, plan, testing::locatorOf({}));
        EXPECT_EQ(testing::readFile(destination),
                  icc ? *pngWithICCProfile(sourceBytes, profile) : sourceBytes);
        EXPECT_EQ(testing::readFile(source), sourceBytes);
        EXPECT_TRUE(rig.leftovers().isEmpty()) << rig.leftovers().join(u',').toStdString();
    }
}

TEST(PNGPath, NonPNGSourceIsEncodedByTheBuiltInEncoder) {
    PathRig rig;
    const QString destination = rig.file("out.png");
    writePNGImage(rig.context, rig.file("no-such-source.jpg"), destination,
                  pngPlan(ImageFormat::jpeg, testing::fakeProfile()), testing::locatorOf({}));
    const QByteArray written = testing::readFile(destination);
    EXPECT_TRUE(written.startsWith("\x89PNG\r\n\x1a\n"));
    EXPECT_EQ(written.mid(8 + 25 + 4, 4), QByteArray("iCCP"));  // right after IHDR
}

TEST(PNGPath, SmallestCandidateWinsAndEveryStepSeesItsArguments) {
    PathRig rig;
    const QString record = rig.tools.filePath(QStringLiteral("calls.txt"));
    const testing::ScopedEnvironment recordFile("VELT_STANDIN_RECORD", record.toUtf8());
    const ImagePlan plan = pngPlan(ImageFormat::png);
    const QString source = writeSourcePNG(rig, plan);
    const qint64 sourceSize = QFileInfo(source).size();
    // "oxipng" halves its file in place; "pngquant" copies the baseline, which "oxipng" halves.
    const QString oxipng = rig.standin("shrink", "oxipng");
    const QString pngquant = rig.standin("record", "pngquant");
    const QString destination = rig.file("out.png");
    rig.context.config.qualities.png = 19;
    writePNGImage(rig.context, source, destination, plan,
                  testing::locatorOf({{QStringLiteral("oxipng"), oxipng},
                                      {QStringLiteral("pngquant"), pngquant}}));
    // Both optimized candidates are half the baseline.
    EXPECT_EQ(QFileInfo(destination).size(), sourceSize / 2);
    const QString calledWith = QString::fromUtf8(testing::readFile(record));
    EXPECT_EQ(calledWith.count(QStringLiteral("--strip")), 2) << calledWith.toStdString();
    EXPECT_TRUE(calledWith.contains(QStringLiteral("--quality\n0-19\n")));
    EXPECT_TRUE(calledWith.contains(QStringLiteral(".velt-temp-oxipng-")));
    EXPECT_TRUE(calledWith.contains(QStringLiteral(".velt-temp-pngquant-")));
    EXPECT_TRUE(rig.leftovers().isEmpty()) << rig.leftovers().join(u',').toStdString();
}

TEST(PNGPath, RealPngquantShrinksAPhotoLikeImage) {
    const auto pngquant = toolURL(QStringLiteral("pngquant"));
    if (!pngquant) GTEST_SKIP() << "pngquant is not installed";
    PathRig rig;
    ImagePlan plan = pngPlan(ImageFormat::png);
    // Grain defeats lossless compression; a palette of a few dozen colours does not mind it.
    std::uint32_t state = 12345;
    plan.image = testing::makeBitmap(96, 64, [&](int x, int y) {
        state = state * 1664525u + 1013904223u;
        const auto grain = static_cast<std::uint8_t>(state >> 26);
        return testing::Rgba{static_cast<std::uint8_t>(x * 2 + grain),
                             static_cast<std::uint8_t>(y * 3 + grain), grain, 255};
    });
    const QString source = writeSourcePNG(rig, plan);
    const QString destination = rig.file("out.png");
    rig.context.config.qualities.png = 60;
    writePNGImage(rig.context, source, destination, plan,
                  testing::locatorOf({{QStringLiteral("pngquant"), *pngquant}}));
    EXPECT_LT(QFileInfo(destination).size(), QFileInfo(source).size());
    EXPECT_EQ(testing::runProgram(*pngquant, {QStringLiteral("--force"), QStringLiteral("--output"),
                                              rig.file("check.png"), destination}),
              0);  // still a PNG pngquant itself can read
}

TEST(PNGPath, DecliningQuantizerIsLoggedAndIgnored) {
    const testing::IsolatedDataFolder logFolder;
    const testing::ScopedEnvironment debug("VELT_DEBUG_LOG", QByteArray("1"));
    PathRig rig;
    const ImagePlan plan = pngPlan(ImageFormat::png);
    const QString source = writeSourcePNG(rig, plan);
    const QString destination = rig.file("out.png");
    writePNGImage(
        rig.context, source, destination, plan,
        testing::locatorOf({{QStringLiteral("pngquant"), rig.standin("exit1", "pngquant")},
                            {QStringLiteral("oxipng"), rig.standin("exit1", "oxipng")}}));
    EXPECT_EQ(testing::readFile(destination), testing::readFile(source));
    const QString log =
        QString::fromUtf8(testing::readFile(logFolder.file(QStringLiteral("native.log"))));
    EXPECT_EQ(log.count(QStringLiteral("Optional PNG optimization failed: ")), 1)
        << log.toStdString();
    EXPECT_TRUE(log.contains(QStringLiteral("pngquant"))) << log.toStdString();
    EXPECT_TRUE(rig.leftovers().isEmpty()) << rig.leftovers().join(u',').toStdString();
}

TEST(PNGPath, FailuresOfTheBaselineAndStopsLeaveNothingBehind) {
    PathRig rig;
    const ImagePlan plan = pngPlan(ImageFormat::png);
    EXPECT_THROW(writePNGImage(rig.context, rig.file("missing.png"), rig.file("out.png"), plan,
                               testing::locatorOf({})),
                 FileSystemError);
    const QString source = writeSourcePNG(rig, plan);
    rig.lifecycle.requestStop();
    EXPECT_THROW(writePNGImage(rig.context, source, rig.file("out.png"), plan,
                               testing::locatorOf(
                                   {{QStringLiteral("oxipng"), rig.standin("shrink", "oxipng")}})),
                 FolderCompressorControlError);
    EXPECT_EQ(rig.entries(), QStringList{QStringLiteral("source.png")});
}

}  // namespace
}  // namespace velt
