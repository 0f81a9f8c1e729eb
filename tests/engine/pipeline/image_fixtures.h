// Test images made by the tests themselves, and independent decoders (the Debian tools run as
// real processes) to judge what the engine wrote.
#pragma once

#include "imageio/bitmap.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <optional>

namespace velt::testing {

// A photo-like picture: smooth gradients, a few shapes and mild noise (deterministic).
imageio::Bitmap photoLikeBitmap(int width, int height, bool withAlpha = false);

// Binary PPM (P6) or PAM (P7 RGB_ALPHA) bytes of a bitmap.
QByteArray toPNM(const imageio::Bitmap& bitmap, bool withAlpha);
// Parses P6 or P7 (RGB or RGB_ALPHA) bytes; nothing when malformed.
std::optional<imageio::Bitmap> fromPNM(const QByteArray& data);

// Every file name in `folder`, hidden ones included (not the backup folder's), sorted.
QStringList fileNamesIn(const QString& folder);

// Runs a program and returns its standard output; nothing when it fails or exits non-zero.
std::optional<QByteArray> runProgram(const QString& program, const QStringList& arguments);

// Writes `bitmap` as a JPEG of `quality` with the real cjpeg.
bool writeJPEGWithCjpeg(const imageio::Bitmap& bitmap, int quality, const QString& path,
                        const QStringList& extraArguments = {});

// Decodes `path` with an independent decoder chosen by its format (djpeg, dwebp, heif-convert
// for HEIC/AVIF, libpng-based pngcheck plus the project's reader for PNG).
std::optional<imageio::Bitmap> decodeIndependently(const QString& path);

// Peak signal-to-noise ratio of the RGB channels, composited onto white; both the same size.
double psnr(const imageio::Bitmap& a, const imageio::Bitmap& b);

}  // namespace velt::testing
