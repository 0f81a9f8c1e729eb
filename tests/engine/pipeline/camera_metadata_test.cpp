// Real camera photographs through every output format and every metadata policy, read back by
// exiftool: capture date, camera, lens, exposure and copyright survive; the location goes unless
// the user keeps everything; strip leaves nothing; outputs are upright with Orientation 1 and
// carry the source's modification time; a restart processes nothing again.
#include "camera_photos.h"
#include "engine/pipeline/can_write.h"
#include "engine/pipeline/process.h"
#include "support/test_environment.h"
#include "support/test_images.h"
#include "watcher/engine_test_rig.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace velt {
namespace {

using testing::exiftoolTags;
using testing::locationTags;
using testing::tagValue;
using namespace Qt::StringLiterals;

// What a photographer cares about; each must come through unchanged where metadata is kept.
const QStringList keptTags = {
    u"Make"_s,         u"Model"_s,   u"LensModel"_s, u"DateTimeOriginal"_s,
    u"ExposureTime"_s, u"FNumber"_s, u"ISO"_s,       u"Copyright"_s,
    u"Artist"_s};

// 2015-10-29 15:44:44 UTC: the day the first photograph was taken.
constexpr std::time_t captureDay = 1446133484;

// A copy of a camera photo as a phone would deliver it: a location (EXIF GPS and XMP city),
// a copyright, turned by Orientation 6 (stored sideways), dated on its capture day.
QString preparedSource(const QString& photo, const QString& path) {
    EXPECT_TRUE(QFile::copy(photo, path));
    EXPECT_TRUE(testing::exiftoolWrite(
        path, {u"-Copyright=VELT test copyright"_s, u"-GPSLatitude=48.8584"_s,
               u"-GPSLatitudeRef=N"_s, u"-GPSLongitude=2.2945"_s, u"-GPSLongitudeRef=E"_s,
               u"-XMP-photoshop:City=Paris"_s, u"-XMP-exif:GPSLatitude=48.8584"_s,
               u"-XMP-exif:GPSLongitude=2.2945"_s, u"-IFD0:Orientation#=6"_s}));
    const struct timespec times[2] = {{captureDay, 250'000'000}, {captureDay, 500'000'000}};
    EXPECT_EQ(::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0), 0);
    return path;
}

struct Expectation {
    MetadataPolicy policy;
    bool cameraData;  // the kept tags and Orientation 1
    bool location;    // GPS and XMP city
};

const Expectation expectations[] = {
    {MetadataPolicy::keepWithoutLocation, true, false},
    {MetadataPolicy::keepAll, true, true},
    {MetadataPolicy::strip, false, false},
};

// Lightroom wrote duplicate properties into the XMP packets of two of the photographs (exiftool
// reads them with the warning "Duplicate XMP property"); exiv2 cannot parse such a packet, so it
// is left out with one log line and the EXIF still goes through.
bool hasReadableXmp(const QString& photo) {
    return QFileInfo(photo).baseName() == QLatin1String("FallenLeaf");
}

void expectCarried(const QJsonObject& source, const QJsonObject& output, const Expectation& e,
                   bool readableXmp, const std::string& label) {
    int compared = 0;
    for (const QString& tag : keptTags) {
        const auto expected = tagValue(source, tag);
        if (!expected) continue;
        ++compared;
        if (e.cameraData) {
            EXPECT_EQ(tagValue(output, tag), expected) << label << " " << tag.toStdString();
        } else {
            EXPECT_FALSE(tagValue(output, tag)) << label << " " << tag.toStdString();
        }
    }
    EXPECT_GE(compared, 6) << label << ": the source lacks camera data";
    if (e.cameraData) {
        EXPECT_EQ(tagValue(output, QStringLiteral("Orientation")), 1) << label;
    }
    EXPECT_FALSE(tagValue(output, QStringLiteral("ThumbnailImage"))) << label;
    EXPECT_FALSE(tagValue(output, QStringLiteral("ThumbnailLength"))) << label;
    const QStringList location = locationTags(output);
    if (e.location) {
        EXPECT_EQ(tagValue(output, QStringLiteral("GPSLatitude")),
                  tagValue(source, QStringLiteral("GPSLatitude")))
            << label;
        if (readableXmp) {
            EXPECT_EQ(tagValue(output, QStringLiteral("City")), QJsonValue(QStringLiteral("Paris")))
                << label;
        }
    } else {
        EXPECT_TRUE(location.isEmpty()) << label << ": " << location.join(u' ').toStdString();
    }
}

class CameraPhotoMetadata : public ::testing::TestWithParam<ImageFormat> {};

