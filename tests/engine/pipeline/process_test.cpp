#include "engine/pipeline/process.h"
#include "engine/core/errors.h"
#include "engine/core/image_safety.h"
#include "engine/pipeline/can_write.h"
#include "imageio/image_io.h"
#include "model/format.h"
#include "support/test_environment.h"
#include "support/test_images.h"
#include "watcher/engine_test_rig.h"

#include <gtest/gtest.h>
#include <zlib.h>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace velt {
namespace {

using namespace Qt::StringLiterals;

using testing::decodeIndependently;
using testing::photoLikeBitmap;

// One watched folder, an engine context as the scan hands it to the pipeline, and what it reports.
class PipelineTest : public ::testing::Test, protected testing::ContextRig {
  protected:
    PipelineTest() {
        callbacks.onEvent = [this](const CompressionNotificationEvent& e) { events.push_back(e); };
    }

    QString photoJPEG(const QString& name, int quality = 95, int width = 320, int height = 240,
                      const QStringList& extra = {}) {
        const QString path = file(name);
        EXPECT_TRUE(
            testing::writeJPEGWithCjpeg(photoLikeBitmap(width, height), quality, path, extra));
        return path;
    }

    QString photoPNG(const QString& name, bool alpha) {
        const QString path = file(name);
        imageio::encodeImage(photoLikeBitmap(200, 150, alpha), ImageFormat::png, 0, path);
        return path;
    }

    // Where today's backup copy named `name` goes.
    QString backupOf(const QString& name) const {
        return file(u".velt-compressor-backups/"_s + isoDay() + u'/' + name);
    }

    // Every name in the folder, hidden ones included, except the backup folder's.
    QStringList folderNames() const { return testing::fileNamesIn(folder.path()); }

