// The update helper refusing what it must refuse: every refusal leaves the installed bundle as
// it was, removes its staging folder and says why in one log line.
#include "bundle_archive.h"
#include "bundle_fixture.h"
#include "https_rig.h"
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QCoreApplication>
#include <QDir>
#include <QProcess>

namespace velt::testing {
namespace {

using Type = PackageEntry::Type;

// The function itself, apart from the other defences of the extraction; the plain escapes (a
// "../../" name, an absolute one, a link far out) are the real helper's cases below.
TEST(UpdateHelperTest, EntryNamesAndLinksMustStayInsideThePackage) {
    const struct {
        const char* name;
        const char* link;
        bool inside;
    } cases[] = {
        {"velt-compressor/bin/velt-compressor", "", true},
        {"./velt-compressor/", "", true},
        {"velt-compressor/lib/a.so", "a.so.1", true},
        {"velt-compressor/lib/a.so", "../bin/x", true},
        {"velt-compressor/lib/a.so", "../../velt-compressor/x", true},
        {"velt-compressor/lib/a.so", "../../../etc/passwd", false},
        {"velt-compressor/lib/a.so", "/etc/passwd", false},
        {"velt-compressor/a/../b", "", false},
        {"../evil", "", false},
        {"", "", false},
        {"link-at-top", "x", true},
        {".", "x", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(updater::entryStaysInside(c.name, c.link), c.inside) << c.name << " " << c.link;
}

class HelperRunTest : public ::testing::Test {
  protected:
    // Runs the helper with `arguments`; its exit code.
    int runHelper(const QStringList& arguments) {
        QProcess helper;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("VELT_LOG_DIR"), logs_.path());
        helper.setProcessEnvironment(environment);
        helper.start(QStringLiteral(VELT_UPDATER), arguments);
        EXPECT_TRUE(helper.waitForFinished(60000));
        return helper.exitCode();
    }

    // Installs `package`, signed with the key this build trusts unless told not to, over the
    // bundle once process `pid` has ended; the helper's exit code.
    int install(const QByteArray& package, bool sign = true, qint64 pid = 4'000'000) {
        writeFile(packagePath_, package);
        QFile::remove(packagePath_ + QStringLiteral(".sig"));
        if (sign)
            signRelease(packagePath_, QStringLiteral("9.0"), QUrl(QStringLiteral("https://h/p")));
        return runHelper({QStringLiteral("--pid"), QString::number(pid), QStringLiteral("--target"),
                          bundle_, QStringLiteral("--dmg"), packagePath_,
                          QStringLiteral("--version"), QStringLiteral("9.0"),
                          QStringLiteral("--wait-seconds"), QStringLiteral("1")});
    }

    QString log() const {
        return QString::fromUtf8(readFile(logs_.filePath(QStringLiteral("updater.log"))));
    }

    QTemporaryDir place_;
    QTemporaryDir logs_;
    QString bundle_ = makeBundle(place_.path(), QStringLiteral("A"));
    QString packagePath_ = logs_.filePath(QStringLiteral("update.tar.gz"));
};

TEST_F(HelperRunTest, RefusedPackagesLeaveTheInstalledBundleAsItWas) {
    const PackageEntry top{"velt-compressor/", Type::directory, {}};
    const PackageEntry marker{"velt-compressor/VELT-BUNDLE", Type::file, {}};
    const auto program = [](const QByteArray& content) {
        return PackageEntry{"velt-compressor/bin/velt-compressor", Type::file, content};
    };
    const struct {
        const char* what;
        QByteArray package;
        int exitCode;
        const char* logged;
        bool sign = true;
    } cases[] = {
        // Refused before it is unpacked: signed, it would be unpacked and fail to start.
        {"unsigned", makePackage({top, marker, program("#!/bin/sh\nexit 3\n")}), 5,
         "Package refused: The update has no signature.", false},
        {"dot-dot path", makePackage({top, {"velt-compressor/../../evil", Type::file, "x"}}), 5,
         "entry leaves the package folder"},
        {"absolute path", makePackage({top, {"/tmp/velt-evil", Type::file, "x"}}), 5,
         "entry leaves the package folder"},
        {"link out", makePackage({top, {"velt-compressor/out", Type::symlink, "../../../../etc"}}),
         5, "entry leaves the package folder"},
        {"hard link", makePackage({top, {"velt-compressor/h", Type::hardlink, "/etc/passwd"}}), 5,
         "hard link in the package"},
        {"device", makePackage({top, {"velt-compressor/null", Type::characterDevice, {}}}), 5,
         "special file in the package"},
        {"fifo", makePackage({top, {"velt-compressor/pipe", Type::fifo, {}}}), 5,
         "special file in the package"},
        {"no bundle", makePackage({top, program("#!/bin/sh\necho 'VELT | Compressor 9'\n")}), 5,
         "holds no single bundle folder"},
        {"program fails", makePackage({top, marker, program("#!/bin/sh\nexit 3\n")}), 6,
         "The new program does not start"},
        {"not a program", makePackage({top, marker, program("\177ELF broken")}), 6,
         "The new program does not start"},
        {"another program", makePackage({top, marker, program("#!/bin/sh\necho hello\n")}), 6,
         "The new program does not start"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(install(c.package, c.sign), c.exitCode) << c.what << "\n" << log().toStdString();
        EXPECT_TRUE(log().contains(QString::fromUtf8(c.logged))) << c.what;
        EXPECT_TRUE(QFileInfo::exists(bundle_ + QStringLiteral("/RELEASE-A"))) << c.what;
        EXPECT_TRUE(QFileInfo(bundle_ + QStringLiteral("/bin/velt-compressor")).isExecutable());
        EXPECT_EQ(
            QDir(place_.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
            QStringList{QStringLiteral("velt-compressor")})
            << c.what;
        EXPECT_FALSE(QFileInfo::exists(QStringLiteral("/tmp/velt-evil"))) << c.what;
    }
}

TEST_F(HelperRunTest, AProcessThatDoesNotEndABadTargetAndBadArgumentsChangeNothing) {
    const QByteArray good = makePackage({{"velt-compressor/VELT-BUNDLE", Type::file, {}}});
    // This test process does not end while the helper waits for it.
    EXPECT_EQ(install(good, true, QCoreApplication::applicationPid()), 3);
    EXPECT_TRUE(log().contains(QStringLiteral(" did not end; nothing was changed")));
    QFile::remove(bundle_ + QStringLiteral("/VELT-BUNDLE"));
    EXPECT_EQ(install(good), 4);
    EXPECT_TRUE(log().contains(QStringLiteral("Not a bundle: ")));
    EXPECT_TRUE(QFileInfo::exists(bundle_ + QStringLiteral("/RELEASE-A")));
    EXPECT_EQ(runHelper({QStringLiteral("--pid")}), 2);
    EXPECT_TRUE(log().contains(QStringLiteral("Bad arguments; usage: velt-updater")));
}

}  // namespace
}  // namespace velt::testing
