#include "ui/stack_rows.h"

#include "ui/icon_badge_view.h"
#include "ui/layout.h"
#include "ui/switch_control.h"
#include "ui/wheel_guard.h"

#include <QComboBox>
#include <QFocusEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QSlider>
#include <QStyle>
#include <QStyleOptionComboBox>
#include <algorithm>

namespace velt::ui {
namespace {

QLabel* titleLabelFor(const QString& title, double pixelSize, QWidget* parent) {
    auto* label = new QLabel(title, parent);
    label->setFont(uiFont(pixelSize, QFont::Medium));
    label->setTextFormat(Qt::PlainText);
    label->setAttribute(Qt::WA_TransparentForMouseEvents);
    return label;
}

// The pop-up's width when every title fits in it.
constexpr int popupWidth = 104;

}  // namespace

HoverStackRow::HoverStackRow(int height, int spacing, bool showsHover, QWidget* parent)
    : QWidget(parent), hover_(this, showsHover), stack_(new QHBoxLayout(this)) {
    setFixedSize(contentWidth, height);
    stack_->setContentsMargins(8, 0, 4, 0);
    stack_->setSpacing(spacing);
}

void HoverStackRow::ringOnKeyboardFocus(QWidget* control) {
    control->installEventFilter(this);
}

bool HoverStackRow::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::FocusIn || event->type() == QEvent::FocusOut) {
        // Tab and Shift+Tab (the arrows too) bring the ring; a click, a shortcut or Tab away
        // take it. A list or another window coming and going leaves it as it was.
        const Qt::FocusReason reason = static_cast<QFocusEvent*>(event)->reason();
        const bool keyboard = reason == Qt::TabFocusReason || reason == Qt::BacktabFocusReason;
        if (event->type() == QEvent::FocusIn && (keyboard || reason == Qt::MouseFocusReason))
            focusRing_ = keyboard;
        else if (event->type() == QEvent::FocusOut &&
                 (keyboard || reason == Qt::MouseFocusReason || reason == Qt::ShortcutFocusReason))
            focusRing_ = false;
        update();
    }
    return QWidget::eventFilter(watched, event);
}

void HoverStackRow::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    hover_.paint(painter);
    if (focusRing_) paintFocusRing(painter, rect(), palette());
}

PopupRow::PopupRow(const QString& title, const QString& iconName, const QString& fallbackSymbolName,
                   QWidget* parent)
    : HoverStackRow(32, 8, false, parent) {
    stack()->addWidget(new IconBadgeView(iconName, fallbackSymbolName, this), 0, Qt::AlignVCenter);
    titleLabel_ = titleLabelFor(title, 11.5, this);
    stack()->addWidget(titleLabel_, 0, Qt::AlignVCenter);
    stack()->addStretch(1);
    popup_ = new QComboBox(this);
    popup_->setFont(uiFont(10.5));
    popup_->setFixedWidth(popupWidth);
    acceptWheelOnlyWithFocus(popup_);
    ringOnKeyboardFocus(popup_);
    // Screen readers name a pop-up by its label and read its choice as the value.
    titleLabel_->setBuddy(popup_);
    stack()->addWidget(popup_, 0, Qt::AlignVCenter);
    setTitleText(title);
}

int PopupRow::fittingPopupWidth() const {
    int widest = 0;
    for (int i = 0; i < popup_->count(); ++i)
        widest = std::max(widest, popup_->fontMetrics().horizontalAdvance(popup_->itemText(i)));
    QStyleOptionComboBox option;
    option.initFrom(popup_);
    const QSize needed = popup_->style()->sizeFromContents(
        QStyle::CT_ComboBox, &option, QSize(widest, popup_->fontMetrics().height()), popup_);
    return std::max(popupWidth, needed.width());
}

void PopupRow::setPopupWidth(int width) {
    popup_->setFixedWidth(width);
}

QString PopupRow::titleText() const {
    return titleLabel_->text();
}

void PopupRow::setTitleText(const QString& title) {
    titleLabel_->setText(title);
    popup_->setAccessibleName(title);
}

SwitchRow::SwitchRow(const QString& title, QWidget* parent) : HoverStackRow(30, 8, true, parent) {
    titleLabel_ = titleLabelFor(title, 11.5, this);
    stack()->addWidget(titleLabel_, 0, Qt::AlignVCenter);
    stack()->addStretch(1);
    control_ = new SwitchControl(this);
    control_->setDrawsFocusRing(false);
    ringOnKeyboardFocus(control_);
    stack()->addWidget(control_, 0, Qt::AlignVCenter);
    setTitleText(title);
}

QString SwitchRow::titleText() const {
    return titleLabel_->text();
}

void SwitchRow::setTitleText(const QString& title) {
    titleLabel_->setText(title);
    control_->setAccessibleName(title);
}

QualityRow::QualityRow(const QString& title, int value, QWidget* parent)
    : HoverStackRow(30, 7, true, parent), accessibilityTitle_(title) {
    auto* titleLabel = titleLabelFor(title, 11, this);
    titleLabel->setFixedWidth(38);
    stack()->addWidget(titleLabel, 0, Qt::AlignVCenter);
    slider_ = new QSlider(Qt::Horizontal, this);
    slider_->setRange(25, 100);
    slider_->setValue(75);
    acceptWheelOnlyWithFocus(slider_);
    ringOnKeyboardFocus(slider_);
    slider_->setAccessibleName(title + QStringLiteral(" quality"));
    stack()->addWidget(slider_, 1, Qt::AlignVCenter);
    valueLabel_ = new QLabel(this);
    valueLabel_->setFont(monospacedDigitFont(10.5));
    valueLabel_->setFixedWidth(34);
    valueLabel_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    QPalette secondary = valueLabel_->palette();
    secondary.setColor(QPalette::WindowText, secondaryLabelColor(palette()));
    valueLabel_->setPalette(secondary);
    stack()->addWidget(valueLabel_, 0, Qt::AlignVCenter);
    showValue(75);
    setValue(value);
    // The setting changes once, when the slider is let go; the label follows the drag.
    slider_->setTracking(false);
    connect(slider_, &QSlider::sliderMoved, this, [this](int moved) { showValue(moved); });
    connect(slider_, &QSlider::valueChanged, this, [this] { change(); });
}

int QualityRow::value() const {
    return slider_->value();
}

void QualityRow::setValue(int value) {
    const QSignalBlocker quiet(slider_);  // the owner set it: no change to report back
    slider_->setValue(value);
    showValue(slider_->value());
}

void QualityRow::showValue(int value) {
    const QString percent = QString::number(value) + QLatin1Char('%');
    valueLabel_->setText(percent);
    slider_->setAccessibleDescription(percent);
}

void QualityRow::change() {
    showValue(slider_->value());
    if (onChange) onChange();
}

}  // namespace velt::ui
