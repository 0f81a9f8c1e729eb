// Carrying a source's own metadata (EXIF, XMP, IPTC) into its output, under the settings'
// metadata policy. Metadata never costs a photo its compression: whatever cannot be read or
// written is dropped with one log line ("Metadata dropped from NAME: reason") and the image goes
// on without it.
#pragma once

#include "imageio/metadata.h"
#include "model/settings.h"

#include <QString>
#include <optional>

namespace velt {

struct ImagePlan;

// The source's metadata, read once: the turn its pixels get and what its output carries (empty for
// strip, for a source without metadata and for one whose metadata is damaged: logged).
imageio::PhotoMetadata sourceMetadata(const QString& source, MetadataPolicy policy);

// The last step of every encoded temporary `file` before it may be kept: the plan's metadata goes
// into a JPEG, PNG or WebP (HEIC and AVIF received theirs from the encoder), then the one decode
// that proves the file whole at the plan's size. When the metadata cannot be written the file
// stays as the encoder left it (logged, once the file is proven). Throws what
// validateEncodedImage throws (the file is then removed) and FileSystemError when the file cannot
// be read or written.
void finishEncodedImage(const QString& file, const QString& source, const ImagePlan& plan);

}  // namespace velt
