#include "engine/encoders/tool_runner.h"

#include "encoders/standin_tools.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <functional>

namespace velt {
namespace {

using testing::installStandin;
using testing::ScopedEnvironment;

const QString systemCwebp = QStringLiteral("/usr/bin/cwebp");

QString bundledFolder() {
    const QString executable = QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget();
    return QDir::cleanPath(QFileInfo(executable).path() +
                           QStringLiteral("/../libexec/velt-compressor/bin"));
}

// Fall-through cases expect the system's cwebp; they mean nothing when it is missing or when a
// folder searched before /usr/bin/ also has one.
bool onlySystemCwebp() {
    return QFileInfo(systemCwebp).isExecutable() &&
           !QFile::exists(QStringLiteral("/opt/homebrew/bin/cwebp")) &&
           !QFile::exists(QStringLiteral("/usr/local/bin/cwebp")) &&
           !QFile::exists(bundledFolder() + QStringLiteral("/cwebp"));
}

TEST(ToolSearchDirectories, OverrideFirstThenBundledThenFixedFolders) {
    const QStringList fixed = {bundledFolder(), QStringLiteral("/opt/homebrew/bin/"),
                               QStringLiteral("/usr/local/bin/"), QStringLiteral("/usr/bin/")};
    const std::pair<std::optional<QByteArray>, QStringList> cases[] = {
        {std::nullopt, fixed},
        {QByteArray(), fixed},
        {QByteArray("/srv/tools"), QStringList{QStringLiteral("/srv/tools")} + fixed},
    };
    for (const auto& [value, expected] : cases) {
        const ScopedEnvironment override("VELT_TOOL_DIR", value);
        EXPECT_EQ(toolSearchDirectories(), expected) << value.value_or("(unset)").constData();
    }
}

// What one case puts into VELT_TOOL_DIR under the name "cwebp", and which path must be found.
struct SearchCase {
    const char* name;
    std::function<void(const QString& folder)> prepare;
    bool expectOverrideFolder;  // false: the search falls through to /usr/bin/cwebp
};

TEST(ToolURL, AcceptsOnlyRunnableNativeFilesInTheOverrideFolder) {
    if (!onlySystemCwebp()) GTEST_SKIP() << "needs cwebp in /usr/bin/ and nowhere before it";
    const auto at = [](const QString& folder) {
        return QDir(folder).filePath(QStringLiteral("cwebp"));
    };
    const SearchCase cases[] = {
        {"native program",
         [](const QString& folder) {
             installStandin(folder, QStringLiteral("record"), QStringLiteral("cwebp"));
         },
         true},
        {"symlink to a native program",
         [](const QString& folder) {
             const QString target =
                 installStandin(folder, QStringLiteral("record"), QStringLiteral("real"));
             QFile::link(target, QDir(folder).filePath(QStringLiteral("cwebp")));
         },
         true},
        {"shell script",
         [&](const QString& folder) {
             testing::writeExecutable(at(folder), QByteArray("#!/bin/sh\nexit 0\n"));
         },
         false},
        {"native program without execute permission",
         [&](const QString& folder) {
             installStandin(folder, QStringLiteral("record"), QStringLiteral("cwebp"));
             QFile::setPermissions(at(folder), QFile::ReadOwner | QFile::WriteOwner);
         },
         false},
        {"directory", [&](const QString& folder) { QDir(folder).mkdir(QStringLiteral("cwebp")); },
         false},
        {"nothing", [](const QString&) {}, false},
    };
    for (const SearchCase& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        QTemporaryDir folder;
        testCase.prepare(folder.path());
        const ScopedEnvironment override("VELT_TOOL_DIR", folder.path().toUtf8());
        const QString expected = testCase.expectOverrideFolder ? at(folder.path()) : systemCwebp;
        EXPECT_EQ(toolURL(QStringLiteral("cwebp")), std::optional(expected));
    }
}

TEST(ToolURL, EmptyOverrideIsIgnoredEvenWithTheToolInTheWorkingDirectory) {
    if (!onlySystemCwebp()) GTEST_SKIP() << "needs cwebp in /usr/bin/ and nowhere before it";
    QTemporaryDir folder;
    installStandin(folder.path(), QStringLiteral("record"), QStringLiteral("cwebp"));
    const QString previous = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(folder.path()));
    const ScopedEnvironment override("VELT_TOOL_DIR", QByteArray());
    const auto found = toolURL(QStringLiteral("cwebp"));
    QDir::setCurrent(previous);
    EXPECT_EQ(found, std::optional(systemCwebp));
}

TEST(ToolURL, FollowsWhatIsInstalledFromCallToCall) {
    QTemporaryDir folder;
    const ScopedEnvironment override("VELT_TOOL_DIR", folder.path().toUtf8());
    const QString name = QStringLiteral("velt-standin-tool-found-nowhere");
    EXPECT_EQ(toolURL(name), std::nullopt);
    const QString installed = installStandin(folder.path(), QStringLiteral("record"), name);
    EXPECT_EQ(toolURL(name), std::optional(installed));
    QFile::remove(installed);
    EXPECT_EQ(toolURL(name), std::nullopt);
}

}  // namespace
}  // namespace velt
