// DesktopShell: the desktop half of the program — the tray icon, the panel, the settings and
// history windows, and the dialogs — built over the store for the AppDelegate.
//
// The panel drops from the tray icon on X11; it is an ordinary window where there is no tray
// and on Wayland (where a program cannot place a window). Trays are followed while the program
// runs: one that appears or goes switches the panel between its two forms. Closing the window
// keeps the program watching; the first time, a notification says how to open it again.
//
// Main thread only. REQUIRES: a QApplication exists.
#pragma once

#include "app/app_delegate.h"
#include "app/command_line.h"
#include "ui/desktop_presenter.h"
#include "ui/qt_translations.h"
#include "ui/tray_monitor.h"
#include "ui/tray_status_item.h"

#include <memory>

namespace velt::ui {

class MenuPanel;
class SettingsWindowController;
class HistoryWindowController;

class DesktopShell : public StatusBarShell {
  public:
    // `followTrays` false leaves out the tray (the panel is a window), for the tests.
    explicit DesktopShell(bool followTrays = true);
    ~DesktopShell() override;

    Presenter& presenter() override { return presenter_; }
    void createStatusItem(AppStore& store) override;
    void setStatusTitle(const QString& title) override;
    void setStatusToolTip(const QString& toolTip) override;
    void refreshPanel() override;
    void showPanel() override;

    // Opens a part of the program for the command line (this launch's or a later one's);
    // `activationToken` is the launcher's, so that the window may come to the front.
    void open(CommandLineRequest::DesktopPart part, const QString& activationToken = {});
    // The tray as it is now (nothing: none), as the monitor reports it.
    void useTray(TrayMonitor::Kind kind);

    MenuPanel* panel() const { return panel_.get(); }
    TrayStatusItem* statusItem() const { return statusItem_.get(); }
    SettingsWindowController* settingsWindow() const { return settings_.get(); }
    HistoryWindowController* historyWindow() const { return history_.get(); }
    void openSettings();
    void openHistory();

  private:
    void runTrayCommand(TrayCommand command);
    void panelClosedByUser();
    void hidePopupPanel();
    void quit();

    bool followTrays_;
    AppStore* store_ = nullptr;
    DesktopPresenter presenter_;
    QtTranslations qtTranslations_;
    QString title_;
    QString toolTip_;
    bool closeHintShown_ = false;
    std::unique_ptr<TrayMonitor> trayMonitor_;
    std::unique_ptr<TrayStatusItem> statusItem_;
    std::unique_ptr<MenuPanel> panel_;
    std::unique_ptr<SettingsWindowController> settings_;
    std::unique_ptr<HistoryWindowController> history_;
};

// The desktop program: one per session (a later launch hands its request to the first one),
// the launch sequence, the event loop; SIGINT, SIGTERM and SIGHUP end it cleanly. Returns the
// exit code.
int runDesktopProgram(int& argc, char** argv, const CommandLineRequest& request);

}  // namespace velt::ui
