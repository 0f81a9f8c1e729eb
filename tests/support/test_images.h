// Pictures the tests make themselves (a synthetic test card, a photo-like picture, PNG of any
// colour type and depth, ICC profiles built with lcms2), the real Debian tools run as processes,
// and read-back of encoder output through decoders that share no code with ours.
#pragma once

#include "imageio/image_io.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <array>
#include <functional>
#include <optional>
#include <vector>

namespace velt::testing {

using imageio::Bitmap;

// Gradients, a disc and hard-edged bars. With `alpha`, the left quarter is transparent and the
// next quarter half transparent.
Bitmap card(int width, int height, bool alpha);
// Smooth gradients, a disc and mild noise, deterministic; with `alpha`, the left quarter is
// transparent.
Bitmap photoLikeBitmap(int width, int height, bool withAlpha = false);

// Binary PPM (P6), or with `withAlpha` PAM (P7 RGB_ALPHA), bytes of a bitmap.
QByteArray toPNM(const Bitmap& bitmap, bool withAlpha = false);
// The bitmap as an RGB(A) PNG at 8 or 16 bits (16-bit samples repeat the 8-bit value), with an
// iCCP and an eXIf chunk when given.
QByteArray pngOf(const Bitmap& bitmap, int depth, const QByteArray& iccProfile = {},
                 const QByteArray& exif = {});

// `rows` hold packed samples at `bitDepth`, as PNG stores them (16-bit big-endian).
struct PngRecipe {
    PngRecipe(int w, int h, int type, int depth, bool adam7 = false)
        : width(w), height(h), colorType(type), bitDepth(depth), interlaced(adam7) {}
    int width, height, colorType, bitDepth;
    bool interlaced;
    std::vector<std::vector<std::uint8_t>> rows;
    std::vector<std::array<std::uint8_t, 3>> palette;
    std::vector<std::uint8_t> paletteAlpha;              // tRNS of a palette image
    std::optional<std::array<int, 3>> transparentColor;  // tRNS of grey (first value) or RGB
    QByteArray iccProfile;
    QByteArray exif;
};
QByteArray encodePng(const PngRecipe& recipe);

// Display P3 primaries with a gamma 2.2 curve, described as "Display P3"; and lcms2's sRGB.
QByteArray displayP3Profile();
QByteArray srgbProfile();

// Runs a program (no shell) and returns its standard output; nothing when it fails.
std::optional<QByteArray> runProgram(const QString& program, const QStringList& arguments);
// The same, recording a test failure unless the program exits with 0.
QByteArray runTool(const QString& program, const QStringList& arguments);
// runTool for a space-separated command line in which "%1" stands for `folder`.
QByteArray run(const char* commandLine, const QString& folder);

// The JPEG with an APP1 segment for each non-empty one of `payloads` right after its JFIF segment
// (or its start), as cameras lay them out.
QByteArray withApp1(const QByteArray& jpeg, const QList<QByteArray>& payloads);

// Writes `bitmap` as a JPEG of `quality` with the real cjpeg.
bool writeJPEGWithCjpeg(const Bitmap& bitmap, int quality, const QString& path,
                        const QStringList& extraArguments = {});

// Reads an encoder's output by its extension: djpeg for JPEG, dwebp for WebP, pngcheck plus
// libpng's own reader for PNG, heif-convert for HEIC and AVIF. The bitmap has alphaInfo `last`
// when the file has an alpha channel; `icc` receives a JPEG's or PNG's embedded profile.
// Nothing when any tool rejects the file.
std::optional<Bitmap> decodeIndependently(const QString& path, QByteArray* icc = nullptr);

// What a viewer that honours orientation shows, as 8-bit RGB: ImageMagick's -auto-orient. It
// applies a JPEG's EXIF Orientation (XMP's when EXIF has none), and libheif applies a HEIF's
// irot/imir for it (a HEIF's EXIF Orientation is not applied on top). ImageMagick reads no
// orientation from PNG eXIf or WebP EXIF, which browsers do honour: for those it is given
// `exiftoolOrientation`, the file's Orientation as exiftool reads it (1-8; others are none).
std::optional<Bitmap> displayedByViewer(const QString& path,
                                        std::optional<int> exiftoolOrientation = {});

// What a HEIF fixture carries that Debian's heif-enc cannot write: the irot/imir boxes of
// `orientation` (EXIF numbering: the stored pixels are shown turned by it), `exif` (a TIFF block)
// as its EXIF item, and colour described only by an nclx box of these code points.
struct HeifExtras {
    int orientation = 1;
    QByteArray exif;
    std::optional<std::pair<int, int>> nclxPrimariesAndTransfer;
};
// Writes `bitmap` as a HEIC or AVIF file with libheif; throws heif::Error.
void writeHeif(const Bitmap& bitmap, ImageFormat format, const HeifExtras& extras,
               const QString& path);

// The code of the ImageIOError that `call` throws (and its message); nothing when none.
std::optional<imageio::ImageIOError::Code> errorOf(const std::function<void()>& call,
                                                   QString* message = nullptr);

// PSNR in dB (99 when equal, 0 when the sizes differ). With `alpha`, A counts everywhere and
// RGB only where `expected` is opaque; without, RGB counts everywhere and A is ignored.
double psnr(const Bitmap& expected, const Bitmap& actual, bool alpha = false);
// PSNR of the RGB channels of both bitmaps composited onto white: what a viewer shows, whether
// or not the format kept the alpha channel.
double psnrOnWhite(const Bitmap& a, const Bitmap& b);

}  // namespace velt::testing
