// Cheap and full content identities of a file.
#pragma once

#include <QByteArray>
#include <QString>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace velt {

// Size plus FNV-1a hashes of the first and last 64 KiB. Cheap (at most 128 KiB read), not
// collision-proof: a same-size change in the middle of a large file is not seen, on purpose.
struct ContentFingerprint {
    std::int64_t size = 0;
    std::uint64_t headHash = 0;
    std::uint64_t tailHash = 0;  // equals headHash for files of at most 64 KiB

    bool operator==(const ContentFingerprint&) const = default;
};

inline constexpr std::int64_t fingerprintBlockBytes = 65'536;

// Standard 64-bit FNV-1a (offset basis 0xcbf29ce484222325, prime 0x100000001b3).
std::uint64_t fnv1a64(const char* data, std::size_t length);

// Nothing for a missing, unreadable or empty file.
std::optional<ContentFingerprint> contentFingerprint(const QString& path);

// The 32-byte SHA-256 digest of the whole file, read in 1 MiB chunks. Throws FileSystemError
// when the file cannot be opened or read.
QByteArray sha256Digest(const QString& path);

}  // namespace velt
