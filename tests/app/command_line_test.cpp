#include "app/command_line.h"

#include <gtest/gtest.h>
#include <QProcess>

namespace velt {
namespace {

struct ProgramRun {
    int exitCode;
    QString out;
    QString err;
};

ProgramRun runProgram(const QStringList& arguments) {
    QProcess process;
    process.start(QStringLiteral(VELT_EXECUTABLE), arguments);
    EXPECT_TRUE(process.waitForFinished(10000));
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

TEST(Executable, VersionHelpAndUnknownOption) {
    const ProgramRun version = runProgram({QStringLiteral("--version")});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_TRUE(version.out.startsWith(QStringLiteral("VELT | Compressor 1.")))
        << version.out.toStdString();

    const ProgramRun help = runProgram({QStringLiteral("--help")});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_TRUE(help.out.contains(QStringLiteral("Usage: velt-compressor")));
    EXPECT_TRUE(help.err.isEmpty());

    const ProgramRun unknown = runProgram({QStringLiteral("--frobnicate")});
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_TRUE(unknown.out.isEmpty());
    EXPECT_TRUE(unknown.err.contains(QStringLiteral("unknown option: --frobnicate")));
    EXPECT_TRUE(unknown.err.contains(QStringLiteral("Usage: velt-compressor")));
}

TEST(CommandLine, HelpWinsOverOtherOptions) {
    const auto parsed = parseCommandLine({QStringLiteral("--version"), QStringLiteral("-h")});
    ASSERT_TRUE(std::holds_alternative<CommandLineRequest>(parsed));
    EXPECT_EQ(std::get<CommandLineRequest>(parsed).action, CommandLineRequest::Action::showHelp);
}

}  // namespace
}  // namespace velt
