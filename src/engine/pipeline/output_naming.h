// Where a source's output goes, which files the engine may treat as its own outputs, and the
// sibling outputs that a change of settings leaves behind.
//
// The engine never replaces or removes a file it did not write. A name counts as the engine's own
// output of a source only when the processed-file registry records it as written for that source
// and the file still holds what was written. Every other existing file under a wanted name is left
// alone and the output takes the next free name.
//
// Runs on the engine's queue.
#pragma once

#include "engine/pipeline/engine_context.h"
#include "model/image_format.h"
#include "model/settings.h"

#include <QSet>
#include <QString>
#include <optional>

namespace velt {

// The format a strategy asks for; `automaticChoice` for the automatic strategy.
ImageFormat targetFormat(FormatStrategy strategy, ImageFormat automaticChoice);

// The output path for a source of `sourceFormat` written as `target`:
// - the source itself when it is replaced in its own format;
// - otherwise, beside the source, base + ("_veltcompressed" when the original is kept) + "." +
//   the target's extension; when that name holds a file the engine may not replace, the first
//   free (or own) name with "-2", "-3", … after the base. Under the keep policy an existing
//   first-choice file that is not older than the source is still returned (it is then taken as
//   the up-to-date output, as it always was), because that settles the source without touching
//   anything.
// Names are shortened (the base cut at a character boundary) so that they fit in 255 bytes.
// Throws FileSystemError when no name is free.
QString outputPath(const EngineContext& context, const QString& source, ImageFormat sourceFormat,
                   ImageFormat target);

// The output path predicted from the name alone (no decoding): nothing when the extension names
// no image format. With the automatic strategy and a source format that cannot be written, the
// prediction is AVIF when the image writer can encode it, else JPEG; the real plan may choose
// PNG for a transparent image. That difference is accepted.
std::optional<QString> predictedOutputURL(const EngineContext& context, const QString& source);

// Whether `output` is an output the engine recorded as written for `source` and that still holds
// what was written (same content fingerprint).
bool isOwnOutputOf(const EngineContext& context, const QString& output, const QString& source);

// With the keep policy, removes the outputs of `source` other than `keeping` that the engine
// wrote for it (its "_veltcompressed" siblings of every format and its recorded output), forgets
// them in the engine's maps and logs each removal. A file of that name that the engine did not
// write for this source is left alone. Never fails.
void removeStaleCompressedOutputs(EngineContext& context, const QString& source,
                                  const QString& keeping);

// With the keep policy and an output other than the source: whether the output exists, is not
// empty and is not older than the source.
bool existingOutputIsFresh(const AppConfig& config, const QString& source, const QString& output);

// An up-to-date output that settles `source` before anything is decoded, whatever the settings
// now: the output recorded for it, an output of the engine beside it whose marker names it (the
// registry may have lost it), or, with the keep policy, the predicted output. Up to date: a
// regular file, not empty, not older than the source.
std::optional<QString> freshOutputOf(const EngineContext& context, const QString& source);

}  // namespace velt
