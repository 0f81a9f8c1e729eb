#include "engine/watcher/skip_rules.h"

#include "engine/pipeline/output_naming.h"
#include "model/file_url.h"

namespace velt {
namespace {

void removeStaleOutputsOf(EngineContext& context, const QString& file) {
    // Nothing to look for when the listing saw no compressed output at all (the common case).
    if (context.listedCompressedOutputs && context.listedCompressedOutputs->isEmpty()) return;
    if (const auto predicted = predictedOutputURL(context, file))
        removeStaleCompressedOutputs(
            context, file, *predicted,
            context.listedCompressedOutputs ? &*context.listedCompressedOutputs : nullptr);
}

bool settledByRegistry(EngineContext& context, const QString& file, const QString& key,
                       const FileSignature& signature) {
    if (!context.processedRegistry.entries.contains(key)) return false;
    const auto fingerprint = contentFingerprint(file);
    return fingerprint &&
           context.processedRegistry.matches(key, *fingerprint, signature.resourceIdentifier,
                                             context.processingSettingsKey()) &&
           registryCanSkip(context, file);
}

}  // namespace

bool registryCanSkip(const EngineContext& context, const QString& file) {
    if (context.config.originalPolicy == OriginalPolicy::replace) return true;
    const auto predicted = predictedOutputURL(context, file);
    return predicted && existingOutputIsFresh(context.config, file, *predicted);
}

bool shouldSkip(EngineContext& context, const EngineTiming& timing, const QString& file,
                EngineClock::time_point now) {
    const QString key = standardizedPath(file);
    const auto signature = fileSignature(file);
    if (!signature) return true;
    FileStates& files = context.files;
    if (files.failedBefore(key, *signature)) return true;
    // The engine's own output stays untouched until its content shows someone replaced it.
    if (files.checkOwnWrite(key, *signature, now, timing.ownWriteSettling, [&] {
            return contentFingerprint(file);
        }) == FileStates::OwnWriteCheck::ownUntouched)
        return true;
    if (files.recentlyWritten(key, *signature, now, timing.recentWriteCooldown)) return true;
    if (files.isHandled(key, *signature)) {
        removeStaleOutputsOf(context, file);
        return true;
    }
    if (settledByRegistry(context, file, key, *signature)) {
        removeStaleOutputsOf(context, file);
        files.markHandled(key, *signature);
        return true;
    }
    // A file is processed on the first scan at which its signature has held still for the
    // stability interval since the scan that first saw it.
    return !files.heldStill(key, *signature, now, timing.writeStability);
}

}  // namespace velt
