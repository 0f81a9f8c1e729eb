// The delegate's status item: notice titles, the 4-second expiry that never clears a newer
// notice, the launch sequence, and the tray icon's badge drawn into real pixels.
#include "app/app_delegate.h"
#include "model/config_file.h"
#include "support/test_images.h"
#include "ui/tray_status_item.h"
#include "ui_test_support.h"

#include <QElapsedTimer>
#include <QRegularExpression>

namespace velt::testing {
namespace {

// Records what the delegate asks of the desktop.
class RecordingShell : public StatusBarShell {
  public:
    ScriptedPresenter presenterFake;
    QStringList titles;
    int panelsShown = 0;

    Presenter& presenter() override { return presenterFake; }
    void createStatusItem(AppStore&) override {}
    void setStatusTitle(const QString& title) override { titles << title; }
    void refreshPanel() override {}
    void showPanel() override { ++panelsShown; }
};

// An unsupported file's notice names its type; the other notices' titles are fixed words.
TEST(MenuBarNotice, AnUnsupportedFileIsNamedByItsExtension) {
    using E = CompressionNotificationEvent;
    const auto title = &AppDelegate::menuBarNoticeTitle;
    EXPECT_EQ(title(E::unsupportedFile(QStringLiteral("/p/scan.tiff")), AppLanguage::russian),
              QStringLiteral(" ! TIFF"));
    EXPECT_EQ(title(E::unsupportedFile(QStringLiteral("/p/README")), AppLanguage::english),
              QStringLiteral(" ! FILE"));
}

class DelegateTest : public ::testing::Test {
  protected:
    StoreFixture fixture_;
    RecordingShell shell_;
};

TEST_F(DelegateTest, AFirstRunOpensThePanelAndAStoppedWatchStaysStopped) {
    {
        AppDelegate delegate(shell_);
        delegate.applicationDidFinishLaunching();
        EXPECT_FALSE(delegate.store().isRunning());
        ASSERT_TRUE(processEventsUntil([&] { return shell_.panelsShown == 1; }));
        EXPECT_EQ(shell_.titles.value(0), QString()) << "the icon alone at launch";
    }
    // A folder chosen, compression switched off by the user: the next launch keeps it off and
    // shows no panel.
    AppConfig config;
    config.watchDirectory = fixture_.folder.path();
    config.enabled = false;
    ASSERT_TRUE(saveAppConfig(config));
    shell_.panelsShown = 0;
    AppDelegate delegate(shell_);
    delegate.applicationDidFinishLaunching();
    EXPECT_FALSE(delegate.store().isRunning());
    EXPECT_FALSE(loadAppConfig().enabled);
    processEventsUntil([] { return false; }, 0.6);
    EXPECT_EQ(shell_.panelsShown, 0);
}

TEST_F(DelegateTest, ANewerNoticeOutlivesTheOlderOnesExpiry) {
    AppDelegate delegate(shell_);
    delegate.applicationDidFinishLaunching();
    using E = CompressionNotificationEvent;

    delegate.showMenuBarNotice(
        E::processingFailed(QStringLiteral("/p/a.jpg"), QStringLiteral("x")));
    EXPECT_EQ(delegate.statusTitle(), QStringLiteral(" ! Ошибка"));
    QElapsedTimer clock;
    clock.start();
    processEventsUntil([&] { return clock.elapsed() >= 2000; }, 3);
    delegate.showMenuBarNotice(E::alreadyOptimal(QStringLiteral("/p/b.jpg")));
    EXPECT_EQ(delegate.statusTitle(), QStringLiteral(" ✓ Оптимально"));
    // The first notice's expiry (4 s after it) passes; the second one stays.
    processEventsUntil([&] { return clock.elapsed() >= 4500; }, 4);
    EXPECT_EQ(delegate.statusTitle(), QStringLiteral(" ✓ Оптимально"));
    // Its own expiry, 4 s after it, leaves the icon alone.
    ASSERT_TRUE(processEventsUntil([&] { return delegate.statusTitle().isEmpty(); }, 3));
    EXPECT_GE(clock.elapsed(), 5900);
}

// While a photo is being compressed the icon shows its progress; a notice takes that place for
// its 4 seconds, and the progress comes back after it.
TEST_F(DelegateTest, ANoticeTakesTheProgressPlaceUntilItExpires) {
    QTemporaryDir tools;  // a cjpeg that never finishes keeps the photo in progress
    ASSERT_TRUE(
        QFile::link(QStringLiteral(VELT_HANG_TOOL), tools.filePath(QStringLiteral("cjpeg"))));
    ASSERT_TRUE(writeJPEGWithCjpeg(card(320, 240, false), 95,
                                   fixture_.folder.filePath(QStringLiteral("photo.jpg"))));
    const ScopedEnvironment toolDirectory("VELT_TOOL_DIR", tools.path().toUtf8());
    AppConfig config;
    config.watchDirectory = fixture_.folder.path();
    ASSERT_TRUE(saveAppConfig(config));
    AppDelegate delegate(shell_);
    delegate.applicationDidFinishLaunching();
    const QRegularExpression progress(QStringLiteral("^ \\d+%$"));
    const auto showsProgress = [&] { return progress.match(delegate.statusTitle()).hasMatch(); };
    ASSERT_TRUE(processEventsUntil(showsProgress, 15)) << delegate.statusTitle().toStdString();

    QElapsedTimer clock;
    clock.start();
    delegate.showMenuBarNotice(CompressionNotificationEvent::processingFailed(
        QStringLiteral("/p/a.jpg"), QStringLiteral("x")));
    EXPECT_EQ(delegate.statusTitle(), QStringLiteral(" ! Ошибка"));
    processEventsUntil([&] { return clock.elapsed() >= 3000; }, 4);
    EXPECT_EQ(delegate.statusTitle(), QStringLiteral(" ! Ошибка")) << "progress ticks kept it";
    ASSERT_TRUE(processEventsUntil(showsProgress, 3)) << delegate.statusTitle().toStdString();
    EXPECT_GE(clock.elapsed(), 3900);
}

TEST(TrayBadge, TheTitleIsDrawnIntoTheIconReadablyAtEverySize) {
    EXPECT_EQ(ui::TrayStatusItem::badgeText(QStringLiteral(" 42%")), QStringLiteral("42"));
    EXPECT_EQ(ui::TrayStatusItem::badgeText(QStringLiteral(" ! Ошибка")), QStringLiteral("!"));
    EXPECT_EQ(ui::TrayStatusItem::badgeText(QString()), QString());
    const QIcon base = ui::TrayStatusItem::statusBarIcon();
    ASSERT_FALSE(base.isNull());
    for (const int size : {22, 48}) {
        const QImage plain = ui::TrayStatusItem::composedIcon(base, QString(), size).toImage();
        const QImage badged =
            ui::TrayStatusItem::composedIcon(base, QStringLiteral(" ! Error"), size).toImage();
        EXPECT_EQ(badged.size(), QSize(size, size));
        // The badge covers the lower right and is red; the upper left is the plain icon.
        const QColor corner = badged.pixelColor(size * 3 / 4, size * 3 / 4);
        EXPECT_GT(corner.red(), 150) << size;
        EXPECT_LT(corner.green(), 120) << size;
        EXPECT_EQ(badged.pixelColor(size / 4, size / 4), plain.pixelColor(size / 4, size / 4));
        ui::TrayStatusItem::composedIcon(base, QStringLiteral(" 73%"), size)
            .save(QStringLiteral(VELT_ARTIFACTS_DIR "/tray-progress-%1.png").arg(size));
        QImage(badged).save(QStringLiteral(VELT_ARTIFACTS_DIR "/tray-error-%1.png").arg(size));
    }
}

}  // namespace
}  // namespace velt::testing
