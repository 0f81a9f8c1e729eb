// Reading a source's metadata with exiv2 and making it true for the output (see metadata.h).
#include "imageio/metadata.h"
#include "imageio/metadata_internal.h"

#include <mutex>
#include <utility>

namespace velt::imageio {
namespace detail {
namespace {

// The XMP toolkit behind exiv2 is not thread-safe by itself: a batch reads on several threads.
void lockXmpToolkit(void* mutex, bool lock) {
    if (lock)
        static_cast<std::mutex*>(mutex)->lock();
    else
        static_cast<std::mutex*>(mutex)->unlock();
}

bool startsWithAny(const std::string& key, std::initializer_list<const char*> prefixes) {
    for (const char* prefix : prefixes)
        if (key.rfind(prefix, 0) == 0) return true;
    return false;
}

// Where a photo was taken, in XMP: the EXIF GPS mirror, the IPTC Core and Extension location
// fields, Photoshop's city/state/country, and any vendor property named after GPS or a
// coordinate.
bool isXmpLocation(const std::string& key) {
    if (startsWithAny(
            key, {"Xmp.exif.GPS", "Xmp.exifEX.GPS", "Xmp.photoshop.City", "Xmp.photoshop.State",
                  "Xmp.photoshop.Country", "Xmp.iptc.Location", "Xmp.iptc.CountryCode",
                  "Xmp.iptcExt.LocationCreated", "Xmp.iptcExt.LocationShown"}))
        return true;
    QString property = QString::fromStdString(key.substr(key.rfind('.') + 1)).toLower();
    return property.contains(QLatin1String("gps")) ||
           property.contains(QLatin1String("latitude")) ||
           property.contains(QLatin1String("longitude"));
}

bool isIptcLocation(const std::string& key) {
    return startsWithAny(key, {"Iptc.Application2.City", "Iptc.Application2.SubLocation",
                               "Iptc.Application2.ProvinceState", "Iptc.Application2.CountryCode",
                               "Iptc.Application2.CountryName", "Iptc.Application2.LocationCode",
                               "Iptc.Application2.LocationName"});
}

template <typename Data, typename Predicate>
void eraseWhere(Data& data, Predicate predicate) {
    for (auto it = data.begin(); it != data.end();) {
        if (predicate(*it))
            it = data.erase(it);
        else
            ++it;
    }
}

void applyExifPolicy(Exiv2::ExifData& exif, bool withoutLocation) {
    Exiv2::ExifThumb(exif).erase();
    eraseWhere(exif, [&](const Exiv2::Exifdatum& datum) {
        if (datum.groupName() == "Thumbnail") return true;
        return withoutLocation &&
               (datum.groupName() == "GPSInfo" || datum.key() == "Exif.Image.GPSTag");
    });
    // Every Orientation goes (a repeated tag too), and one SHORT 1 says the pixels are upright.
    bool hadOrientation = false;
    eraseWhere(exif, [&](const Exiv2::Exifdatum& datum) {
        const bool isOrientation = datum.key() == "Exif.Image.Orientation";
        hadOrientation = hadOrientation || isOrientation;
        return isOrientation;
    });
    if (hadOrientation) exif["Exif.Image.Orientation"] = std::uint16_t{1};
}

void applyXmpPolicy(Exiv2::XmpData& xmp, bool withoutLocation) {
    eraseWhere(xmp, [&](const Exiv2::Xmpdatum& datum) {
        if (startsWithAny(datum.key(), {"Xmp.xmp.Thumbnails"})) return true;
        return withoutLocation && isXmpLocation(datum.key());
    });
    const auto orientation = xmp.findKey(Exiv2::XmpKey("Xmp.tiff.Orientation"));
    if (orientation != xmp.end()) orientation->setValue("1");
}

thread_local std::vector<std::string>* messageSink = nullptr;

void collectMessage(int, const char* message) {
    if (messageSink && message && messageSink->size() < 16) messageSink->emplace_back(message);
}

bool isAboutXmp(const std::string& message) {
    return message.find("XMP") != std::string::npos;
}

void requireSize(qsizetype size, const char* what) {
    if (size > maximumMetadataBlockBytes)
        throw MetadataError(QStringLiteral("the %1 block is too large (%2 bytes)")
                                .arg(QLatin1String(what))
                                .arg(size));
}

}  // namespace

Exiv2Messages::Exiv2Messages() : previous_(std::exchange(messageSink, &messages_)) {}

Exiv2Messages::~Exiv2Messages() {
    messageSink = previous_;
}

std::string Exiv2Messages::firstAboutXmp() const {
    for (const std::string& message : messages_)
        if (isAboutXmp(message)) return message;
    return {};
}

std::string Exiv2Messages::firstAboutOthers() const {
    for (const std::string& message : messages_)
        if (!isAboutXmp(message)) return message;
    return {};
}

void initialiseExiv2() {
    static std::mutex xmpMutex;
    static const bool initialised = [] {
        // Problems are reported once, by the caller, not as exiv2's own lines on stderr.
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::warn);
        Exiv2::LogMsg::setHandler(collectMessage);
        Exiv2::XmpParser::initialize(lockXmpToolkit, &xmpMutex);
        return true;
    }();
    (void)initialised;
}

void applyPolicy(ParsedMetadata& parsed, MetadataPolicy policy) {
    if (policy == MetadataPolicy::strip) {
        parsed = ParsedMetadata();
        return;
    }
    const bool withoutLocation = policy == MetadataPolicy::keepWithoutLocation;
    applyExifPolicy(parsed.exif, withoutLocation);
    applyXmpPolicy(parsed.xmp, withoutLocation);
    if (withoutLocation)
        eraseWhere(parsed.iptc,
                   [](const Exiv2::Iptcdatum& datum) { return isIptcLocation(datum.key()); });
}

ParsedMetadata parse(const ImageMetadata& metadata, std::string* xmpProblem) {
    requireSize(metadata.exif.size(), "EXIF");
    requireSize(metadata.xmp.size(), "XMP");
    requireSize(metadata.iptc.size(), "IPTC");
    ParsedMetadata parsed;
    if (!metadata.exif.isEmpty()) {
        parsed.byteOrder = Exiv2::ExifParser::decode(
            parsed.exif, reinterpret_cast<const Exiv2::byte*>(metadata.exif.constData()),
            static_cast<std::uint32_t>(metadata.exif.size()));
        if (parsed.byteOrder == Exiv2::invalidByteOrder)
            throw MetadataError(QStringLiteral("the EXIF block is not a TIFF structure"));
    }
    if (!metadata.xmp.isEmpty() &&
        Exiv2::XmpParser::decode(parsed.xmp, metadata.xmp.toStdString()) != 0) {
        if (!xmpProblem) throw MetadataError(QStringLiteral("the XMP packet cannot be parsed"));
        *xmpProblem = "it cannot be parsed";
        parsed.xmp.clear();
    }
    if (!metadata.iptc.isEmpty() &&
        Exiv2::IptcParser::decode(parsed.iptc,
                                  reinterpret_cast<const Exiv2::byte*>(metadata.iptc.constData()),
                                  static_cast<std::uint32_t>(metadata.iptc.size())) != 0)
        throw MetadataError(QStringLiteral("the IPTC block cannot be parsed"));
    return parsed;
}

ImageMetadata serialise(ParsedMetadata& parsed) {
    ImageMetadata metadata;
    if (!parsed.exif.empty()) {
        Exiv2::Blob blob;
        Exiv2::ExifParser::encode(blob, parsed.byteOrder, parsed.exif);
        metadata.exif = QByteArray(reinterpret_cast<const char*>(blob.data()),
                                   static_cast<qsizetype>(blob.size()));
    }
    if (!parsed.xmp.empty()) {
        std::string packet;
        if (Exiv2::XmpParser::encode(packet, parsed.xmp, Exiv2::XmpParser::useCompactFormat) != 0)
            throw MetadataError(QStringLiteral("the XMP packet cannot be written"));
        metadata.xmp = QByteArray::fromStdString(packet);
    }
    if (!parsed.iptc.empty()) {
        metadata.iptc = bytesOf(Exiv2::IptcParser::encode(parsed.iptc));
    }
    requireSize(metadata.exif.size(), "EXIF");
    requireSize(metadata.xmp.size(), "XMP");
    requireSize(metadata.iptc.size(), "IPTC");
    return metadata;
}

}  // namespace detail

}  // namespace velt::imageio
