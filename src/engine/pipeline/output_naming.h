// Where a source's output goes, and the sibling outputs that settings changes leave behind.
#pragma once

#include "engine/watcher/engine_context.h"
#include "model/image_format.h"
#include "model/settings.h"

#include <QSet>
#include <QString>
#include <optional>

namespace velt {

// The format a strategy asks for; `automaticChoice` for the automatic strategy.
ImageFormat targetFormat(FormatStrategy strategy, ImageFormat automaticChoice);

// The output path for a source of `sourceFormat` written as `target`: the source itself when it
// is replaced in its own format, otherwise base + ("_veltcompressed" when the original is kept) +
// "." + the target's extension, beside the source.
QString outputPath(const AppConfig& config, const QString& source, ImageFormat sourceFormat,
                   ImageFormat target);

// The output path predicted from the name alone (no decoding): nothing when the extension names
// no image format. With the automatic strategy and a source format that cannot be written, the
// prediction is AVIF when the image writer can encode it, else JPEG; the real plan may choose
// PNG for a transparent image. That difference is accepted.
std::optional<QString> predictedOutputURL(const AppConfig& config, const QString& source);

// With the keep policy, removes every base_veltcompressed.<ext> sibling of `source` except
// `keeping`, forgets them in the engine's maps and logs each removal. Never fails.
// `onlyAmong`, when given, names the compressed outputs a fresh listing of the folder saw: names
// outside it are known to be absent and are not looked up (a scan checks every settled file, and
// looking up seven missing names each time dominated its cost in large folders).
void removeStaleCompressedOutputs(EngineContext& context, const QString& source,
                                  const QString& keeping, const QSet<QString>* onlyAmong = nullptr);

// With the keep policy and an output other than the source: whether the output exists, is not
// empty and is not older than the source.
bool existingOutputIsFresh(const AppConfig& config, const QString& source, const QString& output);

}  // namespace velt
