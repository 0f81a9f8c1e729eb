#include "ui_test_support.h"

#include "ui/popup_helpers.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QStyle>
#include <QStyleOptionComboBox>
#include <QThread>

namespace velt::testing {

bool processEventsUntil(const std::function<bool()>& done, double seconds) {
    QDeadlineTimer deadline(static_cast<qint64>(seconds * 1000));
    while (!done()) {
        if (deadline.hasExpired()) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return true;
}

void choose(QComboBox* popup, const QString& value) {
    ui::selectPopup(popup, value);
    Q_EMIT popup->activated(popup->currentIndex());
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
