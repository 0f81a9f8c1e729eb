#include "engine/pipeline/image_safety.h"

#include "engine/errors.h"
#include "engine/watcher/file_signature.h"
#include "imageio/image_io.h"
#include "model/constants.h"

#include <QFile>

namespace velt {
namespace {

[[noreturn]] void rejectWrittenFile(const QString& path) {
    QFile::remove(path);
    throw FileSystemError(FileSystemError::writeUnknown,
                          QStringLiteral("The file “%1” couldn’t be saved.").arg(path));
}

}  // namespace

std::optional<QByteArray> iccDataForEncoding(const std::optional<imageio::ColorSpace>& colorSpace) {
    if (!colorSpace) return std::nullopt;
    QByteArray profile = imageio::iccProfileToEmbed(*colorSpace);
    if (profile.isEmpty()) return std::nullopt;
    return profile;
}

std::int64_t validateTemporaryFile(const QString& path) {
    const std::int64_t size = fileSize(path);
    if (size < 1) rejectWrittenFile(path);
    return size;
}

std::int64_t validateEncodedImage(const QString& path) {
    const std::int64_t size = validateTemporaryFile(path);
    try {
        imageio::verifyFirstFrameDecodes(path);
    } catch (const std::exception&) {
        rejectWrittenFile(path);
    }
    return size;
}

}  // namespace velt
