#include "app/app_delegate.h"

#include "model/constants.h"
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
    // A folder named on the command line is chosen now; otherwise a stop the user made stays
    // made: only a watch that was on is resumed.
    if (watchDirectory_)
        store_->useWatchDirectory(*watchDirectory_);
    else
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
    if (!store_) return;
    forgetSolvedProblem();
    shell_.setStatusToolTip(statusToolTip());
}

QString AppDelegate::statusToolTip() const {
    const AppConfig& config = store_->config();
    const AppLanguage language = config.language;
    QStringList lines{appName};
    const CompressionStats& stats = store_->stats();
    if (!config.watchDirectory) {
        lines << text(language, Text::tooltipNoFolder);
    } else if (store_->watcherError()) {
        lines << store_->watcherError()->inLanguage(language);
    } else if (!store_->isRunning()) {
        lines << text(language, Text::tooltipPaused);
    } else if (stats.active >= 1) {
        lines << text(language, Text::tooltipCompressing,
                      {QString::number(stats.progress.value_or(0))});
    } else {
        lines << text(language, Text::tooltipWatching,
                      {QFileInfo(*config.watchDirectory).fileName()});
    }
    if (lastProblem_)
        lines << text(language, Text::tooltipLastProblem,
                      {lastProblem_->title(language), lastProblem_->body(language)});
    return lines.join(QLatin1Char('\n'));
}

void AppDelegate::forgetSolvedProblem() {
    const CompressionHistory& history = store_->history();
    if (lastProblem_ && !history.empty() && history.front().id != historyAtProblem_ &&
        history.front().status == CompressionHistoryStatus::compressed)
        lastProblem_.reset();
}

void AppDelegate::showMenuBarNotice(const CompressionNotificationEvent& event) {
    const MenuBarNotice notice{QUuid::createUuid(),
                               menuBarNoticeTitle(event, store_->config().language)};
    statusNotice_ = notice;
    using Kind = CompressionNotificationEvent::Kind;
    if (event.kind() == Kind::processingFailed || event.kind() == Kind::unsupportedFile ||
        event.kind() == Kind::watcherFailed) {
        lastProblem_ = event;
        historyAtProblem_ = store_->history().empty() ? QUuid() : store_->history().front().id;
    }
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
            return text(language, Text::noticeError);
        case Kind::watcherFailed:
            return text(language, Text::noticeFolder);
        case Kind::alreadyOptimal:
            return text(language, Text::noticeOptimal);
        case Kind::animatedImage:
            return text(language, Text::noticeAnimated);
    }
    return {};
}

}  // namespace velt
