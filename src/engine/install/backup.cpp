// Verified backup copies of originals before they are replaced.
#include "engine/install/safe_install.h"

#include "engine/core/content_fingerprint.h"
#include "engine/core/errors.h"
#include "engine/install/backup_name.h"
#include "engine/install/file_operations.h"
#include "model/format.h"
#include "model/native_log.h"

#include <sys/stat.h>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <cerrno>

namespace velt {
namespace {

// Creates `path` and every missing folder above it. Throws FileSystemError naming the first
// folder that cannot be made, also when a file already stands where a folder must be.
void makeFolders(const QString& path) {
    const QByteArray encoded = QFile::encodeName(path);
    if (::mkdir(encoded.constData(), 0777) == 0) return;
    int error = errno;
    // A missing or non-folder component above: make (or blame) the parent first.
    if (error == ENOENT || error == ENOTDIR) {
        makeFolders(parentFolder(path));
        if (::mkdir(encoded.constData(), 0777) == 0) return;
        error = errno;
    }
    if (error == EEXIST) {
        struct stat info {};
        if (::stat(encoded.constData(), &info) == 0 && S_ISDIR(info.st_mode)) return;
        error = ENOTDIR;
    }
    throw FileSystemError::fromErrno(error, QStringLiteral("Cannot create the folder"), path);
}

// The source's path relative to the watched folder. Every occurrence of the folder's path is
// removed, not only a leading one; for a file directly inside the folder this is its name.
QString relativeBackupPath(const QString& source, const QString& watchDirectory) {
    QString relative = source;
    if (!watchDirectory.isEmpty()) relative.remove(watchDirectory);
    qsizetype start = 0;
    qsizetype end = relative.size();
    while (start < end && relative.at(start) == QLatin1Char('/')) ++start;
    while (end > start && relative.at(end - 1) == QLatin1Char('/')) --end;
    return relative.mid(start, end - start);
}

QString joinPath(const QString& folder, const QString& name) {
    return folder.endsWith(QLatin1Char('/')) ? folder + name : folder + QLatin1Char('/') + name;
}

// Refuses a backup folder reached through a symbolic link anywhere below the watched folder: the
// copies would land outside it, wherever the link points.
void refuseLinkedFolders(const QString& watchDirectory, const QString& relativeFolder) {
    QString path = watchDirectory;
    for (const QString& part : relativeFolder.split(QLatin1Char('/'), Qt::SkipEmptyParts)) {
        path = joinPath(path, part);
        if (isSymbolicLink(path))
            throw FileSystemError(
                FileSystemError::writeUnknown,
                QStringLiteral("“%1” is a symbolic link; no backup is made through it, and "
                               "nothing was replaced")
                    .arg(path));
    }
}

QString backupName(const FileNameParts& parts, const QString& suffix) {
    QString tail = QStringLiteral(".original") + suffix;
    if (!parts.extension.isEmpty()) tail += QLatin1Char('.') + parts.extension;
    return fittedFileName(parts.base, tail);
}

// A copy that cannot be read back or does not match is not a backup: it is removed.
void verifyCopy(const QString& copy, const SourceVersion& expected) {
    bool matches = false;
    try {
        matches =
            fileSize(copy) == expected.signature.size && sha256Digest(copy) == expected.digest;
    } catch (...) {
        removeQuietly(copy);
        throw;
    }
    if (!matches) {
        removeQuietly(copy);
        throw FolderCompressorControlError(FolderCompressorControlError::sourceChanged);
    }
}

// The backup names of the file `fileName` in `folder`: base.original[-S[-n]].ext.
QStringList backupNamesIn(const QString& folder, const QString& fileName) {
    const FileNameParts parts = splitFileName(fileName);
    const QString prefix = fittedFileName(parts.base, QStringLiteral(".original"));
    const QString suffix =
        parts.extension.isEmpty() ? QString() : QLatin1Char('.') + parts.extension;
    QStringList names;
    for (const QString& name :
         QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::NoSymLinks)) {
        if (name.startsWith(prefix) && name.endsWith(suffix) && !name.startsWith(QLatin1Char('.')))
            names << QDir(folder).filePath(name);
    }
    return names;
}

}  // namespace

