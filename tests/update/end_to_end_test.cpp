// The whole self-update with the real program, helper and a local HTTPS server: bundle A runs
// from an install folder, checks, downloads and verifies B, hands over and ends; afterwards B
// runs from the same folder and A is gone. A broken package leaves A installed and running.
#include "bundle_fixture.h"
#include "https_rig.h"
#include "model/config_file.h"
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QThread>
#include <csignal>

namespace velt::testing {
namespace {

class EndToEndUpdateTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(rig_.ready());
        installed_ = makeBundle(install_.path(), QStringLiteral("A"));
        // The relaunched program resumes watching, as a user's would.
        ScopedEnvironment config("VELT_CONFIG_DIR", data_.path().toUtf8());
        AppConfig settings;
        settings.enabled = true;
        settings.watchDirectory = watched_.path();
        settings.watchDirectoryBookmark = watched_.path().toUtf8();
        saveAppConfig(settings);
    }

    void TearDown() override {
        if (relaunched_ > 0) ::kill(relaunched_, SIGKILL);
    }

    // Publishes `package` as release 99.0 and runs the installed program's --update to its end.
    int runUpdate(const QByteArray& package) {
        rig_.offer(QStringLiteral("latest.json"), QStringLiteral("99.0"), package);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (const char* folder : {"VELT_CONFIG_DIR", "VELT_LOG_DIR", "XDG_CONFIG_HOME"})
            environment.insert(QString::fromUtf8(folder), data_.path());
        environment.insert(QStringLiteral("TMPDIR"), temp_.path());
        environment.insert(QStringLiteral("SSL_CERT_FILE"), rig_.authorityFile());
        environment.insert(QStringLiteral("VELT_UPDATE_MANIFEST_URL"),
                           rig_.url(QStringLiteral("latest.json")).toString());
        // No session of any kind: the relaunched program (started without arguments) watches
        // headless, whatever desktop the test machine has.
        for (const char* name :
             {"DBUS_SESSION_BUS_ADDRESS", "DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
            environment.remove(QString::fromUtf8(name));
        QProcess program;
        program.setProcessEnvironment(environment);
        program.start(installed_ + QStringLiteral("/bin/velt-compressor"),
                      {QStringLiteral("--update")});
        EXPECT_TRUE(program.waitForFinished(120000));
        output_ = QString::fromUtf8(program.readAllStandardError());
        return program.exitCode();
    }

    // Waits (at most 60 s) for `pattern` in the helper's log; the process id it captures.
    pid_t awaitHelper(const QString& pattern) {
        const QRegularExpression expression(pattern);
        for (int i = 0; i < 600; ++i) {
            const auto match = expression.match(log(QStringLiteral("updater.log")));
            if (match.hasMatch()) return relaunched_ = match.captured(1).toInt();
            QThread::msleep(100);
        }
        return -1;
    }

    // The program `pid` runs from the install folder, holding `release` and nothing beside it,
    // and watches the folder again within 30 s.
    void expectRelaunchedWith(pid_t pid, const QString& release) {
        ASSERT_GT(pid, 0) << log(QStringLiteral("updater.log")).toStdString();
        EXPECT_TRUE(QFileInfo::exists(installed_ + QStringLiteral("/RELEASE-") + release));
        EXPECT_EQ(
            QDir(install_.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
            QStringList{QStringLiteral("velt-compressor")});
        EXPECT_EQ(QFileInfo(QStringLiteral("/proc/%1/exe").arg(pid)).symLinkTarget(),
                  installed_ + QStringLiteral("/bin/velt-compressor"));
        bool watching = false;
        for (int i = 0; i < 300 && !watching; ++i) {
            QThread::msleep(100);
            watching = log(QStringLiteral("native.log")).contains(QStringLiteral("Start watcher "));
        }
        EXPECT_TRUE(watching) << log(QStringLiteral("native.log")).toStdString();
    }

    QString log(const QString& name) const {
        return QString::fromUtf8(readFile(data_.filePath(name)));
    }

    HttpsRig rig_;
    QTemporaryDir install_, data_, watched_, temp_, releaseB_;
    QString installed_;
    QString output_;
    pid_t relaunched_ = -1;
};

TEST_F(EndToEndUpdateTest, ReleaseBReplacesTheRunningBundleA) {
    makeBundle(releaseB_.path(), QStringLiteral("B"));
    EXPECT_EQ(runUpdate(packBundle(releaseB_.path())), 0) << output_.toStdString();
    // The helper's last line comes after the old bundle it kept is removed.
    expectRelaunchedWith(
        awaitHelper(QStringLiteral("(?s)Relaunched pid (\\d+).*Update to 99\\.0 installed")),
        QStringLiteral("B"));
    EXPECT_FALSE(QFileInfo::exists(installed_ + QStringLiteral("/RELEASE-A")));
}

TEST_F(EndToEndUpdateTest, ABrokenPackageLeavesATheRunningRelease) {
    // Verified against the manifest, yet no archive: the helper must refuse it.
    EXPECT_EQ(runUpdate(QByteArray("this is not a bundle").repeated(100)), 0)
        << output_.toStdString();
    expectRelaunchedWith(awaitHelper(QStringLiteral("Relaunched the previous version pid (\\d+)")),
                         QStringLiteral("A"));
    EXPECT_TRUE(log(QStringLiteral("updater.log")).contains(QStringLiteral("Package refused: ")));
}

}  // namespace
}  // namespace velt::testing
