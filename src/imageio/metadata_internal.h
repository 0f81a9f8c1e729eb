// exiv2's side of the metadata code, shared by the reader and the writer. Nothing here is part
// of the layer's public interface.
#pragma once

#include "imageio/metadata.h"

#include <exiv2/exiv2.hpp>

namespace velt::imageio::detail {

struct ParsedMetadata {
    Exiv2::ExifData exif;
    Exiv2::XmpData xmp;
    Exiv2::IptcData iptc;
    Exiv2::ByteOrder byteOrder = Exiv2::littleEndian;  // kept as the source had it
};

// Mutes exiv2's own messages, makes its XMP toolkit thread-safe and enables HEIF reading. Once
// per process; any thread.
void initialiseExiv2();

// Drops what the policy does not keep and makes the rest true for an upright output.
void applyPolicy(ParsedMetadata& parsed, MetadataPolicy policy);

// Throws MetadataError or an exiv2 error (a std::exception).
ParsedMetadata parse(const ImageMetadata& metadata);
ImageMetadata serialise(const ParsedMetadata& parsed);

}  // namespace velt::imageio::detail
