// Safe installation: the one place where the engine writes over or removes a user's file.
//
// Encoders only write hidden temporary files. An existing file is first moved aside under a
// hidden ".velt-replace" name and restored if anything fails; with the replace policy a copy of
// the source verified by size and SHA-256 is put into the dated backup folder first. After any
// failure the user's file is untouched, restored from the moved-aside file, or in the backup.
//
// All of this runs on the engine's queue. Failures throw FileSystemError, or
// FolderCompressorControlError::sourceChanged when the source no longer matches its version.
#pragma once

#include "engine/install/source_version.h"
#include "model/constants.h"
#include "model/file_url.h"

#include <QString>
#include <optional>

namespace velt {

// A fresh hidden name beside `finalPath`: "." + base + marker + "-" + UUID (upper case) + "." +
// extension ("tmp" when the file has none), the base cut short when the name would pass 255
// bytes (it only has to be unique and recognisable: recovery knows it by the leading ".", the
// marker and the UUID before the extension). Nothing is created.
QString tempURL(const QString& finalPath, const QString& marker = tempFileMarker);

// Moves `from` to `to` (atomic within one file system, never over an existing file); when that
// fails, copies and then removes `from` (a failed removal is ignored). Throws the copy's error.
void moveOrCopyFile(const QString& from, const QString& to);

// Installs the finished temporary file as `output`, moving an existing `output` aside first and
// putting it back if the install fails. The temporary file is flushed to disk before anything is
// touched. A folder under the name `output` is never moved: the install fails and leaves it.
void replaceOutputFile(const QString& tempPath, const QString& output);

// Replaces `original` by the temporary file under the same name. The original is moved aside
// first and verified there against `expected`, so no writer can slip in between check and
// replacement; on any failure it is moved back.
void replaceOriginalSafely(const QString& tempPath, const QString& original,
                           const SourceVersion& expected);

// As replaceOriginalSafely, but the new file takes the name `output` (another extension) and the
// source name disappears. REQUIRES: a verified backup of `original` exists.
void replaceConvertedOriginalSafely(const QString& tempPath, const QString& output,
                                    const QString& original, const SourceVersion& expected);

// Copies `source` into watchDirectory/.velt-compressor-backups/<isoDay>/<relative path> as
// base.original.ext (or base.original-<ms>[-n].ext when taken) and verifies the copy's size and
// SHA-256 against `expected`. Returns the copy's path. A copy that does not verify is removed
// and sourceChanged is thrown. Throws FileSystemError(noSuchFile) without a watched folder.
// A verified backup of the same content already there (from a run killed before its install, on
// any day) is returned instead of making a second.
QString backup(const QString& source, const SourceVersion& expected,
               const std::optional<QString>& watchDirectory);

// A backup of `source` (by its path relative to the watched folder) in any day's folder whose
// SHA-256 is `digest` (and whose size is `size`, when given); nothing when there is none.
std::optional<QString> findBackup(const QString& source, const QByteArray& digest,
                                  const QString& watchDirectory,
                                  std::optional<std::int64_t> size = std::nullopt);

}  // namespace velt
