// SourceVersion: the exact state of a source when processing began, checked again right before
// anything destructive happens to it.
#pragma once

#include "engine/core/file_signature.h"

#include <QByteArray>
#include <QString>

namespace velt {

struct SourceVersion {
    FileSignature signature;
    QByteArray digest;  // SHA-256 of the whole file

    bool operator==(const SourceVersion&) const = default;
};

// Reads the signature and the full digest. Throws FileSystemError(noSuchFile) without a
// signature, or the digest's read error.
SourceVersion sourceVersion(const QString& path);

// Throws FolderCompressorControlError::sourceChanged when the file at `path` cannot be read or
// no longer has exactly the expected signature and digest.
void requireSourceUnchanged(const QString& path, const SourceVersion& expected);

}  // namespace velt
