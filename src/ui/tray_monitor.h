// TrayMonitor: which system tray the desktop offers now, followed while the program runs —
// trays come after the program at login and go when a panel crashes or an extension is
// switched off. A StatusNotifierItem tray (a watcher with a host on the session bus) is
// preferred; an XEmbed tray counts only on X11. The watcher's name is followed on the bus;
// the rest is looked at every two seconds.
//
// Main thread only. REQUIRES: a QGuiApplication exists.
#pragma once

#include "ui/tray_status_item.h"

#include <QObject>
#include <QTimer>
#include <functional>
#include <optional>

class QDBusServiceWatcher;

namespace velt::ui {

class TrayMonitor : public QObject {
  public:
    using Kind = std::optional<TrayStatusItem::Kind>;  // nothing: no tray

    // `onChange` runs whenever the kind differs from the last one reported, a tray going away
    // only after it stayed away for `goneDelay` (a tray restarting is not a tray gone).
    explicit TrayMonitor(std::function<void(Kind)> onChange, int goneDelayMs = 1500);
    ~TrayMonitor() override;

    // Looks now, waiting for the bus, and starts following. The first kind is returned, not
    // reported.
    Kind start();
    Kind kind() const { return kind_; }

  private:
    void lookAsynchronously();
    void settle(bool statusNotifierHost);
    void report(Kind kind);

    std::function<void(Kind)> onChange_;
    Kind kind_;
    QTimer poll_;
    QTimer gone_;
    std::unique_ptr<QDBusServiceWatcher> watcher_;
    bool looking_ = false;
};

}  // namespace velt::ui
