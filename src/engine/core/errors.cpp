#include "engine/core/errors.h"

#include <cerrno>
#include <cstring>

namespace velt {

FileSystemError FileSystemError::fromErrno(int errorNumber, const QString& operation,
                                           const QString& path) {
    Code code = readUnknown;
    if (errorNumber == ENOENT || errorNumber == ENOTDIR) code = noSuchFile;
    if (errorNumber == EACCES || errorNumber == EPERM || errorNumber == EROFS)
        code = writeNoPermission;
    if (errorNumber == ENOSPC || errorNumber == EDQUOT) code = noSpace;
    return FileSystemError(code, operation + QLatin1Char(' ') + path + QStringLiteral(": ") +
                                     QString::fromLocal8Bit(std::strerror(errorNumber)));
}

bool isEnvironmentFailure(const std::exception& error) {
    const auto* fileError = dynamic_cast<const FileSystemError*>(&error);
    return fileError && (fileError->code() == FileSystemError::writeNoPermission ||
                         fileError->code() == FileSystemError::noSpace);
}

QString errorDescription(const std::exception& error) {
    if (const auto* fileError = dynamic_cast<const FileSystemError*>(&error))
        return fileError->description();
    return QString::fromUtf8(error.what());
}

}  // namespace velt
