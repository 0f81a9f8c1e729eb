// exiv2's side of the metadata code, shared by the reader and the writer. Nothing here is part
// of the layer's public interface.
#pragma once

#include "imageio/metadata.h"

#include <exiv2/exiv2.hpp>

#include <QByteArray>
#include <QString>
#include <string>
#include <vector>

namespace velt::imageio::detail {

struct ParsedMetadata {
    Exiv2::ExifData exif;
    Exiv2::XmpData xmp;
    Exiv2::IptcData iptc;
    Exiv2::ByteOrder byteOrder = Exiv2::littleEndian;  // kept as the source had it
};

// Mutes exiv2's own messages and makes its XMP toolkit thread-safe. Once per process; any thread.
void initialiseExiv2();

// Initialises exiv2 and runs `work`; exiv2's own exceptions leave it as MetadataError, so a caller
// never sees a library type.
template <typename Work>
auto withExiv2(Work work) -> decltype(work()) {
    initialiseExiv2();
    try {
        return work();
    } catch (const MetadataError&) {
        throw;
    } catch (const std::exception& error) {
        throw MetadataError(QString::fromUtf8(error.what()));
    }
}

// While alive, collects what exiv2 reports (warnings and errors) on this thread instead of
// letting it reach stderr: a parse that had to skip something is not trusted.
class Exiv2Messages {
  public:
    Exiv2Messages();
    ~Exiv2Messages();
    Exiv2Messages(const Exiv2Messages&) = delete;
    Exiv2Messages& operator=(const Exiv2Messages&) = delete;
    // The first message about XMP, and the first about anything else ("" when none).
    std::string firstAboutXmp() const;
    std::string firstAboutOthers() const;

  private:
    std::vector<std::string> messages_;
    std::vector<std::string>* previous_;
};

// A DataBuf's bytes: exiv2 0.27 keeps them in public members, 0.28 behind accessors.
template <typename Buffer>
QByteArray bytesOf(const Buffer& buffer) {
    if constexpr (requires { buffer.c_data(); })
        return QByteArray(reinterpret_cast<const char*>(buffer.c_data()),
                          static_cast<qsizetype>(buffer.size()));
    else
        return QByteArray(reinterpret_cast<const char*>(buffer.pData_),
                          static_cast<qsizetype>(buffer.size_));
}

// A tag's Nth value as an integer: exiv2 0.27 names it toLong, 0.28 toInt64.
template <typename Datum>
long long integerOf(const Datum& datum, std::size_t n) {
    if constexpr (requires { datum.toInt64(n); })
        return datum.toInt64(n);
    else
        return datum.toLong(static_cast<long>(n));
}

// Drops what the policy does not keep and makes the rest true for an upright output.
void applyPolicy(ParsedMetadata& parsed, MetadataPolicy policy);

// Throws MetadataError or an exiv2 error (a std::exception). With `xmpProblem`, an XMP packet that
// does not parse is left out and described there instead.
ParsedMetadata parse(const ImageMetadata& metadata, std::string* xmpProblem = nullptr);
// exiv2 0.28 may drop EXIF tags that do not fit while encoding, hence the non-const argument.
ImageMetadata serialise(ParsedMetadata& parsed);

}  // namespace velt::imageio::detail
