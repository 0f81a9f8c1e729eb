#include "model/atomic_file.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace velt {

bool writeFileAtomically(const QString& path, const QByteArray& data, QString* error) {
    auto fail = [error](const QString& reason) {
        if (error) *error = reason;
        return false;
    };
    const QString folder = QFileInfo(path).absolutePath();
    if (!QDir().mkpath(folder)) return fail(QStringLiteral("cannot create folder ") + folder);
    QSaveFile file(path);
    // QSaveFile would fall back to writing in place in an unwritable folder; never do that.
    file.setDirectWriteFallback(false);
    if (!file.open(QIODevice::WriteOnly)) return fail(file.errorString());
    if (file.write(data) != data.size()) {
        file.cancelWriting();
        return fail(file.errorString());
    }
    if (!file.commit()) return fail(file.errorString());
    return true;
}

std::optional<QByteArray> readWholeFile(const QString& path, qint64 maximumBytes) {
    const QFileInfo info(path);
    if (!info.isFile() || info.size() > maximumBytes) return std::nullopt;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return std::nullopt;
    QByteArray data = file.read(maximumBytes + 1);
    if (file.error() != QFileDevice::NoError || data.size() > maximumBytes) return std::nullopt;
    return data;
}

}  // namespace velt
