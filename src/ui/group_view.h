// Containers of the panel's rows. Every one is exactly `contentWidth` wide.
//
// GroupView stacks rows vertically without spacing; hidden rows take no space. The `panel` style
// draws a card behind them (a faint fill, an 11-pixel radius and a 0.7-pixel hairline, 2 pixels
// of inner space above and below); `plain` draws nothing.
//
// CollapsibleContainerView shows one content view pinned to its top: its owner sets the height,
// and shrinking it hides the content from the bottom up.
//
// Separator is a one-pixel hairline.
#pragma once

#include <QWidget>
#include <vector>

#include "ui/layout.h"

class QVBoxLayout;

namespace velt::ui {

enum class GroupStyle { panel, plain };

class GroupView : public QWidget {
  public:
    GroupView(GroupStyle style, const std::vector<QWidget*>& rows, QWidget* parent = nullptr);
    GroupStyle style() const { return style_; }

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    GroupStyle style_;
};

class CollapsibleContainerView : public QWidget {
  public:
    explicit CollapsibleContainerView(QWidget* content, QWidget* parent = nullptr);
    QWidget* content() const { return content_; }
    // The height at which the whole content shows.
    int naturalHeight() const;
    // The height its owner set, so the layout gives it exactly that.
    QSize sizeHint() const override { return {contentWidth, minimumHeight()}; }

  protected:
    void resizeEvent(QResizeEvent* event) override;

  private:
    QWidget* content_;
};

class Separator : public QWidget {
  public:
    explicit Separator(QWidget* parent = nullptr);

  protected:
    void paintEvent(QPaintEvent* event) override;
};

}  // namespace velt::ui
