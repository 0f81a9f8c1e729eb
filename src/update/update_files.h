// File work of the updater: the package digest, moving a download into place, and where the
// running program's portable bundle and its update helper lie.
#pragma once

#include "update/app_update_error.h"

#include <QString>
#include <optional>
#include <variant>

namespace velt {

// Lower-case hexadecimal SHA-256 of the file, read in chunks of 1 MiB; nothing when the file
// cannot be read.
std::optional<QString> sha256(const QString& path);

// Moves `source` to `destination`; across file systems copies and then removes the source.
// Returns the description of the failing step's error, nothing on success.
std::optional<QString> moveOrCopy(const QString& source, const QString& destination);

// The name of the marker file at the root of a portable bundle.
inline constexpr const char* bundleMarkerName = "VELT-BUNDLE";

// The bundle around the executable at `executablePath` (<bundle>/bin/velt-compressor): the
// folder above bin/ when it holds the marker; nothing for a system or build-tree install.
std::optional<QString> bundleOfExecutable(const QString& executablePath);

// Whether the bundle can be replaced: its file system is writable and so is its parent folder.
bool bundleIsReplaceable(const QString& bundle);

// The update helper inside `bundle`.
QString helperInBundle(const QString& bundle);

}  // namespace velt