    std::vector<CompressionNotificationEvent> events;
};

TEST_F(PipelineTest, KeepPolicyWritesAVerifiedSiblingAndRemembersBoth) {
    const QString source = photoJPEG(u"Фото 1.jpg"_s);
    const QByteArray original = testing::readFile(source);
    const FolderCompressionResult result = process(context, source);

    const QString output = file(u"Фото 1_veltcompressed.jpg"_s);
    ASSERT_TRUE(result.didWrite);
    EXPECT_EQ(folderNames(), (QStringList{u"Фото 1.jpg"_s, u"Фото 1_veltcompressed.jpg"_s}));
    EXPECT_EQ(testing::readFile(source), original);
    EXPECT_EQ(result.savedBytes, original.size() - QFileInfo(output).size());
    EXPECT_GT(result.savedBytes, 0);  // how it looks: output_table_test.cpp
    ASSERT_TRUE(result.historyEntry);
    EXPECT_EQ(result.historyEntry->outputURL, output);
    EXPECT_EQ(result.historyEntry->status, CompressionHistoryStatus::compressed);
    EXPECT_EQ(context.files.checkOwnWrite(output, *fileSignature(output), EngineClock::now(), 0ms,
                                          [&] { return contentFingerprint(output); }),
              FileStates::OwnWriteCheck::ownUntouched);
    const auto record = context.processedRegistry->find(source);
    ASSERT_TRUE(record);
    EXPECT_EQ(context.processedRegistry->count(), 1) << "one record per source";
    EXPECT_EQ(record->output, output);
    EXPECT_EQ(record->outputFingerprint, contentFingerprint(output));
    EXPECT_EQ(context.stats.progress, 100);
}

TEST_F(PipelineTest, ReplacePolicyKeepsAVerifiedBackupOfTheOriginal) {
    context.config.originalPolicy = OriginalPolicy::replace;
    const QString source = photoJPEG(u"b.jpg"_s);
    const QByteArray original = testing::readFile(source);
    const FolderCompressionResult result = process(context, source);

    ASSERT_TRUE(result.didWrite);
    EXPECT_EQ(folderNames(), QStringList{u"b.jpg"_s});
    EXPECT_LT(QFileInfo(source).size(), original.size());
    EXPECT_EQ(testing::readFile(backupOf(u"b.original.jpg"_s)), original);
    EXPECT_TRUE(decodeIndependently(source));
}

TEST_F(PipelineTest, ASourceEditedBeforeInstallIsNeverOverwritten) {
    context.config.originalPolicy = OriginalPolicy::replace;
    const QString source = photoJPEG(u"edited.jpg"_s);
    callbacks.onBeforeDestructiveInstallForTesting = [](const QString& path) {
        testing::writeFile(path, "the user's newer edit");
    };
    try {
        process(context, source);
        ADD_FAILURE() << "installed over an edited source";
    } catch (const FolderCompressorControlError& error) {
        EXPECT_EQ(error.kind(), FolderCompressorControlError::sourceChanged);
    }
    EXPECT_EQ(testing::readFile(source), "the user's newer edit");
    EXPECT_EQ(folderNames(), QStringList{u"edited.jpg"_s});
    EXPECT_FALSE(QFileInfo::exists(backupOf(u"edited.original.jpg"_s)));
}

TEST_F(PipelineTest, AnAlreadySmallJPEGIsLeftAloneAsOptimal) {
    // Coarser than the preset and already optimised: re-encoding can only make it larger.
    const QString source =
        photoJPEG(u"small.jpg"_s, 60, 64, 48, {u"-optimize"_s, u"-progressive"_s});
    const QByteArray original = testing::readFile(source);
    const FolderCompressionResult result = process(context, source);
    EXPECT_FALSE(result.didWrite);
    ASSERT_TRUE(result.historyEntry);
    EXPECT_EQ(result.historyEntry->status, CompressionHistoryStatus::alreadyOptimal);
    EXPECT_EQ(result.historyEntry->originalBytes, original.size());
    EXPECT_EQ(events, std::vector{CompressionNotificationEvent::alreadyOptimal(source)});
    EXPECT_EQ(folderNames(), QStringList{u"small.jpg"_s});
    EXPECT_EQ(testing::readFile(source), original);
    EXPECT_TRUE(context.files.isHandled(source, *fileSignature(source)));
}

TEST_F(PipelineTest, TransparentPNGConvertedToWebPKeepsItsAlpha) {
    context.config.formatStrategy = FormatStrategy::webp;
    const QString source = photoPNG(u"logo.png"_s, true);
    ASSERT_TRUE(process(context, source).didWrite);
    EXPECT_EQ(folderNames(), (QStringList{u"logo.png"_s, u"logo_veltcompressed.webp"_s}));
    const auto decoded = decodeIndependently(file(u"logo_veltcompressed.webp"_s));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->pixel(0, 0)[3], 0);        // the transparent strip stays transparent
    EXPECT_EQ(decoded->pixel(199, 149)[3], 255);  // the rest stays opaque
}

// Before anything is decoded: a source that cannot even be decoded is settled.
TEST_F(PipelineTest, AFreshOutputSettlesTheSourceWithoutDecoding) {
    const QString source = file(u"done.jpg"_s);
    testing::writeFile(source, "not a picture at all");
    testing::writeFile(file(u"done_veltcompressed.jpg"_s), "already there");
    const FolderCompressionResult result = process(context, source);
    EXPECT_FALSE(result.didWrite);
    EXPECT_FALSE(result.historyEntry);
    EXPECT_EQ(testing::readFile(file(u"done_veltcompressed.jpg"_s)), "already there");
    const auto record = context.processedRegistry->find(source);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->decision, ProcessedDecision::existingOutputFresh);
    EXPECT_EQ(record->outputFingerprint, std::nullopt) << "a file of unknown origin became ours";
}

