#include "engine/encoders/quality_scale.h"

#include <algorithm>
#include <cmath>
#include <span>

namespace velt {
namespace {

struct Anchor {
    int number;   // the user's number (a preset's)
    int setting;  // the encoder's own setting with the same mean SSIM
};

// Measured with `bench/run.sh calibrate` on 2026-11-23 (libjpeg-turbo 2.1.5 cjpeg, cwebp 1.2.4,
// libheif 1.15.1 with x265 3.5 and aom 3.6.0 at the speed settings of encode_heif.cpp): twelve
// photographs of 2-5 MP (42 MP), mean luma SSIM against the photo. Each anchor is the lowest
// setting whose mean SSIM reaches what cjpeg gives at the preset's JPEG number with the engine's
// arguments (-progressive -optimize -sample 2x2):
//   preset    JPEG  SSIM    bytes     cwebp          libheif AV1    libheif HEVC
//   maximum   64    0.9792  1.32 MB   64 → 76 0.9795  42 → 62 0.9803  60 → 39 0.9804
//                                     0.83 MB        0.75 MB        0.64 MB
//   balanced  76    0.9831  1.74 MB   78 → 82 0.9838  50 → 70 0.9836  72 → 43 0.9835
//                                     1.11 MB        0.97 MB        0.85 MB
//   gentle    86    0.9872  2.55 MB   86 → 88 0.9876  62 → 77 0.9872  82 → 49 0.9873
//                                     1.74 MB        1.34 MB        1.27 MB
// The photographs are the lossless versions (never JPEG-coded at that size) of the benchmark's
// camera-sized JPEGs. Measured against those JPEGs instead, cjpeg near the photo's own quality
// re-uses its 8×8 grid and quantiser (at the photos' quality 90: SSIM 0.99994; at 86: 0.9963,
// which cwebp only reaches at 99 with 1.6 × the JPEG's bytes): the gentle anchors would chase a
// re-encoding artefact. Balanced and maximum land within two points either way.
// The x265 setting moves in steps of two (libheif halves it into the constant rate factor).
// pngquant keeps its own scale: a palette of 256 colours stays far below the JPEG path's SSIM
// (0.93-0.97) whatever its range, so no setting of its would match.
constexpr Anchor webpAnchors[] = {{64, 76}, {78, 82}, {86, 88}};
constexpr Anchor avifAnchors[] = {{42, 62}, {50, 70}, {62, 77}};
constexpr Anchor heicAnchors[] = {{60, 39}, {72, 43}, {82, 49}};

std::span<const Anchor> anchorsOf(ImageFormat format) {
    switch (format) {
        case ImageFormat::webp:
            return webpAnchors;
        case ImageFormat::avif:
            return avifAnchors;
        case ImageFormat::heic:
            return heicAnchors;
        case ImageFormat::jpeg:
        case ImageFormat::png:
            break;
    }
    return {};
}

}  // namespace

int encoderQuality(ImageFormat format, int setting) {
    const int number = std::clamp(setting, 0, 100);
    Anchor below{0, 0};
    for (const Anchor& anchor : anchorsOf(format)) {
        if (number <= anchor.number) {
            const double t =
                static_cast<double>(number - below.number) / (anchor.number - below.number);
            return static_cast<int>(
                std::lround(below.setting + t * (anchor.setting - below.setting)));
        }
        below = anchor;
    }
    const double t = static_cast<double>(number - below.number) / (100 - below.number);
    return static_cast<int>(std::lround(below.setting + t * (100 - below.setting)));
}

}  // namespace velt
