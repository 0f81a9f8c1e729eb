#include "app/app_store.h"

#include "app_test_support.h"
#include "engine/watcher/engine_test_rig.h"
#include "model/config_file.h"
#include "model/native_log.h"
#include "platform/login_item.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QStandardPaths>

namespace velt {
namespace {

using namespace velt::testing;

struct ProcessorCall {
    QString file;
    AppConfig config;
};

// A store over real temporary folders: its own data folder, XDG config home and watched
// folders, an engine with short intervals whose processor records what it was given, and
// notifications recorded instead of shown.
class StoreTest : public ::testing::Test {
  protected:
    StoreTest() : xdgConfig_("XDG_CONFIG_HOME", xdgHome_.path().toUtf8()) {}

    std::unique_ptr<AppStore> makeStore(bool failingProcessor = false) {
        auto engine = std::make_unique<FolderCompressor>();
        engine->setTimingForTesting(fastTiming());
        engine->setProcessorForTesting(
            [this, failingProcessor](EngineContext& context, const QString& file) {
                {
                    const std::lock_guard lock(mutex_);
                    calls_.push_back({file, context.config});
                }
                if (failingProcessor) throw std::runtime_error("decoder refused the file");
                return EngineRig::settle(context, file);
            });
        AppStore::Services services;
        services.compressor = std::move(engine);
        services.notificationManager =
            std::make_unique<NotificationManager>(std::make_unique<RecordingBackend>(delivered_));
        auto store = std::make_unique<AppStore>(&presenter_, std::move(services));
        store->onChange = [this] { ++changes_; };
        store->onNotice = [this](const CompressionNotificationEvent& event) {
            notices_.push_back(event);
        };
        return store;
    }

    std::vector<ProcessorCall> calls() {
        const std::lock_guard lock(mutex_);
        return calls_;
    }
    bool processed(const QString& file) {
        for (const auto& call : calls())
            if (call.file == file) return true;
        return false;
    }
    AppConfig callFor(const QString& file) {
        for (const auto& call : calls())
            if (call.file == file) return call.config;
        return {};
    }
    QString drop(const QTemporaryDir& folder, const QString& name) {
        const QString path = QDir(folder.path()).filePath(name);
        writeFile(path, "image bytes");
        return path;
    }
    int logCount(const QString& line) {
        return QString::fromUtf8(readFile(data_.file(QStringLiteral("native.log")))).count(line);
    }

