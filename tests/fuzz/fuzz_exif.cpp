// The EXIF orientation reader over raw bytes.
#include "imageio/decode_internal.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto orientation = velt::imageio::detail::exifOrientation(data, size);
    if (orientation && (*orientation < 1 || *orientation > 8)) __builtin_trap();
    return 0;
}
