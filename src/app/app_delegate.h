// AppDelegate: the desktop program's launch sequence and its status item. It creates the store,
// asks the desktop shell for the tray icon and the panel, shows the engine's progress or a short
// notice as the status item's title, and starts watching at launch when the saved settings say
// so. It knows no widget: the shell (the tray and the panel, in ui/) does the drawing.
//
// Main thread only. REQUIRES: a QCoreApplication exists for the delegate's whole life.
#pragma once

#include "app/app_store.h"
#include "notifications/compression_notification_event.h"

#include <QObject>
#include <QString>
#include <QUuid>
#include <chrono>
#include <memory>
#include <optional>

namespace velt {

// What the delegate asks of the desktop.
class StatusBarShell {
  public:
    virtual ~StatusBarShell() = default;
    // Dialogs and alerts for the store.
    virtual Presenter& presenter() = 0;
    // Creates the tray icon and the panel over `store`.
    virtual void createStatusItem(AppStore& store) = 0;
    // The status item's title: empty shows the icon alone.
    virtual void setStatusTitle(const QString& title) = 0;
    // What the program is doing, in a few lines (the tray icon's tooltip).
    virtual void setStatusToolTip(const QString& toolTip) = 0;
    // The panel shows the store's state again.
    virtual void refreshPanel() = 0;
    virtual void showPanel() = 0;
};

// A notice shown in the status item; its identity tells a later notice from an earlier one.
struct MenuBarNotice {
    QUuid identity;
    QString title;
};

class AppDelegate : public QObject {
  public:
    static constexpr std::chrono::milliseconds noticeDuration{4000};
    static constexpr std::chrono::milliseconds firstRunPanelDelay{350};
    static constexpr std::chrono::milliseconds launchSmokeExitDelay{200};

    explicit AppDelegate(StatusBarShell& shell);
    ~AppDelegate() override;

    // Logs "App launched", creates the store, the status item and the panel, wires the store's
    // callbacks, and (unless VELT_LAUNCH_SMOKE is "1") starts watching when compression is on
    // and a folder is stored; opens the panel 0.35 s later on a first run or a failed start.
    void applicationDidFinishLaunching();

    // Settings for this run only (the command line's), applied to what the engine receives.
    void setSessionOverrides(const SettingsOverrides& overrides) { overrides_ = overrides; }
    // A folder named on the command line: watched at launch instead of the saved one, and saved.
    void setWatchDirectory(const std::optional<QString>& folder) { watchDirectory_ = folder; }

    bool hasStore() const { return store_ != nullptr; }
    // REQUIRES: applicationDidFinishLaunching ran.
    AppStore& store() { return *store_; }
    const std::optional<MenuBarNotice>& statusNotice() const { return statusNotice_; }
    // The title last given to the status item.
    const QString& statusTitle() const { return statusTitle_; }
    // The program's name, then what it does now — no folder, the folder's problem, paused,
    // "Compressing: N%" or "Watching FOLDER" — then the last problem with a file, until a later
    // file is compressed.
    QString statusToolTip() const;

    // Title precedence: a notice; else " N%" while work is in flight and progress display is on;
    // else nothing (icon only). The tooltip follows.
    void updateStatusItem();
    // Shows the event's title for 4 seconds; an older notice's expiry never clears a newer one.
    void showMenuBarNotice(const CompressionNotificationEvent& event);
    static QString menuBarNoticeTitle(const CompressionNotificationEvent& event,
                                      AppLanguage language);

  private:
    StatusBarShell& shell_;
    void forgetSolvedProblem();

    SettingsOverrides overrides_;
    std::optional<QString> watchDirectory_;
    std::unique_ptr<AppStore> store_;
    std::optional<MenuBarNotice> statusNotice_;
    QString statusTitle_;
    std::optional<CompressionNotificationEvent> lastProblem_;
    QUuid historyAtProblem_;  // the newest history entry when the problem was reported
};

}  // namespace velt
