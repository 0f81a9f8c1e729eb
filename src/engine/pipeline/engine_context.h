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
#include <mutex>
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

// One registry for a batch's parallel workers: each worker's context keeps a copy for its own
// decisions and writes every record it remembers through to this one, which is saved.
struct SharedRegistry {
    std::mutex mutex;
    ProcessedFileRegistry registry;  // guarded by mutex
};

class EngineContext : public EncodingContext {
  public:
    EngineContext(EngineLifecycle& lifecycle, const EngineCallbacks& callbacks);

    std::optional<QString> watchDirectory;
    FileStates files;
    ProcessedFileRegistry processedRegistry;
    // Set for a batch worker: remembered decisions go to the shared registry, which is saved,
    // instead of saving this context's copy.
    SharedRegistry* sharedRegistry = nullptr;
    // A batch saves the registry every few records and at its end instead of after each one:
    // the output marker already tells a rerun what was written, so a lost record costs nothing.
    int registrySaveEvery = 1;
    CompressionStats stats;
    // While an encoder runs: the eased progress animation.
    std::unique_ptr<SmoothProgress> smoothProgressTimer;
    // During a scan: the names of the "_veltcompressed" files its listing saw.
    std::optional<QSet<QString>> listedCompressedOutputs;

    int unsavedRecords = 0;
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
    // Which file an output was written for, or which output a source has.
    struct Counterpart {
        std::optional<QString> source;
        std::optional<QString> output;
    };
    // Records the decision for the file's current content, identity and settings, then saves the
    // registry. Nothing is recorded for a file that cannot be read.
    void rememberProcessed(const QString& path, ProcessedDecision decision,
                           const Counterpart& counterpart = {});
    // Saves what rememberProcessed has not saved yet (the shared registry for a batch worker).
    void saveRegistry();
};

}  // namespace velt
