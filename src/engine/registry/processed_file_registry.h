// ProcessedFileRegistry: the engine's persistent memory of files it has settled, so that a
// restart does not examine and re-encode the whole folder, and of which outputs it wrote for which
// source, so that it never replaces or removes a file it did not write. Stored as
// "processed-files.json" in the data folder: sorted keys, unsigned 64-bit hashes written exactly,
// "updatedAt" as seconds since 2001-01-01 UTC.
//
// Only the engine's queue reads or writes it; no lock.
#pragma once

#include "engine/core/content_fingerprint.h"
#include "model/settings.h"

#include <QByteArray>
#include <QString>
#include <chrono>
#include <map>
#include <optional>

namespace velt {

// leftAnimated: an animation, left as it is because a compressed copy keeps one frame.
enum class ProcessedDecision { compressed, alreadyOptimal, existingOutputFresh, leftAnimated };

QString rawValue(ProcessedDecision decision);
std::optional<ProcessedDecision> processedDecisionFromRawValue(const QString& raw);

struct ProcessedFileRecord {
    ContentFingerprint fingerprint;
    ProcessedDecision decision = ProcessedDecision::compressed;
    std::chrono::system_clock::time_point updatedAt;
    std::optional<QString> resourceIdentifier;
    std::optional<QString> settingsKey;
    // For an output the engine wrote beside or instead of its source: that source's path. It is
    // what makes the output the engine's own to replace or remove later; a file without it is
    // never touched.
    std::optional<QString> source;
    // For a source whose output has another name: that output's path, the name to look at when
    // the source is processed again.
    std::optional<QString> output;

    bool operator==(const ProcessedFileRecord&) const = default;
};

inline const QString registryFileName = QStringLiteral("processed-files.json");
inline constexpr std::size_t registryLimit = 2000;

struct ProcessedFileRegistry {
    int version = 1;
    // Keyed by the standardised absolute path of the file.
    std::map<QString, ProcessedFileRecord> entries;

    // Keeps the registryLimit newest records by updatedAt when there are more.
    void pruneIfNeeded();

    // Whether the record under `path` settles the file: same fingerprint, same file number
    // (both absent or equal) and a settings key equal to `settingsKey`. The decision itself is
    // not consulted.
    bool matches(const QString& path, const ContentFingerprint& fingerprint,
                 const std::optional<QString>& resourceIdentifier,
                 const QString& settingsKey) const;

    QByteArray encode() const;
    // Nothing when the data is not a registry ("version" and "entries" are required; unknown
    // keys are ignored).
    static std::optional<ProcessedFileRegistry> decode(const QByteArray& data);

    // The registry from the data folder; an empty one (version 1), silently, on any failure.
    static ProcessedFileRegistry load();
    // Writes the file atomically; a failure is logged ("Processed registry save failed: ...")
    // and otherwise ignored.
    void save() const;

    bool operator==(const ProcessedFileRegistry&) const = default;
};

// "v2|preset:P|format:F|original:O|jpeg:J|png:N|webp:W|avif:A|heic:H" from the settings, plus
// "|metadata:M" for a metadata policy other than the default: any change of them makes settled
// files be examined again.
QString processingSettingsKey(const AppConfig& config);

}  // namespace velt