std::optional<QString> findBackup(const QString& source, const QByteArray& digest,
                                  const QString& watchDirectory, std::optional<std::int64_t> size) {
    const QString relative = relativeBackupPath(source, watchDirectory);
    if (relative.isEmpty() || digest.isEmpty()) return std::nullopt;
    const qsizetype slash = relative.lastIndexOf(QLatin1Char('/'));
    const QString subfolder = slash < 0 ? QString() : relative.left(slash);
    if (!isDirectory(joinPath(watchDirectory, backupDirName))) return std::nullopt;  // or a link
    const QDir backups(joinPath(watchDirectory, backupDirName));
    for (const QString& day :
         backups.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::NoSymLinks)) {
        const QString folder = joinPath(backups.filePath(day), subfolder);
        for (const QString& candidate : backupNamesIn(folder, relative.mid(slash + 1))) {
            try {
                if (size && fileSize(candidate) != *size) continue;
                if (sha256Digest(candidate) == digest) return candidate;
            } catch (const std::exception&) {
                // Unreadable: not a backup to rely on.
            }
        }
    }
    return std::nullopt;
}

QString freeBackupPath(const QString& folder, const QString& fileName,
                       const std::function<qint64()>& clock) {
    const FileNameParts parts = splitFileName(fileName);
    QString candidate = joinPath(folder, backupName(parts, QString()));
    if (!pathExists(candidate)) return candidate;
    const QString stamp = QLatin1Char('-') + QString::number(clock());
    candidate = joinPath(folder, backupName(parts, stamp));
    for (int retry = 1; pathExists(candidate); ++retry)
        candidate =
            joinPath(folder, backupName(parts, stamp + QLatin1Char('-') + QString::number(retry)));
    return candidate;
}

QString backup(const QString& source, const SourceVersion& expected,
               const std::optional<QString>& watchDirectory) {
    if (!watchDirectory)
        throw FileSystemError(FileSystemError::noSuchFile,
                              QStringLiteral("Cannot back up %1: no folder is watched").arg(source),
                              Message{Text::cannotReplaceSafely, {}});
    const QString relative = relativeBackupPath(source, *watchDirectory);
    if (relative.isEmpty())
        throw FileSystemError(FileSystemError::noSuchFile,
                              QStringLiteral("Cannot back up %1: it is not a file").arg(source),
                              Message{Text::cannotReplaceSafely, {}});
    // A run killed between its backup and its install left a verified copy of this very content:
    // it is the backup, not a second one.
    if (const auto existing =
            findBackup(source, expected.digest, *watchDirectory, expected.signature.size)) {
        NativeLog::write(QStringLiteral("Backup reused ") + *existing);
        return *existing;
    }
    const qsizetype slash = relative.lastIndexOf(QLatin1Char('/'));
    const QString dayFolder = backupDirName + QLatin1Char('/') + isoDay();
    const QString inside = slash < 0 ? dayFolder : joinPath(dayFolder, relative.left(slash));
    refuseLinkedFolders(*watchDirectory, inside);
    const QString folder = joinPath(*watchDirectory, inside);
    makeFolders(folder);
    const QString copy = freeBackupPath(folder, relative.mid(slash + 1),
                                        [] { return QDateTime::currentMSecsSinceEpoch(); });
    // The copy appears under its final name only complete and verified: a kill halfway leaves a
    // hidden temporary file (removed at the next start), never a truncated "original".
    const QString temporary = tempURL(copy);
    currentFileOperations().copy(source, temporary);
    verifyCopy(temporary, expected);
    try {
        currentFileOperations().move(temporary, copy);
    } catch (...) {
        removeQuietly(temporary);
        throw;
    }
    syncFolder(folder);
    return copy;
}

}  // namespace velt