    IsolatedDataFolder data_;
    QTemporaryDir xdgHome_;
    ScopedEnvironment xdgConfig_;
    QTemporaryDir folder_;
    RecordingPresenter presenter_;
    std::shared_ptr<DeliveredNotifications> delivered_ = std::make_shared<DeliveredNotifications>();
    int changes_ = 0;
    std::vector<CompressionNotificationEvent> notices_;
    std::mutex mutex_;
    std::vector<ProcessorCall> calls_;
};

TEST_F(StoreTest, ConfigChangeRestartsTheEngineOnlyForEngineSettings) {
    auto store = makeStore();
    store->useWatchDirectory(folder_.path());
    ASSERT_TRUE(store->isRunning());
    const QString first = drop(folder_, QStringLiteral("first.jpg"));
    ASSERT_TRUE(eventuallyOnMainThread([&] { return processed(first); }));

    // The language is not the engine's business: saved, views told, engine left alone.
    const int changesBefore = changes_;
    store->setLanguage(AppLanguage::english);
    EXPECT_EQ(loadAppConfig().language, AppLanguage::english);
    EXPECT_GT(changes_, changesBefore);
    const QString second = drop(folder_, QStringLiteral("second.jpg"));
    ASSERT_TRUE(eventuallyOnMainThread([&] { return processed(second); }));
    EXPECT_EQ(callFor(second).language, AppLanguage::russian) << "the engine was restarted";

    // The preset is: the engine works with the new settings at once.
    AppConfig maximum = store->config();
    maximum.preset = CompressionPreset::maximum;
    store->setConfig(maximum);
    EXPECT_EQ(loadAppConfig().preset, CompressionPreset::maximum);
    const QString third = drop(folder_, QStringLiteral("third.jpg"));
    ASSERT_TRUE(eventuallyOnMainThread([&] { return processed(third); }));
    EXPECT_EQ(callFor(third).preset, CompressionPreset::maximum);
    EXPECT_EQ(callFor(third).language, AppLanguage::english);
    EXPECT_EQ(logCount(QStringLiteral("Start watcher ")), 1);
}

TEST_F(StoreTest, PickingAFolderWhileRunningMovesTheEngineWithoutASecondStart) {
    auto store = makeStore();
    store->useWatchDirectory(folder_.path());
    QTemporaryDir other;
    store->useWatchDirectory(other.path());
    const QString file = drop(other, QStringLiteral("moved.png"));
    ASSERT_TRUE(eventuallyOnMainThread([&] { return processed(file); }));
    EXPECT_EQ(logCount(QStringLiteral("Start watcher ")), 1);
    const AppConfig saved = loadAppConfig();
    EXPECT_EQ(saved.watchDirectory, other.path());
    EXPECT_EQ(saved.watchDirectoryBookmark, other.path().toUtf8());
}

TEST_F(StoreTest, StopIsRememberedAcrossLaunchesAndStartReportsAMissingFolder) {
    {
        auto store = makeStore();
        store->start();
        EXPECT_FALSE(store->isRunning());
        EXPECT_EQ(store->watcherError(), QStringLiteral("Выберите папку для сжатия"));
        store->useWatchDirectory(folder_.path());
        store->stop();
        EXPECT_FALSE(store->isRunning());
    }
    auto relaunched = makeStore();
    EXPECT_FALSE(relaunched->config().enabled);
    EXPECT_FALSE(relaunched->isRunning());
}

TEST_F(StoreTest, FailuresBecomeNoticesAndOneNotification) {
    auto store = makeStore(/*failingProcessor=*/true);
    store->setLanguage(AppLanguage::english);
    store->useWatchDirectory(folder_.path());
    const QString file = drop(folder_, QStringLiteral("broken.jpg"));
    ASSERT_TRUE(eventuallyOnMainThread([&] { return !notices_.empty(); }));
    EXPECT_EQ(notices_.front(), CompressionNotificationEvent::processingFailed(
                                    file, QStringLiteral("decoder refused the file")));
    ASSERT_TRUE(eventuallyOnMainThread([&] { return !delivered_->snapshot().empty(); }));
    EXPECT_EQ(delivered_->snapshot().front().title, QStringLiteral("Could not compress file"));
    ASSERT_TRUE(eventuallyOnMainThread([&] { return !store->history().empty(); }));
    EXPECT_EQ(store->history().front().status, CompressionHistoryStatus::failed);
}

TEST_F(StoreTest, AMissingFolderFailsTheStartWithANoticeAndACount) {
    QTemporaryDir parent;
    const QString gone = QDir(parent.path()).filePath(QStringLiteral("gone"));
    auto store = makeStore();
    AppConfig config = store->config();
    config.watchDirectory = gone;
    config.language = AppLanguage::english;
    store->setConfig(config);
    store->start();
    EXPECT_FALSE(store->isRunning());
    ASSERT_TRUE(store->watcherError());
    EXPECT_TRUE(store->watcherError()->contains(QStringLiteral("doesn’t exist")));
    EXPECT_EQ(store->stats().errors, 1);
    ASSERT_EQ(notices_.size(), 1u);
    EXPECT_EQ(notices_.front().kind(), CompressionNotificationEvent::Kind::watcherFailed);
}

TEST_F(StoreTest, ReportsArrivingAfterTheStoreIsGoneAreDropped) {
    auto store = makeStore();
    CompressionHistoryEntry entry;
    entry.id = QUuid::createUuid();
    entry.date = QDateTime::currentDateTimeUtc();
    entry.sourceURL = QStringLiteral("/photos/late.jpg");
    // As the engine's queue would: the report is posted, the store goes before it is handled.
    store->compressor().callbacks.onHistory(entry);
    store->compressor().callbacks.onStats(CompressionStats{});
    store.reset();
    const int changesAfterDestruction = changes_;
    QCoreApplication::processEvents();
    EXPECT_EQ(changes_, changesAfterDestruction);
    EXPECT_FALSE(QFileInfo::exists(data_.file(historyFileName)));
}

TEST(ProtectedFolders, PathsInsideAUserFolderAreProtected) {
    const QStringList folders = {QStringLiteral("/home/ann/Pictures"),
                                 QStringLiteral("/home/ann/Downloads")};
    const struct {
        const char* path;
        bool expected;
    } cases[] = {
        {"/home/ann/Pictures", true},
        {"/home/ann/Pictures/", true},
        {"/home/ann/Pictures/Camera/2024", true},
        {"/home/ann/Downloads/./inbox", true},
        {"/home/ann/Pictures2", false},          // a sibling sharing the prefix
        {"/home/ann", false},                    // the parent
        {"/home/ann/Pictures/../Inbox", false},  // leaves the folder again
        {"/srv/photos", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(isInsideProtectedFolder(QString::fromUtf8(c.path), folders), c.expected)
            << c.path;
}

TEST(ProtectedFolders, AreTheXdgUserFoldersInOrder) {
    const QStringList folders = protectedUserFolders();
    ASSERT_EQ(folders.size(), 6);
    EXPECT_EQ(folders.at(0),
              QDir::cleanPath(QStandardPaths::writableLocation(QStandardPaths::DesktopLocation)));
    EXPECT_EQ(folders.at(5),
              QDir::cleanPath(QStandardPaths::writableLocation(QStandardPaths::PicturesLocation)));
}

TEST_F(StoreTest, AFolderInPicturesNeedsAFreshSelectionUnlessItWasPicked) {
    const QString pictures = QStandardPaths::writableLocation(QStandardPaths::PicturesLocation);
    const QString inside = pictures + QStringLiteral("/velt-store-test-never-created");
    auto store = makeStore();
    AppConfig config = store->config();
    config.language = AppLanguage::english;
    config.watchDirectory = inside;
    store->setConfig(config);
    store->start();
    EXPECT_FALSE(store->isRunning());
    EXPECT_EQ(store->watcherError(), QStringLiteral("Choose the folder again to grant access"));
    EXPECT_EQ(logCount(QStringLiteral("Start skipped: folder needs system selection ") + inside),
              1);

    // Picked in the folder dialog (a bookmark exists): the start goes ahead, and fails only
    // because the folder is not there.
    config.watchDirectoryBookmark = inside.toUtf8();
    store->setConfig(config);
    store->start();
    EXPECT_NE(store->watcherError(), QStringLiteral("Choose the folder again to grant access"));
    EXPECT_EQ(logCount(QStringLiteral("Start watcher ") + inside), 1);
}

TEST_F(StoreTest, HistoryIsCappedSavedAndCleared) {
    auto store = makeStore();
    CompressionHistoryEntry entry;
    entry.date = QDateTime::currentDateTimeUtc().addSecs(-1000);
    entry.status = CompressionHistoryStatus::compressed;
    for (int i = 0; i < 501; ++i) {
        entry.id = QUuid::createUuid();
        entry.sourceURL = QStringLiteral("/photos/%1.jpg").arg(i);
        store->recordHistory(entry);
    }
    EXPECT_EQ(changes_, 501);
    ASSERT_EQ(store->history().size(), historyLimit);
    EXPECT_EQ(store->history().front().sourceURL, QStringLiteral("/photos/500.jpg"));
    EXPECT_EQ(store->history().back().sourceURL, QStringLiteral("/photos/1.jpg"));
    const auto ids = [](const CompressionHistory& history) {
        std::vector<QUuid> result;
        for (const auto& e : history) result.push_back(e.id);
        return result;
    };
    EXPECT_TRUE(ids(loadHistory()) == ids(store->history())) << "the saved file differs";

    store->clearHistory();
    EXPECT_TRUE(store->history().empty());
    EXPECT_TRUE(loadHistory().empty());
    EXPECT_TRUE(QFileInfo::exists(data_.file(historyFileName)));
    EXPECT_EQ(changes_, 502);
}

TEST_F(StoreTest, AutostartWritesAndRemovesTheDesktopEntry) {
    auto store = makeStore();
    const QString entry = xdgHome_.filePath(QStringLiteral("autostart/velt-compressor.desktop"));
    EXPECT_EQ(loginItemFilePath(), entry);
    store->setAutostart(true);
    ASSERT_TRUE(QFileInfo::exists(entry));
    const QString text = QString::fromUtf8(readFile(entry));
    EXPECT_TRUE(text.startsWith(QStringLiteral("[Desktop Entry]\n")));
    EXPECT_TRUE(text.contains(QStringLiteral("Exec=\"") + QCoreApplication::applicationFilePath()));
    EXPECT_TRUE(loadAppConfig().autostart);
    EXPECT_TRUE(loadAppConfig().autostartAsked);

    store->setAutostart(false);
    EXPECT_FALSE(QFileInfo::exists(entry));
    EXPECT_EQ(store->stats().errors, 0);
}

TEST_F(StoreTest, AnAutostartThatCannotBeWrittenIsOnlyCounted) {
    // A file where the autostart folder must be: no user, not even root, can create it.
    writeFile(xdgHome_.filePath(QStringLiteral("autostart")), "in the way");
    auto store = makeStore();
    store->setAutostart(true);
    EXPECT_EQ(store->stats().errors, 1);
    EXPECT_TRUE(store->config().autostart);
    EXPECT_TRUE(loadAppConfig().autostart);
}

TEST_F(StoreTest, BackupsAreClearedOnlyAfterConfirmation) {
    auto store = makeStore();
    store->setLanguage(AppLanguage::english);
    store->clearBackups();
    EXPECT_EQ(presenter_.alerts, QStringList{QStringLiteral("No compression folder selected")});

    store->useWatchDirectory(folder_.path());
    store->clearBackups();
    EXPECT_EQ(presenter_.alerts.last(), QStringLiteral("There are no backups"));

    const QString backups =
        QDir(folder_.path()).filePath(QStringLiteral(".velt-compressor-backups"));
    ASSERT_TRUE(QDir().mkpath(backups + QStringLiteral("/2026-01-01")));
    writeFile(backups + QStringLiteral("/2026-01-01/a.jpg"), "original");
    store->clearBackups();
    EXPECT_EQ(presenter_.confirmations, QStringList{QStringLiteral("Clear all backups?")});
    EXPECT_TRUE(QFileInfo::exists(backups));
    store->openBackupDirectory();
    EXPECT_EQ(presenter_.openedFolders, QStringList{backups});

    presenter_.confirmAnswer = true;
    store->clearBackups();
    EXPECT_FALSE(QFileInfo::exists(backups));
    EXPECT_TRUE(QFileInfo::exists(folder_.path()));
}

}  // namespace
}  // namespace velt
