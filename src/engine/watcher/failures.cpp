#include "engine/watcher/failures.h"

#include "engine/core/errors.h"
#include "model/file_url.h"

namespace velt {

bool rememberFailure(EngineContext& context, const QString& file, const std::exception& error,
                     const Message& reason, std::chrono::milliseconds firstPause) {
    const auto signature = fileSignature(file);
    if (!signature) return true;  // gone: nothing to know it by
    const QString key = standardizedPath(file);
    const auto earlier = context.processedRegistry->find(key);
    const bool repeated =
        earlier && earlier->decision == ProcessedDecision::failed && earlier->describes(*signature);
    ProcessedFileRecord record;
    if (const auto read = context.recordOf(file, ProcessedDecision::failed)) {
        record = *read;
    } else {
        // Unreadable: known by its signature alone.
        record.decision = ProcessedDecision::failed;
        record.fingerprint.size = signature->size;
        record.modifiedAt = signature->modifiedAt;
        record.createdAt = signature->attributeModifiedAt;
        record.resourceIdentifier = signature->resourceIdentifier;
        record.updatedAt = std::chrono::system_clock::now();
    }
    record.failure = errorDescription(error);
    record.environmentFailure = isEnvironmentFailure(reason);
    record.attempts = repeated ? earlier->attempts + 1 : 1;
    context.remember(file, record);
    std::optional<EngineClock::time_point> retryAt;
    if (record.environmentFailure)
        retryAt = EngineClock::now() + firstPause * std::min(1 << std::min(record.attempts - 1, 30),
                                                             maximumRetryPauseFactor);
    context.files.noteFailed(key, *signature, retryAt);
    return !repeated;
}

}  // namespace velt
