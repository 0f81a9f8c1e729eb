#include "engine/install/recovery.h"

#include "engine/install/file_operations.h"
#include "engine/install/output_marker.h"
#include "model/constants.h"
#include "model/native_log.h"

#include <QDir>
#include <QDirIterator>
#include <QRegularExpression>

namespace velt {
namespace {

// "." + base + marker + anything + "-" + UUID + "." + extension.
const QRegularExpression& ownShape() {
    static const QRegularExpression shape(QStringLiteral(
        "^\\.(.*)(\\.velt-temp|\\.velt-replace)(.*)-[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-"
        "[0-9A-F]{4}-[0-9A-F]{12}\\.([^./]+)$"));
    return shape;
}

QString joined(const QString& folder, const QString& name) {
    return folder + QLatin1Char('/') + name;
}

void removeLeftover(const QString& path, const QString& name) {
    try {
        removeFile(path);
        NativeLog::write(QStringLiteral("Removed leftover temporary file ") + name);
    } catch (const std::exception& error) {
        NativeLog::write(QStringLiteral("Could not remove leftover temporary file ") + path +
                         QStringLiteral(": ") + QString::fromUtf8(error.what()));
    }
}

// Whether the file at `installed` is a finished install of ours made from the content now in
// the moved-aside file `aside` (an original replaced in place, or an earlier output of the same
// source replaced by a newer one).
bool supersededBy(const QString& aside, const QString& installed) {
    const auto marker = readOutputMarker(installed);
    if (!marker) return false;
    if (const auto older = readOutputMarker(aside); older && older->source == marker->source)
        return true;
    if (marker->sourceDigest.isEmpty()) return false;
    try {
        return sha256Digest(aside) == marker->sourceDigest;
    } catch (const std::exception&) {
        return false;
    }
}

void recoverMovedAside(const QString& folder, const QString& name) {
    const QString aside = joined(folder, name);
    const QString original = joined(folder, originalNameOfMovedAside(name));
    try {
        if (!pathExists(original)) {
            moveWithoutReplacing(aside, original);
            NativeLog::write(QStringLiteral("Restored moved-aside file ") + original);
            return;
        }
        if (supersededBy(aside, original)) {
            removeFile(aside);
            NativeLog::write(QStringLiteral("Removed moved-aside file of a finished install ") +
                             name);
            return;
        }
        NativeLog::write(QStringLiteral("Left moved-aside file ") + aside +
                         QStringLiteral(": its name is taken by another file"));
    } catch (const std::exception& error) {
        NativeLog::write(QStringLiteral("Could not recover moved-aside file ") + aside +
                         QStringLiteral(": ") + QString::fromUtf8(error.what()));
    }
}

}  // namespace

bool isTemporaryName(const QString& name) {
    const auto match = ownShape().match(name);
    return match.hasMatch() && match.captured(2) == tempFileMarker;
}

bool isMovedAsideName(const QString& name) {
    const auto match = ownShape().match(name);
    return match.hasMatch() && match.captured(2) == replaceFileMarker &&
           match.captured(3).isEmpty();
}

QString originalNameOfMovedAside(const QString& name) {
    if (!isMovedAsideName(name)) return {};
    const auto match = ownShape().match(name);
    const QString extension = match.captured(4);
    // A file without an extension was moved aside with "tmp".
    if (extension == QLatin1String("tmp")) return match.captured(1);
    return match.captured(1) + QLatin1Char('.') + extension;
}

void recoverInterruptedWork(const QString& watchDirectory) {
    const QDir folder(watchDirectory);
    const QStringList hidden =
        folder.entryList(QDir::Files | QDir::Hidden | QDir::NoSymLinks | QDir::System);
    for (const QString& name : hidden) {
        if (!name.startsWith(QLatin1Char('.'))) continue;
        if (isTemporaryName(name))
            removeLeftover(folder.filePath(name), name);
        else if (isMovedAsideName(name))
            recoverMovedAside(watchDirectory, name);
    }
    // A killed backup copy leaves its temporary name inside the backup folder (never looked for
    // through a link: what it points to is not ours).
    if (!isDirectory(folder.filePath(backupDirName))) return;
    QDirIterator backups(folder.filePath(backupDirName),
                         QDir::Files | QDir::Hidden | QDir::NoSymLinks,
                         QDirIterator::Subdirectories);
    while (backups.hasNext()) {
        const QString path = backups.next();
        if (isTemporaryName(backups.fileName())) removeLeftover(path, backups.fileName());
    }
}

}  // namespace velt
