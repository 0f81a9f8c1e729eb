// The history window: the store's compression history in a four-column table (file, result,
// saved, date), a totals line, and a button that clears the list after a confirmation. A double
// click shows the entry's file in the file manager; a row's context menu opens the file, shows
// it in the file manager, or undoes its compression (restores the original, or removes the
// compressed copy of a kept one). The window is made once and reused.
//
// Main thread only.
#pragma once

#include "model/app_language.h"

#include <QUuid>
#include <QWidget>
#include <functional>
#include <memory>
#include <optional>

class QLabel;
class QPoint;
class QPushButton;
class QTableView;

namespace velt {
class AppStore;
class Presenter;
}  // namespace velt

namespace velt::ui {

class HistoryTableModel;

class HistoryViewController : public QWidget {
  public:
    // `reveal` shows a file in the file manager.
    HistoryViewController(AppStore& store, Presenter& presenter,
                          std::function<void(const QString&)> reveal, QWidget* parent = nullptr);
    ~HistoryViewController() override;

    void render();
    // What a double click on `row` does: reveals the output when it exists, else the source,
    // else nothing.
    void openEntry(int row);
    // The confirmation, then the store clears the list (never files).
    void clear();
    // The row's menu at `position` (in the table's viewport); nothing outside the rows.
    void showRowMenu(const QPoint& position);

    QTableView* tableView() const { return tableView_; }
    QLabel* titleLabel() const { return titleLabel_; }
    QLabel* summaryLabel() const { return summaryLabel_; }
    QLabel* emptyLabel() const { return emptyLabel_; }
    QPushButton* clearButton() const { return clearButton_; }
    HistoryTableModel* model() const { return model_.get(); }

  private:
    AppStore& store_;
    Presenter& presenter_;
    std::function<void(const QString&)> reveal_;
    std::unique_ptr<HistoryTableModel> model_;
    QTableView* tableView_;
    QLabel* titleLabel_;
    QLabel* summaryLabel_;
    QLabel* emptyLabel_;
    QPushButton* clearButton_;
    std::optional<AppLanguage> lastRenderedLanguage_;
    std::size_t shownCount_ = 0;
    QUuid shownNewest_;
};

class HistoryWindowController {
  public:
    HistoryWindowController(AppStore& store, Presenter& presenter,
                            std::function<void(const QString&)> reveal);
    ~HistoryWindowController();
    void showWindow();
    void render();
    QWidget* window() const { return window_.get(); }
    HistoryViewController* historyViewController() const { return view_; }

  private:
    AppStore& store_;
    std::unique_ptr<QWidget> window_;
    HistoryViewController* view_;
};

}  // namespace velt::ui
