#include "ui/menu_panel.h"

#include "app/app_store.h"
#include "model/constants.h"
#include "model/native_log.h"
#include "ui/layout.h"
#include "ui/panel_tail_view.h"

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QComboBox>
#include <QCursor>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMimeData>
#include <QScreen>
#include <QTimer>
#include <QUrl>
#include <algorithm>

namespace velt::ui {
namespace {

constexpr int screenMargin = 4;  // the panel never touches the screen's edge
constexpr int anchorGap = 2;     // between the tray icon and the tail's apex

}  // namespace

MenuPanel::MenuPanel(AppStore& store, PopoverViewController::Callbacks callbacks, Mode mode)
    : QWidget(nullptr), store_(store), mode_(mode) {
    setWindowTitle(appName);
    setAcceptDrops(true);
    tailView_ = new PanelTailView(this);
    const auto resized = std::move(callbacks.onContentSizeChanged);
    callbacks.onContentSizeChanged = [this, resized] {
        fitToContent();
        if (resized) resized();
    };
    content_ = new PopoverViewController(store, std::move(callbacks), tailView_);
    for (QWidget* control : content_->findChildren<QWidget*>())
        if (control->focusPolicy() & Qt::TabFocus) control->installEventFilter(this);
    // A pop-up's list closes on Escape before the key itself arrives: noted, so that the key
    // does not close the panel too.
    for (QComboBox* popup : content_->findChildren<QComboBox*>())
        popup->view()->window()->installEventFilter(this);
    sinceHidden_.invalidate();
    applyMode();
}

void MenuPanel::applyMode() {
    const bool popup = mode_ == Mode::popup;
    setAttribute(Qt::WA_TranslucentBackground, popup);
    setAttribute(Qt::WA_NoSystemBackground, popup);
    setWindowFlags(popup ? Qt::Popup | Qt::FramelessWindowHint | Qt::NoDropShadowWindowHint
                         : Qt::Window | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);
    // The window form has neither outline nor tail: the window manager draws its frame.
    tailView_->setShowsOutline(popup);
    if (!popup) clearMask();
    fitToContent();
}

void MenuPanel::setMode(Mode mode) {
    if (mode == mode_) return;
    const bool wasOpenWindow = mode_ == Mode::window && isVisible();
    hide();
    sinceHidden_.invalidate();  // not closed by a click: the next click opens it
    mode_ = mode;
    applyMode();
    NativeLog::write(mode_ == Mode::popup ? QStringLiteral("The panel drops from the tray icon")
                                          : QStringLiteral("The panel opens as a window"));
    if (wasOpenWindow && mode_ == Mode::window) present(QRect());
}

void MenuPanel::fitToContent() {
    if (!content_) return;  // still being built
    const QSize body = content_->currentContentSize();
    const int tail = mode_ == Mode::popup ? panelTailHeight : 0;
    setFixedSize(body.width(), body.height() + tail);
    tailView_->setGeometry(rect());
    content_->setGeometry(mode_ == Mode::popup ? tailView_->bodyRect() : rect());
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
    NativeLog::debug(mode_ == Mode::popup ? QStringLiteral("Panel shown")
                                          : QStringLiteral("Panel shown as a window"));
    content_->render();
    fitToContent();
    if (mode_ == Mode::popup) {
        anchor_ = anchor;
        place(anchor);
    }
    show();
    raise();
    activateWindow();
}

void MenuPanel::toggle(const QRect& anchor) {
    if (isVisible() && (mode_ == Mode::popup || isActiveWindow())) {
        hide();
        return;
    }
    // The press on the icon closed the popup already; the click that follows is the same act.
    if (mode_ == Mode::popup && sinceHidden_.isValid() && sinceHidden_.elapsed() < 300) return;
    present(anchor);
}

namespace {

// The local files and folders a drag carries; a file manager gives them as file URLs.
QStringList droppedPaths(const QMimeData* data) {
    QStringList paths;
    if (data == nullptr) return paths;
    for (const QUrl& url : data->urls())
        if (url.isLocalFile()) paths << url.toLocalFile();
    return paths;
}

}  // namespace

void MenuPanel::dragEnterEvent(QDragEnterEvent* event) {
    if (droppedPaths(event->mimeData()).isEmpty()) return;
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

void MenuPanel::dropEvent(QDropEvent* event) {
    const QStringList paths = droppedPaths(event->mimeData());
    if (paths.isEmpty()) return;
    // The files stay where they are: the drop only names them.
    event->setDropAction(Qt::CopyAction);
    event->accept();
    store_.compressDropped(paths);
}

bool MenuPanel::closeOpenList() {
    if (listJustClosed_) return true;
    for (QComboBox* popup : content_->findChildren<QComboBox*>()) {
        if (popup->view()->isVisible()) {
            popup->hidePopup();
            return true;
        }
    }
    return false;
}

// Up and Down move between rows as in a menu (a closed pop-up does not change its choice);
// Enter acts on a row as Space does.
bool MenuPanel::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Hide && !qobject_cast<QComboBox*>(watched) &&
        static_cast<QWidget*>(watched)->isWindow()) {
        listJustClosed_ = true;
        QTimer::singleShot(0, this, [this] { listJustClosed_ = false; });
    }
    if (event->type() != QEvent::KeyPress) return QWidget::eventFilter(watched, event);
    auto* key = static_cast<QKeyEvent*>(event);
    if (key->modifiers() & ~Qt::KeypadModifier) return false;
    if (key->key() == Qt::Key_Down || key->key() == Qt::Key_Up) {
        focusNextPrevChild(key->key() == Qt::Key_Down);
        return true;
    }
    if (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) {
        if (auto* button = qobject_cast<QAbstractButton*>(watched)) {
            button->click();
            return true;
        }
        if (auto* popup = qobject_cast<QComboBox*>(watched)) {
            popup->showPopup();
            return true;
        }
    }
    return false;
}

void MenuPanel::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape) {
        if (closeOpenList()) return;
        close();
        if (mode_ == Mode::window && onClosedByUser) onClosedByUser();
        return;
    }
    QWidget::keyPressEvent(event);
}

void MenuPanel::closeEvent(QCloseEvent* event) {
    QWidget::closeEvent(event);
    if (mode_ == Mode::window && event->spontaneous() && onClosedByUser) onClosedByUser();
}

void MenuPanel::hideEvent(QHideEvent* event) {
    sinceHidden_.start();
    QWidget::hideEvent(event);
}

}  // namespace velt::ui
