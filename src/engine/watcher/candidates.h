// Which files in the watched folder are candidates for processing.
#pragma once

#include "engine/core/file_signature.h"

#include <QSet>
#include <QString>
#include <QStringList>
#include <functional>
#include <vector>

namespace velt {

// Files still being downloaded or written.
extern const QSet<QString> temporaryExtensions;
// Extensions that are processed.
extern const QSet<QString> supportedExtensions;
// Extensions of media the user may expect to be handled: they raise an unsupported-file notice.
extern const QSet<QString> unsupportedDropExtensions;

// The lower-cased extension of a path's file name ("" when none).
QString lowerExtension(const QString& path);

// Whether `child` is the folder or lies inside it, comparing standardised paths.
bool isDescendant(const QString& child, const QString& folder);

// Files that are never candidates: hidden and office lock files, the engine's own temporary,
// moved-aside and "_veltcompressed" files, partial downloads, anything in the backup folder,
// anything outside the folder.
bool shouldIgnore(const QString& file, const QString& folder);

// The candidate files directly inside `folder`, in directory order: regular files only (symbolic
// links are never followed), not hidden, not ignored, with a supported extension. Every other
// regular file that is not ignored and whose extension is in unsupportedDropExtensions is passed
// to `reportUnsupported` (other files are passed over without a look). A file whose name is not
// valid UTF-8 (Linux names are bytes) is never a candidate: the program's file operations work on
// text paths and would reach another name. It is passed to `reportUndecodableName`, when given,
// with its raw name and its signature. An unreadable folder gives no candidates.
using UndecodableNameReport =
    std::function<void(const QByteArray& rawName, const FileSignature& signature)>;
QStringList supportedFiles(const QString& folder,
                           const std::function<void(const QString&)>& reportUnsupported,
                           const UndecodableNameReport& reportUndecodableName = nullptr);

// The same rules for the entries of `folder` named `rawNames` only (names that file events
// reported); names that no longer exist are passed over.
QStringList candidatesAmong(const QString& folder, const std::vector<QByteArray>& rawNames,
                            const std::function<void(const QString&)>& reportUnsupported,
                            const UndecodableNameReport& reportUndecodableName = nullptr);

}  // namespace velt
