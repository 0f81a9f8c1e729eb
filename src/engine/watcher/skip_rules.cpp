#include "engine/watcher/skip_rules.h"

#include "engine/pipeline/output_naming.h"
#include "model/file_url.h"

namespace velt {
namespace {

void forgetWrites(EngineContext& context, const QString& key) {
    context.ownWrites.erase(key);
    context.recentWrites.erase(key);
    context.processedSignatures.erase(key);
}

void removeStaleOutputsOf(EngineContext& context, const QString& file) {
    // Nothing to look for when the listing saw no compressed output at all (the common case).
    if (context.listedCompressedOutputs && context.listedCompressedOutputs->isEmpty()) return;
    if (const auto predicted = predictedOutputURL(context, file))
        removeStaleCompressedOutputs(
            context, file, *predicted,
            context.listedCompressedOutputs ? &*context.listedCompressedOutputs : nullptr);
}

enum class Verdict { skip, keepGoing };

// The engine's own output stays untouched until its content shows someone replaced it.
Verdict checkOwnWrite(EngineContext& context, const EngineTiming& timing, const QString& file,
                      const QString& key, const FileSignature& signature,
                      EngineClock::time_point now) {
    const auto own = context.ownWrites.find(key);
    if (own == context.ownWrites.end()) return Verdict::keepGoing;
    const auto fingerprint = contentFingerprint(file);
    if (!fingerprint) {
        if (signature.size == own->second.size) return Verdict::skip;
        if (now - own->second.date < timing.ownWriteSettling) return Verdict::skip;
        forgetWrites(context, key);
        return Verdict::keepGoing;
    }
    if (!own->second.fingerprint) {
        own->second.fingerprint = fingerprint;
        return Verdict::skip;
    }
    if (*own->second.fingerprint == *fingerprint) return Verdict::skip;
    forgetWrites(context, key);
    return Verdict::keepGoing;
}

Verdict checkRecentWrite(EngineContext& context, const EngineTiming& timing, const QString& key,
                         const FileSignature& signature, EngineClock::time_point now) {
    const auto recent = context.recentWrites.find(key);
    if (recent == context.recentWrites.end()) return Verdict::keepGoing;
    if (now - recent->second.date >= timing.recentWriteCooldown ||
        recent->second.signature != signature) {
        context.recentWrites.erase(recent);
        return Verdict::keepGoing;
    }
    return Verdict::skip;
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

// A file is processed on the first scan at which its signature has held still for the
// stability interval since the scan that first saw it.
bool stillSettling(EngineContext& context, const EngineTiming& timing, const QString& key,
                   const FileSignature& signature, EngineClock::time_point now) {
    const auto pending = context.pendingFiles.find(key);
    if (pending != context.pendingFiles.end() && pending->second.signature == signature) {
        if (now - pending->second.firstSeenAt < timing.writeStability) return true;
        context.pendingFiles.erase(pending);
        return false;
    }
    context.pendingFiles[key] = PendingFile{signature, now};
    return true;
}

// A version of a file that failed stays failed until it changes.
bool failedBefore(EngineContext& context, const QString& key, const FileSignature& signature) {
    const auto failed = context.failedSignatures.find(key);
    if (failed == context.failedSignatures.end()) return false;
    if (failed->second == signature) return true;
    context.failedSignatures.erase(failed);
    return false;
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
    if (failedBefore(context, key, *signature)) return true;
    if (checkOwnWrite(context, timing, file, key, *signature, now) == Verdict::skip) return true;
    if (checkRecentWrite(context, timing, key, *signature, now) == Verdict::skip) return true;

    const auto processed = context.processedSignatures.find(key);
    if (processed != context.processedSignatures.end() && processed->second == *signature) {
        removeStaleOutputsOf(context, file);
        return true;
    }
    if (settledByRegistry(context, file, key, *signature)) {
        removeStaleOutputsOf(context, file);
        context.processedSignatures[key] = *signature;
        return true;
    }
    return stillSettling(context, timing, key, *signature, now);
}

}  // namespace velt
