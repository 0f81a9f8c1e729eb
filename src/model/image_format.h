// The image formats the program reads and writes, and which of them the image layer can encode.
#pragma once

#include <QString>
#include <QStringList>
#include <array>
#include <functional>
#include <optional>

namespace velt {

enum class ImageFormat { jpeg, png, webp, avif, heic };

inline constexpr std::array<ImageFormat, 5> allImageFormats = {
    ImageFormat::jpeg, ImageFormat::png, ImageFormat::webp, ImageFormat::avif, ImageFormat::heic};

// The extension written for outputs: "jpg", "png", "webp", "avif", "heic".
QString fileExtension(ImageFormat format);
// "public.jpeg", "public.png", "org.webmproject.webp", "public.avif", "public.heic".
QString typeIdentifier(ImageFormat format);
inline bool isHeicFamily(ImageFormat format) {
    return format == ImageFormat::heic;
}

// Case-insensitive: "jpg"/"jpeg" → jpeg, "heic"/"heif" → heic, ...; anything else → nothing.
std::optional<ImageFormat> imageFormatFromFileExtension(const QString& extension);
// Exact JPEG/PNG identifiers, then by containment: "webp", "avif", "heic" or "heif".
std::optional<ImageFormat> imageFormatFromTypeIdentifier(const std::optional<QString>& identifier);

// Whether the built-in image writer lists the format's type identifier as writable.
bool isNativeWritable(ImageFormat format);

// The type identifiers the built-in image writer can encode. The image layer installs the real
// list at start-up; until it does, only JPEG and PNG are reported.
QStringList writableTypeIdentifiers();
void setWritableTypeIdentifiersProvider(std::function<QStringList()> provider);

}  // namespace velt
