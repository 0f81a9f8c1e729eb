// Real photographs with the EXIF their cameras wrote, and exiftool as the independent reader of
// what an output carries.
#pragma once

#include "model/settings.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <map>
#include <optional>
#include <string>

namespace velt::testing {

// Paths of real camera JPEGs (400×250 exports from a Canon EOS 70D, a Sony NEX-3N and an Olympus
// E-M1, from Debian's plasma-workspace-wallpapers), fetched once with apt-get download into the
// build folder's test cache. Fails the calling test loudly, and returns nothing, when they cannot
// be had: a metadata test without its photographs must not pass.
QStringList cameraPhotos();

// A copy of a camera photo at `path` as a phone would deliver it: a location (EXIF GPS and XMP
// city), a copyright, turned by Orientation 6 (stored sideways), dated on its capture day.
void prepareCameraPhoto(const QString& photo, const QString& path);

// Lightroom wrote duplicate properties into the XMP packets of two of the photographs (exiftool
// reads them with the warning "Duplicate XMP property"); exiv2 cannot parse such a packet, so it
// is left out with one log line and the EXIF still goes through.
bool hasReadableXmp(const QString& photo);

// Checks what an output of a prepared photo carries under `policy`: capture date, camera, lens,
// exposure and copyright unless strip; the location only under keepAll; never a thumbnail.
void expectCarried(const QJsonObject& source, const QJsonObject& output, MetadataPolicy policy,
                   bool readableXmp, const std::string& label);

// Every tag exiftool reads from the file, as "Group1:Tag" → numeric value (-a -G1 -n).
QJsonObject exiftoolTags(const QString& path);
// The same for every file in `folder`, in one run, by file name.
std::map<QString, QJsonObject> exiftoolTagsIn(const QString& folder);

// The value of the first tag named `tag` in any group; nothing when absent.
std::optional<QJsonValue> tagValue(const QJsonObject& tags, const QString& tag);

// Tags whose name or group speaks of where the photo was taken.
QStringList locationTags(const QJsonObject& tags);

// Copies the file with its access and modification times (cp -p).
bool copyWithDates(const QString& from, const QString& to);

// Runs exiftool with `arguments` (writing in place); false when it fails.
bool exiftoolWrite(const QString& path, const QStringList& arguments);

}  // namespace velt::testing
