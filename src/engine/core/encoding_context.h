// EncodingContext: what an encoding path needs from the engine — the settings in force, the
// lifecycle through which stop() ends a running tool, and the private folder for intermediates.
// The engine's full context (pipeline/engine_context.h) is one.
//
// Thread-safety: used by one thread at a time (the engine's queue, or one batch worker).
#pragma once

#include "engine/core/lifecycle.h"
#include "model/settings.h"

#include <QString>

namespace velt {

struct EncodingContext {
    explicit EncodingContext(EngineLifecycle& lifecycle) : lifecycle(lifecycle) {}

    AppConfig config;
    EngineLifecycle& lifecycle;
    // Private folder for intermediates and encoder candidates (empty: beside the output), so
    // that nothing large lies in the watched folder, where sync clients would upload it.
    QString scratchDirectory;

    // Throws FolderCompressorControlError::cancelled when a stop was requested.
    void checkpoint() const { lifecycle.checkpoint(); }
};

}  // namespace velt
