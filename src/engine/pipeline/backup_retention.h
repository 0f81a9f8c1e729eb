// Keeping the backups in check: day folders of backups older than the chosen number of days are
// removed, and only the files in them that the engine recorded writing (with the size it wrote);
// anything else there, a file the user put in or changed, stays, and so does its folder.
#pragma once

#include "engine/registry/processed_file_registry.h"

#include <QDate>
#include <QString>
#include <cstdint>

namespace velt {

struct BackupUsage {
    std::int64_t files = 0;
    std::int64_t bytes = 0;
};

// Removes the engine's backups in the day folders ("yyyy-MM-dd") of `watchDirectory`'s backup
// folder that are more than `keepDays` days before `today`; nothing when `keepDays` is 0
// (forever). Emptied folders go too. Returns what was removed. Never throws.
BackupUsage removeOldBackups(ProcessedFileRegistry& registry, const QString& watchDirectory,
                             int keepDays, const QDate& today);

// The files in `watchDirectory`'s backup folder and their total size (links not followed).
BackupUsage backupUsage(const QString& watchDirectory);

}  // namespace velt
