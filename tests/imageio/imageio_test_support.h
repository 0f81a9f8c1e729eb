// Shared fixtures for the image I/O tests: a synthetic test card, a libpng writer for any colour
// type and depth, ICC profiles built with lcms2, external tools run as processes, and read-back
// of encoder output through decoders that share no code with ours.
#pragma once

#include "imageio/image_io.h"

#include <QByteArray>
#include <QStringList>
#include <array>
#include <functional>
#include <optional>
#include <vector>

namespace velt::imageio::testing {

// Gradients, a disc and hard-edged bars. With `alpha`, the left quarter is transparent and the
// next quarter half transparent.
Bitmap card(int width, int height, bool alpha);
QByteArray ppm(const Bitmap& bitmap);
// The bitmap as an RGB(A) PNG at 8 or 16 bits (16-bit samples repeat the 8-bit value).
QByteArray pngOf(const Bitmap& bitmap, int depth, const QByteArray& iccProfile = {});

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

// Runs a tool (no shell), records a failure unless it exits with 0, and returns its stdout.
QByteArray runTool(const QString& program, const QStringList& arguments);
// The same for a space-separated command line in which "%1" stands for `folder`.
QByteArray run(const char* commandLine, const QString& folder);

struct Decoded {
    Bitmap bitmap;  // alphaInfo `last` when the file has an alpha channel
    QByteArray icc;
};
// Reads an encoder's output by the extension: djpeg for JPEG, pngcheck + libpng for PNG,
// heif-convert (to PNG) for HEIC and AVIF. The bitmap is empty when the file was unreadable.
Decoded decodeIndependently(const QString& path);

// The code of the ImageIOError that `call` throws (and its message); nothing when none.
std::optional<ImageIOError::Code> errorOf(const std::function<void()>& call,
                                          QString* message = nullptr);

// PSNR in dB (99 when equal). With `alpha`, A counts everywhere and RGB only where `expected`
// is opaque; without, RGB counts everywhere and A is ignored.
double psnr(const Bitmap& expected, const Bitmap& actual, bool alpha);

}  // namespace velt::imageio::testing
