// A photo's own data — EXIF (capture date, camera, lens, exposure, copyright), XMP and IPTC —
// read through exiv2 (libheif finds it in HEIC and AVIF files) and carried into the output.
//
// Only the metadata a photo library sorts and searches by is carried, and it is made true for
// the output: the Orientation becomes 1 (the pixels were turned upright while decoding), the
// EXIF thumbnail is dropped (it would show the old orientation and costs kilobytes), and under
// keepWithoutLocation the GPS tags and the XMP and IPTC location fields are removed. ICC profiles
// are not metadata here: they follow the colour rules of the encoders.
//
// Metadata is never worth an image: what cannot be read is left out (and said so), what cannot be
// written throws MetadataError, and the caller goes on without it. All functions are reentrant.
#pragma once

#include "model/image_format.h"
#include "model/settings.h"

#include <QByteArray>
#include <QString>
#include <optional>
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

// A photo's own metadata, read once by the one reader of the program: the turn that shows its
// pixels as viewers do, and the blocks its output carries. Both come from the same parse: the
// pixels get the turn the Orientation asks for, and the output's Orientation then says 1.
struct PhotoMetadata {
    // What the file's Orientation says (1-8; the rule is in metadata_read.cpp); nothing when it
    // says nothing a viewer applies.
    std::optional<int> orientation;
    // The turn to give the decoded frame: `orientation`, except for HEIF, which is shown by its
    // container's transform (irot/imir, applied by libheif while decoding); its EXIF Orientation
    // is never applied on top, as libheif and the viewers built on it do not.
    std::optional<int> displayTurn;
    // What the output carries under the policy: no thumbnail, Orientation 1 wherever the source
    // had one, no location unless keepAll; empty for strip.
    ImageMetadata carried;
    // Why some or all of the metadata is not carried (damaged, oversized, an XMP packet that
    // does not parse); empty when nothing was left out, and always for strip.
    QString dropped;
};

// The metadata of the image file at `path`, by the format its first bytes announce: EXIF, XMP
// and IPTC of JPEG, PNG (eXIf, iTXt) and WebP through exiv2; EXIF and XMP items of HEIC and AVIF
// through libheif; nothing of any other file. Never throws: what cannot be read is no
// orientation, and is named in `dropped`.
PhotoMetadata readPhotoMetadata(const QString& path, MetadataPolicy policy);

// The same over blocks already taken out of a file, with the EXIF rules (`displayTurn` is the
// orientation).
PhotoMetadata readPhotoMetadata(const ImageMetadata& blocks, MetadataPolicy policy);

// The encoded JPEG, PNG or WebP file `image` with `metadata` written into it (JPEG APP1/APP13,
// PNG eXIf and iTXt, WebP EXIF and XMP chunks); every other part of the file, its colour profile
// included, stays. Throws MetadataError (also for HEIC and AVIF, which take their metadata from
// encodeImage).
QByteArray withMetadata(const QByteArray& image, ImageFormat format, const ImageMetadata& metadata);

}  // namespace velt::imageio
