// Whole-file reads and atomic whole-file writes: the one way persistent files are written.
#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

namespace velt {

// Writes `data` to a temporary file beside `path`, flushes it and renames it over `path`, so a
// reader sees either the old or the new content, never a torn one. Creates missing parent
// folders first. On failure returns false, leaves `path` as it was, removes the temporary and,
// when `error` is given, stores a readable reason there.
bool writeFileAtomically(const QString& path, const QByteArray& data, QString* error = nullptr);

// Reads a whole regular file of at most `maximumBytes`. Missing, unreadable, not a regular file
// or too large: nothing.
std::optional<QByteArray> readWholeFile(const QString& path,
                                        qint64 maximumBytes = 64 * 1024 * 1024);

}  // namespace velt
