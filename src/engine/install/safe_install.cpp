#include "engine/install/safe_install.h"

#include "engine/install/file_operations.h"

#include <QUuid>

namespace velt {
namespace {

// Everything up to and including the last "/", so a new name lands in the same folder.
QString folderPrefix(const QString& path) {
    return path.left(path.lastIndexOf(QLatin1Char('/')) + 1);
}

QString fileName(const QString& path) {
    return path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
}

// Puts the moved-aside file back under its own name, unless something has taken that name in the
// meantime. A failed restore leaves the aside file hidden beside it, where the user can still find
// it; the caller reports the error that made the restore necessary, not the restore's own.
void restoreAside(const QString& aside, const QString& path) noexcept {
    if (pathExists(path)) return;
    try {
        currentFileOperations().move(aside, path);
    } catch (...) {
    }
}

// The install without flushing: shared by replaceOutputFile and the converting replacement.
void installOutput(const QString& tempPath, const QString& output) {
    std::optional<QString> aside;
    // Only a file is moved aside. A folder under the output's name stays where it is and makes the
    // install fail below, instead of vanishing under a hidden name.
    if (pathExists(output) && !isDirectory(output)) {
        aside = tempURL(output, replaceFileMarker);
        currentFileOperations().move(output, *aside);
    }
    try {
        moveOrCopyFile(tempPath, output);
    } catch (...) {
        if (aside) restoreAside(*aside, output);
        throw;
    }
    if (aside) removeQuietly(*aside);
}

// Moves `original` aside, verifies it there (after the move, so no writer can slip in between
// check and replacement), runs `install` and removes the aside file; on a failure of the check or
// of the install the original is moved back.
template <typename Install>
void replaceVerified(const QString& tempPath, const QString& original,
                     const SourceVersion& expected, const Install& install) {
    syncFile(tempPath);
    const QString aside = tempURL(original, replaceFileMarker);
    currentFileOperations().move(original, aside);
    try {
        requireSourceUnchanged(aside, expected);
        install();
    } catch (...) {
        restoreAside(aside, original);
        throw;
    }
    removeQuietly(aside);
    syncFolder(parentFolder(original));
}

}  // namespace

QString tempURL(const QString& finalPath, const QString& marker) {
    const FileNameParts parts = splitFileName(fileName(finalPath));
    const QString extension = parts.extension.isEmpty() ? QStringLiteral("tmp") : parts.extension;
    const QString uuid = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    return folderPrefix(finalPath) +
           fittedFileName(QLatin1Char('.') + parts.base,
                          marker + QLatin1Char('-') + uuid + QLatin1Char('.') + extension);
}

void moveOrCopyFile(const QString& from, const QString& to) {
    const FileOperations& operations = currentFileOperations();
    try {
        operations.move(from, to);
        return;
    } catch (const std::exception&) {
        // Blocked or across volumes: the copy below decides, and its error is the one reported.
    }
    operations.copy(from, to);
    removeQuietly(from);
}

void replaceOutputFile(const QString& tempPath, const QString& output) {
    syncFile(tempPath);
    installOutput(tempPath, output);
    syncFolder(parentFolder(output));
}

void replaceOriginalSafely(const QString& tempPath, const QString& original,
                           const SourceVersion& expected) {
    replaceVerified(tempPath, original, expected, [&] { moveOrCopyFile(tempPath, original); });
}

void replaceConvertedOriginalSafely(const QString& tempPath, const QString& output,
                                    const QString& original, const SourceVersion& expected) {
    replaceVerified(tempPath, original, expected, [&] { installOutput(tempPath, output); });
}

}  // namespace velt
