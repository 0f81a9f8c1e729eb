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

}  // namespace velt
