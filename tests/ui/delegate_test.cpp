// The delegate's status item: notice titles, the 4-second expiry that never clears a newer
// notice, the launch sequence, and the tray icon's badge drawn into real pixels.
#include "app/app_delegate.h"
#include "model/config_file.h"
#include "support/test_images.h"
#include "ui/tray_menu.h"
#include "ui/tray_status_item.h"
#include "ui_test_support.h"

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QTest>
#include <algorithm>
#include <cmath>
#include <map>

namespace velt::testing {
namespace {

using namespace Qt::StringLiterals;

// Records what the delegate asks of the desktop.
class RecordingShell : public StatusBarShell {
  public:
    ScriptedPresenter presenterFake;
    QStringList titles;
    QStringList toolTips;
    int panelsShown = 0;

    Presenter& presenter() override { return presenterFake; }
    void createStatusItem(AppStore&) override {}
    void setStatusTitle(const QString& title) override { titles << title; }
    void setStatusToolTip(const QString& toolTip) override { toolTips << toolTip; }
    void refreshPanel() override {}
    void showPanel() override { ++panelsShown; }
};

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
        E::processingFailed(QStringLiteral("/p/a.jpg"), {Text::fileDamaged, {}}));
    EXPECT_EQ(delegate.statusTitle(), QStringLiteral(" ! Ошибка"));
    QElapsedTimer clock;
    clock.start();
    processEventsUntil([&] { return clock.elapsed() >= 2000; }, 3);
    delegate.showMenuBarNotice(E::alreadyOptimal(QStringLiteral("/p/b.jpg")));
    EXPECT_EQ(delegate.statusTitle(), QStringLiteral(" ✓ Оптимально"));
    // An unsupported file's notice names its type; the others' titles are fixed words.
    const auto title = &AppDelegate::menuBarNoticeTitle;
    EXPECT_EQ(title(E::unsupportedFile(u"/p/scan.tiff"_s), AppLanguage::russian), u" ! TIFF"_s);
    EXPECT_EQ(title(E::unsupportedFile(u"/p/README"_s), AppLanguage::english), u" ! FILE"_s);
    // The first notice's expiry (4 s after it) passes; the second one stays.
    processEventsUntil([&] { return clock.elapsed() >= 4500; }, 4);
    EXPECT_EQ(delegate.statusTitle(), QStringLiteral(" ✓ Оптимально"));
    // Its own expiry, 4 s after it, leaves the icon alone.
    ASSERT_TRUE(processEventsUntil([&] { return delegate.statusTitle().isEmpty(); }, 3));
    EXPECT_GE(clock.elapsed(), 5900);
}

// The tooltip says what the program does — no folder, watching, paused — in the interface
// language, and the last problem with a file until a later file is compressed.
TEST_F(DelegateTest, TheTooltipSaysWhatTheProgramIsDoing) {
    AppDelegate delegate(shell_);
    delegate.applicationDidFinishLaunching();
    AppStore& store = delegate.store();
    const auto state = [&] { return shell_.toolTips.last().split(u'\n'); };
    EXPECT_EQ(state(), QStringList({QStringLiteral("VELT | Compressor"),
                                    QStringLiteral("Папка для сжатия не выбрана")}));
    store.useWatchDirectory(fixture_.folder.path());
    const QString name = QFileInfo(fixture_.folder.path()).fileName();
    EXPECT_EQ(state().value(1), QStringLiteral("Слежу за папкой ") + name);
    store.setLanguage(AppLanguage::english);
    EXPECT_EQ(state().value(1), QStringLiteral("Watching ") + name);

    delegate.showMenuBarNotice(CompressionNotificationEvent::processingFailed(
        fixture_.folder.filePath(QStringLiteral("a.jpg")), {Text::fileTruncated, {}}));
    store.stop();
    EXPECT_EQ(
        state(),
        QStringList({QStringLiteral("VELT | Compressor"), QStringLiteral("Compression paused"),
                     QStringLiteral("Last problem: Could not compress file — “a.jpg”: ") +
                         text(AppLanguage::english, Text::fileTruncated)}));
    store.recordHistory({QUuid::createUuid(), QDateTime::currentDateTime(),
                         fixture_.folder.filePath(QStringLiteral("b.jpg")), std::nullopt, 900, 400,
                         CompressionHistoryStatus::compressed, std::nullopt, std::nullopt});
    EXPECT_EQ(state().size(), 2) << "a file compressed since: the problem is over";
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
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^VELT \\| Compressor\nСжатие: \\d+ %$"))
                    .match(shell_.toolTips.last())
                    .hasMatch())
        << shell_.toolTips.last().toStdString();

    QElapsedTimer clock;
    clock.start();
    delegate.showMenuBarNotice(CompressionNotificationEvent::processingFailed(
        QStringLiteral("/p/a.jpg"), {Text::fileDamaged, {}}));
    EXPECT_EQ(delegate.statusTitle(), QStringLiteral(" ! Ошибка"));
    processEventsUntil([&] { return clock.elapsed() >= 3000; }, 4);
    EXPECT_EQ(delegate.statusTitle(), QStringLiteral(" ! Ошибка")) << "progress ticks kept it";
    ASSERT_TRUE(processEventsUntil(showsProgress, 3)) << delegate.statusTitle().toStdString();
    EXPECT_GE(clock.elapsed(), 3900);
}

