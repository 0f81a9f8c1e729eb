#include "ui/history_window.h"

#include "app/app_store.h"
#include "model/constants.h"
#include "ui/history_table_model.h"
#include "ui/history_text.h"
#include "ui/layout.h"

#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QTableView>
#include <QUrl>
#include <QVBoxLayout>

namespace velt::ui {

HistoryViewController::HistoryViewController(AppStore& store, Presenter& presenter,
                                             std::function<void(const QString&)> reveal,
                                             QWidget* parent)
    : QWidget(parent),
      store_(store),
      presenter_(presenter),
      reveal_(std::move(reveal)),
      model_(std::make_unique<HistoryTableModel>()) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 14, 16, 14);
    layout->setSpacing(8);

    auto* header = new QHBoxLayout;
    titleLabel_ = new QLabel(this);
    titleLabel_->setFont(uiFont(17, QFont::DemiBold));
    header->addWidget(titleLabel_, 1);
    clearButton_ = new QPushButton(this);
    connect(clearButton_, &QPushButton::clicked, this, [this] { clear(); });
    header->addWidget(clearButton_);
    layout->addLayout(header);

    summaryLabel_ = new QLabel(this);
    summaryLabel_->setFont(uiFont(12));
    QPalette secondary = summaryLabel_->palette();
    secondary.setColor(QPalette::WindowText, secondaryLabelColor(palette()));
    summaryLabel_->setPalette(secondary);
    layout->addWidget(summaryLabel_);

    tableView_ = new QTableView(this);
    tableView_->setModel(model_.get());
    tableView_->setSelectionBehavior(QAbstractItemView::SelectRows);
    tableView_->setSelectionMode(QAbstractItemView::SingleSelection);
    tableView_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    tableView_->setAlternatingRowColors(true);
    tableView_->setShowGrid(false);
    tableView_->setWordWrap(false);
    tableView_->setTextElideMode(Qt::ElideRight);
    tableView_->verticalHeader()->hide();
    tableView_->verticalHeader()->setDefaultSectionSize(24);
    tableView_->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    tableView_->horizontalHeader()->setStretchLastSection(true);
    tableView_->horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    tableView_->setStyleSheet(QStringLiteral("QTableView::item { padding: 0 4px; }"));
    tableView_->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(tableView_, &QWidget::customContextMenuRequested, this,
            [this](const QPoint& position) { showRowMenu(position); });
    connect(tableView_, &QTableView::doubleClicked, this,
            [this](const QModelIndex& index) { openEntry(index.row()); });
    layout->addWidget(tableView_, 1);

    emptyLabel_ = new QLabel(this);
    emptyLabel_->setWordWrap(true);
    emptyLabel_->setAlignment(Qt::AlignCenter);
    emptyLabel_->setFont(uiFont(13));
    emptyLabel_->setPalette(secondary);
    layout->addWidget(emptyLabel_, 1);
    render();
}

HistoryViewController::~HistoryViewController() = default;

void HistoryViewController::render() {
    const AppLanguage language = store_.config().language;
    const auto& history = store_.history();
    titleLabel_->setText(text(language, Text::historyTitle));
    clearButton_->setText(text(language, Text::historyClear));
    clearButton_->setAccessibleName(clearButton_->text());
    emptyLabel_->setText(text(language, Text::historyEmpty));
    summaryLabel_->setText(historySummary(history, language));
    // The store changes with every progress step; the table is rebuilt only when the list or
    // the language did, so the reader's scroll position and selection stay.
    const QUuid newest = history.empty() ? QUuid() : history.front().id;
    if (history.size() != shownCount_ || newest != shownNewest_ ||
        lastRenderedLanguage_ != language) {
        model_->reset(history, language);
        shownCount_ = history.size();
        shownNewest_ = newest;
    }
    if (lastRenderedLanguage_ != language) {
        for (int column = 0; column < historyColumnIdentifiers.size(); ++column)
            tableView_->setColumnWidth(column,
                                       historyColumnWidth(historyColumnIdentifiers.at(column)));
        lastRenderedLanguage_ = language;
    }
    clearButton_->setEnabled(!history.empty());
    emptyLabel_->setVisible(history.empty());
    tableView_->setVisible(!history.empty());
}

void HistoryViewController::openEntry(int row) {
    if (row < 0 || row >= model_->rowCount()) return;
    const CompressionHistoryEntry& entry = model_->entry(row);
    if (entry.outputURL && QFileInfo::exists(*entry.outputURL)) {
        reveal_(*entry.outputURL);
    } else if (QFileInfo::exists(entry.sourceURL)) {
        reveal_(entry.sourceURL);
    }
}

void HistoryViewController::showRowMenu(const QPoint& position) {
    const int row = tableView_->indexAt(position).row();
    if (row < 0 || row >= model_->rowCount()) return;
    const CompressionHistoryEntry entry = model_->entry(row);
    const AppLanguage language = store_.config().language;
    const QString file =
        entry.outputURL && QFileInfo::exists(*entry.outputURL) ? *entry.outputURL : entry.sourceURL;
    auto* menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    QAction* open = menu->addAction(text(language, Text::buttonOpen), this, [this, file] {
        presenter_.openURL(QUrl::fromLocalFile(file).toString());
    });
    QAction* show = menu->addAction(text(language, Text::historyShowInFileManager), this,
                                    [this, file] { reveal_(file); });
    open->setEnabled(QFileInfo::exists(file));
    show->setEnabled(QFileInfo::exists(file));
    if (entry.status == CompressionHistoryStatus::compressed) {
        // A kept original's output carries the marker in its name; any other replaced it.
        const bool kept = entry.outputURL && entry.outputURL->contains(compressedFileSuffix);
        menu->addSeparator();
        menu->addAction(
            text(language, kept ? Text::historyRemoveCompressedCopy : Text::historyRestoreOriginal),
            this, [this, file] { store_.restore(file, window()); });
    }
    menu->popup(tableView_->viewport()->mapToGlobal(position));
}

void HistoryViewController::clear() {
    const AppLanguage language = store_.config().language;
    const bool confirmed = presenter_.confirm(
        text(language, Text::clearHistoryQuestion), text(language, Text::clearHistoryExplanation),
        text(language, Text::buttonClear), text(language, Text::buttonCancel), this);
    if (confirmed) store_.clearHistory();
}

HistoryWindowController::HistoryWindowController(AppStore& store, Presenter& presenter,
                                                 std::function<void(const QString&)> reveal)
    : store_(store), window_(std::make_unique<QWidget>()) {
    window_->setMinimumSize(600, 320);
    window_->resize(700, 440);
    auto* layout = new QVBoxLayout(window_.get());
    layout->setContentsMargins(0, 0, 0, 0);
    view_ = new HistoryViewController(store, presenter, std::move(reveal), window_.get());
    layout->addWidget(view_);
    render();
}

HistoryWindowController::~HistoryWindowController() = default;

void HistoryWindowController::render() {
    window_->setWindowTitle(text(store_.config().language, Text::historyTitle));
    view_->render();
}

void HistoryWindowController::showWindow() {
    render();
    window_->show();
    window_->raise();
    window_->activateWindow();
}

}  // namespace velt::ui
