// What the processed-file registry remembers about one source: the decision taken, the file's
// content and identity when it was taken, and what was written for it.
#pragma once

#include "engine/core/content_fingerprint.h"
#include "engine/core/file_signature.h"
#include "model/settings.h"

#include <QString>
#include <chrono>
#include <optional>

namespace velt {

// compressed: the engine wrote an output for this file (in its place, or under `output`).
// alreadyOptimal: re-encoding did not make it smaller; left as it is.
// existingOutputFresh: an up-to-date output it did not write now stood beside it.
// leftAnimated: an animation, left as it is because a compressed copy keeps one frame.
// failed: processing this version failed (see `failure`).
// restored: the user undid its compression; left as it is until it changes.
enum class ProcessedDecision {
    compressed,
    alreadyOptimal,
    existingOutputFresh,
    leftAnimated,
    failed,
    restored
};

QString rawValue(ProcessedDecision decision);
std::optional<ProcessedDecision> processedDecisionFromRawValue(const QString& raw);

struct ProcessedFileRecord {
    // The file at the record's path when the decision was taken: for an install in place the
    // output, for a source converted to another name the source as it was.
    ContentFingerprint fingerprint;
    ProcessedDecision decision = ProcessedDecision::compressed;
    std::chrono::system_clock::time_point updatedAt;
    std::optional<QString> resourceIdentifier;  // the file number, as in FileSignature
    // The signature then: a file that still has it is settled without reading a byte.
    std::optional<FileTime> modifiedAt;
    std::optional<FileTime> createdAt;
    std::optional<QString> settingsKey;  // the settings in force (for the record only)
    // The output of this source under another name (a kept original's "_veltcompressed"
    // sibling, a conversion). With `outputFingerprint` it is an output the engine wrote, its own
    // to replace or remove later while it holds that content; without, a fresh file of unknown
    // origin that settled the source, never touched.
    std::optional<QString> output;
    std::optional<ContentFingerprint> outputFingerprint;
    // The verified copy of the original made before it was replaced.
    std::optional<QString> backup;
    // The SHA-256 of the original when the backup was made: what a restore checks it against.
    QByteArray backupDigest;
    // For a failure: its description, whether the environment caused it (no space, no
    // permission, a read-only disk: tried again later) and how many attempts failed.
    QString failure;
    bool environmentFailure = false;
    int attempts = 0;

    bool operator==(const ProcessedFileRecord&) const = default;

    // Whether the record describes the file with `signature` (same signature recorded) without
    // reading it, or, given its `fingerprint`, the same content under the same file number.
    bool describes(const FileSignature& signature) const;
    bool describes(const ContentFingerprint& present,
                   const std::optional<QString>& presentResourceIdentifier) const;
};

// "v2|preset:P|format:F|original:O|jpeg:J|png:N|webp:W|avif:A|heic:H", plus "|metadata:M" for a
// metadata policy other than the default: the settings a record and an output marker were made
// with.
QString processingSettingsKey(const AppConfig& config);

}  // namespace velt