// The tray's menu follows the store in its language; a click on an entry runs its command
// after the menu has closed, and the menu is retitled in place, never rebuilt under the click.
TEST(TrayMenu, FollowsTheStoreAndRunsTheChosenEntry) {
    StoreFixture fixture;
    ScriptedPresenter presenter;
    AppStore store(&presenter);
    const auto labels = [&] {
        QStringList shown;
        for (const ui::TrayMenuEntry& entry : ui::trayMenuEntries(store))
            shown << (entry.enabled ? entry.label : u'[' + entry.label + u']');
        return shown.join(u'|');
    };
    EXPECT_EQ(labels(), QStringLiteral("Показать панель|[Возобновить сжатие]|[Открыть папку "
                                       "сжатия]|История сжатий|Настройки||Выйти из VELT | "
                                       "Compressor"));
    store.useWatchDirectory(fixture.folder.path());
    store.setLanguage(AppLanguage::english);
    EXPECT_EQ(labels(), QStringLiteral("Show panel|Pause compression|Open compression folder|"
                                       "Compression history|Settings||Quit VELT | Compressor"));

    std::vector<ui::TrayCommand> commands;
    ui::TrayMenu menu([&](ui::TrayCommand command) {
        commands.push_back(command);
        store.stop();
        menu.setEntries(ui::trayMenuEntries(store));
    });
    menu.setEntries(ui::trayMenuEntries(store));
    const QList<QAction*> actions = menu.actions();
    menu.popup(QPoint(100, 100));
    ASSERT_TRUE(processEventsUntil([&] { return menu.isVisible(); }));
    // Chosen with the keyboard: Qt 6.8 closes a popup on the test library's synthetic press
    // before the menu sees it, while a real pointer grab delivers it.
    QTest::keyClick(&menu, Qt::Key_Down);
    QTest::keyClick(&menu, Qt::Key_Down);
    QTest::keyClick(&menu, Qt::Key_Return);
    ASSERT_TRUE(processEventsUntil([&] { return !commands.empty(); }));
    EXPECT_EQ(commands, std::vector{ui::TrayCommand::toggleCompression});
    EXPECT_FALSE(store.isRunning());
    EXPECT_EQ(menu.actions(), actions);
    EXPECT_EQ(actions[1]->text(), QStringLiteral("Resume compression"));
}

// WCAG's contrast ratio of two colours, 1 (same) to 21 (black on white).
double contrast(const QColor& a, const QColor& b) {
    const auto luminance = [](const QColor& c) {
        const auto linear = [](double v) {
            return v <= 0.03928 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
        };
        return 0.2126 * linear(c.redF()) + 0.7152 * linear(c.greenF()) + 0.0722 * linear(c.blueF());
    };
    const double la = luminance(a), lb = luminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

// Every badge — progress, a problem, done — is drawn into the lower right of the icon in a fill
// that stands out from the blue icon and carries its white text readably, at tray sizes small
// and large; the rest of the icon stays as it was.
TEST(TrayBadge, EveryBadgeStandsOutFromTheIconAtEverySize) {
    using ui::TrayStatusItem;
    EXPECT_EQ(TrayStatusItem::badgeText(QStringLiteral(" 42%")), QStringLiteral("42"));
    EXPECT_EQ(TrayStatusItem::badgeText(QStringLiteral(" ! Ошибка")), QStringLiteral("!"));
    EXPECT_EQ(TrayStatusItem::badgeText(QString()), QString());
    const QIcon base = TrayStatusItem::statusBarIcon();
    ASSERT_FALSE(base.isNull());
    const std::pair<const char*, const char*> badges[] = {
        {" 73%", "progress"}, {" ! Error", "problem"}, {" ✓ Optimal", "done"}};
    for (const auto& [title, name] : badges) {
        for (const int size : {22, 48}) {
            const QImage plain = TrayStatusItem::composedIcon(base, QString(), size).toImage();
            const QImage badged =
                TrayStatusItem::composedIcon(base, QString::fromUtf8(title), size).toImage();
            // The badge's fill: the commonest colour among the pixels it changed.
            std::map<QRgb, int> changed;
            for (int y = 0; y < size; ++y)
                for (int x = 0; x < size; ++x)
                    if (badged.pixel(x, y) != plain.pixel(x, y)) ++changed[badged.pixel(x, y)];
            ASSERT_FALSE(changed.empty()) << title;
            const QColor fill = QColor::fromRgb(
                std::max_element(changed.begin(), changed.end(), [](auto& a, auto& b) {
                    return a.second < b.second;
                })->first);
            const QColor icon = plain.pixelColor(size / 4, size / 4);
            // Set apart by lightness, or at least by a far hue (the white rim does the rest).
            const double distance = std::hypot(fill.red() - icon.red(), fill.green() - icon.green(),
                                               fill.blue() - icon.blue());
            EXPECT_TRUE(contrast(fill, icon) >= 2.5 || distance >= 150) << title << " " << size;
            EXPECT_GE(contrast(fill, Qt::white), 4.5) << title << " " << size;
            EXPECT_EQ(badged.pixelColor(size / 4, size / 4), icon) << title << " " << size;
            keepScreenshot(badged,
                           QStringLiteral("tray-badge-%1-%2").arg(QLatin1String(name)).arg(size));
        }
    }
}

}  // namespace
}  // namespace velt::testing
