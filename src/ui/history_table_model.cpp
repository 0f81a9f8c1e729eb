#include "ui/history_table_model.h"

#include "ui/history_text.h"
#include "ui/layout.h"

namespace velt::ui {

void HistoryTableModel::reset(const CompressionHistory& history, AppLanguage language) {
    beginResetModel();
    history_ = history;
    language_ = language;
    endResetModel();
    Q_EMIT headerDataChanged(Qt::Horizontal, 0, columnCount() - 1);
}

int HistoryTableModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(history_.size());
}

int HistoryTableModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(historyColumnIdentifiers.size());
}

QVariant HistoryTableModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= rowCount()) return {};
    if (role == Qt::DisplayRole || role == Qt::ToolTipRole)
        return historyCellText(history_.at(index.row()),
                               historyColumnIdentifiers.at(index.column()), language_);
    if (role == Qt::FontRole) return uiFont(11.5);
    return {};
}

QVariant HistoryTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole || section < 0 ||
        section >= historyColumnIdentifiers.size())
        return {};
    return historyColumnTitle(historyColumnIdentifiers.at(section), language_);
}

}  // namespace velt::ui
