#include "platform/login_item.h"

#include "model/constants.h"
#include "model/native_log.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

namespace velt {
namespace {

// Exec= quoting of the desktop entry format: the path in double quotes with ", `, $ and \ escaped.
QString quotedExec(const QString& path) {
    QString escaped;
    for (const QChar c : path) {
        if (c == QLatin1Char('"') || c == QLatin1Char('`') || c == QLatin1Char('$') ||
            c == QLatin1Char('\\'))
            escaped += QLatin1Char('\\');
        escaped += c;
    }
    return QLatin1Char('"') + escaped + QLatin1Char('"');
}

QByteArray desktopEntry(const QString& executable) {
    const QString entry = QStringLiteral(
                              "[Desktop Entry]\n"
                              "Type=Application\n"
                              "Name=") +
                          appName +
                          QStringLiteral(
                              "\n"
                              "Comment=Compresses new images in the chosen folder\n"
                              "Exec=") +
                          quotedExec(executable) +
                          QStringLiteral(
                              "\n"
                              "Terminal=false\n"
                              "X-GNOME-Autostart-enabled=true\n");
    return entry.toUtf8();
}

}  // namespace

QString loginItemFilePath() {
    const QString config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    return config + QStringLiteral("/autostart/velt-compressor.desktop");
}

bool loginItemRegistered() {
    return QFileInfo(loginItemFilePath()).isFile();
}

bool registerLoginItem(const QString& executable) {
    const QString path = loginItemFilePath();
    const QString program =
        executable.isEmpty() ? QCoreApplication::applicationFilePath() : executable;
    if (!QDir().mkpath(QFileInfo(path).absolutePath())) {
        NativeLog::write(QStringLiteral("Login item folder could not be created: ") + path);
        return false;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(desktopEntry(program)) < 0 ||
        !file.commit()) {
        NativeLog::write(QStringLiteral("Login item write failed: ") + path + QStringLiteral(" ") +
                         file.errorString());
        return false;
    }
    return true;
}

bool unregisterLoginItem() {
    const QString path = loginItemFilePath();
    if (!QFileInfo::exists(path)) return true;
    if (QFile::remove(path)) return true;
    NativeLog::write(QStringLiteral("Login item removal failed: ") + path);
    return false;
}

}  // namespace velt
