// The one metadata reader over an EXIF block: any input gives an orientation of 1-8 or none, and
// what it makes for an output, read again, says upright (or nothing).
#include "imageio/metadata.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace velt;
    imageio::ImageMetadata block;
    block.exif = QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const imageio::PhotoMetadata read = imageio::readPhotoMetadata(block, MetadataPolicy::keepAll);
    if (read.orientation && (*read.orientation < 1 || *read.orientation > 8)) __builtin_trap();
    const auto again = imageio::readPhotoMetadata(read.carried, MetadataPolicy::keepAll);
    if (again.orientation.value_or(1) != 1) __builtin_trap();
    return 0;
}
