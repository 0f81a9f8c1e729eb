#include "engine/core/errors.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstring>

namespace velt {
namespace {

Message reasonOfErrno(int errorNumber) {
    switch (errorNumber) {
        case ENOSPC:
        case EDQUOT:
            return {Text::diskFull, {}};
        case EACCES:
        case EPERM:
            return {Text::noPermission, {}};
        case EROFS:
            return {Text::diskReadOnly, {}};
        case ENOENT:
        case ENOTDIR:
            return {Text::fileDisappeared, {}};
        default:
            break;
    }
    const char* name = ::strerrorname_np(errorNumber);
    return {Text::readWriteError,
            {name ? QString::fromLatin1(name) : QString::number(errorNumber)}};
}

// The reasons a full, read-only or closed folder can be behind.
bool mayBeTheDisk(Text id) {
    switch (id) {
        case Text::encodingFailed:
        case Text::encoderFailed:
        case Text::encoderTimedOut:
        case Text::outputRejected:
        case Text::readWriteError:
        case Text::unexpectedError:
        case Text::noPermission:
            return true;
        default:
            return false;
    }
}

}  // namespace

FileSystemError FileSystemError::fromErrno(int errorNumber, const QString& operation,
                                           const QString& path) {
    Code code = readUnknown;
    if (errorNumber == ENOENT || errorNumber == ENOTDIR) code = noSuchFile;
    if (errorNumber == EACCES || errorNumber == EPERM || errorNumber == EROFS)
        code = writeNoPermission;
    if (errorNumber == ENOSPC || errorNumber == EDQUOT) code = noSpace;
    // strerrordesc_np: the C library's English text whatever the locale, as the log needs.
    const char* description = ::strerrordesc_np(errorNumber);
    return FileSystemError(
        code,
        operation + QLatin1Char(' ') + path + QStringLiteral(": ") +
            (description ? QString::fromUtf8(description) : QString::number(errorNumber)),
        reasonOfErrno(errorNumber));
}

Message FileSystemError::reason() const {
    if (reason_) return *reason_;
    switch (code_) {
        case noSuchFile:
            return {Text::fileDisappeared, {}};
        case readCorruptFile:
            return {Text::fileDamaged, {}};
        case readUnsupportedScheme:
            return {Text::formatUnsupported, {}};
        case writeNoPermission:
            return {Text::noPermission, {}};
        case noSpace:
            return {Text::diskFull, {}};
        case readUnknown:
        case writeUnknown:
        case writeUnsupportedScheme:
        case launchFailed:
            break;
    }
    return {Text::unexpectedError, {}};
}

bool isEnvironmentFailure(const Message& reason) {
    return reason.id == Text::diskFull || reason.id == Text::diskReadOnly ||
           reason.id == Text::noPermission;
}

QString errorDescription(const std::exception& error) {
    if (const auto* fileError = dynamic_cast<const FileSystemError*>(&error))
        return fileError->description();
    return QString::fromUtf8(error.what());
}

Message failureReason(const std::exception& error, const QString& file) {
    const Message reason = reasonOf(error);
    if (!mayBeTheDisk(reason.id)) return reason;
    const QByteArray folder = QFile::encodeName(QFileInfo(file).absolutePath());
    struct statvfs disk {};
    if (::statvfs(folder.constData(), &disk) != 0) return reason;
    if (disk.f_flag & ST_RDONLY) return {Text::diskReadOnly, {}};
    // Too little room left for a copy of the file: whatever failed, the disk is full.
    struct stat source {};
    const auto available = static_cast<std::int64_t>(disk.f_bavail * disk.f_frsize);
    if (::stat(QFile::encodeName(file).constData(), &source) == 0 && available < source.st_size)
        return {Text::diskFull, {}};
    if (::access(folder.constData(), W_OK) != 0) return {Text::noPermission, {}};
    return reason;
}

}  // namespace velt
