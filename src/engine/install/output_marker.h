// The output marker: a small extended attribute ("user.velt-compressor") that every file the
// engine installs carries, so that the file itself says that this program wrote it, for which
// source, with which settings and with which content.
//
// The processed-file registry remembers the same, but the registry can be lost: a kill between an
// install and the registry's save, or a data folder that cannot be written. Without the marker
// the next run would take its own output for a new original and compress it again (generation
// loss) and file that copy in the backups as an "original". The marker travels with the file
// through renames within the file system, costs one getxattr per processed file, and needs no
// write anywhere but on the output itself. Where the file system has no user extended
// attributes the marker is simply absent and the registry alone decides, as before.
#pragma once

#include "engine/core/content_fingerprint.h"

#include <QByteArray>
#include <QString>
#include <optional>

namespace velt {

struct OutputMarker {
    QString settingsKey;      // the processing settings the output was made with
    QString source;           // standardised path of the source it was made from
    QByteArray sourceDigest;  // SHA-256 of that source when it was to be replaced; empty otherwise
    ContentFingerprint output;  // the output's content when it was written

    bool operator==(const OutputMarker&) const = default;
};

// Attaches the marker to the file at `path` (before it is installed). Returns false, and changes
// nothing, when the file system cannot hold it; never throws.
bool writeOutputMarker(const QString& path, const OutputMarker& marker);

// The marker of the file at `path` when it has one that this program wrote and the file still
// holds the content it describes (an output edited in place keeps its attributes, but is no
// longer ours); nothing otherwise.
std::optional<OutputMarker> readOutputMarker(const QString& path);

}  // namespace velt
