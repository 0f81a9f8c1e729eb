// The panel over a real store: onboarding until a folder is chosen, every row acting on the
// store, the quality block following the preset, the language re-titling everything, and the
// tail under the tray icon — checked on real pixels and kept as screenshots.
#include "app/app_delegate.h"
#include "model/config_file.h"
#include "ui/desktop_shell.h"
#include "ui/group_view.h"
#include "ui/layout.h"
#include "ui/menu_panel.h"
#include "ui/panel_tail_view.h"
#include "ui/popup_helpers.h"
#include "ui/row_button.h"
#include "ui/settings_window.h"
#include "ui/stack_rows.h"
#include "ui/switch_control.h"
#include "ui_test_support.h"

#include <QAbstractItemView>
#include <QAccessible>
#include <QApplication>
#include <QComboBox>
#include <QGuiApplication>
#include <QLabel>
#include <QPushButton>
#include <QRegularExpression>
#include <QScreen>
#include <QSlider>
#include <QTest>
#include <QWindow>

namespace velt::testing {
namespace {

using namespace velt::ui;

class PanelTest : public ::testing::Test {
  protected:
    void SetUp() override {
        store_ = std::make_unique<AppStore>(&presenter_);
        PopoverViewController::Callbacks callbacks;
        callbacks.onSelectWatchDirectory = [this] { ++folderRequests_; };
        callbacks.onOpenSettings = [this] { ++settingsRequests_; };
        callbacks.onQuit = [this] { ++quitRequests_; };
        panel_ = std::make_unique<MenuPanel>(*store_, std::move(callbacks), MenuPanel::Mode::popup);
        store_->onChange = [this] { panel_->content()->render(); };
    }

    PopoverViewController& content() { return *panel_->content(); }

    // The full titles of every row and label the panel shows now.
    QStringList visibleTexts() {
        QStringList texts;
        for (QLabel* label : panel_->findChildren<QLabel*>())
            if (label->isVisibleTo(panel_.get()) && !label->text().isEmpty())
                texts << label->text();
        std::vector<RowButton*> rows = content().actionRows();
        rows.push_back(content().folderRow());
        for (RowButton* row : rows)
            if (row->isVisibleTo(panel_.get())) texts << row->titleText();
        return texts;
    }

