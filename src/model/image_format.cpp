#include "model/image_format.h"

#include <mutex>

namespace velt {
namespace {

std::mutex providerMutex;
std::function<QStringList()>& provider() {
    static std::function<QStringList()> current;
    return current;
}

}  // namespace

QString fileExtension(ImageFormat format) {
    switch (format) {
        case ImageFormat::jpeg:
            return QStringLiteral("jpg");
        case ImageFormat::png:
            return QStringLiteral("png");
        case ImageFormat::webp:
            return QStringLiteral("webp");
        case ImageFormat::avif:
            return QStringLiteral("avif");
        case ImageFormat::heic:
            return QStringLiteral("heic");
    }
    return {};
}

QString typeIdentifier(ImageFormat format) {
    switch (format) {
        case ImageFormat::jpeg:
            return QStringLiteral("public.jpeg");
        case ImageFormat::png:
            return QStringLiteral("public.png");
        case ImageFormat::webp:
            return QStringLiteral("org.webmproject.webp");
        case ImageFormat::avif:
            return QStringLiteral("public.avif");
        case ImageFormat::heic:
            return QStringLiteral("public.heic");
    }
    return {};
}

std::optional<ImageFormat> imageFormatFromFileExtension(const QString& extension) {
    const QString lower = extension.toLower();
    if (lower == QLatin1String("jpg") || lower == QLatin1String("jpeg")) return ImageFormat::jpeg;
    if (lower == QLatin1String("png")) return ImageFormat::png;
    if (lower == QLatin1String("webp")) return ImageFormat::webp;
    if (lower == QLatin1String("avif")) return ImageFormat::avif;
    if (lower == QLatin1String("heic") || lower == QLatin1String("heif")) return ImageFormat::heic;
    return std::nullopt;
}

std::optional<ImageFormat> imageFormatFromTypeIdentifier(const std::optional<QString>& identifier) {
    if (!identifier) return std::nullopt;
    const QString& id = *identifier;
    if (id == typeIdentifier(ImageFormat::jpeg)) return ImageFormat::jpeg;
    if (id == typeIdentifier(ImageFormat::png)) return ImageFormat::png;
    if (id.contains(QLatin1String("webp"))) return ImageFormat::webp;
    if (id.contains(QLatin1String("avif"))) return ImageFormat::avif;
    if (id.contains(QLatin1String("heic")) || id.contains(QLatin1String("heif")))
        return ImageFormat::heic;
    return std::nullopt;
}

QStringList writableTypeIdentifiers() {
    std::function<QStringList()> current;
    {
        const std::lock_guard lock(providerMutex);
        current = provider();
    }
    if (current) return current();
    return {typeIdentifier(ImageFormat::jpeg), typeIdentifier(ImageFormat::png)};
}

void setWritableTypeIdentifiersProvider(std::function<QStringList()> newProvider) {
    const std::lock_guard lock(providerMutex);
    provider() = std::move(newProvider);
}

bool isNativeWritable(ImageFormat format) {
    return writableTypeIdentifiers().contains(typeIdentifier(format));
}

}  // namespace velt
