// Shared by the widget tests: waiting on the event loop, choosing in pop-ups, pixels and
// screenshots.
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

// Chooses the item of `popup` carrying `value` as the user does.
void choose(QComboBox* popup, const QString& value);

// The widget's real pixels, as it paints itself once the event loop has laid it out.
QImage pixelsOf(QWidget& widget);

// Whether the closed pop-up has room for the whole of its current item's title.
bool showsWholeCurrentText(const QComboBox& popup);

// Saves `image` as <build>/test-artifacts/<name>.png for a reviewer to look at.
void keepScreenshot(const QImage& image, const QString& name);

}  // namespace velt::testing
