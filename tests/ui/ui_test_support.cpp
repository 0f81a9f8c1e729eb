#include "ui_test_support.h"

#include <QAbstractItemView>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QMouseEvent>
#include <QPointer>
#include <QStyle>
#include <QStyleOptionComboBox>
#include <QTest>
#include <QThread>
#include <QWheelEvent>

namespace velt::testing {

bool processEventsUntil(const std::function<bool()>& done, double seconds) {
    QDeadlineTimer deadline(static_cast<qint64>(seconds * 1000));
    while (!done()) {
        if (deadline.hasExpired()) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QThread::msleep(5);
    }
    return true;
}

namespace {

int indexOf(const QComboBox* popup, const QString& value) {
    const int index = popup->findData(value);
    EXPECT_GE(index, 0) << "no item carries " << value.toStdString();
    return index;
}

}  // namespace

void choose(QComboBox* popup, const QString& value) {
    const int index = indexOf(popup, value);
    if (index < 0) return;
    QTest::mouseClick(popup, Qt::LeftButton);
    QAbstractItemView* list = popup->view();
    ASSERT_TRUE(processEventsUntil([&] { return list->isVisible(); }, 2)) << "the list opens";
    const QRect item = list->visualRect(list->model()->index(index, popup->modelColumn()));
    const QPointer<QWidget> viewport = list->viewport();
    // The pointer travels to the item (the list follows it), then presses and lets go there.
    QMouseEvent move(QEvent::MouseMove, item.center(), viewport->mapToGlobal(item.center()),
                     Qt::NoButton, Qt::NoButton, Qt::NoModifier);
    QCoreApplication::sendEvent(viewport, &move);
    QTest::mouseClick(viewport, Qt::LeftButton, {}, item.center());
    if (viewport) processEventsUntil([&] { return !viewport || !viewport->isVisible(); }, 2);
}

void chooseWithKeys(QComboBox* popup, const QString& value) {
    const int index = indexOf(popup, value);
    if (index < 0) return;
    popup->window()->activateWindow();
    popup->setFocus(Qt::TabFocusReason);
    const QPointer<QComboBox> alive = popup;
    while (alive && alive->currentIndex() != index) {
        const int before = alive->currentIndex();
        QTest::keyClick(alive, before < index ? Qt::Key_Down : Qt::Key_Up);
        if (alive && alive->currentIndex() == before) break;  // the keys do nothing here
    }
}

void turnWheel(QWidget* widget, int notches) {
    const QPointF local = QRectF(widget->rect()).center();
    QWheelEvent event(local, widget->mapToGlobal(local), QPoint(), QPoint(0, 120 * notches),
                      Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
    QCoreApplication::sendEvent(widget, &event);
}

QImage pixelsOf(QWidget& widget) {
    widget.ensurePolished();
    QCoreApplication::sendPostedEvents();  // pending layout requests, as on screen
    return widget.grab().toImage().convertToFormat(QImage::Format_ARGB32);
}

bool showsWholeCurrentText(const QComboBox& popup) {
    QStyleOptionComboBox option;
    option.initFrom(&popup);
    const QRect field = popup.style()->subControlRect(QStyle::CC_ComboBox, &option,
                                                      QStyle::SC_ComboBoxEditField, &popup);
    return field.width() >= popup.fontMetrics().horizontalAdvance(popup.currentText());
}

void keepScreenshot(const QImage& image, const QString& name) {
    const QString folder = QStringLiteral(VELT_ARTIFACTS_DIR);
    QDir().mkpath(folder);
    EXPECT_TRUE(image.save(folder + QLatin1Char('/') + name + QStringLiteral(".png")))
        << name.toStdString();
}

}  // namespace velt::testing
