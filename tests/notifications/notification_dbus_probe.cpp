// Sends one failed-file event twice through the real desktop backend, then waits until the
// manager has logged what became of it. Run by notification_session_test.sh inside a private
// session bus with a notification daemon; exits 0 when the daemon accepted the notification.
#include "model/native_log.h"
#include "model/paths.h"
#include "notifications/notification_manager.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTextStream>
#include <QThread>
#include <cstdio>

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const QString logPath = QDir(velt::veltLogDirectory()).filePath(QStringLiteral("native.log"));
    velt::AppConfig config;
    config.language = velt::AppLanguage::english;
    const auto event = velt::CompressionNotificationEvent::processingFailed(
        QStringLiteral("/tmp/velt probe/broken & <odd>.jpg"), {velt::Text::fileDamaged, {}});
    const auto readLog = [&] {
        QFile file(logPath);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    };
    const auto settled = [](const QByteArray& log) {
        return log.contains("Notification delivered: ") ||
               log.contains("Notification delivery failed: ") ||
               log.contains("Notification not shown");
    };
    QByteArray log;
    {
        velt::NotificationManager manager;
        manager.send(config, event);
        manager.send(config, event);  // within the cooldown: must not reach the daemon
        // The daemon's reply arrives on the manager's queue some time after the request.
        for (int i = 0; i < 100 && !settled(log); ++i) {
            QThread::msleep(100);
            log = readLog();
        }
        manager.waitUntilIdle();
        log = readLog();
    }
    QTextStream(stdout) << log;
    return log.contains("Notification delivered: failed:/tmp/velt probe/broken & <odd>.jpg") &&
                   log.contains("Notification skipped by cooldown: ")
               ? 0
               : 1;
}
