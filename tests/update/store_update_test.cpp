// The store's update flow as the settings window drives it: the alerts of each outcome with the log
// line before an error, and the engine around a failed hand-over.
#include "app/app_store.h"
#include "https_rig.h"
#include "support/store_support.h"
#include "update/package_signature.h"

#include <gtest/gtest.h>
#include <QCoreApplication>
#include <QThread>

namespace velt::testing {
namespace {

class StoreUpdateTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(rig_.ready()); }

    std::unique_ptr<AppStore> makeStore(const QString& manifest) {
        UpdaterEnvironment environment;
        environment.version = QStringLiteral("1.2.0");
        environment.build = QStringLiteral("12");
        environment.systemVersion = QStringLiteral("2.36");
        environment.executablePath = QStringLiteral(VELT_EXECUTABLE);  // not in a bundle
        environment.extraCertificateAuthorities = rig_.authority();
        environment.updateKey = builtInUpdateKey();
        auto store = std::make_unique<AppStore>(
            &presenter_, AppStore::Services{},
            std::make_unique<AppUpdater>(rig_.url(manifest), environment));
        store->onTerminateForUpdate = [this] { terminated_ = true; };
        return store;
    }

    // Runs the check and waits (at most 30 s) until the flow rests.
    void checkUpdates(AppStore& store) {
        store.checkUpdates(&window_);
        for (int i = 0; i < 3000 && store.isUpdateBusy(); ++i) {
            QCoreApplication::processEvents();
            QThread::msleep(10);
        }
        QCoreApplication::processEvents();
    }

    QString log() const {
        return QString::fromUtf8(readFile(fixture_.data.file(QStringLiteral("native.log"))));
    }

    HttpsRig rig_;
    StoreFixture fixture_;
    ScopedEnvironment tmpdir_{"TMPDIR", fixture_.folder.path().toUtf8()};
    ScriptedPresenter presenter_;
    QObject window_;
    bool terminated_ = false;
};

TEST_F(StoreUpdateTest, EachOutcomeEndsInItsAlert) {
    rig_.offer(QStringLiteral("newer.json"), QStringLiteral("1.3.0"), "package");
    rig_.offer(QStringLiteral("older.json"), QStringLiteral("1.0"), "package");
    const struct {
        const char* manifest;
        AppLanguage language;
        const char* message;
        const char* informativeText;
        const char* buttons;
        const char* logged;  // nothing: no error line
    } cases[] = {
        {"newer.json", AppLanguage::english, "Update 1.3.0 is available",
         "The update will download and install automatically. The app will restart.",
         "Update now|Later", nullptr},
        {"older.json", AppLanguage::russian, "Обновлений нет",
         "Установлена последняя версия VELT | Compressor (1.2.0).", "Понятно", nullptr},
        {"status/503", AppLanguage::english, "Could not update the app",
         "The update server is temporarily unavailable. Try again later.", "OK",
         "Update error: The update server returned HTTP 503.\n"},
    };
    for (const auto& c : cases) {
        auto store = makeStore(QString::fromUtf8(c.manifest));
        store->setLanguage(c.language);
        presenter_.dialogs.clear();
        const int requests = rig_.requests().size();
        checkUpdates(*store);
        ASSERT_EQ(presenter_.dialogs.size(), 1u) << c.manifest;
        const auto& dialog = presenter_.dialogs.front();
        EXPECT_EQ(dialog.message, QString::fromUtf8(c.message));
        EXPECT_EQ(dialog.informativeText, QString::fromUtf8(c.informativeText));
        EXPECT_EQ(dialog.buttons, QString::fromUtf8(c.buttons));
        EXPECT_EQ(dialog.window, &window_);
        if (c.logged) {
            EXPECT_TRUE(log().contains(QString::fromUtf8(c.logged))) << c.manifest;
        }
        // "Later" downloads nothing.
        EXPECT_EQ(rig_.requests().size(), requests + 1) << c.manifest;
    }
    EXPECT_FALSE(log().contains(QStringLiteral("Update error: The update will")));
    EXPECT_FALSE(terminated_);
}

TEST_F(StoreUpdateTest, AFailedHandOverRestartsTheEngineAndKeepsThePackage) {
    rig_.offer(QStringLiteral("newer.json"), QStringLiteral("1.3.0"), "package");
    auto store = makeStore(QStringLiteral("newer.json"));
    store->setLanguage(AppLanguage::english);
    QTemporaryDir watched;
    store->useWatchDirectory(watched.path());
    ASSERT_TRUE(store->isRunning());
    presenter_.confirmAnswers = {true};
    checkUpdates(*store);

    // The program runs from the build tree, which is no bundle: the hand-over is refused.
    ASSERT_EQ(presenter_.dialogs.size(), 2u);
    EXPECT_EQ(presenter_.dialogs.back().message, QStringLiteral("Could not update the app"));
    EXPECT_EQ(presenter_.dialogs.back().informativeText,
              QStringLiteral("The app could not be replaced. It was left unchanged."));
    EXPECT_TRUE(log().contains(
        QStringLiteral("Update error: The running application bundle could not be located.\n")));
    EXPECT_TRUE(store->isRunning());
    EXPECT_TRUE(store->config().enabled);
    EXPECT_FALSE(terminated_);

    // The verified package waits: the next check offers it without asking the server.
    const int requests = rig_.requests().size();
    checkUpdates(*store);
    EXPECT_EQ(rig_.requests().size(), requests);
    EXPECT_EQ(presenter_.dialogs.back().message, QStringLiteral("Update 1.3.0 is available"));
}

}  // namespace
}  // namespace velt::testing
