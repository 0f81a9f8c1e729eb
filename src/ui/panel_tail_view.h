// PanelTailView: the panel's outline — a body with rounded corners and a small pointer ("tail")
// whose apex aims at the tray icon — filled with the window colour and edged with a 0.8-pixel
// hairline. The tail sits on the top edge when the panel hangs below the icon and on the bottom
// edge when it stands above it (a tray at the bottom of the screen).
#pragma once

#include <QPainterPath>
#include <QWidget>

namespace velt::ui {

class PanelTailView : public QWidget {
  public:
    explicit PanelTailView(QWidget* parent = nullptr);

    // The pointer's apex, in this view's x coordinates; clamped so it stays on the straight part
    // of the edge.
    void setArrowCenter(int x);
    int arrowCenter() const { return arrowCenter_; }
    void setTailOnTop(bool onTop);
    // Off for the window form of the panel: nothing is drawn, the window's own background shows.
    void setShowsOutline(bool shows);
    bool tailOnTop() const { return tailOnTop_; }
    // Where the body lies (the view less the tail).
    QRect bodyRect() const;
    // The whole outline, rebuilt for the current size.
    QPainterPath outline() const;

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    int arrowCenter_ = 0;
    bool tailOnTop_ = true;
    bool showsOutline_ = true;
};

}  // namespace velt::ui
