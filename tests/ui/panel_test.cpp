// The panel over a real store: onboarding until a folder is chosen, every row acting on the
// store, the quality block following the preset, the language re-titling everything, and the
// tail under the tray icon — checked on real pixels and kept as screenshots.
#include "model/config_file.h"
#include "ui/group_view.h"
#include "ui/layout.h"
#include "ui/menu_panel.h"
#include "ui/panel_tail_view.h"
#include "ui/popup_helpers.h"
#include "ui/row_button.h"
#include "ui/stack_rows.h"
#include "ui/switch_control.h"
#include "ui_test_support.h"

#include <QComboBox>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QRegularExpression>
#include <QScreen>

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

TEST_F(PanelTest, PopupsWriteTheSettingsAndCustomExpandsTheQualityBlock) {
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
    // The rows show the numbers in effect, and a slider writes its format's quality.
    EXPECT_EQ(content().qualityRows()[0]->value(), defaults(CompressionPreset::gentle).jpeg);
    content().qualityRows()[2]->slider()->setValue(41);
    EXPECT_EQ(loadAppConfig().qualities.webp, 41);
    EXPECT_EQ(loadAppConfig().preset, CompressionPreset::custom);
    keepScreenshot(pixelsOf(*panel_), QStringLiteral("panel-custom-ru"));

    // Another preset collapses the block again, and the body follows.
    choose(content().presetRow()->popup(), QStringLiteral("maximum"));
    EXPECT_FALSE(content().showsCustomControls());
    ASSERT_TRUE(processEventsUntil([&] { return panel_->height() == collapsed; }));
    EXPECT_EQ(loadAppConfig().qualities, defaults(CompressionPreset::maximum));
}

TEST_F(PanelTest, TheLanguageRetitlesEveryRowAndRefillsThePopupsKeepingTheirChoice) {
    store_->useWatchDirectory(fixture_.folder.path());
    choose(content().formatRow()->popup(), QStringLiteral("png"));
    const QStringList russian = visibleTexts();
    EXPECT_TRUE(russian.contains(QStringLiteral("Сжимать автоматически")));
    EXPECT_EQ(content().presetRow()->popup()->currentText(),
              title(CompressionPreset::balanced, AppLanguage::russian));

    // Every title there was is there again, none of them left in Russian.
    store_->setLanguage(AppLanguage::english);
    const QStringList english = visibleTexts();
    EXPECT_EQ(english.size(), russian.size());
    EXPECT_TRUE(english.contains(QStringLiteral("Compress automatically")));
    for (const QString& text : english)
        EXPECT_FALSE(text.contains(QRegularExpression(QStringLiteral("[А-Яа-я]"))))
            << text.toStdString();
    EXPECT_EQ(selectedValue(content().formatRow()->popup()), QStringLiteral("png"));
    EXPECT_EQ(content().presetRow()->popup()->currentText(),
              title(CompressionPreset::balanced, AppLanguage::english));
    panel_->present(QRect(400, 0, 24, 24));
    keepScreenshot(pixelsOf(*panel_), QStringLiteral("panel-menu-en"));
}

TEST_F(PanelTest, ActionRowsReachTheStoreAndTheOwner) {
    store_->useWatchDirectory(fixture_.folder.path());
    for (RowButton* row : content().actionRows()) row->click();
    processEventsUntil([&] { return quitRequests_ == 1; });
    EXPECT_EQ(settingsRequests_, 1);
    EXPECT_EQ(quitRequests_, 1);
    // Open folder and the website go through the presenter.
    ASSERT_EQ(presenter_.opened.size(), 2);
    EXPECT_EQ(presenter_.opened[0], fixture_.folder.path());
    EXPECT_TRUE(presenter_.opened[1].startsWith(QStringLiteral("https://")));
}

TEST_F(PanelTest, AFailedStartIsShownInThePanel) {
    AppConfig config = store_->config();
    config.watchDirectory = fixture_.folder.path() + QStringLiteral("/gone");
    config.enabled = true;
    store_->setConfig(config);
    store_->start();
    EXPECT_FALSE(store_->isRunning());
    EXPECT_TRUE(content().errorLabel()->isVisibleTo(panel_.get()));
    EXPECT_EQ(content().errorLabel()->text(), store_->watcherError().value_or(QString()));
    EXPECT_FALSE(content().compressionSwitchRow()->control()->isChecked());
}

// The tail's apex is the outline's topmost point, under the icon's centre; near a screen edge
// the body shifts but the tail keeps aiming at the icon. (An icon mid-screen is the desktop
// session test's case, in a real tray.)
TEST_F(PanelTest, TheTailPointsAtTheTrayIconAndEscapeCloses) {
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
    QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
    QCoreApplication::sendEvent(panel_.get(), &escape);
    EXPECT_FALSE(panel_->isVisible());
}

}  // namespace
}  // namespace velt::testing