    StoreFixture fixture_;
    ScriptedPresenter presenter_;
    std::unique_ptr<AppStore> store_;
    std::unique_ptr<MenuPanel> panel_;
    int folderRequests_ = 0, settingsRequests_ = 0, quitRequests_ = 0;
};

TEST_F(PanelTest, OnboardingUntilAFolderIsChosenThenTheMenuWithoutReopening) {
    panel_->present(QRect(400, 0, 24, 24));
    EXPECT_TRUE(content().showsOnboarding());
    EXPECT_EQ(panel_->size(), QSize(popoverWidth, popoverHeight + panelTailHeight));
    EXPECT_TRUE(visibleTexts().contains(QStringLiteral("Выберите папку для сжатия")));
    keepScreenshot(pixelsOf(*panel_), QStringLiteral("panel-onboarding-ru"));
    content().onboardingButton()->click();
    EXPECT_EQ(folderRequests_, 1);

    store_->useWatchDirectory(fixture_.folder.path());  // what the folder dialog does
    EXPECT_TRUE(panel_->isVisible());
    EXPECT_FALSE(content().showsOnboarding());
    EXPECT_TRUE(content().compressionSwitchRow()->control()->isChecked());
    EXPECT_EQ(content().folderRow()->subtitleText(), QFileInfo(fixture_.folder.path()).fileName());

    // The switch stops and starts the engine, and the choice is saved.
    content().compressionSwitchRow()->control()->click();
    EXPECT_FALSE(store_->isRunning());
    EXPECT_FALSE(loadAppConfig().enabled);
    content().compressionSwitchRow()->control()->click();
    EXPECT_TRUE(store_->isRunning());
    EXPECT_TRUE(loadAppConfig().enabled);
    keepScreenshot(pixelsOf(*panel_), QStringLiteral("panel-menu-ru"));
}

TEST_F(PanelTest, PopupsWriteTheSettingsCustomExpandsAndTheWheelNeedsTheFocus) {
    store_->useWatchDirectory(fixture_.folder.path());
    panel_->present(QRect(400, 0, 24, 24));
    const int collapsed = panel_->height();

    EXPECT_EQ(content().qualityGroupContainer()->height(), 0);

    choose(content().formatRow()->popup(), QStringLiteral("webp"));
    choose(content().originalRow()->popup(), QStringLiteral("replace"));
    choose(content().presetRow()->popup(), QStringLiteral("gentle"));
    AppConfig saved = loadAppConfig();
    EXPECT_EQ(saved.formatStrategy, FormatStrategy::webp);
    EXPECT_EQ(saved.originalPolicy, OriginalPolicy::replace);
    EXPECT_EQ(saved.preset, CompressionPreset::gentle);
    EXPECT_EQ(saved.qualities, defaults(CompressionPreset::gentle));
    EXPECT_FALSE(content().showsCustomControls());

    choose(content().presetRow()->popup(), QStringLiteral("custom"));
    EXPECT_TRUE(content().showsCustomControls());
    const int natural = content().qualityGroupContainer()->naturalHeight();
    EXPECT_EQ(natural, static_cast<int>(content().qualityRows().size()) *
                           content().qualityRows()[0]->height());
    ASSERT_TRUE(processEventsUntil([&] { return panel_->height() == collapsed + natural; }, 2))
        << panel_->height() << " vs " << collapsed << " + " << natural << " container "
        << content().qualityGroupContainer()->height();
    EXPECT_EQ(content().qualityGroupContainer()->height(), natural);
    // The rows show the numbers in effect. The wheel over a slider or a pop-up the user has not
    // given the focus changes nothing; over the focused slider it writes that format's quality.
    QSlider* webp = content().qualityRows()[2]->slider();
    EXPECT_EQ(content().qualityRows()[0]->value(), defaults(CompressionPreset::gentle).jpeg);
    content().formatRow()->popup()->setFocus(Qt::TabFocusReason);  // the chosen pop-up had it
    turnWheel(webp, -2);
    turnWheel(content().presetRow()->popup(), 1);
    EXPECT_EQ(loadAppConfig().qualities, defaults(CompressionPreset::gentle));
    EXPECT_EQ(loadAppConfig().preset, CompressionPreset::custom);
    webp->setFocus(Qt::TabFocusReason);
    turnWheel(webp, -1);
    const QualitySettings custom = loadAppConfig().qualities;
    EXPECT_LT(custom.webp, defaults(CompressionPreset::gentle).webp);
    EXPECT_EQ(custom.webp, webp->value());
    EXPECT_EQ(content().qualityRows()[2]->valueLabel()->text(),
              QStringLiteral("%1%").arg(custom.webp));
    keepScreenshot(pixelsOf(*panel_), QStringLiteral("panel-custom-ru"));

    // Another preset collapses the block again, and the body follows; custom brings the user's
    // own numbers back.
    choose(content().presetRow()->popup(), QStringLiteral("maximum"));
    EXPECT_FALSE(content().showsCustomControls());
    ASSERT_TRUE(processEventsUntil([&] { return panel_->height() == collapsed; }));
    EXPECT_EQ(loadAppConfig().qualities, defaults(CompressionPreset::maximum));
    choose(content().presetRow()->popup(), QStringLiteral("custom"));
    EXPECT_EQ(loadAppConfig().qualities, custom);
    EXPECT_EQ(webp->value(), custom.webp);
}

TEST_F(PanelTest, ActionRowsReachTheStoreAndTheOwner) {
    store_->useWatchDirectory(fixture_.folder.path());
    panel_->present(QRect(400, 0, 24, 24));
    for (RowButton* row : content().actionRows()) QTest::mouseClick(row, Qt::LeftButton);
    processEventsUntil([&] { return quitRequests_ == 1; });
    EXPECT_EQ(settingsRequests_, 1);
    EXPECT_EQ(quitRequests_, 1);
    // Open folder and the website go through the presenter.
    ASSERT_EQ(presenter_.opened.size(), 2);
    EXPECT_EQ(presenter_.opened[0], fixture_.folder.path());
    EXPECT_TRUE(presenter_.opened[1].startsWith(QStringLiteral("https://")));
    // With no file manager to show it, Open folder answers with an alert naming the path.
    presenter_.noFileBrowser = true;
    panel_->present(QRect(400, 0, 24, 24));
    QTest::mouseClick(content().actionRows().front(), Qt::LeftButton);
    const QString title = text(AppLanguage::russian, Text::openFailedTitle,
                               {fixture_.folder.path().section(u'/', -1)});
    ASSERT_TRUE(processEventsUntil([&] { return presenter_.lastMessage() == title; }));
    EXPECT_TRUE(presenter_.dialogs.back().informativeText.endsWith(fixture_.folder.path()));
}

// A missing folder: the panel says so, naming it. The language re-titles every row and the error
// line, none left in Russian, and refills the pop-ups keeping their choice.
TEST_F(PanelTest, AFailedStartAndEveryRowFollowTheLanguage) {
    AppConfig config = store_->config();
    const QString gone = fixture_.folder.path() + QStringLiteral("/gone");
    config.watchDirectory = gone;
    config.enabled = true;
    store_->setConfig(config);
    store_->start();
    EXPECT_FALSE(content().compressionSwitchRow()->control()->isChecked()) << "not running";
    choose(content().formatRow()->popup(), QStringLiteral("png"));
    panel_->present(QRect(400, 0, 24, 24));
    EXPECT_TRUE(content().errorLabel()->isVisibleTo(panel_.get()));
    EXPECT_EQ(content().errorLabel()->text(),
              text(AppLanguage::russian, Text::folderMissing, {gone}));
    const qsizetype russian = visibleTexts().size();
    keepScreenshot(pixelsOf(*panel_), QStringLiteral("panel-missing-folder-ru"));

    store_->setLanguage(AppLanguage::english);
    EXPECT_EQ(content().errorLabel()->text(),
              text(AppLanguage::english, Text::folderMissing, {gone}));
    const QStringList english = visibleTexts();
    EXPECT_EQ(english.size(), russian);
    for (const QString& shown : english)
        EXPECT_FALSE(shown.contains(QRegularExpression(QStringLiteral("\\p{Cyrillic}"))))
            << shown.toStdString();
    EXPECT_EQ(selectedValue(content().formatRow()->popup()), QStringLiteral("png"));
    EXPECT_EQ(content().presetRow()->popup()->currentText(),
              title(CompressionPreset::balanced, AppLanguage::english));
    keepScreenshot(pixelsOf(*panel_), QStringLiteral("panel-missing-folder-en"));
}

// The tail's apex is the outline's topmost point, under the icon's centre; near a screen edge
// the body shifts but the tail keeps aiming at the icon. (An icon mid-screen is the desktop
// session test's case, in a real tray.)
TEST_F(PanelTest, TheTailPointsAtTheTrayIcon) {
    store_->useWatchDirectory(fixture_.folder.path());
    const QRect available = QGuiApplication::primaryScreen()->availableGeometry();
    const QRect icon(available.right() - 62, available.top(), 24, 24);
    panel_->present(icon);
    EXPECT_TRUE(panel_->tailView()->tailOnTop());
    EXPECT_EQ(panel_->y(), icon.bottom() + 2);
    EXPECT_EQ(panel_->x() + panel_->tailView()->arrowCenter(), icon.center().x());
    EXPECT_LE(panel_->geometry().right(), available.right());
    // On the pixels: the top row is drawn only around the apex.
    const QImage pixels = pixelsOf(*panel_);
    QRect apexRow;
    for (int x = 0; x < pixels.width(); ++x)
        if (pixels.pixelColor(x, 1).alpha() > 8) apexRow |= QRect(x, 1, 1, 1);
    EXPECT_NEAR(apexRow.center().x(), panel_->tailView()->arrowCenter(), 3);
    panel_->hide();

    // A tray at the bottom of the screen: the panel stands above the icon, tail underneath.
    const QRect bottomIcon(available.center().x(), available.bottom() - 24, 24, 24);
    panel_->present(bottomIcon);
    EXPECT_FALSE(panel_->tailView()->tailOnTop());
    EXPECT_EQ(panel_->geometry().bottom(), bottomIcon.top() - 3);
    keepScreenshot(pixelsOf(*panel_), QStringLiteral("panel-above-bottom-tray"));
}

// The keyboard alone, and a screen reader: every control the keyboard reaches is in the
// accessibility tree with its role and name (a pop-up named by its row's title, as the desktop's
// label relation tells), in the order Tab and the arrows visit them; the folded quality rows
// are neither. Enter acts on a row, Space opens a pop-up's list, and Escape closes the list
// before the panel. Keys go to the panel's window, which hands them on as on a desktop.
TEST_F(PanelTest, TheKeyboardAndAScreenReaderReachEveryRowAndEscapeClosesAnOpenListFirst) {
    store_->useWatchDirectory(fixture_.folder.path());
    panel_->present(QRect(400, 0, 24, 24));
    QWindow* window = panel_->windowHandle();
    ASSERT_TRUE(processEventsUntil([&] { return QGuiApplication::focusWindow() == window; }));
    const QString folder = QFileInfo(fixture_.folder.path()).fileName();
    const QStringList order = {QStringLiteral("check Сжимать автоматически"),
                               QStringLiteral("button Изменить папку для сжатия, ") + folder,
                               QStringLiteral("popup Степень сжатия: Оптимально"),
                               QStringLiteral("popup Формат вывода: Исходный"),
                               QStringLiteral("popup Исходник: Сохранять"),
                               QStringLiteral("button Открыть папку сжатия"),
                               QStringLiteral("button История сжатий"),
                               QStringLiteral("button Настройки"),
                               QStringLiteral("button Открыть сайт VELT"),
                               QStringLiteral("button Выйти из VELT | Compressor")};
    const auto readOut = [](QAccessibleInterface* item) {
        const QString name = item->text(QAccessible::Name);
        switch (item->role()) {
            case QAccessible::CheckBox:
                return QStringLiteral("check ") + name;
            case QAccessible::ComboBox: {
                const auto labels = item->relations(QAccessible::Label);
                return QStringLiteral("popup ") +
                       (labels.isEmpty() ? QString()
                                         : labels.first().first->text(QAccessible::Name)) +
                       QStringLiteral(": ") + item->text(QAccessible::Value);
            }
            default:
                return QStringLiteral("button ") + name;
        }
    };
    QStringList tree;
    std::function<void(QAccessibleInterface*)> walk = [&](QAccessibleInterface* item) {
        if (item->state().invisible) return;
        if (item->state().focusable && item->role() != QAccessible::ListItem) tree << readOut(item);
        for (int i = 0; i < item->childCount(); ++i) walk(item->child(i));
    };
    walk(QAccessible::queryAccessibleInterface(panel_.get()));
    EXPECT_EQ(tree, order);

    const auto focused = [&] {
        QWidget* widget = QApplication::focusWidget();
        return widget ? readOut(QAccessible::queryAccessibleInterface(widget)) : QString();
    };
    for (const Qt::Key key : {Qt::Key_Tab, Qt::Key_Down}) {
        QStringList visited;
        for (int i = 0; i < order.size(); ++i) {
            QTest::keyClick(window, key);
            visited << focused();
        }
        // Where the walk starts depends on where the focus was; the round is the same.
        const qsizetype start = order.indexOf(visited.first());
        ASSERT_GE(start, 0) << visited.join(u'/').toStdString();
        EXPECT_EQ(visited, order.mid(start) + order.first(start)) << int(key);
    }
    while (focused() != order[7]) QTest::keyClick(window, Qt::Key_Up);
    QTest::keyClick(window, Qt::Key_Return);
    ASSERT_TRUE(processEventsUntil([&] { return settingsRequests_ == 1; }));

    while (focused() != order[2]) QTest::keyClick(window, Qt::Key_Down);
    keepScreenshot(pixelsOf(*panel_), QStringLiteral("panel-keyboard-on-preset"));
    QComboBox* preset = content().presetRow()->popup();
    QTest::keyClick(window, Qt::Key_Space);
    ASSERT_TRUE(processEventsUntil([&] { return preset->view()->isVisible(); }));
    // To the list's own window: Qt 6.8 gives an open list no focus window.
    QTest::keyClick(preset->view()->window()->windowHandle(), Qt::Key_Escape);
    ASSERT_TRUE(processEventsUntil([&] { return !preset->view()->isVisible(); }));
    processEventsUntil([] { return false; }, 0.1);
    EXPECT_TRUE(panel_->isVisible()) << "Escape closed the list only";
    EXPECT_EQ(store_->config().preset, CompressionPreset::balanced);
    QTest::keyClick(window, Qt::Key_Escape);
    EXPECT_TRUE(processEventsUntil([&] { return !panel_->isVisible(); }));
}

// Without a tray the panel is an ordinary window from launch: no tail, its title the state once
// and then the program's name. Closing it keeps the program watching, and only the first time a
// notification says how to open it again; a later launch's request opens it or the settings.
TEST(DesktopShellTest, WithoutATrayThePanelIsAWindowAndClosingItKeepsWatching) {
    StoreFixture fixture;
    AppConfig config;
    config.watchDirectory = fixture.folder.path();
    ASSERT_TRUE(saveAppConfig(config));
    ui::DesktopShell shell(false);
    AppDelegate delegate(shell);
    delegate.applicationDidFinishLaunching();
    MenuPanel& panel = *shell.panel();
    ASSERT_TRUE(processEventsUntil([&] { return panel.isVisible(); }));
    EXPECT_EQ(panel.mode(), MenuPanel::Mode::window);
    EXPECT_EQ(panel.windowType(), Qt::Window);
    EXPECT_EQ(panel.size(), panel.content()->currentContentSize()) << "no room for a tail";
    delegate.showMenuBarNotice(CompressionNotificationEvent::processingFailed(
        fixture.folder.filePath(QStringLiteral("a.jpg")), {Text::fileDamaged, {}}));
    EXPECT_EQ(panel.windowTitle(), QStringLiteral("! Ошибка — VELT | Compressor"));
    const QImage pixels = pixelsOf(panel);
    EXPECT_EQ(pixels.pixelColor(panel.width() / 2, 0), panel.palette().color(QPalette::Window))
        << "nothing drawn where a tail would be";
    keepScreenshot(pixels, QStringLiteral("panel-window-ru"));

    const auto closeHints = [&] {
        return QString::fromUtf8(readFile(fixture.data.file(QStringLiteral("native.log"))))
            .count(QStringLiteral("Notification to deliver key=\"window-closed\""));
    };
    for (int round = 0; round < 2; ++round) {
        shell.open(CommandLineRequest::DesktopPart::panel);
        ASSERT_TRUE(processEventsUntil([&] { return panel.isActiveWindow(); }));
        QTest::keyClick(panel.windowHandle(), Qt::Key_Escape);
        EXPECT_FALSE(panel.isVisible());
        EXPECT_TRUE(delegate.store().isRunning());
        delegate.store().notificationManager().waitUntilIdle();
        EXPECT_EQ(closeHints(), 1) << "round " << round;
    }
    shell.open(CommandLineRequest::DesktopPart::settings);
    EXPECT_TRUE(shell.settingsWindow()->window()->isVisible());
}

}  // namespace
}  // namespace velt::testing
