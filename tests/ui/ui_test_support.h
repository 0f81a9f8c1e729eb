// Shared by the widget tests: waiting on the event loop, real input on pop-ups and sliders,
// pixels and screenshots.
#pragma once

#include "app/app_store.h"
#include "support/store_support.h"

#include <gtest/gtest.h>
#include <QComboBox>
#include <QImage>
#include <QTemporaryDir>
#include <QWidget>
#include <functional>
#include <memory>

namespace velt::testing {

// Runs the event loop until `done` holds or `seconds` pass; whether it held.
bool processEventsUntil(const std::function<bool()>& done, double seconds = 5.0);

// Chooses the item of `popup` carrying `value` as the user does with the mouse: a click opens
// the list, a click on the item chooses it. The popup may be gone afterwards (a rebuild).
void choose(QComboBox* popup, const QString& value);
// The same with the keyboard: the pop-up takes the focus, then arrow keys step to the item.
void chooseWithKeys(QComboBox* popup, const QString& value);
// Turns the mouse wheel over the middle of `widget` by `notches` (positive: away from the user).
void turnWheel(QWidget* widget, int notches);

// The widget's real pixels, as it paints itself once the event loop has laid it out.
QImage pixelsOf(QWidget& widget);

// Whether the closed pop-up has room for the whole of its current item's title.
bool showsWholeCurrentText(const QComboBox& popup);

// Saves `image` as <build>/test-artifacts/<name>.png for a reviewer to look at.
void keepScreenshot(const QImage& image, const QString& name);

}  // namespace velt::testing
