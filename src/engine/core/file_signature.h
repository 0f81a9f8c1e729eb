// FileSignature: the cheap identity of a file on disk, compared to tell whether it changed.
#pragma once

#include <QString>
#include <chrono>
#include <cstdint>
#include <optional>

namespace velt {

using FileTime = std::chrono::sys_time<std::chrono::nanoseconds>;

struct FileSignature {
    std::int64_t size = 0;
    FileTime modifiedAt;
    // Filled from the creation (birth) time where the file system records one.
    std::optional<FileTime> attributeModifiedAt;
    // The inode number as decimal text.
    std::optional<QString> resourceIdentifier;

    bool operator==(const FileSignature&) const = default;
};

// The signature of the item at `path` (not following a final symbolic link); nothing when its
// attributes cannot be read.
std::optional<FileSignature> fileSignature(const QString& path);

// The signature of the entry `name` of the open folder `folder`, by its raw bytes (for names that
// have no faithful text form).
std::optional<FileSignature> fileSignatureAt(int folder, const char* name);

// The size in bytes of the item at `path`. Throws FileSystemError when it cannot be read.
std::int64_t fileSize(const QString& path);

// The content-modification time, or nothing.
std::optional<FileTime> modificationTime(const QString& path);

}  // namespace velt