TEST_P(CameraPhotoMetadata, EveryPolicyThroughThisFormat) {
    const ImageFormat target = GetParam();
    registerImageWriterTypes();
    if (!canWrite(target)) GTEST_SKIP() << "no encoder for this format on this machine";
    const QStringList photos = testing::cameraPhotos();
    ASSERT_FALSE(photos.isEmpty());
    // Each photograph is prepared and read once; every case copies it (dates included).
    QTemporaryDir prepared;
    std::vector<QString> sources;
    std::vector<QJsonObject> sourceTagsOf;
    for (const QString& photo : photos) {
        sources.push_back(preparedSource(photo, prepared.filePath(QFileInfo(photo).fileName())));
        sourceTagsOf.push_back(exiftoolTags(sources.back()));
        ASSERT_FALSE(locationTags(sourceTagsOf.back()).isEmpty());
    }
    for (const Expectation& e : expectations) {
        for (std::size_t i = 0; i < sources.size(); ++i) {
            const QString& photo = photos[static_cast<qsizetype>(i)];
            const QJsonObject& sourceTags = sourceTagsOf[i];
            testing::ContextRig rig;
            EngineContext& context = rig.context;
            context.config.formatStrategy = static_cast<FormatStrategy>(
                static_cast<int>(FormatStrategy::jpeg) + static_cast<int>(target));
            context.config.metadataPolicy = e.policy;
            const std::string label =
                rawValue(e.policy).toStdString() + " " + QFileInfo(photo).baseName().toStdString();
            const QString source = rig.file(QStringLiteral("p.jpg"));
            ASSERT_TRUE(testing::copyWithDates(sources[i], source));

            const FolderCompressionResult result = process(context, source);
            ASSERT_TRUE(result.didWrite) << label;
            const QString output = *result.historyEntry->outputURL;
            expectCarried(sourceTags, exiftoolTags(output), e, hasReadableXmp(photo), label);
            // Upright: the sideways-stored 400×250 photo comes out 250×400.
            const auto decoded = testing::decodeIndependently(output);
            ASSERT_TRUE(decoded) << label;
            EXPECT_EQ(decoded->width, tagValue(sourceTags, QStringLiteral("ImageHeight"))->toInt());
            EXPECT_EQ(decoded->height, tagValue(sourceTags, QStringLiteral("ImageWidth"))->toInt());
            EXPECT_EQ(modificationTime(output), modificationTime(source)) << label;
            // An unreadable XMP packet is reported once; everything else goes without a word.
            const bool xmpLost = e.cameraData && !hasReadableXmp(photo);
            EXPECT_EQ(testing::readFile(rig.data.file(QStringLiteral("native.log")))
                          .count("Metadata dropped from p.jpg: the XMP packet: "),
                      xmpLost ? 1 : 0)
                << label;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, CameraPhotoMetadata,
                         ::testing::Values(ImageFormat::jpeg, ImageFormat::png, ImageFormat::webp,
                                           ImageFormat::avif, ImageFormat::heic),
                         [](const auto& info) { return fileExtension(info.param).toStdString(); });

// A replaced photo (in place, and converted to another format) keeps its date and camera data;
// the engine, relaunched on the same folder, processes none of the files again.
TEST(CameraPhotoMetadataRestart, NothingIsProcessedTwice) {
    const QStringList photos = testing::cameraPhotos();
    ASSERT_FALSE(photos.isEmpty());
    const std::size_t photoCount = static_cast<std::size_t>(photos.size());
    for (const OriginalPolicy policy : {OriginalPolicy::keep, OriginalPolicy::replace}) {
        const auto pipeline = [](EngineContext& context, const QString& file) {
            return process(context, file);
        };
        testing::EngineRig rig(pipeline);
        std::vector<std::optional<FileTime>> dates;
        std::vector<QJsonObject> sourceTags;
        for (int i = 0; i < photos.size(); ++i) {
            const QString staging = rig.data.file(QStringLiteral("p%1.jpg").arg(i));
            preparedSource(photos[i], staging);
            dates.push_back(modificationTime(staging));
            sourceTags.push_back(exiftoolTags(staging));
            // Moved in whole, as a camera import would.
            ASSERT_TRUE(QFile::rename(staging, rig.file(QStringLiteral("p%1.jpg").arg(i))));
        }
        AppConfig config;
        config.originalPolicy = policy;
        config.formatStrategy = FormatStrategy::webp;  // the source's name goes with replace
        rig.start(config);
        ASSERT_TRUE(testing::eventually([&] { return rig.history().size() == photoCount; },
                                        std::chrono::seconds(60)));
        const auto history = rig.history();
        std::map<QString, QByteArray> outputs;
        for (std::size_t i = 0; i < history.size(); ++i) {
            const QString output = *history[i].outputURL;
            outputs[output] = testing::readFile(output);
            const int index = QFileInfo(history[i].sourceURL).baseName().mid(1).toInt();
            EXPECT_EQ(modificationTime(output), dates[index]) << output.toStdString();
            expectCarried(sourceTags[index], exiftoolTags(output), expectations[0],
                          hasReadableXmp(photos[index]), output.toStdString());
        }

        const std::size_t callsBefore = rig.callCount();
        rig.relaunch(pipeline);
        rig.start(config);
        // A new photo proves that the relaunched engine scanned the folder.
        const QString late = rig.data.file(QStringLiteral("late.jpg"));
        preparedSource(photos[0], late);
        ASSERT_TRUE(QFile::rename(late, rig.file(QStringLiteral("late.jpg"))));
        ASSERT_TRUE(testing::eventually([&] { return rig.history().size() == photoCount + 1; },
                                        std::chrono::seconds(60)));
        rig.engine->stop();
        // Outputs may be looked at (an own output is recognised by its marker and left), but no
        // source is taken up again and no output is written again.
        const auto calls = rig.calls();
        QStringList sourcesTakenUp;
        for (std::size_t i = callsBefore; i < calls.size(); ++i) {
            const QString name = QFileInfo(calls[i].file).fileName();
            if (!name.contains(QLatin1String("_veltcompressed")) &&
                !outputs.contains(calls[i].file))
                sourcesTakenUp << name;
        }
        EXPECT_EQ(sourcesTakenUp, QStringList{QStringLiteral("late.jpg")});
        EXPECT_EQ(QFileInfo(rig.history().back().sourceURL).fileName(), QStringLiteral("late.jpg"));
        for (const auto& [output, bytes] : outputs)
            EXPECT_EQ(testing::readFile(output), bytes) << output.toStdString();
    }
}

}  // namespace
}  // namespace velt
