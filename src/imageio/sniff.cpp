// Format detection from magic bytes; the extension is never trusted here.
#include "imageio/image_io.h"

#include <QByteArray>
#include <array>

namespace velt::imageio {

namespace {

constexpr std::array<const char*, 2> avifBrands = {"avif", "avis"};
constexpr std::array<const char*, 7> heicBrands = {"heic", "heix", "hevc", "heim",
                                                   "heis", "mif1", "msf1"};

template <std::size_t N>
bool isOneOf(const QByteArray& brand, const std::array<const char*, N>& brands) {
    for (const char* candidate : brands) {
        if (brand == candidate) return true;
    }
    return false;
}

// The ISO base media "ftyp" box: major brand first, then the compatible brands. A specific
// brand (AVIF or HEVC) decides; the generic image brands mif1/msf1 alone mean HEIF.
std::optional<ImageFormat> sniffHeifBrands(const QByteArray& bytes) {
    if (bytes.size() < 12 || bytes.mid(4, 4) != "ftyp") return std::nullopt;
    const auto byteAt = [&bytes](int i) { return std::uint32_t{std::uint8_t(bytes[i])}; };
    const auto boxSize = static_cast<qsizetype>((byteAt(0) << 24) | (byteAt(1) << 16) |
                                                (byteAt(2) << 8) | byteAt(3));
    const qsizetype end = std::min(bytes.size(), boxSize < 16 ? qsizetype{12} : boxSize);
    QList<QByteArray> brands{bytes.mid(8, 4)};
    for (qsizetype at = 16; at + 4 <= end; at += 4) brands.append(bytes.mid(at, 4));

    const QByteArray& major = brands.front();
    if (isOneOf(major, avifBrands)) return ImageFormat::avif;
    if (isOneOf(major, heicBrands) && major != "mif1" && major != "msf1") return ImageFormat::heic;
    for (const QByteArray& brand : brands) {
        if (isOneOf(brand, avifBrands)) return ImageFormat::avif;
    }
    for (const QByteArray& brand : brands) {
        if (isOneOf(brand, heicBrands)) return ImageFormat::heic;
    }
    return std::nullopt;
}

}  // namespace

std::optional<ImageFormat> sniffFormat(const QByteArray& firstBytes) {
    if (firstBytes.startsWith("\xFF\xD8\xFF")) return ImageFormat::jpeg;
    if (firstBytes.startsWith("\x89PNG\r\n\x1A\n")) return ImageFormat::png;
    if (firstBytes.size() >= 12 && firstBytes.startsWith("RIFF") &&
        firstBytes.mid(8, 4) == "WEBP") {
        return ImageFormat::webp;
    }
    return sniffHeifBrands(firstBytes);
}

}  // namespace velt::imageio
