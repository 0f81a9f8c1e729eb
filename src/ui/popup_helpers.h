// Pop-up buttons whose items carry a text value (the raw value of a setting) beside their title.
#pragma once

#include <QString>
#include <QStringList>
#include <optional>

class QComboBox;

namespace velt::ui {

// Item i carries values[i], for every i that has both an item and a value; the remaining items
// carry nothing.
void setRepresentedValues(QComboBox* popup, const QStringList& values);
// The value of the selected item, when it carries one.
std::optional<QString> selectedValue(const QComboBox* popup);
// Selects the first item carrying `value`; when none does, the selection stays as it was.
void selectPopup(QComboBox* popup, const QString& value);
// Replaces the items with `titles` carrying `values`, then selects `selected`; no change signal
// is sent, because the program, not the user, made the choice.
void fillPopup(QComboBox* popup, const QStringList& titles, const QStringList& values,
               const QString& selected);

}  // namespace velt::ui
