// A small on/off switch: a rounded track with a knob that slides to the right when on. A
// checkable button, so clicks, the space key and accessibility work as for any check box.
#pragma once

#include <QAbstractButton>
#include <QVariantAnimation>

namespace velt::ui {

class SwitchControl : public QAbstractButton {
  public:
    explicit SwitchControl(QWidget* parent = nullptr);
    QSize sizeHint() const override { return {30, 18}; }
    // Off where the row around it shows the keyboard focus instead.
    void setDrawsFocusRing(bool draws) { drawsFocusRing_ = draws; }

  protected:
    void paintEvent(QPaintEvent* event) override;
    void checkStateSet() override;
    void nextCheckState() override;

  private:
    double position_ = 0.0;  // 0 = off, 1 = on
    bool drawsFocusRing_ = true;
    QVariantAnimation slide_;
};

}  // namespace velt::ui
