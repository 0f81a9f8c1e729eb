// MenuPanel: the frameless window that drops from the tray icon, holding the PanelTailView and
// the PopoverViewController. It closes on Escape and on a click outside (a popup window). On a
// desktop without a tray it is an ordinary window instead, so the program can still be used.
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

    // Opens the panel under (or above) `anchor`, the tray icon's rectangle on the screen; an
    // empty anchor places it at the pointer. A window is simply raised.
    void present(const QRect& anchor);
    // Opens the panel, or closes it when it is open. A click on the tray icon that closed the
    // popup a moment ago does not reopen it.
    void toggle(const QRect& anchor);
    // Fits the window to what the content shows, keeping the tail where it points.
    void fitToContent();

  protected:
    void keyPressEvent(QKeyEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

  private:
    void place(const QRect& anchor);
    void updateMask();

    Mode mode_;
    PanelTailView* tailView_;
    PopoverViewController* content_ = nullptr;
    QRect anchor_;
    QElapsedTimer sinceHidden_;
};

}  // namespace velt::ui
