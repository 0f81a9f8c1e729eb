// A photo's own data — EXIF (capture date, camera, lens, exposure, copyright), XMP and IPTC —
// carried from a source into its output through exiv2 (and libheif for HEIC and AVIF outputs).
//
// Only the metadata a photo library sorts and searches by is carried, and it is made true for
// the output: the EXIF Orientation becomes 1 (the pixels were turned upright while decoding), the
// EXIF thumbnail is dropped (it would show the old orientation and costs kilobytes), and under
// keepWithoutLocation the GPS tags and the XMP and IPTC location fields are removed. ICC profiles
// are not metadata here: they follow the colour rules of the encoders.
//
// Metadata is never worth an image: everything here throws MetadataError for data it cannot
// read or write, and the caller goes on without it. All functions are reentrant.
#pragma once

#include "model/image_format.h"
#include "model/settings.h"

#include <QByteArray>
#include <QString>
#include <stdexcept>

namespace velt::imageio {

class MetadataError : public std::runtime_error {
  public:
    explicit MetadataError(const QString& description)
        : std::runtime_error(description.toStdString()) {}
};

// Serialised blocks, each empty when absent.
struct ImageMetadata {
    QByteArray exif;  // a TIFF structure ("II*\0" or "MM\0*"), without JPEG's "Exif\0\0"
    QByteArray xmp;   // an XMP packet, UTF-8
    QByteArray iptc;  // IPTC-IIM datasets

    bool isEmpty() const { return exif.isEmpty() && xmp.isEmpty() && iptc.isEmpty(); }
    bool operator==(const ImageMetadata&) const = default;
};

// Blocks larger than this are not a photo's data (a camera writes a few kilobytes of EXIF, an
// editor tens of kilobytes of XMP): they are refused before parsing.
inline constexpr qsizetype maximumMetadataBlockBytes = 1 << 20;

// The metadata of the image file at `path` as its output should carry it under `policy`; empty
// for strip and for a file without any. Throws MetadataError when the file's EXIF or IPTC cannot
// be parsed cleanly. An XMP packet that cannot be parsed is left out alone; `droppedPart`, when
// given, then says so.
ImageMetadata readMetadataForOutput(const QString& path, MetadataPolicy policy,
                                    QString* droppedPart = nullptr);

// Parses the blocks and serialises them again with the policy applied (orientation 1, no
// thumbnail, no location unless keepAll; nothing for strip). Throws MetadataError.
ImageMetadata filteredMetadata(const ImageMetadata& metadata, MetadataPolicy policy);

// The encoded JPEG, PNG or WebP file `image` with `metadata` written into it (JPEG APP1/APP13,
// PNG eXIf and iTXt, WebP EXIF and XMP chunks); every other part of the file, its colour profile
// included, stays. Throws MetadataError (also for HEIC and AVIF, which take their metadata from
// encodeImage).
QByteArray withMetadata(const QByteArray& image, ImageFormat format, const ImageMetadata& metadata);

}  // namespace velt::imageio
