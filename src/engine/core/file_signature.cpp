#include "engine/core/file_signature.h"

#include "engine/core/errors.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <QFile>
#include <cerrno>

namespace velt {
namespace {

FileTime toFileTime(const struct statx_timestamp& stamp) {
    return FileTime(std::chrono::seconds(stamp.tv_sec) + std::chrono::nanoseconds(stamp.tv_nsec));
}

bool readStatxAt(int folder, const char* name, struct statx& result) {
    return ::statx(folder, name, AT_SYMLINK_NOFOLLOW,
                   STATX_SIZE | STATX_MTIME | STATX_BTIME | STATX_INO, &result) == 0;
}

bool readStatx(const QString& path, struct statx& result) {
    return readStatxAt(AT_FDCWD, QFile::encodeName(path).constData(), result);
}

std::optional<FileSignature> signatureOf(const struct statx& info) {
    if (!(info.stx_mask & STATX_MTIME)) return std::nullopt;
    FileSignature signature;
    signature.size = (info.stx_mask & STATX_SIZE) ? static_cast<std::int64_t>(info.stx_size) : 0;
    signature.modifiedAt = toFileTime(info.stx_mtime);
    if (info.stx_mask & STATX_BTIME) signature.attributeModifiedAt = toFileTime(info.stx_btime);
    if (info.stx_mask & STATX_INO) signature.resourceIdentifier = QString::number(info.stx_ino);
    return signature;
}

}  // namespace

std::optional<FileSignature> fileSignature(const QString& path) {
    struct statx info {};
    if (!readStatx(path, info)) return std::nullopt;
    return signatureOf(info);
}

std::optional<FileSignature> fileSignatureAt(int folder, const char* name) {
    struct statx info {};
    if (!readStatxAt(folder, name, info)) return std::nullopt;
    return signatureOf(info);
}

std::int64_t fileSize(const QString& path) {
    struct statx info {};
    if (!readStatx(path, info))
        throw FileSystemError::fromErrno(errno, QStringLiteral("Cannot read the size of"), path);
    if (!(info.stx_mask & STATX_SIZE))
        throw FileSystemError(FileSystemError::readUnknown,
                              QStringLiteral("The size of %1 is unknown").arg(path));
    return static_cast<std::int64_t>(info.stx_size);
}

std::optional<FileTime> modificationTime(const QString& path) {
    struct statx info {};
    if (!readStatx(path, info) || !(info.stx_mask & STATX_MTIME)) return std::nullopt;
    return toFileTime(info.stx_mtime);
}

}  // namespace velt
