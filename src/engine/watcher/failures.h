// What the engine remembers of a failed file, in memory and in the registry, so that a version of
// a file fails once — one history entry and one notice, across restarts and changes of settings,
// until the file changes. A failure the environment caused (no space, no permission, a read-only
// disk) is tried again on a later look, after a pause that doubles with each attempt.
#pragma once

#include "engine/pipeline/engine_context.h"
#include "model/text_catalogue.h"

#include <QString>
#include <chrono>
#include <exception>

namespace velt {

// The longest pause before an environment failure is tried again, in multiples of the first.
inline constexpr int maximumRetryPauseFactor = 64;

// Records that `file` failed with `error` now, as the user is told by `reason`; `firstPause` is
// the pause before the first retry of an environment failure. Returns whether this is the first
// failure of this version of the file (the one to report).
bool rememberFailure(EngineContext& context, const QString& file, const std::exception& error,
                     const Message& reason, std::chrono::milliseconds firstPause);

}  // namespace velt
