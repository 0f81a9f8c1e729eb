// External encoder tools ("cjpeg", "cwebp", "webpmux", "pngquant", "oxipng"): finding them and
// running them under the engine's cancellation rules. Nothing is cached: a tool installed while
// the engine runs is used from the next image on.
#pragma once

#include "engine/core/lifecycle.h"

#include <QString>
#include <QStringList>
#include <optional>

namespace velt {

// The folders searched, in order: $VELT_TOOL_DIR (when set and not empty), the tool folder
// shipped beside the program (<executable dir>/../libexec/velt-compressor/bin), then
// "/opt/homebrew/bin/", "/usr/local/bin/", "/usr/bin/".
QStringList toolSearchDirectories();

// The first candidate named `name` that is an executable file built for this CPU family;
// nothing when none is.
std::optional<QString> toolURL(const QString& name);

// What a tool may use for an image of `pixels` pixels: generous for any real photo (a 48 MP
// image gets about 1.4 GB and 3 minutes), so that only a hostile file (a compression bomb, a
// header that lies) meets the limit, and then costs seconds instead of minutes.
ToolLimits toolLimitsFor(std::int64_t pixels);

// Runs the tool with exactly these arguments (no shell; output to /dev/null) and waits for it,
// within `limits`. Its standard input is `input` through a pipe, or empty without it. Registers
// it with `lifecycle` so that the engine's stop ends it.
// Throws FolderCompressorControlError::cancelled when a stop was requested before, during or
// right after the run (whatever the exit status), FileSystemError(launchFailed) when it cannot
// start, and FileSystemError(writeUnknown) when it exits with a non-zero status or passes its
// time limit (it is then stopped).
void runTool(const QString& executable, const QStringList& arguments, EngineLifecycle& lifecycle,
             const ToolLimits& limits = {}, const InputChunks& input = {});

}  // namespace velt
