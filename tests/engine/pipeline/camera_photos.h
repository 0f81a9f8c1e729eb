// Real photographs with the EXIF their cameras wrote, and exiftool as the independent reader of
// what an output carries.
#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <optional>

namespace velt::testing {

// Paths of real camera JPEGs (400×250 exports from a Canon EOS 70D, a Sony NEX-3N and an Olympus
// E-M1, from Debian's plasma-workspace-wallpapers), fetched once with apt-get download into the
// build folder's test cache. Fails the calling test loudly, and returns nothing, when they cannot
// be had: a metadata test without its photographs must not pass.
QStringList cameraPhotos();

// Every tag exiftool reads from the file, as "Group1:Tag" → numeric value (-a -G1 -n).
QJsonObject exiftoolTags(const QString& path);

// The value of the first tag named `tag` in any group; nothing when absent.
std::optional<QJsonValue> tagValue(const QJsonObject& tags, const QString& tag);

// Tags whose name or group speaks of where the photo was taken.
QStringList locationTags(const QJsonObject& tags);

// Copies the file with its access and modification times (cp -p).
bool copyWithDates(const QString& from, const QString& to);

// Runs exiftool with `arguments` (writing in place); false when it fails.
bool exiftoolWrite(const QString& path, const QStringList& arguments);

}  // namespace velt::testing
