// Inputs and independent read-back for the encoder and colour tests: synthetic bitmaps, ICC
// profiles built with lcms2 (identical bytes on every call), external decoders run as processes,
// and a small libpng reader.
#pragma once

#include "imageio/bitmap.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <optional>

namespace velt::imageio::testing {

// A photo-like test card: smooth gradients, a disc and hard-edged bars. With `alpha`, the left
// quarter is fully transparent, the next quarter half transparent, and alphaInfo is `last`.
Bitmap syntheticBitmap(int width, int height, bool alpha);

// A matrix/TRC RGB profile with the Display P3 primaries, D65 white and a gamma 2.2 curve,
// described as "Display P3".
QByteArray displayP3Profile();
// The lcms2 built-in sRGB profile, as saved bytes.
QByteArray srgbProfile();
// A grey profile with a linear tone curve (gamma 1.0), D50 white.
QByteArray linearGrayProfile();
// A Lab profile: neither RGB, grey nor CMYK.
QByteArray labProfile();

struct ProcessResult {
    int exitCode = -1;
    QByteArray output;
};
// Runs `program` with `arguments` (no shell) and waits up to a minute.
ProcessResult runProcess(const QString& program, const QStringList& arguments);

// Decodes a binary PPM (P6, maxval 255) into an opaque bitmap; nothing when malformed.
std::optional<Bitmap> readPPM(const QByteArray& bytes);

struct PngContents {
    Bitmap bitmap;       // alphaInfo `last` when the file has an alpha channel
    QByteArray iccData;  // the iCCP profile, uncompressed; empty when there is none
};
// Reads an 8-bit RGB or RGBA PNG with libpng; nothing when libpng fails.
std::optional<PngContents> readPNG(const QString& path);

// Decodes a HEIC/AVIF file with heif-convert into a PNG beside it and reads that back.
std::optional<PngContents> decodeWithHeifConvert(const QString& path);

// Peak signal-to-noise ratio over R, G and B (and A when `withAlpha`), in dB; 99 when equal.
double psnr(const Bitmap& a, const Bitmap& b, bool withAlpha);

// The concatenated ICC profile of a JPEG's APP2 "ICC_PROFILE" markers, in their sequence order;
// empty when there are none.
QByteArray jpegICCProfile(const QByteArray& jpeg);
// The luma component's sampling factors byte (0x22 for 4:2:0) from the frame header, or -1.
int jpegLumaSampling(const QByteArray& jpeg);

}  // namespace velt::imageio::testing
