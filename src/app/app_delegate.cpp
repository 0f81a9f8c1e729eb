#include "app/app_delegate.h"

#include "model/native_log.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QTimer>

namespace velt {

AppDelegate::AppDelegate(StatusBarShell& shell) : shell_(shell) {}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching() {
    NativeLog::write(QStringLiteral("App launched"));
    store_ = std::make_unique<AppStore>(&shell_.presenter());
    store_->setSessionOverrides(overrides_);
    shell_.createStatusItem(*store_);
    updateStatusItem();
    store_->onChange = [this] {
        shell_.refreshPanel();
        updateStatusItem();
    };
    store_->onNotice = [this](const CompressionNotificationEvent& event) {
        showMenuBarNotice(event);
    };

    if (qEnvironmentVariable("VELT_LAUNCH_SMOKE") == QLatin1String("1")) {
        NativeLog::write(QStringLiteral("Launch smoke complete"));
        QTimer::singleShot(launchSmokeExitDelay, qApp, [] { QCoreApplication::exit(0); });
        return;
    }
    // A stop the user made stays made: only a watch that was on is resumed.
    store_->startOnLaunch();
    if (!store_->config().watchDirectory || store_->watcherError()) {
        QTimer::singleShot(firstRunPanelDelay, this, [this] { shell_.showPanel(); });
    }
}

void AppDelegate::updateStatusItem() {
    if (statusNotice_) {
        statusTitle_ = statusNotice_->title;
    } else if (store_ && store_->stats().active >= 1 && store_->config().showMenuBarProgress) {
        statusTitle_ = QStringLiteral(" ") + QString::number(store_->stats().progress.value_or(0)) +
                       QStringLiteral("%");
    } else {
        statusTitle_.clear();
    }
    shell_.setStatusTitle(statusTitle_);
}

void AppDelegate::showMenuBarNotice(const CompressionNotificationEvent& event) {
    const MenuBarNotice notice{QUuid::createUuid(),
                               menuBarNoticeTitle(event, store_->config().language)};
    statusNotice_ = notice;
    updateStatusItem();
    NativeLog::write(QStringLiteral("Menu bar notice shown: ") + notice.title);
    QTimer::singleShot(noticeDuration, Qt::PreciseTimer, this, [this, identity = notice.identity] {
        if (!statusNotice_ || statusNotice_->identity != identity) return;  // a newer one shows
        statusNotice_.reset();
        updateStatusItem();
    });
}

QString AppDelegate::menuBarNoticeTitle(const CompressionNotificationEvent& event,
                                        AppLanguage language) {
    using Kind = CompressionNotificationEvent::Kind;
    switch (event.kind()) {
        case Kind::unsupportedFile: {
            const QString extension = QFileInfo(event.path()).suffix().toUpper();
            return QStringLiteral(" ! ") +
                   (extension.isEmpty() ? QStringLiteral("FILE") : extension);
        }
        case Kind::processingFailed:
            return text(language, QStringLiteral(" ! Ошибка"), QStringLiteral(" ! Error"));
        case Kind::watcherFailed:
            return text(language, QStringLiteral(" ! Папка"), QStringLiteral(" ! Folder"));
        case Kind::alreadyOptimal:
            return text(language, QStringLiteral(" ✓ Оптимально"), QStringLiteral(" ✓ Optimal"));
        case Kind::animatedImage:
            return text(language, QStringLiteral(" ▶ Анимация"), QStringLiteral(" ▶ Animated"));
    }
    return {};
}

}  // namespace velt
