// DesktopShell: the desktop half of the program — the tray icon, the panel under it, the
// settings and history windows, and the dialogs — built over the store for the AppDelegate.
// Without a system tray the panel is an ordinary window that opens at launch.
//
// Main thread only. REQUIRES: a QApplication exists.
#pragma once

#include "app/app_delegate.h"
#include "ui/desktop_presenter.h"

#include <QPointer>
#include <memory>

namespace velt::ui {

class MenuPanel;
class TrayStatusItem;
class SettingsWindowController;
class HistoryWindowController;

class DesktopShell : public StatusBarShell {
  public:
    // `trayAvailable` false makes the panel an ordinary window.
    explicit DesktopShell(bool trayAvailable);
    ~DesktopShell() override;

    Presenter& presenter() override { return presenter_; }
    void createStatusItem(AppStore& store) override;
    void setStatusTitle(const QString& title) override;
    void refreshPanel() override;
    void showPanel() override;

    MenuPanel* panel() const { return panel_.get(); }
    TrayStatusItem* statusItem() const { return statusItem_.get(); }
    SettingsWindowController* settingsWindow() const { return settings_.get(); }
    HistoryWindowController* historyWindow() const { return history_.get(); }
    void openSettings();
    void openHistory();

  private:
    bool trayAvailable_;
    AppStore* store_ = nullptr;
    DesktopPresenter presenter_;
    std::unique_ptr<TrayStatusItem> statusItem_;
    std::unique_ptr<MenuPanel> panel_;
    std::unique_ptr<SettingsWindowController> settings_;
    std::unique_ptr<HistoryWindowController> history_;
};

// The desktop program: one per session (a second launch shows the first one's panel), the
// launch sequence, the event loop; SIGINT, SIGTERM and SIGHUP end it cleanly. Returns the exit
// code.
int runDesktopProgram(int& argc, char** argv, const SettingsOverrides& overrides);

}  // namespace velt::ui
