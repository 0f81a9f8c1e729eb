#include "engine/pipeline/engine_context.h"

#include "engine/pipeline/can_write.h"
#include "model/file_url.h"

namespace velt {

EngineContext::EngineContext(EngineLifecycle& lifecycle, const EngineCallbacks& callbacks)
    : EncodingContext(lifecycle), callbacks(callbacks) {
    registerImageWriterTypes();
}

void EngineContext::sendStats() const {
    if (callbacks.onStats) callbacks.onStats(stats);
}

void EngineContext::sendEvent(const CompressionNotificationEvent& event) const {
    if (callbacks.onEvent) callbacks.onEvent(event);
}

void EngineContext::sendHistory(const CompressionHistoryEntry& entry) const {
    if (callbacks.onHistory) callbacks.onHistory(entry);
}

void EngineContext::setProgress(int percent) {
    if (percent >= 100) smoothProgressTimer.reset();
    stats.progress = percent;
    sendStats();
}

void EngineContext::startSmoothProgress(int from, int to, double estimatedSeconds) {
    smoothProgressTimer.reset();
    if (estimatedSeconds <= 0) return;
    smoothProgressTimer = std::make_unique<SmoothProgress>(
        stats, from, to, std::chrono::duration<double>(estimatedSeconds), callbacks.onStats);
}

QString EngineContext::processingSettingsKey() const {
    return velt::processingSettingsKey(config);
}

void EngineContext::rememberProcessed(const QString& path, ProcessedDecision decision,
                                      const Counterpart& counterpart) {
    const auto fingerprint = contentFingerprint(path);
    if (!fingerprint) return;
    const auto signature = fileSignature(path);
    ProcessedFileRecord record;
    record.fingerprint = *fingerprint;
    record.decision = decision;
    record.updatedAt = std::chrono::system_clock::now();
    record.resourceIdentifier = signature ? signature->resourceIdentifier : std::nullopt;
    record.settingsKey = processingSettingsKey();
    if (counterpart.source) record.source = standardizedPath(*counterpart.source);
    if (counterpart.output) record.output = standardizedPath(*counterpart.output);
    const QString key = standardizedPath(path);
    processedRegistry.entries[key] = record;
    processedRegistry.pruneIfNeeded();
    if (sharedRegistry) {
        const std::lock_guard lock(sharedRegistry->mutex);
        sharedRegistry->registry.entries[key] = record;
        sharedRegistry->registry.pruneIfNeeded();
    }
    if (++unsavedRecords >= registrySaveEvery) saveRegistry();
}

void EngineContext::saveRegistry() {
    if (unsavedRecords == 0) return;
    unsavedRecords = 0;
    if (!sharedRegistry) {
        processedRegistry.save();
        return;
    }
    const std::lock_guard lock(sharedRegistry->mutex);
    sharedRegistry->registry.save();
}

}  // namespace velt
