// The user's quality numbers (0-100 per format, as the presets and the custom settings give them)
// on each encoder's own scale, so that one number means about the same picture in every format.
#pragma once

#include "model/image_format.h"

namespace velt {

// The setting for `format`'s encoder (libheif's quality for HEIC and AVIF, cwebp's "-q", cjpeg's
// "-quality", the top of pngquant's range) for the user's number `setting`, clamped to 0-100:
// linear between the anchors measured for the presets' numbers, 0 at 0 and 100 at 100, so it
// never falls as the number rises. JPEG and PNG keep the number as it is.
int encoderQuality(ImageFormat format, int setting);

}  // namespace velt
