#include "engine/encoders/child_process.h"

#include "encoders/standin_tools.h"
#include "engine/errors.h"

#include <gtest/gtest.h>
#include <QTemporaryDir>
#include <chrono>
#include <csignal>

namespace velt {
namespace {

using testing::ScopedEnvironment;
using testing::standinPath;
using testing::waitForReadyPid;

TEST(ChildProcess, ReportsExitStatusAndKeepsItAfterReaping) {
    const std::pair<const char*, int> cases[] = {{"exit1", 1}, {"record", 0}, {"noisy", 0}};
    for (const auto& [standin, expected] : cases) {
        const auto process = ChildProcess::spawn(standinPath(QString::fromUtf8(standin)), {});
        EXPECT_EQ(process->waitForExit(), expected) << standin;
        EXPECT_FALSE(process->isRunning()) << standin;
        process->terminate();  // after reaping: must not signal a possibly reused pid
        EXPECT_EQ(process->waitForExit(), expected) << standin;
    }
}

// How the hang stand-in answers SIGTERM, and the status the waiter must then see.
struct TerminateCase {
    const char* name;
    const char* environmentFlag;  // nullptr: default SIGTERM handling
    int expectedStatus;
};

TEST(ChildProcess, TerminateEndsTheChildEvenWhenItIgnoresSigterm) {
    const TerminateCase cases[] = {
        {"default", nullptr, 128 + SIGTERM},
        {"ignores SIGTERM", "VELT_STANDIN_IGNORE_TERM", 128 + SIGKILL},
        {"exits 0 on SIGTERM", "VELT_STANDIN_TERM_EXIT0", 0},
    };
    for (const TerminateCase& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        QTemporaryDir folder;
        const QString ready = folder.filePath(QStringLiteral("ready"));
        const ScopedEnvironment readyVariable("VELT_STANDIN_READY", ready.toUtf8());
        std::optional<ScopedEnvironment> flag;
        if (testCase.environmentFlag) flag.emplace(testCase.environmentFlag, QByteArray("1"));

        const auto process = ChildProcess::spawn(standinPath(QStringLiteral("hang")), {});
        const pid_t pid = waitForReadyPid(ready);
        ASSERT_GT(pid, 0);
        EXPECT_TRUE(process->isRunning());

        const auto start = std::chrono::steady_clock::now();
        process->terminate();
        EXPECT_EQ(process->waitForExit(), testCase.expectedStatus);
        // A correctness bound (the stand-in would sleep 60 s), not a speed measurement.
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
        EXPECT_FALSE(process->isRunning());
        EXPECT_TRUE(testing::processGone(pid));
    }
}

TEST(ChildProcess, DestructorKillsAndReapsARunningChild) {
    QTemporaryDir folder;
    const QString ready = folder.filePath(QStringLiteral("ready"));
    const ScopedEnvironment readyVariable("VELT_STANDIN_READY", ready.toUtf8());
    const ScopedEnvironment ignoreTerm("VELT_STANDIN_IGNORE_TERM", QByteArray("1"));
    auto process = ChildProcess::spawn(standinPath(QStringLiteral("hang")), {});
    const pid_t pid = waitForReadyPid(ready);
    ASSERT_GT(pid, 0);
    process.reset();
    EXPECT_TRUE(testing::processGone(pid));
}

TEST(ChildProcess, LaunchFailuresAreReportedAsLaunchFailed) {
    QTemporaryDir folder;
    const QString notExecutable = folder.filePath(QStringLiteral("plain"));
    testing::writeFile(notExecutable, QByteArray("\x7f"
                                                 "ELF"));
    // Executable text without "#!": a shell would run it as a script; we must not.
    const QString textProgram = folder.filePath(QStringLiteral("text"));
    testing::writeExecutable(textProgram, QByteArray("exit 0\n"));

    const std::pair<QString, QStringList> cases[] = {
        {folder.filePath(QStringLiteral("missing")), {}},
        {folder.path(), {}},
        {notExecutable, {}},
        {textProgram, {}},
        {standinPath(QStringLiteral("record")),
         {QStringLiteral("a") + QChar(0) + QStringLiteral("b")}},
    };
    for (const auto& [program, arguments] : cases) {
        try {
            ChildProcess::spawn(program, arguments);
            ADD_FAILURE() << "started " << program.toStdString();
        } catch (const FileSystemError& error) {
            EXPECT_EQ(error.code(), FileSystemError::launchFailed) << program.toStdString();
            EXPECT_TRUE(error.description().contains(program)) << error.what();
        }
    }
}

}  // namespace
}  // namespace velt
