#include "ui/desktop_shell.h"

#include "app/termination_signals.h"
#include "model/constants.h"
#include "model/native_log.h"
#include "ui/file_reveal.h"
#include "ui/history_window.h"
#include "ui/menu_panel.h"
#include "ui/settings_window.h"
#include "ui/single_instance.h"
#include "ui/startup_notification.h"

#include <QApplication>
#include <QFileInfo>
#include <QTimer>

namespace velt::ui {
namespace {

bool onWayland() {
    return QGuiApplication::platformName().startsWith(QLatin1String("wayland"));
}

// A client cannot place a window on Wayland: the panel is a window there even with a tray.
MenuPanel::Mode panelModeFor(const TrayMonitor::Kind& tray) {
    return tray && !onWayland() ? MenuPanel::Mode::popup : MenuPanel::Mode::window;
}

// The launcher's token lets the next window that asks come to the front (Wayland reads it from
// the environment when the window is activated); on X11 it is the launch's startup id, whose
// feedback ends now.
void useActivationToken(const QString& token) {
    if (token.isEmpty()) return;
    if (onWayland())
        qputenv("XDG_ACTIVATION_TOKEN", token.toUtf8());
    else
        completeX11Startup(token);
}

}  // namespace

DesktopShell::DesktopShell(bool followTrays) : followTrays_(followTrays) {}

DesktopShell::~DesktopShell() = default;

void DesktopShell::createStatusItem(AppStore& store) {
    store_ = &store;
    qtTranslations_.follow(store.config().language);
    PopoverViewController::Callbacks callbacks;
    callbacks.onOpenSettings = [this] { openSettings(); };
    callbacks.onOpenHistory = [this] { openHistory(); };
    callbacks.onSelectWatchDirectory = [this] {
        hidePopupPanel();  // so the dialog is not hidden behind it
        store_->selectWatchDirectory(nullptr);
    };
    callbacks.onQuit = [this] { quit(); };
    TrayMonitor::Kind tray;
    if (followTrays_) {
        trayMonitor_ =
            std::make_unique<TrayMonitor>([this](TrayMonitor::Kind kind) { useTray(kind); });
        tray = trayMonitor_->start();
    }
    panel_ = std::make_unique<MenuPanel>(store, std::move(callbacks), panelModeFor(tray));
    panel_->onClosedByUser = [this] { panelClosedByUser(); };
    useTray(tray);
    // Without a tray the window is the only way in: it opens at launch.
    if (!statusItem_) QTimer::singleShot(0, panel_.get(), [this] { showPanel(); });
}

void DesktopShell::useTray(TrayMonitor::Kind kind) {
    if (statusItem_ && kind && statusItem_->kind() == *kind) return;
    statusItem_.reset();
    if (kind) {
        TrayStatusItem::Handlers handlers;
        handlers.activate = [this](const QRect& anchor) {
            useActivationToken(statusItem_->takeActivationToken());
            panel_->toggle(anchor);
        };
        handlers.command = [this](TrayCommand command) { runTrayCommand(command); };
        statusItem_ = std::make_unique<TrayStatusItem>(*kind, std::move(handlers));
        if (!statusItem_->isPublished()) statusItem_.reset();
    }
    if (statusItem_) {
        statusItem_->setTitle(title_);
        statusItem_->setToolTip(toolTip_);
        statusItem_->setMenu(trayMenuEntries(*store_));
    }
    panel_->setMode(panelModeFor(statusItem_ ? kind : std::nullopt));
}

void DesktopShell::setStatusTitle(const QString& title) {
    title_ = title;
    if (statusItem_) statusItem_->setTitle(title);
    // The state once, then the program's name (the window manager adds nothing to a title that
    // already ends with it).
    if (panel_)
        panel_->setWindowTitle(title.trimmed().isEmpty()
                                   ? appName
                                   : title.trimmed() + QStringLiteral(" — ") + appName);
}

void DesktopShell::setStatusToolTip(const QString& toolTip) {
    toolTip_ = toolTip;
    if (statusItem_) statusItem_->setToolTip(toolTip);
}

void DesktopShell::refreshPanel() {
    qtTranslations_.follow(store_->config().language);
    if (panel_) panel_->content()->render();
    if (settings_) settings_->render();
    if (history_) history_->render();
    if (statusItem_) statusItem_->setMenu(trayMenuEntries(*store_));
}

void DesktopShell::showPanel() {
    if (!panel_) return;
    panel_->present(statusItem_ ? statusItem_->iconGeometry() : QRect());
}

void DesktopShell::open(CommandLineRequest::DesktopPart part, const QString& activationToken) {
    useActivationToken(activationToken);
    switch (part) {
        case CommandLineRequest::DesktopPart::panel:
            showPanel();
            return;
        case CommandLineRequest::DesktopPart::settings:
            openSettings();
            return;
        case CommandLineRequest::DesktopPart::history:
            openHistory();
            return;
    }
}

void DesktopShell::hidePopupPanel() {
    if (panel_->mode() == MenuPanel::Mode::popup) panel_->hide();
}

void DesktopShell::openSettings() {
    hidePopupPanel();
    if (!settings_) settings_ = std::make_unique<SettingsWindowController>(*store_);
    settings_->showWindow();
}

void DesktopShell::openHistory() {
    hidePopupPanel();
    if (!history_)
        history_ = std::make_unique<HistoryWindowController>(
            *store_, presenter_, [this](const QString& path) { store_->showInFileBrowser(path); });
    history_->showWindow();
}

void DesktopShell::runTrayCommand(TrayCommand command) {
    switch (command) {
        case TrayCommand::showPanel:
            showPanel();
            return;
        case TrayCommand::toggleCompression:
            if (store_->isRunning())
                store_->stop();
            else
                store_->start();
            return;
        case TrayCommand::openFolder:
            store_->openWatchDirectory();
            return;
        case TrayCommand::history:
            openHistory();
            return;
        case TrayCommand::settings:
            openSettings();
            return;
        case TrayCommand::quit:
            quit();
            return;
    }
}

// The window is gone from the screen but the program still works: say so once, and how to
// bring the window back.
void DesktopShell::panelClosedByUser() {
    if (closeHintShown_) return;
    closeHintShown_ = true;
    const AppConfig& config = store_->config();
    const AppLanguage language = config.language;
    QString body;
    if (store_->isRunning() && config.watchDirectory)
        body = text(language, Text::windowClosedFolder,
                    {QFileInfo(*config.watchDirectory).fileName()});
    body += text(language, Text::windowClosedHowToReopen, {appName});
    NativeLog::write(QStringLiteral("Panel window closed; the program keeps running"));
    store_->notificationManager().sendMessage(config, QStringLiteral("window-closed"),
                                              text(language, Text::windowClosedTitle, {appName}),
                                              body);
}

void DesktopShell::quit() {
    NativeLog::write(QStringLiteral("Quit requested"));
    store_->shutdown();
    QCoreApplication::quit();
}

int runDesktopProgram(int& argc, char** argv, const CommandLineRequest& request) {
    // Taken before the toolkit starts: on X11 it consumes the launcher's startup id.
    const QString activationToken = qEnvironmentVariableIsEmpty("XDG_ACTIVATION_TOKEN")
                                        ? qEnvironmentVariable("DESKTOP_STARTUP_ID")
                                        : qEnvironmentVariable("XDG_ACTIVATION_TOKEN");
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    QApplication::setApplicationDisplayName(appName);
    QApplication::setDesktopFileName(QStringLiteral("velt-compressor"));

    const SingleInstance::Request handover{
        request.open.value_or(CommandLineRequest::DesktopPart::panel), request.watchDirectory,
        activationToken};
    DesktopShell* running = nullptr;
    AppDelegate* runningDelegate = nullptr;
    SingleInstance instance([&](const SingleInstance::Request& later) {
        if (!running || !runningDelegate || !runningDelegate->hasStore()) return;
        if (later.watchDirectory) runningDelegate->store().useWatchDirectory(*later.watchDirectory);
        running->open(later.open, later.activationToken);
    });
    if (!instance.isPrimary()) return SingleInstance::forward(handover) ? 0 : 1;

    DesktopShell shell;
    AppDelegate delegate(shell);
    running = &shell;
    runningDelegate = &delegate;
    TerminationSignals termination([&delegate](int signal) {
        NativeLog::write(QStringLiteral("Signal ") + QString::number(signal) +
                         QStringLiteral(" received, stopping"));
        delegate.store().shutdown();
        QCoreApplication::exit(0);
    });
    delegate.setSessionOverrides(request.overrides);
    delegate.setWatchDirectory(request.watchDirectory);
    delegate.applicationDidFinishLaunching();
    // In the tray the program may open no window at all: its launch is over all the same.
    completeX11Startup(activationToken);
    if (request.open) shell.open(*request.open);
    const int code = QApplication::exec();
    if (delegate.hasStore()) delegate.store().shutdown();
    return code;
}

}  // namespace velt::ui