// Broken and hostile input costs a header read, changes nothing, leaves no temporary file and is
// told apart: damaged, cut short, still being written (changed a moment ago), too large.
TEST_F(PipelineTest, BrokenInputFailsTellsWhyAndTouchesNothing) {
    QByteArray hugePNG = QByteArray::fromHex("89504e470d0a1a0a0000000d49484452");
    hugePNG += QByteArray::fromHex("000186a0000186a00806000000");  // 100000×100000 RGBA
    hugePNG += QByteArray::fromHex("a8520bc8");                    // a valid header, no pixel data
    const QByteArray jpeg = testing::readFile(photoJPEG(u"ok.jpg"_s));
    QByteArray damagedMarker = jpeg;
    damagedMarker[3] = '\x02';  // the first segment's length now runs past the data
    const struct {
        const char* name;
        QByteArray bytes;
        bool justWritten;
        std::optional<Text> reason;  // nothing: an empty file, left alone
    } cases[] = {
        {"zero.jpg", QByteArray(), false, std::nullopt},
        {"random.jpg", QByteArray(5000, '\x5a'), false, Text::fileDamaged},
        {"cut.jpg", jpeg.left(jpeg.size() / 3), false, Text::fileTruncated},
        {"arriving.jpg", jpeg.left(jpeg.size() / 3), true, Text::fileStillBeingWritten},
        {"damaged.jpg", damagedMarker, false, Text::fileDamaged},
        {"huge.png", hugePNG, false, Text::imageTooLarge},
    };
    for (const auto& c : cases) {
        const QString path = file(QString::fromUtf8(c.name));
        testing::writeFile(path, c.bytes);
        QFile written(path);
        ASSERT_TRUE(c.justWritten || (written.open(QIODevice::ReadWrite) &&
                                      written.setFileTime(QDateTime::currentDateTime().addSecs(-60),
                                                          QFileDevice::FileModificationTime)));
        std::optional<Message> reason;
        try {
            const FolderCompressionResult result = process(context, path);
            EXPECT_FALSE(result.didWrite) << c.name;
            EXPECT_EQ(result.nothingDoneReason, (Message{Text::skippedEmptyFile, {}}));
        } catch (const std::exception& error) {
            reason = reasonOf(error);
        }
        EXPECT_EQ(reason ? std::optional(reason->id) : std::nullopt, c.reason) << c.name;
        EXPECT_EQ(testing::readFile(path), c.bytes) << c.name;
    }
    EXPECT_EQ(reasonOf(ImageSafetyError::limitExceeded(100000, 99999)).arguments,
              QStringList({u"100000"_s, u"99999"_s}));
}

TEST(RasterLimits, Table) {
    EXPECT_EQ(validatedDecodedRasterByteCount(7071, 7071), 199'996'164);
    EXPECT_EQ(validatedDecodedRasterByteCount(10'000, 5'000), 200'000'000);  // exactly the limit
    const std::pair<std::int64_t, std::int64_t> refused[] = {
        {7072, 7071}, {10'001, 5'000}, {INT64_MAX, 2}, {1LL << 32, 1LL << 32}};
    for (const auto& [w, h] : refused) {
        try {
            validatedDecodedRasterByteCount(w, h);
            ADD_FAILURE() << w << "x" << h;
        } catch (const ImageSafetyError& error) {
            EXPECT_EQ(error.kind(), ImageSafetyError::resourceLimitExceeded);
        }
    }
    EXPECT_THROW(validatedDecodedRasterByteCount(0, 10), ImageSafetyError);
    EXPECT_THROW(validatedDecodedRasterByteCount(10, -1), ImageSafetyError);
}

