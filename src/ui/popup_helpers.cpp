#include "ui/popup_helpers.h"

#include <QComboBox>
#include <QSignalBlocker>

namespace velt::ui {

void setRepresentedValues(QComboBox* popup, const QStringList& values) {
    for (int i = 0; i < popup->count() && i < values.size(); ++i)
        popup->setItemData(i, values.at(i));
}

std::optional<QString> selectedValue(const QComboBox* popup) {
    const QVariant value = popup->currentData();
    if (value.typeId() != QMetaType::QString) return std::nullopt;
    return value.toString();
}

void selectPopup(QComboBox* popup, const QString& value) {
    for (int i = 0; i < popup->count(); ++i) {
        const QVariant data = popup->itemData(i);
        if (data.typeId() == QMetaType::QString && data.toString() == value) {
            popup->setCurrentIndex(i);
            return;
        }
    }
}

void fillPopup(QComboBox* popup, const QStringList& titles, const QStringList& values,
               const QString& selected) {
    const QSignalBlocker quiet(popup);
    popup->clear();
    popup->addItems(titles);
    setRepresentedValues(popup, values);
    selectPopup(popup, selected);
}

}  // namespace velt::ui
