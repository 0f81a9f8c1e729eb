#include "camera_photos.h"

#include "support/test_images.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>

namespace velt::testing {
namespace {

using namespace Qt::StringLiterals;

const char* const wallpapers[] = {"FallenLeaf", "ColorfulCups", "Path"};

QString cacheFolder() {
    return QStringLiteral(VELT_TEST_CACHE_DIR "/camera-photos");
}

QStringList cachedPhotos() {
    QStringList paths;
    for (const char* name : wallpapers) {
        const QString path =
            cacheFolder() + QLatin1Char('/') + QLatin1String(name) + QStringLiteral(".jpg");
        if (QFile(path).size() > 0) paths << path;
    }
    return paths;
}

bool fetchPhotos() {
    QProcess process;
    process.start(QStringLiteral("sh"), {QStringLiteral(VELT_CAMERA_PHOTO_FETCHER), cacheFolder()});
    // A slow mirror may take minutes for the package; the photographs are cached after that.
    return process.waitForFinished(900'000) && process.exitStatus() == QProcess::NormalExit &&
           process.exitCode() == 0;
}

// What a photographer cares about; each must come through unchanged where metadata is kept.
const QStringList keptTags = {
    u"Make"_s,         u"Model"_s,   u"LensModel"_s, u"DateTimeOriginal"_s,
    u"ExposureTime"_s, u"FNumber"_s, u"ISO"_s,       u"Copyright"_s,
    u"Artist"_s};

// 2015-10-29 15:44:44 UTC: the day the first photograph was taken.
constexpr std::time_t captureDay = 1446133484;

}  // namespace

void prepareCameraPhoto(const QString& photo, const QString& path) {
    EXPECT_TRUE(QFile::copy(photo, path));
    EXPECT_TRUE(testing::exiftoolWrite(
        path, {u"-Copyright=VELT test copyright"_s, u"-GPSLatitude=48.8584"_s,
               u"-GPSLatitudeRef=N"_s, u"-GPSLongitude=2.2945"_s, u"-GPSLongitudeRef=E"_s,
               u"-XMP-photoshop:City=Paris"_s, u"-XMP-exif:GPSLatitude=48.8584"_s,
               u"-XMP-exif:GPSLongitude=2.2945"_s, u"-IFD0:Orientation#=6"_s}));
    const struct timespec times[2] = {{captureDay, 250'000'000}, {captureDay, 500'000'000}};
    EXPECT_EQ(::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0), 0);
}

bool hasReadableXmp(const QString& photo) {
    return QFileInfo(photo).baseName() == QLatin1String("FallenLeaf");
}

void expectCarried(const QJsonObject& source, const QJsonObject& output, MetadataPolicy policy,
                   bool readableXmp, const std::string& label) {
    const bool cameraData = policy != MetadataPolicy::strip;
    int compared = 0;
    for (const QString& tag : keptTags) {
        const auto expected = tagValue(source, tag);
        if (!expected) continue;
        ++compared;
        if (cameraData) {
            EXPECT_EQ(tagValue(output, tag), expected) << label << " " << tag.toStdString();
        } else {
            EXPECT_FALSE(tagValue(output, tag)) << label << " " << tag.toStdString();
        }
    }
    EXPECT_GE(compared, 6) << label << ": the source lacks camera data";
    if (cameraData) {
        EXPECT_EQ(tagValue(output, QStringLiteral("Orientation")), 1) << label;
    }
    EXPECT_FALSE(tagValue(output, QStringLiteral("ThumbnailImage"))) << label;
    EXPECT_FALSE(tagValue(output, QStringLiteral("ThumbnailLength"))) << label;
    const QStringList location = locationTags(output);
    if (policy == MetadataPolicy::keepAll) {
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

QStringList cameraPhotos() {
    const qsizetype wanted = std::size(wallpapers);
    if (cachedPhotos().size() == wanted) return cachedPhotos();
    fetchPhotos();  // the script locks its folder: parallel tests fetch once
    const QStringList photos = cachedPhotos();
    if (photos.size() != wanted) {
        ADD_FAILURE() << "The camera photographs could not be fetched into "
                      << cacheFolder().toStdString()
                      << " (apt-get download plasma-workspace-wallpapers needs Debian's mirrors)";
        return {};
    }
    return photos;
}

std::map<QString, QJsonObject> exiftoolTagsIn(const QString& path) {
    const auto output =
        runProgram(u"exiftool"_s, {u"-j"_s, u"-a"_s, u"-G1"_s, u"-n"_s, u"-q"_s, u"-q"_s, path});
    if (!output) ADD_FAILURE() << "exiftool could not read " << path.toStdString();
    std::map<QString, QJsonObject> tags;
    for (const QJsonValue& file : QJsonDocument::fromJson(output.value_or("[]")).array())
        tags[QFileInfo(file[u"SourceFile"_s].toString()).fileName()] = file.toObject();
    return tags;
}

QJsonObject exiftoolTags(const QString& path) {
    const auto tags = exiftoolTagsIn(path);
    return tags.empty() ? QJsonObject() : tags.begin()->second;
}

std::optional<QJsonValue> tagValue(const QJsonObject& tags, const QString& tag) {
    for (auto it = tags.begin(); it != tags.end(); ++it)
        if (it.key().endsWith(QLatin1Char(':') + tag)) return it.value();
    return std::nullopt;
}

QStringList locationTags(const QJsonObject& tags) {
    QStringList found;
    for (const QString& key : tags.keys()) {
        if (key.contains(QLatin1String("GPS"), Qt::CaseInsensitive) ||
            key.endsWith(QLatin1String(":City")) || key.endsWith(QLatin1String(":Country")) ||
            key.endsWith(QLatin1String(":State")) || key.contains(QLatin1String("Location")))
            found << key;
    }
    return found;
}

bool copyWithDates(const QString& from, const QString& to) {
    return runProgram(QStringLiteral("cp"), {QStringLiteral("-p"), from, to}).has_value();
}

bool exiftoolWrite(const QString& path, const QStringList& arguments) {
    return runProgram(QStringLiteral("exiftool"),
                      QStringList{QStringLiteral("-q"), QStringLiteral("-overwrite_original")} +
                          arguments + QStringList{path})
        .has_value();
}

}  // namespace velt::testing
