// Which output formats this computer can produce right now.
#pragma once

#include "model/image_format.h"

namespace velt {

// WebP: exactly when the "cwebp" tool is found (the image library never writes WebP). Every
// other format: when the built-in image writer can encode it.
bool canWrite(ImageFormat format);

// Makes the model's writability questions (ImageFormat's isNativeWritable, the format menu)
// answer with what the image layer can really encode. Idempotent; every engine context calls it.
void registerImageWriterTypes();

}  // namespace velt
