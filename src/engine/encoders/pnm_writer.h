// The uncompressed raster that the external JPEG and WebP encoders read: the planned image
// rendered to 8-bit samples as a binary PPM (P6, R G B) or, when alpha must be kept, as a PAM
// (P7, R G B A with straight alpha); written to an intermediate file, or handed to a tool's
// standard input piece by piece.
//
// Rendering follows a premultiplied RGBA raster exactly, so the bytes are the same as those of
// the platform's bitmap context: without alpha every pixel is composited onto opaque white; with
// alpha the colour is premultiplied (rounded) and then un-premultiplied by
// (c × 255 + ⌊a / 2⌋) ÷ a, capped at 255.
//
// Runs on the engine's queue. A file is temporary: the caller deletes it on every outcome.
#pragma once

#include "engine/core/child_input.h"
#include "engine/core/lifecycle.h"
#include "imageio/bitmap.h"
#include "imageio/color.h"

#include <QByteArray>
#include <QString>
#include <cstdint>
#include <functional>

namespace velt {

// Throws ImageSafetyError for dimensions refused by validatedDecodedRasterByteCount and
// FileSystemError(writeUnknown) when the pixels do not cover the size.
void checkRenderable(const imageio::Bitmap& image);

// "P6\n<w> <h>\n255\n" or "P7\nWIDTH <w>\nHEIGHT <h>\nDEPTH 4\nMAXVAL 255\nTUPLTYPE
// RGB_ALPHA\nENDHDR\n".
QByteArray pnmHeader(int width, int height, bool preserveAlpha);

// Called after each row has been written, with the number of rows written so far. A test seam:
// it lets a test request a stop at an exact row.
using PNMRowObserver = std::function<void(int rowsWritten)>;

// Writes `image` to `destination` as PPM (preserveAlpha false) or PAM (true), replacing whatever
// file is there, and flushes it to disk.
//
// The pixels are taken as being in `colorSpace` already: the decoder leaves an RGB image in its
// own profile's space, which is the plan's working space, and converts grey and CMYK to sRGB.
//
// Throws ImageSafetyError for dimensions refused by validatedDecodedRasterByteCount (before any
// allocation or file), FolderCompressorControlError::cancelled when a stop is requested (checked
// before each row; the partial file stays), FileSystemError(writeUnknown) when the pixels do not
// match the size or the file cannot be created, and FileSystemError for write and flush failures.
void writePNMImage(EngineLifecycle& lifecycle, const QString& destination,
                   const imageio::Bitmap& image, bool preserveAlpha,
                   const imageio::ColorSpace& colorSpace, const PNMRowObserver& afterRow = {});

// The bytes writePNMImage writes for `image`, as a tool's input: the header, then blocks of
// rows rendered as they are asked for (a few hundred kilobytes, never the whole raster); each
// pnmChunks() starts a stream of its own. `image` must outlive the returned function. Throws as
// writePNMImage does, before any byte.
InputChunks pnmChunks(const imageio::Bitmap& image, bool preserveAlpha);

}  // namespace velt
