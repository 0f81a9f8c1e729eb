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

// Writes the plan's metadata into the encoded JPEG, PNG or WebP temporary file `destination` and
// proves that it still decodes to the expected size (HEIC and AVIF received theirs from the
// encoder). When the metadata cannot be written the file stays as the encoder left it (logged).
// Throws FileSystemError when the file cannot be read or written, or no longer decodes.
void writeMetadataInto(const QString& destination, const QString& source, const ImagePlan& plan);

}  // namespace velt
