// The whole self-update with the real program, helper and a local HTTPS server: bundle A runs
// from an install folder, checks, downloads and verifies B, hands over and ends; afterwards B
// runs from the same folder and A is gone. A broken package leaves A installed and running; a
// package without a good signature never reaches the helper.
#include "bundle_fixture.h"
#include "https_rig.h"
#include "model/config_file.h"
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
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

    // Runs the installed program's --update against the manifest "latest.json" to its end.
    int runUpdate() {
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
    rig_.offer(QStringLiteral("latest.json"), QStringLiteral("99.0"), packBundle(releaseB_.path()));
    EXPECT_EQ(runUpdate(), 0) << output_.toStdString();
    // The helper's last line comes after the old bundle it kept is removed.
    expectRelaunchedWith(
        awaitHelper(QStringLiteral("(?s)Relaunched pid (\\d+).*Update to 99\\.0 installed")),
        QStringLiteral("B"));
    EXPECT_FALSE(QFileInfo::exists(installed_ + QStringLiteral("/RELEASE-A")));
}

TEST_F(EndToEndUpdateTest, ABrokenPackageLeavesATheRunningRelease) {
    // Verified against the manifest, yet no archive: the helper must refuse it.
    rig_.offer(QStringLiteral("latest.json"), QStringLiteral("99.0"),
               QByteArray("this is not a bundle").repeated(100));
    EXPECT_EQ(runUpdate(), 0) << output_.toStdString();
    expectRelaunchedWith(awaitHelper(QStringLiteral("Relaunched the previous version pid (\\d+)")),
                         QStringLiteral("A"));
    EXPECT_TRUE(log(QStringLiteral("updater.log")).contains(QStringLiteral("Package refused: ")));
}

TEST_F(EndToEndUpdateTest, PackagesWithoutAGoodSignatureAreRefusedAndNothingIsKept) {
    makeBundle(releaseB_.path(), QStringLiteral("B"));
    const QByteArray package = packBundle(releaseB_.path());
    const QString served = QStringLiteral("latest.tar.gz");
    const QJsonObject good = rig_.release(served, QStringLiteral("99.0"), package);
    const QString signature = QStringLiteral("signature");
    const auto signatureOf = [&](const QByteArray& bytes,
                                 const QString& key = QStringLiteral(VELT_UPDATE_TEST_KEY)) {
        return rig_.release(QStringLiteral("o"), QStringLiteral("9"), bytes, key).value(signature);
    };
    const char* mismatch = "The update signature does not match the package.";
    QByteArray changed = package;
    changed[changed.size() / 2] = static_cast<char>(changed[changed.size() / 2] ^ 1);
    // The manifest's checksum always fits the served package: the server's owner can make it so.
    const struct {
        const char* what;
        QJsonValue signature;  // undefined: none
        QByteArray package;
        const char* logged;
    } cases[] = {
        {"no signature", QJsonValue::Undefined, package, "The update has no signature."},
        {"of other bytes", signatureOf(package + "x"), package, mismatch},
        {"by another key", signatureOf(package, rig_.makeKey(QStringLiteral("k"))), package,
         mismatch},
        {"truncated", good[signature].toString().left(60), package,
         "The update signature is malformed."},
        {"changed after signing", good[signature], changed, mismatch},
    };
    for (const auto& c : cases) {
        QJsonObject entry = good;
        entry.insert(signature, c.signature);  // an undefined value removes it
        entry[QStringLiteral("sha256")] = QString::fromLatin1(sha256Hex(c.package));
        rig_.put(served, c.package);
        rig_.put(QStringLiteral("latest.json"), QJsonDocument(entry).toJson());
        EXPECT_EQ(runUpdate(), 1) << c.what << ": " << output_.toStdString();
        EXPECT_TRUE(log(QStringLiteral("native.log"))
                        .contains(QStringLiteral("Update error: ") + QString::fromUtf8(c.logged)))
            << c.what;
        // The user's alert, in the default language.
        EXPECT_TRUE(output_.contains(QStringLiteral("Подпись файла обновления не подтверждена.")))
            << c.what << ": " << output_.toStdString();
        // Bundle A as it was, no helper started, nothing of the download left behind.
        EXPECT_TRUE(QFileInfo::exists(installed_ + QStringLiteral("/RELEASE-A"))) << c.what;
        EXPECT_FALSE(QFileInfo::exists(data_.filePath(QStringLiteral("updater.log")))) << c.what;
        EXPECT_TRUE(QDir(temp_.path()).isEmpty()) << c.what;
    }
}

}  // namespace
}  // namespace velt::testing
