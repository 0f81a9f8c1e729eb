// MenuPanel: what the tray icon opens, holding the PopoverViewController. Two forms:
//   popup   the frameless panel that drops from the tray icon with a tail aimed at it, closing
//           on Escape and on a click outside (X11 with a tray);
//   window  an ordinary window — titled, movable, closable, placed by the window manager —
//           where there is no tray, and on Wayland, where a program cannot place a window.
// The form can change while the program runs, when a tray comes or goes. Closing the window
// only hides it; the program keeps watching.
//
// The keyboard reaches every control: Tab and the arrow keys move between rows, Space or
// Enter acts, Escape closes an open list first and the panel after.
//
// Files and folders dropped onto either form are compressed now (AppStore::compressDropped).
//
// Main thread only.
#pragma once

#include "ui/popover_view_controller.h"

#include <QElapsedTimer>
#include <QWidget>

namespace velt::ui {

class PanelTailView;

class MenuPanel : public QWidget {
  public:
    enum class Mode { popup, window };

    MenuPanel(AppStore& store, PopoverViewController::Callbacks callbacks, Mode mode);

    PopoverViewController* content() const { return content_; }
    PanelTailView* tailView() const { return tailView_; }
    Mode mode() const { return mode_; }
    // Changes the form; an open window stays open, an open popup closes.
    void setMode(Mode mode);
    // Runs when the user closes the window form.
    std::function<void()> onClosedByUser;

    // Opens the panel under (or above) `anchor`, the tray icon's rectangle or the point where
    // the tray was clicked; an empty anchor places it at the pointer. A window is raised where
    // the window manager keeps it.
    void present(const QRect& anchor);
    // Opens the panel, or closes it when it is open. A click on the tray icon that closed the
    // popup a moment ago does not reopen it.
    void toggle(const QRect& anchor);
    // Fits the window to what the content shows, keeping the tail where it points.
    void fitToContent();

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

  private:
    void applyMode();
    void place(const QRect& anchor);
    void updateMask();
    bool closeOpenList();

    AppStore& store_;
    Mode mode_;
    PanelTailView* tailView_;
    PopoverViewController* content_ = nullptr;
    QRect anchor_;
    QElapsedTimer sinceHidden_;
    bool listJustClosed_ = false;  // during the key that closed a pop-up's list
};

}  // namespace velt::ui
