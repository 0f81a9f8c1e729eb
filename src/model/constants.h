// Fixed names and limits shared by every subsystem. All immutable; callable from any thread.
#pragma once

#include <QString>
#include <cstdint>

namespace velt {

// "VELT | Compressor": product name in menus, notifications and dialogs.
inline const QString appName = QStringLiteral("VELT | Compressor");
// Name of the per-user data folder and of the log folder.
inline const QString appSupportName = QStringLiteral("velt compressor");
// Backup folder created inside the watched folder.
inline const QString backupDirName = QStringLiteral(".velt-compressor-backups");
// Name suffix of an output written next to a kept original.
inline const QString compressedFileSuffix = QStringLiteral("_veltcompressed");
// Marker in the names of temporary outputs.
inline const QString tempFileMarker = QStringLiteral(".velt-temp");
// Marker in the names of replace staging files.
inline const QString replaceFileMarker = QStringLiteral(".velt-replace");

// Decode safety limits: no image larger than these is ever rasterised.
inline constexpr std::int64_t maximumDecodedPixelCount = 50'000'000;
inline constexpr std::int64_t maximumDecodedRasterBytes = 268'435'456;  // 256 MiB

}  // namespace velt
