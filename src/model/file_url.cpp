#include "model/file_url.h"

#include <QDir>
#include <QUrl>

namespace velt {

QString fileURLText(const QString& absolutePath, bool isDirectory) {
    QString text = QUrl::fromLocalFile(absolutePath).toString(QUrl::FullyEncoded);
    if (isDirectory && !text.endsWith(QLatin1Char('/'))) text += QLatin1Char('/');
    return text;
}

std::optional<QString> pathFromFileURLText(const QString& text) {
    if (text.startsWith(QLatin1Char('/'))) return standardizedPath(text);
    const QUrl url(text, QUrl::StrictMode);
    if (!url.isValid() || !url.isLocalFile()) return std::nullopt;
    const QString path = url.toLocalFile();
    if (!path.startsWith(QLatin1Char('/'))) return std::nullopt;
    return standardizedPath(path);
}

FileNameParts splitFileName(const QString& fileName) {
    const qsizetype dot = fileName.lastIndexOf(QLatin1Char('.'));
    if (dot <= 0) return {fileName, {}};
    return {fileName.left(dot), fileName.mid(dot + 1)};
}

QString fittedFileName(const QString& base, const QString& tail, qsizetype reserveBytes) {
    const qsizetype room = maximumFileNameBytes - reserveBytes - tail.toUtf8().size();
    if (base.toUtf8().size() <= room) return base + tail;
    qsizetype bytes = 0;
    qsizetype end = 0;
    while (end < base.size()) {
        const qsizetype length = base.at(end).isHighSurrogate() && end + 1 < base.size() ? 2 : 1;
        const qsizetype more = base.mid(end, length).toUtf8().size();
        if (bytes + more > room) break;
        bytes += more;
        end += length;
    }
    return base.left(end) + tail;
}

QString standardizedPath(const QString& path) {
    return QDir::cleanPath(path);
}

}  // namespace velt
