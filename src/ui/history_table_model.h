// The history as a table model: one row per entry in the store's order (newest first), the
// columns of the history window, full texts as tool tips.
#pragma once

#include "model/history.h"

#include <QAbstractTableModel>

namespace velt::ui {

class HistoryTableModel : public QAbstractTableModel {
  public:
    // Shows `history` in `language`; the model keeps a copy.
    void reset(const CompressionHistory& history, AppLanguage language);
    const CompressionHistoryEntry& entry(int row) const { return history_.at(row); }

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

  private:
    CompressionHistory history_;
    AppLanguage language_ = AppLanguage::russian;
};

}  // namespace velt::ui
