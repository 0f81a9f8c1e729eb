#include "platform/login_item.h"

#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <optional>

namespace velt::testing {
namespace {

// Two installations side by side, as a user may have them (a package in one prefix, a copy in
// another), under a folder whose name has a blank: "<tmp>/my apps/{usr,other}/bin/velt-compressor",
// and a symbolic link "<tmp>/my apps/link" to the first.
class AutostartCommandTest : public ::testing::Test {
  protected:
    void SetUp() override {
        root_ = tmp_.filePath(QStringLiteral("my apps"));
        for (const char* prefix : {"usr", "other"}) {
            const QString bin =
                root_ + QLatin1Char('/') + QString::fromUtf8(prefix) + QStringLiteral("/bin");
            ASSERT_TRUE(QDir().mkpath(bin));
            writeFile(bin + QStringLiteral("/velt-compressor"), "#!/bin/sh\n");
            ASSERT_TRUE(
                QFile::setPermissions(bin + QStringLiteral("/velt-compressor"),
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        }
        ASSERT_TRUE(QFile::link(root_ + QStringLiteral("/usr"), root_ + QStringLiteral("/link")));
    }

    QString executable() const { return root_ + QStringLiteral("/usr/bin/velt-compressor"); }

    void installEntry(const QByteArray& text) const {
        const QString applications = root_ + QStringLiteral("/usr/share/applications");
        ASSERT_TRUE(QDir().mkpath(applications));
        writeFile(applications + QStringLiteral("/velt-compressor.desktop"), text);
    }

    QTemporaryDir tmp_;
    QString root_;
};

TEST_F(AutostartCommandTest, UsesTheInstalledMenuCommandOnlyWhenItStartsThisProgram) {
    struct Case {
        const char* name;
        std::optional<QByteArray> entry;  // the installed .desktop file; none in a build tree
        const char* path;                 // PATH, relative to "my apps"
        bool usesMenuCommand;
    };
    const QByteArray plain = "[Desktop Entry]\nName=VELT | Compressor\nExec=velt-compressor\n";
    const QByteArray inAction =
        "[Desktop Entry]\nName=VELT | Compressor\n[Desktop Action x]\nExec=velt-compressor\n";
    const Case cases[] = {
        {"no installed entry (a build tree)", std::nullopt, "usr/bin", false},
        {"menu command found on PATH", plain, "usr/bin", true},
        {"found through a linked folder on PATH", plain, "link/bin", true},
        {"PATH finds another copy first", plain, "other/bin:usr/bin", false},
        {"menu command not on PATH (a bundle)", plain, "nowhere", false},
        {"an Exec only in an action group", inAction, "usr/bin", false},
        {"an entry without Exec", QByteArray("[Desktop Entry]\nName=x\n"), "usr/bin", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        QFile::remove(root_ + QStringLiteral("/usr/share/applications/velt-compressor.desktop"));
        if (c.entry) installEntry(*c.entry);
        QStringList path;
        for (const QString& part : QString::fromUtf8(c.path).split(QLatin1Char(':')))
            path << root_ + QLatin1Char('/') + part;
        const ScopedEnvironment environment("PATH", path.join(QLatin1Char(':')).toUtf8());
        const QString expected = c.usesMenuCommand
                                     ? QStringLiteral("velt-compressor")
                                     : QLatin1Char('"') + executable() + QLatin1Char('"');
        EXPECT_EQ(autostartCommand(executable()), expected);
    }
}

TEST_F(AutostartCommandTest, AnAbsoluteMenuCommandIsKeptWhenItNamesThisProgram) {
    const ScopedEnvironment environment("PATH", QByteArrayLiteral("/nonexistent"));
    struct Case {
        QString exec;
        bool kept;
    };
    const QString own = executable();
    const QString other = root_ + QStringLiteral("/other/bin/velt-compressor");
    const Case cases[] = {
        {QLatin1Char('"') + own + QStringLiteral("\" --headless"), true},
        {QLatin1Char('"') + root_ + QStringLiteral("/link/bin/velt-compressor\""), true},
        {QLatin1Char('"') + other + QLatin1Char('"'), false},
        {QLatin1Char('"') + own, false},  // no closing quote
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.exec.toStdString());
        installEntry("[Desktop Entry]\nExec=" + c.exec.toUtf8() + "\n");
        EXPECT_EQ(autostartCommand(own),
                  c.kept ? c.exec : QLatin1Char('"') + own + QLatin1Char('"'));
    }
}

TEST_F(AutostartCommandTest, TheWrittenEntryRunsTheMenuCommand) {
    installEntry("[Desktop Entry]\nExec=velt-compressor\n");
    const ScopedEnvironment path("PATH", (root_ + QStringLiteral("/usr/bin")).toUtf8());
    const ScopedEnvironment config("XDG_CONFIG_HOME",
                                   tmp_.filePath(QStringLiteral("config")).toUtf8());
    ASSERT_TRUE(registerLoginItem(executable()));
    const QString text = QString::fromUtf8(readFile(loginItemFilePath()));
    EXPECT_TRUE(text.contains(QStringLiteral("\nExec=velt-compressor\n"))) << text.toStdString();
    EXPECT_TRUE(loginItemRegistered());
    EXPECT_TRUE(unregisterLoginItem());
    EXPECT_FALSE(loginItemRegistered());
}

}  // namespace
}  // namespace velt::testing
