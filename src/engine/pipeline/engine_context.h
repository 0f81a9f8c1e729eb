// EngineContext: everything the engine's queue owns while it works through a folder — the
// settings in force, the per-file maps, the registry, the statistics — and the few services the
// processing steps need (checkpoints, progress, reports, remembering decisions).
//
// Thread-safety: touched only on the engine's queue, except `lifecycle`, which locks itself.
#pragma once

#include "engine/core/encoding_context.h"
#include "engine/core/file_states.h"
#include "engine/pipeline/smooth_progress.h"
#include "engine/registry/processed_file_registry.h"
#include "model/history.h"
#include "model/settings.h"
#include "notifications/compression_notification_event.h"

#include <QSet>
#include <QString>
#include <functional>
#include <memory>
#include <optional>

namespace velt {

// The engine's reports. Called on the engine's queue; the receiver moves to its own thread.
struct EngineCallbacks {
    std::function<void(const CompressionStats&)> onStats;
    std::function<void(const CompressionNotificationEvent&)> onEvent;
    std::function<void(const CompressionHistoryEntry&)> onHistory;
    // Called with the source path right before an original is checked and destroyed, so a test
    // can change the source at the worst possible moment.
    std::function<void(const QString&)> onBeforeDestructiveInstallForTesting;
};

class EngineContext : public EncodingContext {
  public:
    // `registry` is shared by a batch's workers; by default the data folder's is opened.
    EngineContext(EngineLifecycle& lifecycle, const EngineCallbacks& callbacks,
                  std::shared_ptr<ProcessedFileRegistry> registry = nullptr);

    std::optional<QString> watchDirectory;
    FileStates files;
    std::shared_ptr<ProcessedFileRegistry> processedRegistry;
    // Compressing the folder again (an explicit request): settled files are encoded afresh from
    // their originals, under the settings in force.
    bool redo = false;
    CompressionStats stats;
    // While an encoder runs: the eased progress animation.
    std::unique_ptr<SmoothProgress> smoothProgressTimer;

    const EngineCallbacks& callbacks;

    void sendStats() const;
    void sendEvent(const CompressionNotificationEvent& event) const;
    void sendHistory(const CompressionHistoryEntry& entry) const;
    // Sets stats.progress and reports it; 100 or more also ends the progress animation.
    void setProgress(int percent);
    // Starts the eased animation from `from` towards `to` (replacing a running one); nothing
    // when the duration is not positive.
    void startSmoothProgress(int from, int to, double estimatedSeconds);

    QString processingSettingsKey() const;
    // A record of the file at `path` as it is now, with `decision` and the settings in force;
    // nothing for a file that cannot be read.
    std::optional<ProcessedFileRecord> recordOf(const QString& path,
                                                ProcessedDecision decision) const;
    // Writes the record of `path` (a standardised path).
    void remember(const QString& path, const ProcessedFileRecord& record);
    // recordOf and remember: nothing is recorded for a file that cannot be read.
    void rememberProcessed(const QString& path, ProcessedDecision decision);
};

}  // namespace velt
