#include "engine/encoders/tool_runner.h"

#include "encoders/standin_tools.h"
#include "engine/errors.h"

#include <gtest/gtest.h>
#include <QTemporaryDir>
#include <chrono>
#include <optional>
#include <thread>

namespace velt {
namespace {

using testing::installStandin;
using testing::ScopedEnvironment;

class RunToolTest : public ::testing::Test {
  protected:
    QString install(const char* standin, const char* toolName) {
        const QString path =
            installStandin(tools_.path(), QString::fromUtf8(standin), QString::fromUtf8(toolName));
        EXPECT_FALSE(path.isEmpty()) << standin;
        return path;
    }
    QString file(const char* name) const { return work_.filePath(QString::fromUtf8(name)); }

    // Runs the tool and returns the error it threw, or nothing.
    std::optional<FileSystemError::Code> runExpectingFileError(const QString& tool,
                                                               const QStringList& arguments = {}) {
        try {
            runTool(tool, arguments, lifecycle_);
            return std::nullopt;
        } catch (const FileSystemError& error) {
            lastDescription_ = error.description();
            return error.code();
        }
    }

    QTemporaryDir tools_;
    QTemporaryDir work_;
    EngineLifecycle lifecycle_;
    QString lastDescription_;
};

TEST_F(RunToolTest, ExitStatusDecidesSuccess) {
    EXPECT_EQ(runExpectingFileError(install("record", "cwebp")), std::nullopt);
    // Far more output than any pipe holds: only a null device lets it finish.
    EXPECT_EQ(runExpectingFileError(install("noisy", "pngquant")), std::nullopt);

    EXPECT_EQ(runExpectingFileError(install("exit1", "cjpeg")), FileSystemError::writeUnknown);
    EXPECT_TRUE(lastDescription_.contains(QStringLiteral("cjpeg")))
        << lastDescription_.toStdString();
    EXPECT_TRUE(lastDescription_.contains(QStringLiteral("status 1")))
        << lastDescription_.toStdString();

    EXPECT_EQ(runExpectingFileError(file("no-such-tool")), FileSystemError::launchFailed);
}

TEST_F(RunToolTest, PassesTheArgumentVectorUntouched) {
    const QString record = file("record.txt");
    const ScopedEnvironment recordVariable("VELT_STANDIN_RECORD", record.toUtf8());
    const QStringList arguments = {
        QStringLiteral("-q"),
        QStringLiteral("80"),
        QString::fromUtf8("photo with spaces.jpg"),
        QString::fromUtf8("фото_отпуск.png"),
        QString::fromUtf8("🐈‍⬛ cat.webp"),
        QString(),
        QStringLiteral("$HOME"),
        QStringLiteral("*"),
        QStringLiteral("a;b|c && `d` 'e' \"f\" > g"),
    };
    runTool(install("record", "cwebp"), arguments, lifecycle_);

    QByteArray expected;
    for (const QString& argument : arguments) expected += argument.toUtf8() + '\n';
    expected += '\n';
    EXPECT_EQ(testing::readFile(record), expected);
}

TEST_F(RunToolTest, StopBeforeTheRunStartsNothing) {
    const QString record = file("record.txt");
    const ScopedEnvironment recordVariable("VELT_STANDIN_RECORD", record.toUtf8());
    lifecycle_.requestStop();
    EXPECT_THROW(runTool(install("record", "cwebp"), {QStringLiteral("x")}, lifecycle_),
                 FolderCompressorControlError);
    EXPECT_FALSE(QFile::exists(record));
}

struct StopCase {
    const char* name;
    const char* environmentFlag;  // how the hang stand-in answers SIGTERM; nullptr: it dies
};

TEST_F(RunToolTest, StopWhileRunningEndsTheToolAndCancels) {
    const StopCase cases[] = {
        {"default", nullptr},
        {"ignores SIGTERM", "VELT_STANDIN_IGNORE_TERM"},
        {"exits 0 when stopped", "VELT_STANDIN_TERM_EXIT0"},
    };
    const QString tool = install("hang", "cjpeg");
    for (const StopCase& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        EngineLifecycle lifecycle;
        const QString ready = work_.filePath(QString::fromUtf8(testCase.name));
        const ScopedEnvironment readyVariable("VELT_STANDIN_READY", ready.toUtf8());
        std::optional<ScopedEnvironment> flag;
        if (testCase.environmentFlag) flag.emplace(testCase.environmentFlag, QByteArray("1"));

        pid_t pid = -1;
        std::thread stopper([&] {
            pid = testing::waitForReadyPid(ready);
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            lifecycle.requestStop();
        });
        const auto start = std::chrono::steady_clock::now();
        bool cancelled = false;
        try {
            runTool(tool, {}, lifecycle);
        } catch (const FolderCompressorControlError& error) {
            cancelled = error.kind() == FolderCompressorControlError::cancelled;
        }
        const auto elapsed = std::chrono::steady_clock::now() - start;
        stopper.join();

        EXPECT_TRUE(cancelled);
        // A correctness bound (the stand-in would sleep 60 s), not a speed measurement.
        EXPECT_LT(elapsed, std::chrono::seconds(5));
        ASSERT_GT(pid, 0);
        EXPECT_TRUE(testing::processGone(pid));
    }
}

}  // namespace
}  // namespace velt
