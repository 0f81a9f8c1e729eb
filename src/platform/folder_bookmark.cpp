#include "platform/folder_bookmark.h"

#include <QStringDecoder>

namespace velt {

QByteArray makeFolderBookmark(const QString& absolutePath) {
    return absolutePath.toUtf8();
}

std::optional<QString> resolveFolderBookmark(const QByteArray& bookmark) {
    if (!bookmark.startsWith('/')) return std::nullopt;
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString path = decoder.decode(bookmark);
    if (decoder.hasError()) return std::nullopt;
    for (const QChar c : path) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7f) return std::nullopt;
    }
    return path;
}

}  // namespace velt
