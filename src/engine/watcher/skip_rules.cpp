#include "engine/watcher/skip_rules.h"

#include "engine/pipeline/output_naming.h"
#include "model/file_url.h"

namespace velt {
namespace {

// The registry settles the file when its record still describes it (same signature, or same
// content and file number), or when it is an output the engine wrote for another source and
// still holds what was written. Settings are not consulted: they act on new files only.
bool settledByRegistry(EngineContext& context, const QString& file, const QString& key,
                       const FileSignature& signature) {
    const ProcessedFileRegistry& registry = *context.processedRegistry;
    std::optional<std::optional<ContentFingerprint>> present;
    const auto fingerprint = [&] {
        if (!present) present = contentFingerprint(file);
        return *present;
    };
    if (const auto record = registry.find(key)) {
        // A failure the environment caused is tried again (when is the engine's memory's call).
        if (record->decision == ProcessedDecision::failed && record->environmentFailure)
            return false;
        if (record->describes(signature)) return registryCanSkip(context, file, *record);
        if (const auto now = fingerprint();
            now && record->describes(*now, signature.resourceIdentifier)) {
            // Touched, not changed: the next look needs no read.
            ProcessedFileRecord touched = *record;
            touched.modifiedAt = signature.modifiedAt;
            touched.createdAt = signature.attributeModifiedAt;
            context.processedRegistry->remember(key, touched);
            return registryCanSkip(context, file, touched);
        }
    }
    const auto owner = registry.findByOutput(key);
    return owner && owner->second.outputFingerprint &&
           fingerprint() == owner->second.outputFingerprint;
}

}  // namespace

bool registryCanSkip(const EngineContext& context, const QString& file,
                     const ProcessedFileRecord& record) {
    // The user undid its compression: it stays as it is until it changes.
    if (record.decision == ProcessedDecision::restored) return true;
    if (context.config.originalPolicy == OriginalPolicy::replace) return true;
    if (record.output) return existingOutputIsFresh(context.config, file, *record.output);
    // Nothing was written for it (already optimal, an animation), or, in an older record, the
    // output is where the name says.
    if (record.decision != ProcessedDecision::existingOutputFresh) return true;
    const auto predicted = predictedOutputURL(context, file);
    return predicted && existingOutputIsFresh(context.config, file, *predicted);
}

bool shouldSkip(EngineContext& context, const EngineTiming& timing, const QString& file,
                EngineClock::time_point now) {
    const QString key = standardizedPath(file);
    const auto signature = fileSignature(file);
    if (!signature) return true;
    FileStates& files = context.files;
    // Compressing again, everything but the engine's fresh writes is taken again.
    if (!context.redo && files.failedBefore(key, *signature, now)) return true;
    // Unchanged since it was handled: nothing to read. (Stale outputs of a settled source are
    // not looked for here: a change of settings does not make its output stale.)
    if (!context.redo && files.isHandled(key, *signature)) return true;
    // The engine's own output stays untouched until its content shows someone replaced it.
    if (files.checkOwnWrite(key, *signature, now, timing.ownWriteSettling, [&] {
            return contentFingerprint(file);
        }) == FileStates::OwnWriteCheck::ownUntouched)
        return true;
    if (files.recentlyWritten(key, *signature, now, timing.recentWriteCooldown)) return true;
    // Compressing again leaves alone what the user restored, as long as it is unchanged.
    if (context.redo) {
        const auto record = context.processedRegistry->find(key);
        if (record && record->decision == ProcessedDecision::restored &&
            record->describes(*signature))
            return true;
    }
    if (!context.redo && settledByRegistry(context, file, key, *signature)) {
        files.markHandled(key, *signature);
        return true;
    }
    // A file is processed on the first scan at which its signature has held still for the
    // stability interval since the scan that first saw it.
    return !files.heldStill(key, *signature, now, timing.writeStability);
}

}  // namespace velt
