#include "engine/encoders/jpeg_path.h"

#include "encoders/encoding_path_rig.h"
#include "engine/encoders/tool_runner.h"
#include "engine/errors.h"
#include "engine/pipeline/image_safety.h"

#include <gtest/gtest.h>
#include <QFileInfo>
#include <QRegularExpression>
#include <thread>

namespace velt {
namespace {

using testing::PathRig;
using testing::ScopedEnvironment;

const QString uuid = QStringLiteral("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}");

bool matches(const QString& text, const QString& pattern) {
    return QRegularExpression(QRegularExpression::anchoredPattern(pattern)).match(text).hasMatch();
}

ImagePlan planOf(imageio::Bitmap image, std::optional<QByteArray> icc = std::nullopt) {
    ImagePlan plan;
    plan.source = ImageFormat::png;
    plan.target = ImageFormat::jpeg;
    plan.colorSpace = image.colorSpace;
    plan.image = std::move(image);
    plan.iccData = std::move(icc);
    return plan;
}

// The argument lists a record stand-in saw, one list per call.
QList<QStringList> recordedCalls(const QString& record) {
    QList<QStringList> calls;
    QStringList current;
    for (const QByteArray& line : testing::readFile(record).split('\n')) {
        if (!line.isEmpty()) {
            current << QString::fromUtf8(line);
        } else if (!current.isEmpty()) {
            calls << current;
            current.clear();
        }
    }
    return calls;
}

TEST(JPEGPath, NamesAndArgumentsAreExact) {
    const QString intermediate = jpegIntermediateURL(QStringLiteral("/d/photo.final.jpg"));
    EXPECT_TRUE(
        matches(intermediate, QStringLiteral("/d/\\.photo\\.final\\.velt-temp-jpeg-source-") +
                                  uuid + QStringLiteral("\\.ppm")))
        << intermediate.toStdString();
    EXPECT_NE(intermediate, jpegIntermediateURL(QStringLiteral("/d/photo.final.jpg")));

    const struct {
        std::optional<QString> icc;
        int quality;
        QStringList head;
    } cases[] = {
        {std::nullopt, 82, {QStringLiteral("-quality"), QStringLiteral("82")}},
        {std::nullopt, 120, {QStringLiteral("-quality"), QStringLiteral("100")}},
        {std::nullopt, -5, {QStringLiteral("-quality"), QStringLiteral("0")}},
        {QStringLiteral("/d/p.icc"),
         76,
         {QStringLiteral("-icc"), QStringLiteral("/d/p.icc"), QStringLiteral("-quality"),
          QStringLiteral("76")}},
    };
    for (const auto& test : cases) {
        const auto candidates = jpegCandidates(QStringLiteral("photo"), QStringLiteral("/d"),
                                               QStringLiteral("/d/in.ppm"), test.icc, test.quality);
        ASSERT_EQ(candidates.size(), 1u);
        const EncoderCandidate& only = candidates.front();
        EXPECT_TRUE(matches(only.url, QStringLiteral("/d/\\.photo\\.velt-temp-mozjpeg-default-") +
                                          uuid + QStringLiteral("\\.jpg")))
            << only.url.toStdString();
        const QStringList tail = {QStringLiteral("-progressive"), QStringLiteral("-optimize"),
                                  QStringLiteral("-sample"),      QStringLiteral("2x2"),
                                  QStringLiteral("-outfile"),     only.url,
                                  QStringLiteral("/d/in.ppm")};
        EXPECT_EQ(only.arguments, test.head + tail);
    }
}

TEST(JPEGPath, RealEncoderWritesADecodableJPEGAndEmbedsTheProfile) {
    const auto cjpeg = toolURL(QStringLiteral("cjpeg"));
    if (!cjpeg) GTEST_SKIP() << "cjpeg is not installed";
    for (const std::optional<QByteArray>& icc :
         {std::optional<QByteArray>(), std::optional(testing::fakeProfile())}) {
        PathRig rig;
        const QString destination = rig.file(".photo.velt-temp-output.jpg");
        writeJPEGImage(rig.context, destination,
                       planOf(testing::photoLikeBitmap(64, 48, true), icc));

        QByteArray decoded;
        ASSERT_EQ(testing::runProgram(QStringLiteral("djpeg"),
                                      {QStringLiteral("-pnm"), destination}, &decoded),
                  0);
        EXPECT_TRUE(decoded.startsWith("P6\n64 48\n255\n"));
        const qint64 size = QFileInfo(destination).size();
        EXPECT_GT(size, 200);
        EXPECT_LT(size, 64 * 48 * 3);
        EXPECT_EQ(testing::readFile(destination).contains(testing::fakeProfile()), icc.has_value());
        EXPECT_EQ(rig.entries(), QStringList{QStringLiteral(".photo.velt-temp-output.jpg")});
    }
}

TEST(JPEGPath, StandInSeesClampedQualityAndProfileOnlyWhenGiven) {
    const struct {
        int quality;
        bool withProfile;
        QString expectedQuality;
    } cases[] = {{120, false, QStringLiteral("100")},
                 {-5, true, QStringLiteral("0")},
                 {82, false, QStringLiteral("82")}};
    for (const auto& test : cases) {
        PathRig rig;
        const ScopedEnvironment toolDir("VELT_TOOL_DIR", rig.tools.path().toUtf8());
        const QString record = rig.tools.filePath(QStringLiteral("calls.txt"));
        const ScopedEnvironment recordFile("VELT_STANDIN_RECORD", record.toUtf8());
        rig.standin("record", "cjpeg");
        rig.context.config.qualities.jpeg = test.quality;
        const auto profile =
            test.withProfile ? std::optional(testing::fakeProfile()) : std::nullopt;
        // The stand-in copies the PPM, which is no JPEG: the only candidate is dropped.
        try {
            writeJPEGImage(rig.context, rig.file("out.jpg"),
                           planOf(testing::photoLikeBitmap(8, 8), profile));
            ADD_FAILURE() << "a PPM passed as JPEG";
        } catch (const FileSystemError& error) {
            EXPECT_EQ(error.code(), FileSystemError::writeUnknown);
        }
        const auto calls = recordedCalls(record);
        ASSERT_EQ(calls.size(), 1);
        const QStringList& arguments = calls.front();
        EXPECT_EQ(arguments.at(arguments.indexOf(QStringLiteral("-quality")) + 1),
                  test.expectedQuality);
        EXPECT_EQ(arguments.front() == QStringLiteral("-icc"), test.withProfile);
        if (test.withProfile) {
            EXPECT_TRUE(arguments.at(1).endsWith(QStringLiteral(".icc")));
        }
        EXPECT_TRUE(arguments.back().endsWith(QStringLiteral(".ppm")));
        EXPECT_TRUE(rig.entries().isEmpty()) << rig.entries().join(u',').toStdString();
    }
}

TEST(JPEGPath, FailuresLeaveNothingBehind) {
    PathRig rig;
    const QString destination = rig.file("out.jpg");
    const ImagePlan plan = planOf(testing::photoLikeBitmap(8, 8), testing::fakeProfile());
    const auto codeOf = [&](const ToolLocator& locate) -> std::optional<FileSystemError::Code> {
        try {
            writeJPEGImage(rig.context, destination, plan, locate);
        } catch (const FileSystemError& error) {
            return error.code();
        }
        return std::nullopt;
    };
    EXPECT_EQ(codeOf(testing::locatorOf({})), FileSystemError::writeUnsupportedScheme);
    const QString exit1 = rig.standin("exit1", "cjpeg");
    EXPECT_EQ(codeOf(testing::locatorOf({{QStringLiteral("cjpeg"), exit1}})),
              FileSystemError::writeUnknown);
    EXPECT_TRUE(rig.entries().isEmpty()) << rig.entries().join(u',').toStdString();

    imageio::Bitmap huge;  // refused before a single pixel is read
    huge.width = 7072;
    huge.height = 7071;
    EXPECT_THROW(writeJPEGImage(rig.context, destination, planOf(huge, testing::fakeProfile()),
                                testing::locatorOf({{QStringLiteral("cjpeg"), exit1}})),
                 ImageSafetyError);
    EXPECT_TRUE(rig.entries().isEmpty()) << rig.entries().join(u',').toStdString();

    // A stop: cancelled, nothing left.
    rig.lifecycle.requestStop();
    EXPECT_THROW(writeJPEGImage(rig.context, destination, plan,
                                testing::locatorOf({{QStringLiteral("cjpeg"), exit1}})),
                 FolderCompressorControlError);
    EXPECT_TRUE(rig.entries().isEmpty()) << rig.entries().join(u',').toStdString();
}

TEST(JPEGPath, StopWhileTheEncoderRunsRemovesEveryTemporaryFile) {
    PathRig rig;
    const QString ready = rig.tools.filePath(QStringLiteral("ready"));
    const ScopedEnvironment readyFile("VELT_STANDIN_READY", ready.toUtf8());
    const QString hang = rig.standin("hang", "cjpeg");
    std::thread stopper([&] {
        if (testing::waitForReadyPid(ready) > 0) {
            // The intermediate and the profile exist while the encoder runs.
            EXPECT_EQ(rig.leftovers().size(), 2) << rig.leftovers().join(u',').toStdString();
        }
        rig.lifecycle.requestStop();
    });
    EXPECT_THROW(writeJPEGImage(rig.context, rig.file("out.jpg"),
                                planOf(testing::photoLikeBitmap(8, 8), testing::fakeProfile()),
                                testing::locatorOf({{QStringLiteral("cjpeg"), hang}})),
                 FolderCompressorControlError);
    stopper.join();
    EXPECT_TRUE(rig.entries().isEmpty()) << rig.entries().join(u',').toStdString();
}

}  // namespace
}  // namespace velt
