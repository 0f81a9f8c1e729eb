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
    return FileSystemError(code, operation + QLatin1Char(' ') + path + QStringLiteral(": ") +
                                     QString::fromLocal8Bit(std::strerror(errorNumber)));
}

QString errorDescription(const std::exception& error) {
    if (const auto* fileError = dynamic_cast<const FileSystemError*>(&error))
        return fileError->description();
    return QString::fromUtf8(error.what());
}

}  // namespace velt
