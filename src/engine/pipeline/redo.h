// Compressing a folder again, asked for explicitly: every photo is encoded afresh under the
// settings in force from its original, never from the program's own output. A kept original is
// its own source; an original that was replaced comes back from its verified backup first.
#pragma once

#include "engine/install/output_marker.h"
#include "engine/pipeline/engine_context.h"

#include <QString>
#include <optional>

namespace velt {

// Puts the original of `output` (a file the engine installed in place of it, described by
// `marker`) back from its verified backup, under the original's own name, in place of the
// output: the output is moved aside and checked unchanged first, and removed only once the
// original stands. Returns the original's path; nothing, with the output left as it is, when no
// backup with the original's SHA-256 exists. Throws FileSystemError when the original's name is
// taken by another file or a step fails; the output is then as it was.
std::optional<QString> restoreOriginal(EngineContext& context, const QString& output,
                                       const OutputMarker& marker);

}  // namespace velt
