#include "ui/row_button.h"

#include "ui/icon_badge_view.h"
#include "ui/layout.h"
#include "ui/menu_icons.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QTimer>
#include <QVBoxLayout>

namespace velt::ui {
namespace {

// A QLabel elides nothing by itself; this one shows as much of its text as fits, cut where the
// row's design asks (the tail for titles, the middle for folder names).
class ElidedLabel : public QLabel {
  public:
    ElidedLabel(Qt::TextElideMode mode, QWidget* parent) : QLabel(parent), mode_(mode) {}
    void setFullText(const QString& text) {
        full_ = text;
        setToolTip(QString());
        refresh();
    }
    const QString& fullText() const { return full_; }

  protected:
    void resizeEvent(QResizeEvent* event) override {
        QLabel::resizeEvent(event);
        refresh();
    }

  private:
    void refresh() { setText(fontMetrics().elidedText(full_, mode_, width())); }
    Qt::TextElideMode mode_;
    QString full_;
};

ElidedLabel* elidedLabel(Qt::TextElideMode mode, double pixelSize, QFont::Weight weight,
                         QWidget* parent) {
    auto* label = new ElidedLabel(mode, parent);
    label->setFont(uiFont(pixelSize, weight));
    label->setTextFormat(Qt::PlainText);
    label->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    label->setAttribute(Qt::WA_TransparentForMouseEvents);
    return label;
}

class Chevron : public QWidget {
  public:
    explicit Chevron(QWidget* parent) : QWidget(parent) {
        setFixedSize(10, 12);
        setAttribute(Qt::WA_TransparentForMouseEvents);
    }

  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(
            QPen(secondaryLabelColor(palette()), 1.6, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        painter.drawPolyline(QPolygonF({QPointF(3.5, 2.5), QPointF(7, 6), QPointF(3.5, 9.5)}));
    }
};

}  // namespace

RowButton::RowButton(const QString& title, const QString& subtitle, bool allowsSubtitle,
                     const QString& iconName, const QString& fallbackSymbolName, bool showsChevron,
                     std::function<void()> handler, QWidget* parent)
    : QAbstractButton(parent), handler_(std::move(handler)), hover_(this) {
    setFixedSize(contentWidth, allowsSubtitle ? 42 : 30);
    setCursor(Qt::PointingHandCursor);
    // The keyboard reaches it with Tab and the arrows; a click leaves no focus ring behind.
    setFocusPolicy(Qt::TabFocus);

    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(8, 0, 6, 0);
    row->setSpacing(8);
    badge_ = new IconBadgeView(iconName, fallbackSymbolName, this);
    row->addWidget(badge_, 0, Qt::AlignVCenter);

    auto* texts = new QVBoxLayout;
    texts->setSpacing(1);
    texts->setContentsMargins(0, 0, 0, 0);
    auto* titleLabel = elidedLabel(Qt::ElideRight, 11.5, QFont::Medium, this);
    titleLabel_ = titleLabel;
    texts->addWidget(titleLabel_);
    if (allowsSubtitle) {
        auto* subtitleLabel = elidedLabel(Qt::ElideMiddle, 10, QFont::Normal, this);
        QPalette secondary = subtitleLabel->palette();
        secondary.setColor(QPalette::WindowText, secondaryLabelColor(palette()));
        subtitleLabel->setPalette(secondary);
        subtitleLabel_ = subtitleLabel;
        texts->addWidget(subtitleLabel_);
    }
    row->addLayout(texts, 1);
    if (showsChevron) row->addWidget(new Chevron(this), 0, Qt::AlignVCenter);

    setTitleText(title);
    if (allowsSubtitle) setSubtitleText(subtitle);
    connect(this, &QAbstractButton::clicked, this, &RowButton::runAction);
}

QString RowButton::titleText() const {
    return static_cast<ElidedLabel*>(titleLabel_)->fullText();
}

void RowButton::setTitleText(const QString& title) {
    static_cast<ElidedLabel*>(titleLabel_)->setFullText(title);
    updateAccessibleName();
}

QString RowButton::subtitleText() const {
    return subtitleLabel_ ? static_cast<ElidedLabel*>(subtitleLabel_)->fullText() : QString();
}

void RowButton::setSubtitleText(const QString& subtitle) {
    if (!subtitleLabel_) return;
    static_cast<ElidedLabel*>(subtitleLabel_)->setFullText(subtitle);
    subtitleLabel_->setVisible(!subtitle.isEmpty());
    updateAccessibleName();
}

void RowButton::updateAccessibleName() {
    const QString subtitle = subtitleText();
    setAccessibleName(subtitle.isEmpty() ? titleText()
                                         : titleText() + QStringLiteral(", ") + subtitle);
}

void RowButton::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    hover_.paint(painter);
    if (hasFocus()) paintFocusRing(painter, rect(), palette());
}

void RowButton::runAction() {
    setDown(false);
    hover_.setRowHovering(false, true, true);
    // The row is the timer's context: a row gone by then runs nothing.
    QTimer::singleShot(0, this, [this] {
        if (handler_) handler_();
    });
}

}  // namespace velt::ui