// Every output format's file is decoded, and must display as the image it was made from: an
// empty, cut-short or garbled file of any format, a file of the wrong size, or one whose
// Orientation would turn it, is deleted and never replaces anything.
TEST(EncodedImageChecks, EveryFormatIsDecodedWithItsDimensions) {
    registerImageWriterTypes();
    QTemporaryDir dir;
    const auto image = testing::photoLikeBitmap(96, 64);
    const QString ppm = dir.filePath(u"source.ppm"_s);
    testing::writeFile(ppm, testing::toPNM(image, false));
    for (const auto format : {ImageFormat::jpeg, ImageFormat::png, ImageFormat::webp,
                              ImageFormat::heic, ImageFormat::avif}) {
        const QString path = dir.filePath(u"out."_s + fileExtension(format));
        if (format == ImageFormat::webp) {
            ASSERT_TRUE(testing::runProgram(u"cwebp"_s, {u"-quiet"_s, ppm, u"-o"_s, path}));
        } else {
            ASSERT_TRUE(format == ImageFormat::jpeg || format == ImageFormat::png ||
                        isNativeWritable(format));
            imageio::encodeImage(image, format, 70, path);
        }
        const QByteArray bytes = testing::readFile(path);
        EXPECT_EQ(validateEncodedImage(path, expectedOutputSize(image)), bytes.size());
        EXPECT_THROW(validateEncodedImage(path, imageio::FrameSize{64, 96}), FileSystemError)
            << "a turned image passed as " << fileExtension(format).toStdString();
        EXPECT_FALSE(QFileInfo::exists(path));
        // Its own Orientation would have a viewer turn it (a half turn keeps the dimensions).
        testing::writeFile(path, bytes);
        ASSERT_TRUE(testing::runProgram(
            u"exiftool"_s, {u"-q"_s, u"-overwrite_original"_s, u"-Orientation#=3"_s, path}));
        EXPECT_THROW(validateEncodedImage(path, expectedOutputSize(image)), FileSystemError)
            << "a file tagged to be turned passed as " << fileExtension(format).toStdString();
        EXPECT_FALSE(QFileInfo::exists(path));
        for (const QByteArray& broken : {bytes.left(bytes.size() * 2 / 3), QByteArray(),
                                         bytes.left(40) + QByteArray(900, '\x33')}) {
            testing::writeFile(path, broken);
            EXPECT_THROW(validateEncodedImage(path, expectedOutputSize(image)), FileSystemError)
                << "a broken " << fileExtension(format).toStdString() << " passed";
            EXPECT_FALSE(QFileInfo::exists(path));
        }
    }
}

QByteArray be32(std::uint32_t v) {
    return QByteArray(1, char(v >> 24)) + char(v >> 16) + char(v >> 8) + char(v);
}

// An APNG: a PNG with an acTL chunk right after IHDR announcing `frames` frames.
QByteArray withAnimationControl(const QByteArray& png, std::uint32_t frames) {
    const QByteArray body = "acTL" + be32(frames) + be32(0);
    const auto crc = ::crc32(0, reinterpret_cast<const Bytef*>(body.constData()), body.size());
    return png.left(33) + be32(8) + body + be32(crc) + png.mid(33);  // signature (8) + IHDR (25)
}

// An animation is left as it is, in either policy, and said so once; a still stays a still.
TEST_F(PipelineTest, AnimationsAreLeftAsTheyAre) {
    context.config.originalPolicy = OriginalPolicy::replace;
    const QString still = photoPNG(u"still.png"_s, false);
    const QByteArray png = testing::readFile(still);
    testing::writeFile(file(u"moving.png"_s), withAnimationControl(png, 2));
    testing::writeFile(file(u"one-frame.png"_s), withAnimationControl(png, 1));
    const QString first = file(u"frame1.ppm"_s);
    const QString second = file(u"frame2.ppm"_s);
    auto frame = testing::photoLikeBitmap(120, 90);
    testing::writeFile(first, testing::toPNM(frame, false));
    for (std::size_t i = 0; i < frame.rgba.size(); i += 4) frame.rgba[i] = 255 - frame.rgba[i];
    testing::writeFile(second, testing::toPNM(frame, false));
    ASSERT_TRUE(testing::runProgram(
        u"img2webp"_s, {u"-loop"_s, u"0"_s, first, second, u"-o"_s, file(u"moving.webp"_s)}));
    QFile::remove(first);
    QFile::remove(second);

    for (const char* name : {"moving.png", "moving.webp"}) {
        const QString path = file(QString::fromUtf8(name));
        const QByteArray before = testing::readFile(path);
        const FolderCompressionResult result = process(context, path);
        EXPECT_FALSE(result.didWrite) << name;
        EXPECT_EQ(result.nothingDoneReason, (Message{Text::skippedAnimated, {}}));
        EXPECT_EQ(testing::readFile(path), before) << name;
        EXPECT_EQ(events.back(), CompressionNotificationEvent::animatedImage(path));
        EXPECT_TRUE(context.files.isHandled(path, *fileSignature(path)));
    }
    EXPECT_TRUE(process(context, file(u"one-frame.png"_s)).didWrite);
    EXPECT_FALSE(QFileInfo::exists(backupOf(u"moving.png"_s)));
}

}  // namespace
}  // namespace velt
