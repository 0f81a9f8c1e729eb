// Which output formats this computer can produce right now.
#pragma once

#include "model/image_format.h"

namespace velt {

// WebP: exactly when the "cwebp" tool is found (the image library never writes WebP). Every
// other format: when the built-in image writer can encode it.
bool canWrite(ImageFormat format);

}  // namespace velt
