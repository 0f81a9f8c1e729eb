// Size guards, error helpers and file access shared by the decoders and header readers.
#include "imageio/decode_internal.h"

#include "model/image_safety.h"

#include <QFile>

namespace velt::imageio {

Message ImageIOError::reason() const {
    if (reason_) return *reason_;
    switch (code_) {
        case corruptFile:
        case tooLarge:  // thrown with the refused size as its reason
            break;
        case truncated:
            return {Text::fileTruncated, {}};
        case unsupportedFormat:
            return {Text::formatUnsupported, {}};
        case writeFailed:
            return {Text::encodingFailed, {}};
    }
    return {Text::fileDamaged, {}};
}

}  // namespace velt::imageio

namespace velt::imageio::detail {

void throwCorrupt(const QString& what) {
    throw ImageIOError(ImageIOError::corruptFile, what);
}

void throwTruncated(const QString& what) {
    throw ImageIOError(ImageIOError::truncated, what);
}

void checkDecodeSize(std::int64_t width, std::int64_t height) {
    try {
        validatedDecodedRasterByteCount(width, height);
    } catch (const ImageSafetyError& error) {
        throw ImageIOError(error.kind() == ImageSafetyError::invalidDimensions
                               ? ImageIOError::corruptFile
                               : ImageIOError::tooLarge,
                           error.errorDescription(), error.reason());
    }
}

QByteArray readWholeFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        throwCorrupt(QStringLiteral("The file could not be read: %1").arg(file.errorString()));
    }
    QByteArray data = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        throwCorrupt(QStringLiteral("The file could not be read: %1").arg(file.errorString()));
    }
    if (data.isEmpty()) throwCorrupt(QStringLiteral("The file is empty."));
    return data;
}

struct HeaderFile::Handle {
    QFile file;
};

HeaderFile::HeaderFile(const QString& path) : handle_(std::make_unique<Handle>()) {
    handle_->file.setFileName(path);
    if (!handle_->file.open(QIODevice::ReadOnly)) {
        throwCorrupt(
            QStringLiteral("The file could not be read: %1").arg(handle_->file.errorString()));
    }
    size_ = handle_->file.size();
}

HeaderFile::~HeaderFile() = default;

std::optional<QByteArray> HeaderFile::read(std::int64_t offset, std::int64_t count) {
    if (offset < 0 || count < 0 || offset > size_ || count > size_ - offset) return std::nullopt;
    if (!handle_->file.seek(offset)) return std::nullopt;
    QByteArray bytes = handle_->file.read(count);
    if (bytes.size() != count) return std::nullopt;
    return bytes;
}

}  // namespace velt::imageio::detail
