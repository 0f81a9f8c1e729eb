// The settings and history windows over a real store: every control writes through the store,
// the language rebuilds everything at once, the history's cells, totals, empty state and
// clearing, the backups flow — with screenshots of both windows in both languages.
#include "imageio/image_io.h"
#include "model/config_file.h"
#include "model/constants.h"
#include "support/test_images.h"
#include "ui/file_reveal.h"
#include "ui/history_table_model.h"
#include "ui/history_text.h"
#include "ui/history_window.h"
#include "ui/popup_helpers.h"
#include "ui/qt_translations.h"
#include "ui/settings_window.h"
#include "ui/switch_control.h"
#include "ui_test_support.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QTableView>
#include <QTest>

namespace velt::testing {
namespace {

using namespace velt::ui;

CompressionHistoryEntry entry(CompressionHistoryStatus status, const QString& source,
                              std::optional<std::int64_t> original = std::nullopt,
                              std::optional<std::int64_t> output = std::nullopt,
                              std::optional<Message> reason = std::nullopt) {
    const QDateTime date(QDate(2026, 11, 23), QTime(14, 5));
    return {QUuid::createUuid(), date,  source, std::nullopt, original, output, status,
            std::nullopt,        reason};
}

TEST(HistoryText, CellsByStatusAndLanguage) {
    using S = CompressionHistoryStatus;
    const auto compressed =
        entry(S::compressed, QStringLiteral("/p/IMG_1.HEIC"), 2'400'000, 830'000);
    const auto noSizes = entry(S::compressed, QStringLiteral("/p/a.png"));
    const auto optimal = entry(S::alreadyOptimal, QStringLiteral("/p/b.jpg"), 5000, 1000);
    const auto failedSilently = entry(S::failed, QStringLiteral("/p/d.avif"));
    const auto en = AppLanguage::english;
    const auto ru = AppLanguage::russian;
    struct Row {
        const CompressionHistoryEntry& entry;
        const char* column;
        AppLanguage language;
        const char* expected;
    } rows[] = {
        {compressed, "file", en, "IMG_1.HEIC"},
        {compressed, "result", en, "2.4 MB → 830 KB"},
        {compressed, "result", ru, "2,4 МБ → 830 КБ"},
        {compressed, "saved", en, "1.6 MB"},
        {noSizes, "result", en, "Compressed"},
        {optimal, "result", ru, "Уже оптимально"},
        {optimal, "saved", en, "—"},
        {failedSilently, "result", en, "Error"},
        {compressed, "date", en, "11/23/26, 2:05 PM"},
        {compressed, "date", ru, "23.11.2026, 14:05"},
    };
    // Newer locale data (Qt 6.8's CLDR) puts a narrow no-break space before "PM".
    for (const Row& row : rows)
        EXPECT_EQ(historyCellText(row.entry, QString::fromUtf8(row.column), row.language)
                      .replace(QChar(0x202F), QLatin1Char(' ')),
                  QString::fromUtf8(row.expected))
            << row.column << " → " << row.expected;
    // Amounts: decimal units, KB whole, MB with one decimal, GB with two, never bytes.
    EXPECT_EQ(historyByteCount(0, en), QStringLiteral("0 KB"));
    EXPECT_EQ(historyByteCount(300, en), QStringLiteral("1 KB"));
    EXPECT_EQ(historyByteCount(999'499, en), QStringLiteral("999 KB"));
    EXPECT_EQ(historyByteCount(999'500, en), QStringLiteral("1.0 MB"));
    EXPECT_EQ(historyByteCount(3'210'000'000, ru), QStringLiteral("3,21 ГБ"));
}

class WindowsTest : public ::testing::Test {
  protected:
    StoreFixture fixture_;
    ScriptedPresenter presenter_;
    AppStore store_{&presenter_};
};

TEST_F(WindowsTest, HistoryWindowListsTotalsAndClearsOnlyTheList) {
    QStringList revealed;
    HistoryWindowController window(store_, presenter_, [&](const QString& p) { revealed << p; });
    HistoryViewController& view = *window.historyViewController();
    store_.onChange = [&] { window.render(); };
    window.showWindow();
    // Empty: no table, the empty text, the placeholder summary, nothing to clear.
    EXPECT_FALSE(view.tableView()->isVisible());
    EXPECT_TRUE(view.emptyLabel()->isVisible());
    EXPECT_FALSE(view.clearButton()->isEnabled());
    EXPECT_EQ(view.summaryLabel()->text(),
              QStringLiteral("Здесь появятся обработанные файлы и ошибки."));
    keepScreenshot(pixelsOf(*window.window()), QStringLiteral("history-empty-ru"));

    // A source that still exists and an output that does not: the source is revealed.
    const QString photo = QDir(fixture_.folder.path()).filePath(QStringLiteral("IMG_1.jpg"));
    writeFile(photo, "jpeg");
    auto kept = entry(CompressionHistoryStatus::compressed, photo, 2'000'000, 500'000);
    kept.outputURL = photo + QStringLiteral(".gone.webp");
    // Two failures, a file cut short and a full disk, read in the language of the moment.
    const auto failed = [](const char* name, Text reason) {
        return entry(CompressionHistoryStatus::failed, QString::fromUtf8(name), {}, {},
                     {{reason, {}}});
    };
    for (const auto& recorded : {failed("/nowhere/x.png", Text::fileTruncated),
                                 failed("/nowhere/y.jpg", Text::diskFull), kept})
        store_.recordHistory(recorded);
    EXPECT_TRUE(view.tableView()->isVisible());
    EXPECT_TRUE(view.clearButton()->isEnabled());
    EXPECT_EQ(view.summaryLabel()->text(), QStringLiteral("Операций: 3 · Сэкономлено: 1,5 МБ"));
    keepScreenshot(pixelsOf(*window.window()), QStringLiteral("history-failures-ru"));
    view.openEntry(0);
    view.openEntry(2);  // its file is gone: nothing happens
    EXPECT_EQ(revealed, QStringList{photo});

    store_.setLanguage(AppLanguage::english);
    EXPECT_EQ(window.window()->windowTitle(), QStringLiteral("Compression history"));
    EXPECT_EQ(view.model()->headerData(2, Qt::Horizontal, Qt::DisplayRole).toString(),
              QStringLiteral("Saved"));
    EXPECT_EQ(view.model()->data(view.model()->index(1, 1), Qt::DisplayRole).toString(),
              text(AppLanguage::english, Text::diskFull));
    keepScreenshot(pixelsOf(*window.window()), QStringLiteral("history-failures-en"));

    // Cancelling keeps the list; confirming clears it and leaves every file.
    QTest::mouseClick(view.clearButton(), Qt::LeftButton);
    EXPECT_EQ(store_.history().size(), 3u);
    EXPECT_EQ(presenter_.lastMessage(), QStringLiteral("Clear history?"));
    presenter_.confirmAnswers = {true};
    QTest::mouseClick(view.clearButton(), Qt::LeftButton);
    EXPECT_TRUE(store_.history().empty());
    EXPECT_TRUE(QFileInfo::exists(photo));
    EXPECT_FALSE(view.clearButton()->isEnabled());
}

// The menu a right click on `row` opens, clicked through the window as the user does.
QMenu* rowMenu(HistoryViewController& view, int row) {
    QTableView* table = view.tableView();
    const QPoint inViewport = table->visualRect(table->model()->index(row, 0)).center();
    QWidget* top = view.window();
    QTest::mouseClick(top->windowHandle(), Qt::RightButton, {},
                      table->viewport()->mapTo(top, inViewport));
    processEventsUntil([] { return qobject_cast<QMenu*>(QApplication::activePopupWidget()); });
    return qobject_cast<QMenu*>(QApplication::activePopupWidget());
}

QAction* actionNamed(QMenu& menu, const QString& name) {
    for (QAction* action : menu.actions())
        if (action->text() == name) return action;
    return nullptr;
}

// A photo compressed by the real engine in place of its original is undone from its row's menu:
// the original back byte for byte, a "restored" row on top.
TEST_F(WindowsTest, HistoryRowMenuRestoresTheOriginal) {
    store_.useWatchDirectory(fixture_.folder.path());
    store_.stop();
    AppConfig config = store_.config();
    config.originalPolicy = OriginalPolicy::replace;
    config.formatStrategy = FormatStrategy::jpeg;
    store_.setConfig(config);
    const QDir dir(fixture_.folder.path());
    imageio::encodeImage(photoLikeBitmap(160, 120), ImageFormat::png, 0,
                         dir.filePath(QStringLiteral("photo.png")));
    const QByteArray original = readFile(dir.filePath(QStringLiteral("photo.png")));
    store_.compressor().runOnce(store_.engineConfig(), fixture_.folder.path());
    ASSERT_TRUE(processEventsUntil([&] { return store_.history().size() == 1; }));
    HistoryWindowController window(store_, presenter_, [](const QString&) {});
    HistoryViewController& view = *window.historyViewController();
    store_.onChange = [&] { window.render(); };
    window.showWindow();

    for (const AppLanguage language : {AppLanguage::english, AppLanguage::russian}) {
        store_.setLanguage(language);
        QMenu* menu = rowMenu(view, 0);
        ASSERT_TRUE(menu);
        const bool english = language == AppLanguage::english;
        keepScreenshot(pixelsOf(*menu), english ? QStringLiteral("history-menu-en")
                                                : QStringLiteral("history-menu-ru"));
        QAction* restore = actionNamed(*menu, english ? QStringLiteral("Restore original")
                                                      : QStringLiteral("Восстановить оригинал"));
        ASSERT_TRUE(restore);
        if (english) {
            QTest::keyClick(menu, Qt::Key_Escape);
            continue;
        }
        QTest::mouseClick(menu, Qt::LeftButton, {}, menu->actionGeometry(restore).center());
    }
    ASSERT_TRUE(processEventsUntil([&] { return store_.history().size() == 2; }));
    EXPECT_EQ(readFile(dir.filePath(QStringLiteral("photo.png"))), original);
    EXPECT_FALSE(QFileInfo::exists(dir.filePath(QStringLiteral("photo.jpg"))));
    EXPECT_EQ(view.model()->data(view.model()->index(0, 1), Qt::DisplayRole).toString(),
              QStringLiteral("Восстановлено"));
    keepScreenshot(pixelsOf(*window.window()), QStringLiteral("history-restored-ru"));
}

// The backups' size and how long they are kept, in both languages; the choice is saved.
TEST_F(WindowsTest, SettingsShowTheBackupsAndKeepThemForTheChosenDays) {
    store_.useWatchDirectory(fixture_.folder.path());
    const QDir day(
        QDir(fixture_.folder.path()).filePath(backupDirName + QStringLiteral("/2026-11-01")));
    ASSERT_TRUE(day.mkpath(QStringLiteral(".")));
    writeFile(day.filePath(QStringLiteral("a.original.jpg")), QByteArray(1'500'000, 'a'));
    writeFile(day.filePath(QStringLiteral("b.original.png")), QByteArray(500'000, 'b'));
    SettingsWindowController window(store_);
    SettingsViewController& view = *window.settingsViewController();
    store_.onChange = [&] { window.render(); };
    window.showWindow();
    EXPECT_EQ(view.backupUsageLabel()->text(), QStringLiteral("Бэкапы: 2 шт., 2,0 МБ"));
    EXPECT_EQ(view.retentionPopup()->currentText(), QStringLiteral("Всегда"));
    keepScreenshot(pixelsOf(*window.window()), QStringLiteral("settings-backups-ru"));
    choose(view.retentionPopup(), QStringLiteral("30"));
    EXPECT_EQ(loadAppConfig().backupRetentionDays, 30);
    store_.setLanguage(AppLanguage::english);
    EXPECT_EQ(view.retentionPopup()->currentText(), QStringLiteral("30 days"));
    EXPECT_EQ(view.backupUsageLabel()->text(), QStringLiteral("Backups: 2 files, 2.0 MB"));
    EXPECT_TRUE(showsWholeCurrentText(*view.retentionPopup()));
    keepScreenshot(pixelsOf(*window.window()), QStringLiteral("settings-backups-en"));
}

// Buttons and pop-ups of the window that do not show their whole text, or stand beyond its edge.
QStringList clippedControls(QWidget& window, QWidget& content) {
    QStringList clipped;
    for (QWidget* control : content.findChildren<QWidget*>()) {
        if (!control->isVisible() ||
            !(qobject_cast<QPushButton*>(control) || qobject_cast<QComboBox*>(control)))
            continue;
        const int right = control->mapTo(&window, QPoint(control->width(), 0)).x();
        if (control->width() < control->sizeHint().width() || right > window.width())
            clipped << control->property("text").toString() +
                           control->property("currentText").toString();
    }
    return clipped;
}

// The window over a real store, opened in English: every control writes through the store;
// the language, changed fifty times in every way a user does it — a click in the list, the
// arrow keys, the wheel over the focused pop-up — rebuilds the window under the very pop-up
// that sent the change, every control whole in both languages (Russian runs longer), none
// left in the other language, the settings shown again; the backups flow.
TEST_F(WindowsTest, SettingsWriteThroughTheStoreAndSurviveFiftyLanguageSwitches) {
    store_.useWatchDirectory(fixture_.folder.path());
    store_.setLanguage(AppLanguage::english);
    SettingsWindowController window(store_);
    SettingsViewController& view = *window.settingsViewController();
    store_.onChange = [&] { window.render(); };
    window.showWindow();
    for (SwitchControl* toggle :
         {view.menuBarProgressSwitch(), view.notificationsSwitch(), view.autostartSwitch()})
        QTest::mouseClick(toggle, Qt::LeftButton);
    AppConfig saved = loadAppConfig();
    EXPECT_FALSE(saved.showMenuBarProgress);
    EXPECT_FALSE(saved.notificationsEnabled);
    EXPECT_TRUE(saved.autostart);
    EXPECT_TRUE(saved.autostartAsked);
    const QString entry =
        fixture_.data.file(QStringLiteral("xdg/autostart/velt-compressor.desktop"));
    EXPECT_TRUE(QFileInfo::exists(entry));
    QTest::mouseClick(view.autostartSwitch(), Qt::LeftButton);
    EXPECT_FALSE(loadAppConfig().autostart);
    EXPECT_FALSE(QFileInfo::exists(entry));
    choose(view.metadataPopup(), QStringLiteral("strip"));
    EXPECT_EQ(loadAppConfig().metadataPolicy, MetadataPolicy::strip);

    const auto texts = [&] {
        QStringList all;
        for (QLabel* label : view.contentHost()->findChildren<QLabel*>()) all << label->text();
        for (QPushButton* button : view.contentHost()->findChildren<QPushButton*>())
            all << button->text();
        return all;
    };
    const qsizetype english = texts().size();
    for (int i = 0; i < 50; ++i) {
        const bool toEnglish = store_.config().language == AppLanguage::russian;
        const QString target = toEnglish ? QStringLiteral("english") : QStringLiteral("russian");
        QComboBox* popup = view.languagePopup();
        switch (i % 3) {
            case 0:
                choose(popup, target);
                break;
            case 1:
                chooseWithKeys(popup, target);
                break;
            default:
                popup->setFocus();
                turnWheel(popup, toEnglish ? -1 : 1);
        }
        ASSERT_TRUE(
            processEventsUntil([&] { return rawValue(store_.config().language) == target; }, 2))
            << "switch " << i;
        processEventsUntil([] { return false; }, 0.02);
        ASSERT_EQ(view.languagePopup()->currentData().toString(), target) << "switch " << i;
        if (i < 2) {
            const QStringList clipped = clippedControls(*window.window(), *view.contentHost());
            EXPECT_TRUE(clipped.isEmpty()) << clipped.join(u'/').toStdString();
        }
        if (i == 0) keepScreenshot(pixelsOf(*window.window()), QStringLiteral("settings-ru"));
    }
    EXPECT_EQ(window.window()->windowTitle(), QStringLiteral("Settings"));
    EXPECT_EQ(texts().size(), english);
    for (const QString& text : texts())
        EXPECT_FALSE(text.contains(QRegularExpression(QStringLiteral("[А-Яа-я]"))))
            << text.toStdString();
    EXPECT_FALSE(view.menuBarProgressSwitch()->isChecked()) << "rebuilt rows show the settings";
    EXPECT_EQ(selectedValue(view.metadataPopup()), QStringLiteral("strip"));
    keepScreenshot(pixelsOf(*window.window()), QStringLiteral("settings-en"));

    // The folder chooser opens on the folder in use.
    QTest::mouseClick(view.button(QStringLiteral("Change")), Qt::LeftButton);
    EXPECT_EQ(presenter_.chooserStartFolders, QStringList{fixture_.folder.path()});
    // Backups: no folder yet → told so; then "Clear" asks, and only "yes" removes the folder.
    QTest::mouseClick(view.button(QStringLiteral("Open")), Qt::LeftButton);
    EXPECT_EQ(presenter_.lastMessage(), QStringLiteral("There are no backups"));
    const QString backups = QDir(fixture_.folder.path()).filePath(backupDirName);
    writeFile(QDir(fixture_.folder.path()).filePath(QStringLiteral("photo.jpg")), "mine");
    QDir().mkpath(backups + QStringLiteral("/2026-11-23"));
    writeFile(backups + QStringLiteral("/2026-11-23/photo.original.jpg"), "backup");
    QTest::mouseClick(view.button(QStringLiteral("Clear")), Qt::LeftButton);
    EXPECT_TRUE(QFileInfo::exists(backups)) << "cancelled: nothing removed";
    presenter_.confirmAnswers = {true};
    QTest::mouseClick(view.button(QStringLiteral("Clear")), Qt::LeftButton);
    EXPECT_FALSE(QFileInfo::exists(backups));
    EXPECT_TRUE(
        QFileInfo::exists(QDir(fixture_.folder.path()).filePath(QStringLiteral("photo.jpg"))));

    // "Compress the folder again" asks first; only "yes" sets the engine to it (and starts it).
    QPushButton* again = view.button(QStringLiteral("Compress the folder again"));
    ASSERT_NE(again, nullptr);
    store_.stop();
    QTest::mouseClick(again, Qt::LeftButton);
    EXPECT_EQ(presenter_.lastMessage(), QStringLiteral("Compress the folder again?"));
    EXPECT_FALSE(store_.isRunning());
    presenter_.confirmAnswers = {true};
    QTest::mouseClick(again, Qt::LeftButton);
    EXPECT_TRUE(store_.isRunning());
    EXPECT_TRUE(readFile(fixture_.data.file(QStringLiteral("native.log")))
                    .contains("Compress the folder again requested"));
}

// The button follows the updater: "Checking…" and disabled while the request runs, back to
// "Check" and enabled when it ends, here with a failure (nothing listens on the port).
TEST(SettingsUpdateButton, FollowsTheUpdaterThroughACheck) {
    StoreFixture fixture;
    ScriptedPresenter presenter;
    AppStore store(
        &presenter, {},
        std::make_unique<AppUpdater>(QUrl(QStringLiteral("https://127.0.0.1:9/latest.json"))));
    store.setLanguage(AppLanguage::english);
    SettingsWindowController window(store);
    store.onChange = [&] { window.render(); };
    QPushButton* button = window.settingsViewController()->updateButton();
    EXPECT_EQ(button->text(), QStringLiteral("Check"));
    QTest::mouseClick(button, Qt::LeftButton);
    ASSERT_TRUE(store.isUpdateBusy());
    window.render();  // what the store's change report does
    EXPECT_EQ(button->text(), QStringLiteral("Checking…"));
    EXPECT_EQ(button->accessibleName(), QStringLiteral("Checking…"));
    EXPECT_FALSE(button->isEnabled());
    ASSERT_TRUE(processEventsUntil([&] { return button->isEnabled(); }, 20));
    EXPECT_EQ(button->text(), QStringLiteral("Check"));
    EXPECT_FALSE(presenter.dialogs.empty()) << "the failure is shown to the user";
}

TEST(SettingsText, DisplayVersionDropsOnlyATrailingDoubleZero) {
    for (const auto& [full, shown] :
         {std::pair{"3.0.0", "3.0"}, {"2.1.0", "2.1.0"}, {"10.0.0", "10.0"}, {"", "1.0"}})
        EXPECT_EQ(displayVersion(QString::fromUtf8(full)), QString::fromUtf8(shown));
}

// Qt's own words (standard buttons, the folder dialog) follow the interface language: Russian from
// Debian's translations, English again once the language is switched back.
TEST(QtWords, StandardButtonsSpeakTheInterfaceLanguage) {
    ui::QtTranslations translations;
    for (const char* cancel : {"Отмена", "Cancel", "Отмена"}) {
        translations.follow(*cancel == 'C' ? AppLanguage::english : AppLanguage::russian);
        QMessageBox box(QMessageBox::NoIcon, {}, {}, QMessageBox::Cancel);
        EXPECT_EQ(box.button(QMessageBox::Cancel)->text(), QString::fromUtf8(cancel));
    }
}

// Where neither the file manager service nor xdg-open answers, the caller hears of it.
TEST(FileReveal, WithoutAFileManagerTheCallerIsTold) {
    QTemporaryDir emptyPath;
    ScopedEnvironment path("PATH", emptyPath.path().toUtf8());
    ScopedEnvironment noBus("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
    bool told = false;
    ui::showInFileManager(emptyPath.path(), [&] { told = true; });
    EXPECT_TRUE(processEventsUntil([&] { return told; }));
}

}  // namespace
}  // namespace velt::testing
