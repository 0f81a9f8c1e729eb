// EXIF orientation applied by our own pixel moves: each output pixel is fetched from the
// source position that the orientation maps onto it.
#include "imageio/image_io.h"

#include <cstring>

namespace velt::imageio {

namespace {

struct SourcePosition {
    int x;
    int y;
};

// For output pixel (x, y), where the source pixel lies; w and h are the source's size.
SourcePosition sourceOf(int orientation, int x, int y, int w, int h) {
    switch (orientation) {
        case 2:
            return {w - 1 - x, y};  // mirrored horizontally
        case 3:
            return {w - 1 - x, h - 1 - y};  // rotated 180°
        case 4:
            return {x, h - 1 - y};  // mirrored vertically
        case 5:
            return {y, x};  // transposed
        case 6:
            return {y, h - 1 - x};  // rotated 90° clockwise
        case 7:
            return {w - 1 - y, h - 1 - x};  // transversed
        case 8:
            return {w - 1 - y, x};  // rotated 90° counter-clockwise
        default:
            return {x, y};
    }
}

}  // namespace

Bitmap applyOrientation(const Bitmap& bitmap, int orientation) {
    if (orientation < 2 || orientation > 8) return bitmap;
    const bool swaps = orientation >= 5;
    Bitmap result;
    result.width = swaps ? bitmap.height : bitmap.width;
    result.height = swaps ? bitmap.width : bitmap.height;
    result.alphaInfo = bitmap.alphaInfo;
    result.colorSpace = bitmap.colorSpace;
    result.rgba.resize(bitmap.rgba.size());
    for (int y = 0; y < result.height; ++y) {
        std::uint8_t* out = result.rgba.data() + y * result.rowBytes();
        for (int x = 0; x < result.width; ++x, out += 4) {
            const SourcePosition from = sourceOf(orientation, x, y, bitmap.width, bitmap.height);
            std::memcpy(out, bitmap.pixel(from.x, from.y), 4);
        }
    }
    return result;
}

}  // namespace velt::imageio
