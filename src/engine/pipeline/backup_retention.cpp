#include "engine/pipeline/backup_retention.h"

#include "engine/core/file_signature.h"
#include "engine/install/file_operations.h"
#include "model/constants.h"
#include "model/file_url.h"
#include "model/format.h"
#include "model/native_log.h"

#include <QDir>
#include <QDirIterator>

namespace velt {
namespace {

QString backupFolder(const QString& watchDirectory) {
    return QDir(watchDirectory).filePath(backupDirName);
}

// Removes the folders under `folder` (and it) that are empty once the recorded files are gone.
void removeEmptyFolders(const QString& folder) {
    for (const QString& child : QDir(folder).entryList(QDir::Dirs | QDir::NoDotAndDotDot |
                                                       QDir::NoSymLinks | QDir::Hidden))
        removeEmptyFolders(QDir(folder).filePath(child));
    QDir().rmdir(folder);  // fails, harmlessly, while anything is left
}

}  // namespace

BackupUsage removeOldBackups(ProcessedFileRegistry& registry, const QString& watchDirectory,
                             int keepDays, const QDate& today) {
    BackupUsage removed;
    const QString root = backupFolder(watchDirectory);
    if (keepDays <= 0 || !isDirectory(root)) return removed;
    for (const QString& day :
         QDir(root).entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::NoSymLinks)) {
        const QDate date = QDate::fromString(day, QStringLiteral("yyyy-MM-dd"));
        if (!date.isValid() || date.daysTo(today) <= keepDays) continue;
        const QString folder = QDir(root).filePath(day);
        QDirIterator files(folder, QDir::Files | QDir::Hidden | QDir::NoSymLinks,
                           QDirIterator::Subdirectories);
        while (files.hasNext()) {
            const QString path = standardizedPath(files.next());
            const auto recorded = registry.backupSize(path);
            try {
                if (!recorded || !isRegularFile(path) || fileSize(path) != *recorded) continue;
                removeFile(path);
            } catch (const std::exception&) {
                continue;  // left for the next time
            }
            registry.forgetBackup(path);
            removed.files += 1;
            removed.bytes += *recorded;
        }
        removeEmptyFolders(folder);
    }
    if (removed.files > 0)
        NativeLog::write(QStringLiteral("Old backups removed: %1 files, %2")
                             .arg(removed.files)
                             .arg(formatBytes(removed.bytes)));
    return removed;
}

BackupUsage backupUsage(const QString& watchDirectory) {
    BackupUsage usage;
    const QString root = backupFolder(watchDirectory);
    if (!isDirectory(root)) return usage;
    QDirIterator files(root, QDir::Files | QDir::Hidden | QDir::NoSymLinks,
                       QDirIterator::Subdirectories);
    while (files.hasNext()) {
        usage.files += 1;
        usage.bytes += files.nextFileInfo().size();
    }
    return usage;
}

}  // namespace velt
