#include "engine/pipeline/engine_context.h"

#include "engine/pipeline/can_write.h"
#include "model/file_url.h"

namespace velt {

EngineContext::EngineContext(EngineLifecycle& lifecycle, const EngineCallbacks& callbacks,
                             std::shared_ptr<ProcessedFileRegistry> registry)
    : EncodingContext(lifecycle),
      processedRegistry(registry ? std::move(registry) : std::make_shared<ProcessedFileRegistry>()),
      callbacks(callbacks) {
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

std::optional<ProcessedFileRecord> EngineContext::recordOf(const QString& path,
                                                           ProcessedDecision decision) const {
    const auto fingerprint = contentFingerprint(path);
    if (!fingerprint) return std::nullopt;
    ProcessedFileRecord record;
    record.fingerprint = *fingerprint;
    record.decision = decision;
    record.updatedAt = std::chrono::system_clock::now();
    if (const auto signature = fileSignature(path)) {
        record.resourceIdentifier = signature->resourceIdentifier;
        record.modifiedAt = signature->modifiedAt;
        record.createdAt = signature->attributeModifiedAt;
    }
    record.settingsKey = processingSettingsKey();
    return record;
}

void EngineContext::remember(const QString& path, const ProcessedFileRecord& record) {
    processedRegistry->remember(standardizedPath(path), record);
}

void EngineContext::rememberProcessed(const QString& path, ProcessedDecision decision) {
    if (const auto record = recordOf(path, decision)) remember(path, *record);
}

}  // namespace velt
