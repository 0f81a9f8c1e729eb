#include "engine/encoders/encoder_support.h"

#include "engine/core/errors.h"
#include "engine/core/image_safety.h"
#include "engine/encoders/tool_runner.h"
#include "engine/install/file_operations.h"
#include "engine/install/safe_install.h"
#include "model/atomic_file.h"
#include "model/constants.h"
#include "model/file_url.h"

#include <sys/stat.h>
#include <QFile>
#include <QUuid>
#include <algorithm>
#include <cerrno>

namespace velt {

ToolLocator systemToolLocator() {
    return [](const QString& name) { return toolURL(name); };
}

void finishCandidate(const CandidateFinish& finish, const QString& file, const ImagePlan& plan) {
    if (finish)
        finish(file);
    else
        validateEncodedImage(file, expectedOutputSize(plan.image));
}

QString workDirectory(const EncodingContext& context, const QString& destination) {
    return context.scratchDirectory.isEmpty() ? directoryOf(destination) : context.scratchDirectory;
}

QString directoryOf(const QString& path) {
    return parentFolder(path);
}

QString baseNameOf(const QString& path) {
    return splitFileName(path.mid(path.lastIndexOf(QLatin1Char('/')) + 1)).base;
}

QString temporarySibling(const QString& directory, const QString& base, const QString& infix,
                         const QString& extension) {
    const QString uuid = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    const QString separator =
        directory.endsWith(QLatin1Char('/')) ? QString() : QStringLiteral("/");
    // Room for the tools' own temporary suffixes (pngquant writes NAME + ".tmp" first).
    constexpr qsizetype toolSuffixBytes = 16;
    return directory + separator +
           fittedFileName(QLatin1Char('.') + base,
                          tempFileMarker + infix + uuid + QLatin1Char('.') + extension,
                          toolSuffixBytes);
}

int clampedQuality(int setting) {
    return std::clamp(setting, 0, 100);
}

std::optional<QString> writeProfileSideFile(const QString& directory, const QString& base,
                                            const std::optional<QByteArray>& iccData,
                                            TemporaryFiles& cleanup) {
    if (!iccData || iccData->isEmpty()) return std::nullopt;
    const QString path = cleanup.add(
        temporarySibling(directory, base, QStringLiteral("-profile-"), QStringLiteral("icc")));
    QString reason;
    if (!writeFileAtomically(path, *iccData, &reason))
        throw FileSystemError(FileSystemError::writeUnknown, reason);
    return path;
}

std::int64_t fileSizeOf(const QString& path) {
    struct stat info {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        throw FileSystemError::fromErrno(errno, QStringLiteral("Cannot read the size of"), path);
    return static_cast<std::int64_t>(info.st_size);
}

QString smallestFile(const QStringList& files) {
    QString winner = files.constFirst();
    std::int64_t winnerSize = fileSizeOf(winner);
    for (qsizetype index = 1; index < files.size(); ++index) {
        const std::int64_t size = fileSizeOf(files[index]);
        // Ties keep the earlier file: the list is ordered by preference.
        if (size < winnerSize) {
            winner = files[index];
            winnerSize = size;
        }
    }
    return winner;
}

void moveOverDestination(const QString& winner, const QString& destination) {
    removeQuietly(destination);
    // A rename where it can: the winner is a temporary of this encode, and the destination is
    // flushed when it is installed, so a copy and its flush would only be done twice.
    moveOrCopyFile(winner, destination);
}

}  // namespace velt
