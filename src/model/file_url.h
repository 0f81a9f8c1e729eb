// Paths as they are written into JSON: absolute file URL text, percent-encoded, folders ending
// in "/". In memory the program keeps plain absolute paths.
#pragma once

#include <QString>
#include <optional>

namespace velt {

// "/home/a/My Photos" → "file:///home/a/My%20Photos" (+ "/" for a folder).
QString fileURLText(const QString& absolutePath, bool isDirectory);

// The absolute path of a "file:" URL text (a trailing "/" dropped); a bare absolute path is
// accepted as it is. Anything else (other schemes, relative text, empty) gives nothing.
std::optional<QString> pathFromFileURLText(const QString& text);

// The standardised form used as the key of every per-file map: "." and ".." removed, duplicate
// and trailing slashes dropped, symbolic links not resolved.
QString standardizedPath(const QString& path);

// A file name split at its last dot: "photo.final.JPG" → {"photo.final", "JPG"}. A name whose only
// dot is its first character (".hidden") or that has none has no extension.
struct FileNameParts {
    QString base;
    QString extension;  // without the dot; empty when there is none
};
FileNameParts splitFileName(const QString& fileName);

// The longest a file name may be, in bytes: every Linux file system stops at 255.
inline constexpr qsizetype maximumFileNameBytes = 255;

// base + tail, with `base` cut at a character boundary (never inside a UTF-8 sequence or a
// surrogate pair) so that the whole name fits in maximumFileNameBytes less `reserveBytes`. Names
// the program makes from a user's name (outputs, temporary and moved-aside files, backups) carry
// markers and suffixes; cutting the base keeps every name the file system accepts usable.
QString fittedFileName(const QString& base, const QString& tail, qsizetype reserveBytes = 0);

}  // namespace velt
