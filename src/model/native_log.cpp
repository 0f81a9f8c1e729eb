#include "model/native_log.h"

#include "model/atomic_file.h"
#include "model/paths.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <mutex>

namespace velt::NativeLog {
namespace {

// Serialises writers of this process so that lines stay whole and rotation is not raced.
std::mutex logMutex;

// One line per message, whatever it carries: a control character (a NUL from a damaged setting, a
// newline in a file name) is written as \uXXXX so it can neither cut the line nor hide in it.
QString printable(const QString& message) {
    QString out;
    out.reserve(message.size());
    for (const QChar c : message) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            out += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
        else
            out += c;
    }
    return out;
}

QByteArray formatLine(const QString& message) {
    const QString stamp =
        QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    return (QLatin1Char('[') + stamp + QStringLiteral(" +0000] ") + printable(message) +
            QLatin1Char('\n'))
        .toUtf8();
}

void removeQuietly(const QString& path) {
    QFile::remove(path);
}

// Losing the log is preferred to a log that grows without bound: any failure removes both files.
void rotateIfNeeded(const QString& logPath) {
    const QFileInfo info(logPath);
    if (!info.exists() || info.size() < rotationThresholdBytes) return;
    const QString tailPath = logPath + QStringLiteral(".1");
    QFile log(logPath);
    bool ok = log.open(QIODevice::ReadOnly) && log.seek(info.size() - rotatedTailBytes);
    QByteArray tail;
    if (ok) {
        tail = log.readAll();
        ok = log.error() == QFileDevice::NoError;
    }
    log.close();
    if (ok && writeFileAtomically(tailPath, tail)) {
        removeQuietly(logPath);
        return;
    }
    removeQuietly(tailPath);
    removeQuietly(logPath);
}

void append(const QString& message) {
    const std::lock_guard lock(logMutex);
    const QString directory = veltLogDirectory();
    if (!QDir().mkpath(directory)) return;
    const QString logPath = QDir(directory).filePath(QStringLiteral("native.log"));
    rotateIfNeeded(logPath);
    const QByteArray line = formatLine(message);
    QFile log(logPath);
    if (log.exists() && log.open(QIODevice::WriteOnly | QIODevice::Append)) {
        log.write(line);
        return;
    }
    writeFileAtomically(logPath, line);
}

}  // namespace

bool debugEnabled() {
    const QString value = qEnvironmentVariable("VELT_DEBUG_LOG").toLower();
    return value == QLatin1String("1") || value == QLatin1String("true") ||
           value == QLatin1String("yes");
}

void write(const QString& message) {
    try {
        append(message);
    } catch (...) {
        // Logging never fails outward.
    }
}

void debug(const QString& message) {
    if (debugEnabled()) write(message);
}

}  // namespace velt::NativeLog
