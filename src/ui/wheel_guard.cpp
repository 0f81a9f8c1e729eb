#include "ui/wheel_guard.h"

#include <QEvent>
#include <QWidget>

namespace velt::ui {
namespace {

class WheelGuard : public QObject {
  protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() != QEvent::Wheel || static_cast<QWidget*>(watched)->hasFocus())
            return false;
        // Ignored, the wheel goes on to the parent (a scroll area scrolls).
        event->ignore();
        return true;
    }
};

}  // namespace

void acceptWheelOnlyWithFocus(QWidget* control) {
    static WheelGuard guard;
    control->setFocusPolicy(Qt::StrongFocus);
    control->installEventFilter(&guard);
}

}  // namespace velt::ui
