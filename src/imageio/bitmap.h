// Bitmap: one decoded image frame as 8-bit RGBA, the stand-in for a platform image object.
#pragma once

#include "imageio/color.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace velt::imageio {

// The meanings (and numbers) of the platform's alpha-info values. Decoders of opaque images
// report noneSkipLast; any alpha channel or transparency chunk reports last, even when every
// pixel happens to be opaque.
enum class AlphaInfo {
    none = 0,
    premultipliedLast = 1,
    premultipliedFirst = 2,
    last = 3,
    first = 4,
    noneSkipLast = 5,
    noneSkipFirst = 6,
    alphaOnly = 7,
};

// premultipliedLast, premultipliedFirst, last, first and alphaOnly carry alpha.
bool hasAlphaChannel(AlphaInfo info);

struct Bitmap {
    int width = 0;
    int height = 0;
    // width × height × 4 bytes, R G B A, straight (not premultiplied) alpha, top row first,
    // rows without padding. Opaque images have A = 255 everywhere.
    std::vector<std::uint8_t> rgba;
    AlphaInfo alphaInfo = AlphaInfo::noneSkipLast;
    // The colour space the RGB values are in (the source's own RGB profile, or sRGB after a
    // grey or CMYK source was converted).
    ColorSpace colorSpace;

    std::size_t rowBytes() const { return static_cast<std::size_t>(width) * 4; }
    const std::uint8_t* pixel(int x, int y) const { return rgba.data() + y * rowBytes() + x * 4; }
};

// Gives the pixels' memory back once nothing reads them any more, keeping the size, the alpha
// info and the colour space (what an output is checked against).
inline void releasePixels(Bitmap& bitmap) {
    std::vector<std::uint8_t>().swap(bitmap.rgba);
}

}  // namespace velt::imageio
