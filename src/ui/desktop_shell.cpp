#include "ui/desktop_shell.h"

#include "app/termination_signals.h"
#include "model/constants.h"
#include "model/native_log.h"
#include "ui/file_reveal.h"
#include "ui/history_window.h"
#include "ui/menu_panel.h"
#include "ui/settings_window.h"
#include "ui/single_instance.h"
#include "ui/tray_status_item.h"

#include <QApplication>
#include <QSystemTrayIcon>
#include <QTimer>

namespace velt::ui {

DesktopShell::DesktopShell(bool trayAvailable) : trayAvailable_(trayAvailable) {}

DesktopShell::~DesktopShell() = default;

void DesktopShell::createStatusItem(AppStore& store) {
    store_ = &store;
    PopoverViewController::Callbacks callbacks;
    callbacks.onOpenSettings = [this] { openSettings(); };
    callbacks.onOpenHistory = [this] { openHistory(); };
    callbacks.onSelectWatchDirectory = [this] {
        // The panel closes first, so the dialog is not hidden behind it.
        if (panel_->mode() == MenuPanel::Mode::popup) panel_->hide();
        store_->selectWatchDirectory(nullptr);
    };
    callbacks.onQuit = [this] {
        NativeLog::write(QStringLiteral("Quit requested"));
        store_->shutdown();
        QCoreApplication::quit();
    };
    panel_ = std::make_unique<MenuPanel>(
        store, std::move(callbacks),
        trayAvailable_ ? MenuPanel::Mode::popup : MenuPanel::Mode::window);
    if (!trayAvailable_) {
        NativeLog::write(QStringLiteral("No system tray: the panel opens as a window"));
        QTimer::singleShot(0, panel_.get(), [this] { showPanel(); });
        return;
    }
    statusItem_ =
        std::make_unique<TrayStatusItem>([this](const QRect& anchor) { panel_->toggle(anchor); });
    statusItem_->trayIcon().show();
}

void DesktopShell::setStatusTitle(const QString& title) {
    if (statusItem_) statusItem_->setTitle(title);
    if (!trayAvailable_ && panel_)
        panel_->setWindowTitle(title.trimmed().isEmpty() ? appName
                                                         : appName + QStringLiteral(" —") + title);
}

void DesktopShell::refreshPanel() {
    if (panel_) panel_->content()->render();
    if (settings_) settings_->render();
    if (history_) history_->render();
}

void DesktopShell::showPanel() {
    if (!panel_) return;
    panel_->present(statusItem_ ? statusItem_->trayIcon().geometry() : QRect());
}

void DesktopShell::openSettings() {
    if (panel_->mode() == MenuPanel::Mode::popup) panel_->hide();
    if (!settings_) settings_ = std::make_unique<SettingsWindowController>(*store_);
    settings_->showWindow();
}

void DesktopShell::openHistory() {
    if (panel_->mode() == MenuPanel::Mode::popup) panel_->hide();
    if (!history_)
        history_ =
            std::make_unique<HistoryWindowController>(*store_, presenter_, revealInFileManager);
    history_->showWindow();
}

int runDesktopProgram(int& argc, char** argv, const SettingsOverrides& overrides) {
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    QApplication::setApplicationDisplayName(appName);
    QApplication::setDesktopFileName(QStringLiteral("velt-compressor"));

    DesktopShell* shellForPanel = nullptr;
    SingleInstance instance([&shellForPanel] {
        if (shellForPanel) shellForPanel->showPanel();
    });
    if (!instance.isPrimary()) return 0;

    DesktopShell shell(QSystemTrayIcon::isSystemTrayAvailable());
    shellForPanel = &shell;
    AppDelegate delegate(shell);
    TerminationSignals termination([&delegate](int signal) {
        NativeLog::write(QStringLiteral("Signal ") + QString::number(signal) +
                         QStringLiteral(" received, stopping"));
        delegate.store().shutdown();
        QCoreApplication::exit(0);
    });
    delegate.setSessionOverrides(overrides);
    delegate.applicationDidFinishLaunching();
    const int code = QApplication::exec();
    if (delegate.hasStore()) delegate.store().shutdown();
    return code;
}

}  // namespace velt::ui
