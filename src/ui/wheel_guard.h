// The mouse wheel scrolls what lies under the pointer. A pop-up or a slider that the user has
// not given the focus (by a click or the Tab key) lets the wheel pass to the window around it,
// so that scrolling past a control never changes a setting behind the user's back.
#pragma once

class QWidget;

namespace velt::ui {

// Makes `control` take the focus from clicks and Tab (never from the wheel) and ignore the
// wheel until it has the focus.
void acceptWheelOnlyWithFocus(QWidget* control);

}  // namespace velt::ui
