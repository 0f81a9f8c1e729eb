#include "ui/file_reveal.h"

#include "model/native_log.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QFileInfo>
#include <QProcess>
#include <QUrl>

namespace velt::ui {
namespace {

// xdg-open answers with its exit status (3: no program for the folder); one that keeps running
// is a file manager that opened, and is left to the user.
void openWithXdgOpen(const QString& folder, const std::function<void()>& notShown) {
    auto* process = new QProcess(QCoreApplication::instance());
    process->setStandardOutputFile(QProcess::nullDevice());
    process->setStandardErrorFile(QProcess::nullDevice());
    QObject::connect(process, &QProcess::errorOccurred, process,
                     [process, notShown](QProcess::ProcessError error) {
                         if (error != QProcess::FailedToStart) return;
                         NativeLog::write(QStringLiteral("xdg-open could not be started"));
                         notShown();
                         process->deleteLater();
                     });
    QObject::connect(process, &QProcess::finished, process,
                     [process, notShown, folder](int code, QProcess::ExitStatus status) {
                         if (status != QProcess::NormalExit || code != 0) {
                             NativeLog::write(QStringLiteral("xdg-open ") + folder +
                                              QStringLiteral(" ended with status ") +
                                              QString::number(code));
                             notShown();
                         }
                         process->deleteLater();
                     });
    process->start(QStringLiteral("xdg-open"), {folder});
}

}  // namespace

void showInFileManager(const QString& path, std::function<void()> notShown) {
    const bool isFolder = QFileInfo(path).isDir();
    const QString folder = isFolder ? path : QFileInfo(path).absolutePath();
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return openWithXdgOpen(folder, notShown);
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"),
        isFolder ? QStringLiteral("ShowFolders") : QStringLiteral("ShowItems"));
    call << QStringList{QUrl::fromLocalFile(path).toString()} << QString();
    auto* watcher =
        new QDBusPendingCallWatcher(bus.asyncCall(call, 10000), QCoreApplication::instance());
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [watcher, folder, notShown = std::move(notShown)] {
                         if (watcher->isError()) openWithXdgOpen(folder, notShown);
                         watcher->deleteLater();
                     });
}

}  // namespace velt::ui
