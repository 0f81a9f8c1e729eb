// IconBadgeView: a 22 × 22 circle in the control tint with an icon in its centre, drawn in the
// secondary label colour: 10 × 10 for "close" (its cross looks heavier than the other icons),
// 14 × 14 for every other icon.
#pragma once

#include <QString>
#include <QWidget>

namespace velt::ui {

class IconBadgeView : public QWidget {
  public:
    static constexpr int side = 22;

    IconBadgeView(const QString& iconName, const QString& fallbackSymbolName,
                  QWidget* parent = nullptr);

    const QString& iconName() const { return iconName_; }
    // 10 for "close", 14 otherwise.
    static int imageSide(const QString& iconName);

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    QString iconName_;
    QString fallbackSymbolName_;
};

}  // namespace velt::ui
