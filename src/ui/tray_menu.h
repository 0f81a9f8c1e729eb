// The tray icon's context menu: show the panel, pause or resume compression, open the folder,
// the history, the settings, quit — in the interface language, made from the store's state.
// Trays that draw the menu themselves read the entries over D-Bus (DBusMenuExporter); the
// XEmbed tray shows the TrayMenu below.
//
// Main thread only.
#pragma once

#include <QMenu>
#include <functional>
#include <vector>

namespace velt {
class AppStore;
}

namespace velt::ui {

// What a menu entry asks for; the numbers are the entries' ids on D-Bus.
enum class TrayCommand { showPanel = 1, toggleCompression, openFolder, history, settings, quit };

struct TrayMenuEntry {
    int id = 0;  // a TrayCommand, or 0 for a separator
    QString label;
    bool enabled = true;

    bool isSeparator() const { return id == 0; }
    bool operator==(const TrayMenuEntry&) const = default;
};

// The entries for what the store shows now, in its language. Always the same entries in the
// same order; only their labels and whether they can be chosen change.
std::vector<TrayMenuEntry> trayMenuEntries(const AppStore& store);

// The entries as a menu of the toolkit. Its actions are made once and then only retitled, so
// that no action is deleted while it reports its own click; the command runs on the next turn
// of the event loop, after the menu has closed.
class TrayMenu : public QMenu {
  public:
    explicit TrayMenu(std::function<void(TrayCommand)> onCommand);
    void setEntries(const std::vector<TrayMenuEntry>& entries);

  private:
    std::function<void(TrayCommand)> onCommand_;
};

}  // namespace velt::ui
