// FolderCompressor::restore: a restore runs on the engine's queue, so that it never meets a scan
// of the same file halfway, and the engine's memory of its own writes follows it.
#include "engine/watcher/folder_compressor.h"

#include "model/file_url.h"

namespace velt {

void FolderCompressor::restore(const QString& file, const std::optional<QString>& watchDirectory,
                               bool besideWhenTaken, RestoreDone done) {
    queue_.post([this, file, watchDirectory, besideWhenTaken, done = std::move(done)] {
        try {
            const RestoreOutcome outcome =
                restoreFile(*context_.processedRegistry, file,
                            context_.watchDirectory ? context_.watchDirectory : watchDirectory,
                            besideWhenTaken);
            if (outcome.removed) context_.files.forgetWrites(*outcome.removed);
            context_.files.forgetWrites(outcome.original);
            if (const auto signature = fileSignature(outcome.original))
                context_.files.markHandled(outcome.original, *signature);
            context_.sendHistory(restoredHistoryEntry(outcome));
            if (done) done(outcome, nullptr);
        } catch (...) {
            if (done) done(std::nullopt, std::current_exception());
        }
    });
}

}  // namespace velt
