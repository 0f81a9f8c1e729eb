// The panel's control rows, all `contentWidth` wide, with 8 pixels of space before and 4 after:
//
//   PopupRow   (32 high) icon badge, title, and a pop-up of 104 pixels (wider for a long item);
//              never shows a hover fill.
//   SwitchRow  (30 high) title and a small switch.
//   QualityRow (30 high) a format's name, a slider from 25 to 100 and its value as "75%".
//
// HoverStackRow is their common base: a horizontal row that fills softly under the pointer and
// is ringed while its control has the keyboard's focus.
//
// Main thread only.
#pragma once

#include "ui/hover_fill.h"

#include <QWidget>
#include <functional>

class QComboBox;
class QHBoxLayout;
class QLabel;
class QSlider;

namespace velt::ui {

class SwitchControl;

class HoverStackRow : public QWidget {
  public:
    HoverStackRow(int height, int spacing, bool showsHover, QWidget* parent);
    HoverFill& hover() { return hover_; }

  protected:
    QHBoxLayout* stack() const { return stack_; }
    // The row shows a ring while `control` has a focus that came from the keyboard.
    void ringOnKeyboardFocus(QWidget* control);
    bool eventFilter(QObject* watched, QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

  private:
    HoverFill hover_;
    QHBoxLayout* stack_;
    bool focusRing_ = false;
};

class PopupRow : public HoverStackRow {
  public:
    PopupRow(const QString& title, const QString& iconName, const QString& fallbackSymbolName,
             QWidget* parent = nullptr);
    QString titleText() const;
    void setTitleText(const QString& title);
    QComboBox* popup() const { return popup_; }
    QLabel* titleLabel() const { return titleLabel_; }
    // The pop-up's 104 pixels, or more when its longest item needs more to show whole: Russian
    // titles run longer than the English ones.
    int fittingPopupWidth() const;
    void setPopupWidth(int width);

  private:
    QLabel* titleLabel_;
    QComboBox* popup_;
};

class SwitchRow : public HoverStackRow {
  public:
    explicit SwitchRow(const QString& title, QWidget* parent = nullptr);
    QString titleText() const;
    void setTitleText(const QString& title);
    SwitchControl* control() const { return control_; }

  private:
    QLabel* titleLabel_;
    SwitchControl* control_;
};

class QualityRow : public HoverStackRow {
  public:
    QualityRow(const QString& title, int value, QWidget* parent = nullptr);
    int value() const;
    // The slider, the "N%" label and the accessible value follow.
    void setValue(int value);
    QSlider* slider() const { return slider_; }
    QLabel* valueLabel() const { return valueLabel_; }
    // Called after the user moved the slider; read value().
    std::function<void()> onChange;

  private:
    void change();
    void showValue(int value);

    QSlider* slider_;
    QLabel* valueLabel_;
    QString accessibilityTitle_;
};

}  // namespace velt::ui
