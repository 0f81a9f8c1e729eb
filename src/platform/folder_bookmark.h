// The folder bookmark: how the folder the user picked is remembered across launches. On Linux
// it is the bytes of the absolute path, UTF-8 encoded, as the folder dialog (or the command line)
// gave it; resolving it gives that path back.
#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

namespace velt {

// The bookmark for an absolute folder path.
QByteArray makeFolderBookmark(const QString& absolutePath);

// The path a bookmark names, or nothing when the bytes are not one: empty, not valid UTF-8,
// holding a NUL or another control character, or not an absolute path. A damaged setting must
// fall back to the plain stored folder instead of becoming a folder name of its own.
std::optional<QString> resolveFolderBookmark(const QByteArray& bookmark);

}  // namespace velt
