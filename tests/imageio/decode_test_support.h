// Fixtures for the decoder, header and orientation tests: a synthetic test card, files for the
// real encoders (PPM, PGM, PAM), a libpng writer for every colour type and bit depth, EXIF
// blocks, and a pixel comparison with a stated tolerance.
#pragma once

#include "imageio/bitmap.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace velt::imageio::decodetest {

// RGBA of the card at (x, y): red grows to the right, green downwards, blue is high inside a
// centred disc. With `alpha`, the top-left quarter is transparent and the bottom-left quarter
// half transparent; the right half is opaque.
std::array<std::uint8_t, 4> cardPixel(int x, int y, int width, int height, bool alpha);
Bitmap card(int width, int height, bool alpha);
// The card's grey version: (R + G + B) / 3, replicated into RGB.
Bitmap grayCard(int width, int height);

// Netpbm files of a bitmap: P6 (RGB), P5 (the R channel as grey), P7 RGB_ALPHA.
QByteArray ppm(const Bitmap& bitmap);
QByteArray pgm(const Bitmap& bitmap);
QByteArray pam(const Bitmap& bitmap);

// Runs an installed tool (no shell) and fails the current test unless it exits with 0.
void runTool(const QString& program, const QStringList& arguments);

// A PNG written with libpng from raw samples: `rows` holds height rows of packed samples at
// `bitDepth` (16-bit samples big-endian), as PNG stores them.
struct PngRecipe {
    int width = 0;
    int height = 0;
    int colorType = 0;  // PNG_COLOR_TYPE_*
    int bitDepth = 8;
    bool interlaced = false;
    std::vector<std::vector<std::uint8_t>> rows;
    std::vector<std::array<std::uint8_t, 3>> palette;
    std::vector<std::uint8_t> paletteAlpha;              // tRNS for palette images
    std::optional<std::array<int, 3>> transparentColor;  // tRNS for grey (first value) or RGB
    QByteArray iccProfile;
    QByteArray exif;  // eXIf chunk payload
};
QByteArray encodePng(const PngRecipe& recipe);

// A little-endian or big-endian TIFF structure whose IFD0 holds an orientation tag.
QByteArray tiffWithOrientation(int orientation, bool bigEndian);
// The JPEG with an "Exif" APP1 segment carrying `orientation` inserted after SOI.
QByteArray jpegWithOrientation(const QByteArray& jpeg, int orientation, bool bigEndian);

// The larger of the per-channel mean absolute errors of R, G, B (over pixels that are opaque
// in `expected`) and A (over all pixels). Sizes must match (checked by the caller).
double meanAbsoluteError(const Bitmap& decoded, const Bitmap& expected);

}  // namespace velt::imageio::decodetest
