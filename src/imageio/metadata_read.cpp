// The one reader of a photo's own metadata (see metadata.h): exiv2 parses it, the Orientation
// rule below decides the turn that shows the photo as viewers do, and the same parse, made true
// for an upright output, is what the output carries.
#include "imageio/decode_internal.h"
#include "imageio/metadata.h"
#include "imageio/metadata_internal.h"

#include <QFile>

namespace velt::imageio {
namespace {

using detail::ParsedMetadata;

std::optional<int> inRange(long long value) {
    if (value < 1 || value > 8) return std::nullopt;
    return static_cast<int>(value);
}

// The Orientation a viewer applies. Writers disagree on how to store it, so this follows what
// viewers do where the standard (one SHORT in IFD0) is not followed; ImageMagick 6.9 and
// exiftool 12 were checked as references:
// - EXIF IFD0 decides whenever it has an Orientation, whatever that says; XMP's tiff:Orientation
//   counts only when EXIF has none (both references; ImageMagick reads XMP's element form only,
//   exiftool and this reader both forms).
// - A repeated tag: the first one. Several values in one tag: the first (both references).
// - Any integer type: SHORT as the standard says, LONG and SLONG as cameras and editors also
//   write it (both references honour them), and BYTE, SBYTE and SSHORT alike.
// - Text, fractions and floating point are no orientation: no camera writes them, browsers and
//   GNOME's image loader read a SHORT only, and ImageMagick takes FLOAT and DOUBLE for none while
//   reading text and fractions through their printed form (it takes "6x" for 6).
// - A value outside 1-8 (0, 9, 65535, negative) is no orientation: viewers show the pixels as
//   they are stored.
std::optional<int> orientationOf(const Exiv2::ExifData& exif, const Exiv2::XmpData& xmp) {
    const auto tag = exif.findKey(Exiv2::ExifKey("Exif.Image.Orientation"));
    if (tag != exif.end()) {
        switch (tag->typeId()) {
            case Exiv2::unsignedByte:
            case Exiv2::unsignedShort:
            case Exiv2::unsignedLong:
            case Exiv2::signedByte:
            case Exiv2::signedShort:
            case Exiv2::signedLong:
                return tag->count() >= 1 ? inRange(detail::integerOf(*tag, 0)) : std::nullopt;
            default:
                return std::nullopt;
        }
    }
    const auto property = xmp.findKey(Exiv2::XmpKey("Xmp.tiff.Orientation"));
    if (property == xmp.end()) return std::nullopt;
    bool isNumber = false;
    const int value = QString::fromStdString(property->toString()).trimmed().toInt(&isNumber);
    return isNumber ? inRange(value) : std::nullopt;
}

// One parse and what exiv2 said while making it. Whatever it had to skip, other than an XMP
// packet, makes the whole metadata untrusted for carrying: what is left of it cannot be trusted to
// say the right thing about the photo. An XMP packet that does not parse (editors do write
// duplicate properties) is left out alone.
struct Parse {
    ParsedMetadata parsed;
    std::string problem;
    std::string xmpProblem;
};

Parse parseFile(const QString& path) {
    const detail::Exiv2Messages messages;
    const auto image = Exiv2::ImageFactory::open(QFile::encodeName(path).toStdString());
    image->readMetadata();
    Parse result;
    result.parsed.exif = image->exifData();
    result.parsed.iptc = image->iptcData();
    result.xmpProblem = messages.firstAboutXmp();
    if (result.xmpProblem.empty()) result.parsed.xmp = image->xmpData();
    if (image->byteOrder() != Exiv2::invalidByteOrder) result.parsed.byteOrder = image->byteOrder();
    result.problem = messages.firstAboutOthers();
    return result;
}

Parse parseBlocks(const ImageMetadata& blocks) {
    const detail::Exiv2Messages messages;
    Parse result;
    result.parsed = detail::parse(blocks, &result.xmpProblem);
    if (result.xmpProblem.empty()) result.xmpProblem = messages.firstAboutXmp();
    result.problem = messages.firstAboutOthers();
    return result;
}

QString trimmed(const std::string& text) {
    return QString::fromStdString(text).trimmed();
}

PhotoMetadata photoMetadataOf(Parse parse, bool containerTurns, MetadataPolicy policy) {
    PhotoMetadata result;
    result.orientation = orientationOf(parse.parsed.exif, parse.parsed.xmp);
    result.displayTurn = containerTurns ? std::nullopt : result.orientation;
    if (policy == MetadataPolicy::strip) return result;
    if (!parse.problem.empty()) {
        result.dropped = trimmed(parse.problem);
        return result;
    }
    if (!parse.xmpProblem.empty())
        result.dropped = QStringLiteral("the XMP packet: ") + trimmed(parse.xmpProblem);
    try {
        detail::applyPolicy(parse.parsed, policy);
        result.carried = detail::serialise(parse.parsed);
    } catch (const std::exception& error) {
        result.dropped = trimmed(error.what());
    }
    return result;
}

PhotoMetadata nothingRead(MetadataPolicy policy, const char* why) {
    PhotoMetadata result;
    if (policy != MetadataPolicy::strip) result.dropped = trimmed(why);
    return result;
}

std::optional<ImageFormat> sniffedFormat(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? sniffFormat(file.read(256)) : std::nullopt;
}

}  // namespace

PhotoMetadata readPhotoMetadata(const QString& path, MetadataPolicy policy) {
    // Only the formats this program decodes are read: exiv2 would take other files for other
    // formats (an ISO box file for a QuickTime video, whose reader can loop forever).
    const std::optional<ImageFormat> format = sniffedFormat(path);
    if (!format) return nothingRead(policy, "the file is not an image in a supported format");
    const bool heif = format == ImageFormat::heic || format == ImageFormat::avif;
    try {
        return detail::withExiv2([&] {
            return photoMetadataOf(
                heif ? parseBlocks(detail::readHeifMetadata(path)) : parseFile(path), heif, policy);
        });
    } catch (const std::exception& error) {
        return nothingRead(policy, error.what());
    }
}

PhotoMetadata readPhotoMetadata(const ImageMetadata& blocks, MetadataPolicy policy) {
    try {
        return detail::withExiv2(
            [&] { return photoMetadataOf(parseBlocks(blocks), false, policy); });
    } catch (const std::exception& error) {
        return nothingRead(policy, error.what());
    }
}

}  // namespace velt::imageio
