// RowButton: a clickable row of the panel — an icon badge, a title (and, where allowed, a
// subtitle beneath it), and an optional chevron. 42 pixels high when a subtitle is allowed,
// 30 otherwise, `contentWidth` wide. Hovering fills it softly; a click turns the fill off and
// runs `handler` on the next turn of the event loop, so the panel can close before the action
// opens a dialog.
//
// Main thread only.
#pragma once

#include "ui/hover_fill.h"

#include <QAbstractButton>
#include <functional>

class QLabel;

namespace velt::ui {

class IconBadgeView;

class RowButton : public QAbstractButton {
  public:
    RowButton(const QString& title, const QString& subtitle, bool allowsSubtitle,
              const QString& iconName, const QString& fallbackSymbolName, bool showsChevron,
              std::function<void()> handler, QWidget* parent = nullptr);

    QString titleText() const;
    void setTitleText(const QString& title);
    QString subtitleText() const;
    // Hides the subtitle while it is empty; the accessible name becomes "title, subtitle".
    void setSubtitleText(const QString& subtitle);

    HoverFill& hover() { return hover_; }
    QLabel* titleLabel() const { return titleLabel_; }
    QLabel* subtitleLabel() const { return subtitleLabel_; }
    IconBadgeView* badge() const { return badge_; }

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    void runAction();
    void updateAccessibleName();

    std::function<void()> handler_;
    HoverFill hover_;
    IconBadgeView* badge_;
    QLabel* titleLabel_;
    QLabel* subtitleLabel_ = nullptr;
};

}  // namespace velt::ui
