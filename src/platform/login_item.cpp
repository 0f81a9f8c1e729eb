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

// The Exec value of the [Desktop Entry] group; empty when the file has none.
QString desktopEntryExec(const QString& desktopFile) {
    QFile file(desktopFile);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) return {};
    bool inMainGroup = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(QLatin1Char('['))) {
            inMainGroup = line == QLatin1String("[Desktop Entry]");
        } else if (inMainGroup && line.startsWith(QLatin1String("Exec="))) {
            return line.mid(5).trimmed();
        }
    }
    return {};
}

// The program an Exec value starts: its first word, unquoted when it is quoted.
QString execProgram(const QString& exec) {
    if (!exec.startsWith(QLatin1Char('"'))) return exec.section(QLatin1Char(' '), 0, 0);
    QString program;
    for (qsizetype i = 1; i < exec.size(); ++i) {
        if (exec.at(i) == QLatin1Char('\\') && i + 1 < exec.size()) {
            program += exec.at(++i);
        } else if (exec.at(i) == QLatin1Char('"')) {
            return program;
        } else {
            program += exec.at(i);
        }
    }
    return {};  // no closing quote: not a command we can trust
}

// Whether `program` (an absolute path, or a name looked up on PATH) is the file `executable`.
bool startsExecutable(const QString& program, const QString& executable) {
    if (program.isEmpty()) return false;
    const QString found =
        QFileInfo(program).isAbsolute() ? program : QStandardPaths::findExecutable(program);
    const QString target = QFileInfo(found).canonicalFilePath();
    return !target.isEmpty() && target == QFileInfo(executable).canonicalFilePath();
}

QByteArray desktopEntry(const QString& command) {
    const QString entry = QStringLiteral(
                              "[Desktop Entry]\n"
                              "Type=Application\n"
                              "Name=") +
                          appName +
                          QStringLiteral(
                              "\n"
                              "Comment=Compresses new images in the chosen folder\n"
                              "Exec=") +
                          command +
                          QStringLiteral(
                              "\n"
                              "Terminal=false\n"
                              "X-GNOME-Autostart-enabled=true\n");
    return entry.toUtf8();
}

}  // namespace

QString autostartCommand(const QString& executable) {
    const QString installedEntry = QFileInfo(executable).absolutePath() +
                                   QStringLiteral("/../share/applications/velt-compressor.desktop");
    const QString exec = desktopEntryExec(QDir::cleanPath(installedEntry));
    if (startsExecutable(execProgram(exec), executable)) return exec;
    return quotedExec(executable);
}

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
    if (!file.open(QIODevice::WriteOnly) ||
        file.write(desktopEntry(autostartCommand(program))) < 0 || !file.commit()) {
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
