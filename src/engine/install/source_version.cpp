#include "engine/install/source_version.h"

#include "engine/core/content_fingerprint.h"
#include "engine/core/errors.h"

#include <cerrno>

namespace velt {

SourceVersion sourceVersion(const QString& path) {
    std::optional<FileSignature> signature = fileSignature(path);
    if (!signature) throw FileSystemError::fromErrno(ENOENT, QStringLiteral("Cannot read"), path);
    return SourceVersion{std::move(*signature), sha256Digest(path)};
}

void requireSourceUnchanged(const QString& path, const SourceVersion& expected) {
    std::optional<SourceVersion> current;
    try {
        current = sourceVersion(path);
    } catch (const std::exception&) {
        // A source that can no longer be read has changed as far as replacing it is concerned.
    }
    if (!current || current->signature != expected.signature || current->digest != expected.digest)
        throw FolderCompressorControlError(FolderCompressorControlError::sourceChanged);
}

}  // namespace velt
