#include "ui/menu_panel.h"

#include "model/constants.h"
#include "model/native_log.h"
#include "ui/layout.h"
#include "ui/panel_tail_view.h"

#include <QCursor>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QScreen>
#include <algorithm>

namespace velt::ui {
namespace {

constexpr int screenMargin = 4;  // the panel never touches the screen's edge
constexpr int anchorGap = 2;     // between the tray icon and the tail's apex

}  // namespace

MenuPanel::MenuPanel(AppStore& store, PopoverViewController::Callbacks callbacks, Mode mode)
    : QWidget(nullptr, mode == Mode::popup
                           ? Qt::Popup | Qt::FramelessWindowHint | Qt::NoDropShadowWindowHint
                           : Qt::Window),
      mode_(mode) {
    setWindowTitle(appName);
    if (mode_ == Mode::popup) setAttribute(Qt::WA_TranslucentBackground);
    tailView_ = new PanelTailView(this);
    const auto resized = std::move(callbacks.onContentSizeChanged);
    callbacks.onContentSizeChanged = [this, resized] {
        fitToContent();
        if (resized) resized();
    };
    content_ = new PopoverViewController(store, std::move(callbacks), tailView_);
    sinceHidden_.invalidate();
    fitToContent();
}

void MenuPanel::fitToContent() {
    if (!content_) return;  // still being built
    const QSize body = content_->currentContentSize();
    const int tail = mode_ == Mode::popup ? panelTailHeight : 0;
    setFixedSize(body.width(), body.height() + tail);
    tailView_->setGeometry(rect());
    if (mode_ == Mode::window) tailView_->setTailOnTop(true);
    const QRect bodyRect = mode_ == Mode::popup ? tailView_->bodyRect() : rect();
    content_->setGeometry(bodyRect);
    // A panel standing above its icon grows upwards, so its tail stays on the icon.
    if (mode_ == Mode::popup && isVisible() && !tailView_->tailOnTop()) place(anchor_);
    updateMask();
}

void MenuPanel::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    updateMask();
}

// Without a compositor the transparent corners would show black: clip the window to its
// outline on X11. Elsewhere the translucent window does it by itself.
void MenuPanel::updateMask() {
    if (mode_ != Mode::popup || QGuiApplication::platformName() != QLatin1String("xcb")) return;
    setMask(QRegion(tailView_->outline().toFillPolygon().toPolygon()));
}

void MenuPanel::place(const QRect& anchor) {
    const QPoint point = anchor.isValid() ? anchor.center() : QCursor::pos();
    QScreen* screen = QGuiApplication::screenAt(point);
    if (!screen) screen = QGuiApplication::primaryScreen();
    const QRect available = screen ? screen->availableGeometry() : QRect(0, 0, 1920, 1080);
    const QRect target = anchor.isValid() ? anchor : QRect(point, QSize(1, 1));
    // Below the icon when it is in the upper half of the screen (or there is no room above).
    const bool below = target.center().y() < available.center().y() ||
                       target.top() - anchorGap - height() < available.top();
    tailView_->setTailOnTop(below);
    content_->setGeometry(tailView_->bodyRect());
    int x = target.center().x() - width() / 2;
    x = std::clamp(
        x, available.left() + screenMargin,
        std::max(available.left() + screenMargin, available.right() - screenMargin - width()));
    int y = below ? target.bottom() + anchorGap : target.top() - anchorGap - height();
    y = std::clamp(y, available.top(),
                   std::max(available.top(), available.bottom() + 1 - height()));
    move(x, y);
    tailView_->setArrowCenter(target.center().x() - x);
    updateMask();
}

void MenuPanel::present(const QRect& anchor) {
    NativeLog::debug(QStringLiteral("Panel shown"));
    content_->render();
    fitToContent();
    if (mode_ == Mode::window) {
        show();
        raise();
        activateWindow();
        return;
    }
    anchor_ = anchor;
    place(anchor);
    show();
    raise();
    activateWindow();
}

void MenuPanel::toggle(const QRect& anchor) {
    if (isVisible()) {
        hide();
        return;
    }
    // The press on the icon closed the popup already; the click that follows is the same act.
    if (mode_ == Mode::popup && sinceHidden_.isValid() && sinceHidden_.elapsed() < 300) return;
    present(anchor);
}

void MenuPanel::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape) {
        hide();
        return;
    }
    QWidget::keyPressEvent(event);
}

void MenuPanel::hideEvent(QHideEvent* event) {
    sinceHidden_.start();
    QWidget::hideEvent(event);
}

}  // namespace velt::ui
