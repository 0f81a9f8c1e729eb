#include "app/app_store.h"

#include "engine/watcher/engine_test_rig.h"
#include "model/config_file.h"
#include "support/store_support.h"

#include <gtest/gtest.h>
#include <QTimeZone>
#include <map>

namespace velt::testing {
namespace {

// A store over a StoreFixture with an engine on short intervals whose processor records each
// file's settings.
class StoreTest : public ::testing::Test {
  protected:
    std::unique_ptr<AppStore> makeStore() {
        AppStore::Services services{std::make_unique<FolderCompressor>(), nullptr};
        services.compressor->setTimingForTesting(fastTiming());
        services.compressor->setProcessorForTesting(
            [this](EngineContext& context, const QString& file) {
                const std::lock_guard lock(mutex_);
                seen_[file] = context.config;
                return EngineRig::settle(context, file);
            });
        return std::make_unique<AppStore>(nullptr, std::move(services));
    }

    // Drops a file into `folder`; the settings the engine processed it with.
    std::optional<AppConfig> process(const QString& folder, const char* name) {
        const QString file = QDir(folder).filePath(QString::fromUtf8(name));
        writeFile(file, "image bytes");
        std::optional<AppConfig> config;
        eventually([&] {
            const std::lock_guard lock(mutex_);
            if (seen_.count(file)) config = seen_[file];
            return config.has_value();
        });
        return config;
    }

    StoreFixture fixture_;
    std::mutex mutex_;
    std::map<QString, AppConfig> seen_;
};

TEST_F(StoreTest, OnlyEngineSettingsRestartTheEngineAndStopIsRemembered) {
    auto store = makeStore();
    store->useWatchDirectory(fixture_.folder.path());
    const AppConfig started = store->config();

    // The language is not the engine's business: saved, engine left alone.
    store->setLanguage(AppLanguage::english);
    EXPECT_EQ(loadAppConfig().language, AppLanguage::english);
    EXPECT_EQ(process(fixture_.folder.path(), "second.jpg"), started) << "the engine was restarted";

    // The preset is: the engine works with the new settings at once.
    AppConfig maximum = store->config();
    maximum.preset = CompressionPreset::maximum;
    store->setConfig(maximum);
    EXPECT_EQ(process(fixture_.folder.path(), "third.jpg"), maximum);

    // A folder picked while running moves the engine there by a restart, not a second start.
    QTemporaryDir other;
    store->useWatchDirectory(other.path());
    EXPECT_EQ(process(other.path(), "moved.png"), store->config());
    EXPECT_EQ(store->config().watchDirectoryBookmark, other.path().toUtf8());
    EXPECT_EQ(loadAppConfig(), store->config());
    const QString log =
        QString::fromUtf8(readFile(fixture_.data.file(QStringLiteral("native.log"))));
    EXPECT_EQ(log.count(QStringLiteral("Start watcher ")), 1) << log.toStdString();

    // The user's stop is remembered by the next launch.
    store->stop();
    EXPECT_FALSE(store->isRunning());
    store.reset();

    // Launching again (the autostart entry, or --headless without --watch) keeps it stopped.
    auto relaunched = makeStore();
    EXPECT_EQ(relaunched->startOnLaunch(), AppStore::LaunchStart::switchedOff);
    EXPECT_FALSE(relaunched->isRunning());
    EXPECT_FALSE(loadAppConfig().enabled);
}

TEST_F(StoreTest, ABookmarkThatNamesNoPathFallsBackToTheStoredFolder) {
    const QByteArray nul("\0\0/x", 4);
    for (const QByteArray& bookmark : {QByteArray("relative/photos"), QByteArray("\xff\xfe/photos"),
                                       nul, QByteArray("/photos/\nnext"), QByteArray()}) {
        AppConfig config;
        config.watchDirectory = fixture_.folder.path();
        config.watchDirectoryBookmark = bookmark;
        ASSERT_TRUE(saveAppConfig(config));
        auto store = makeStore();
        EXPECT_EQ(store->resolvedWatchDirectory(), fixture_.folder.path())
            << bookmark.toHex().data();
        EXPECT_EQ(store->startOnLaunch(), AppStore::LaunchStart::started);
        store.reset();
    }
    const QByteArray log = readFile(fixture_.data.file(QStringLiteral("native.log")));
    EXPECT_FALSE(log.contains('\0'));
    EXPECT_EQ(QString::fromUtf8(log).count(QStringLiteral("Start watcher ") +
                                           fixture_.folder.path() + QLatin1Char('\n')),
              5);
}

// With no folder in use, the folder chooser opens on Pictures, never where the program was started
// from (the folder in use: the settings window's test).
TEST(FolderChooser, StartsInPicturesWithoutAFolder) {
    StoreFixture fixture;
    QTemporaryDir pictures;
    QDir().mkpath(fixture.data.file(QStringLiteral("xdg")));
    writeFile(fixture.data.file(QStringLiteral("xdg/user-dirs.dirs")),
              "XDG_PICTURES_DIR=\"" + pictures.path().toUtf8() + "\"\n");
    ScriptedPresenter presenter;
    AppStore store(&presenter);
    store.selectWatchDirectory(nullptr);
    EXPECT_EQ(presenter.chooserStartFolders, QStringList{pictures.path()});
}

TEST(ProtectedFolders, PathsInsideAUserFolderAreProtected) {
    const QStringList folders = {QStringLiteral("/home/ann/Pictures"),
                                 QStringLiteral("/home/ann/Downloads")};
    for (const char* path : {"/home/ann/Pictures", "/home/ann/Pictures/",
                             "/home/ann/Pictures/Camera/2024", "/home/ann/Downloads/./inbox"})
        EXPECT_TRUE(isInsideProtectedFolder(QString::fromUtf8(path), folders)) << path;
    // A sibling sharing the prefix, the parent, a path leaving the folder again, elsewhere.
    for (const char* path :
         {"/home/ann/Pictures2", "/home/ann", "/home/ann/Pictures/../Inbox", "/srv/photos"})
        EXPECT_FALSE(isInsideProtectedFolder(QString::fromUtf8(path), folders)) << path;
}

TEST_F(StoreTest, HistoryIsCappedSavedAndCleared) {
    // A full saved history, newest first; the store records one more.
    CompressionHistory full(historyLimit);
    for (int i = 0; i < static_cast<int>(full.size()); ++i) {
        full[i].id = QUuid::createUuid();
        full[i].date = QDateTime::fromSecsSinceEpoch(1'700'000'000 - i, QTimeZone::utc());
        full[i].sourceURL = QStringLiteral("/photos/%1.jpg").arg(i);
    }
    ASSERT_TRUE(saveHistory(full));
    auto store = makeStore();
    ASSERT_EQ(store->history(), full);
    CompressionHistoryEntry entry = full.front();
    entry.id = QUuid::createUuid();
    store->recordHistory(entry);
    full.insert(full.begin(), entry);
    full.pop_back();
    EXPECT_EQ(store->history(), full);
    EXPECT_EQ(loadHistory(), full);

    store->clearHistory();
    EXPECT_TRUE(store->history().empty());
    EXPECT_TRUE(loadHistory().empty());
    EXPECT_TRUE(QFileInfo::exists(fixture_.data.file(historyFileName)));
}

}  // namespace
}  // namespace velt::testing
