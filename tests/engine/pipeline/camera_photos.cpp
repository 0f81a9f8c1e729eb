#include "camera_photos.h"

#include "support/test_images.h"

#include <gtest/gtest.h>
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

}  // namespace

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

QJsonObject exiftoolTags(const QString& path) {
    const auto output =
        runProgram(u"exiftool"_s, {u"-j"_s, u"-a"_s, u"-G1"_s, u"-n"_s, u"-q"_s, u"-q"_s, path});
    if (!output) {
        ADD_FAILURE() << "exiftool could not read " << path.toStdString();
        return {};
    }
    return QJsonDocument::fromJson(*output).array().at(0).toObject();
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
