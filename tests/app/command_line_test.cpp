#include "app/command_line.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QProcess>
#include <QTemporaryDir>

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

// Parses `arguments` with "DIR" standing for an existing folder.
std::variant<CommandLineRequest, CommandLineError> parseWith(const QString& folder,
                                                             QStringList arguments) {
    arguments.replaceInStrings(QStringLiteral("DIR"), folder);
    return parseCommandLine(arguments);
}

TEST(CommandLine, AcceptsEveryModeAndSetting) {
    QTemporaryDir folder;
    const QString dir = folder.path();
    using Action = CommandLineRequest::Action;
    const auto request = [&](QStringList arguments) {
        const auto parsed = parseWith(dir, std::move(arguments));
        EXPECT_TRUE(std::holds_alternative<CommandLineRequest>(parsed));
        return std::holds_alternative<CommandLineRequest>(parsed)
                   ? std::get<CommandLineRequest>(parsed)
                   : CommandLineRequest{};
    };

    EXPECT_EQ(request({}).action, Action::run);
    const CommandLineRequest watch =
        request({QStringLiteral("--headless"), QStringLiteral("--watch"), QStringLiteral("DIR")});
    EXPECT_EQ(watch.action, Action::headless);
    EXPECT_EQ(watch.watchDirectory, dir);
    const CommandLineRequest once =
        request({QStringLiteral("--once=DIR"), QStringLiteral("--preset"), QStringLiteral("gentle"),
                 QStringLiteral("--format"), QStringLiteral("webp"),
                 QStringLiteral("--original=replace"), QStringLiteral("--quality"),
                 QStringLiteral("jpeg=55"), QStringLiteral("--quality"), QStringLiteral("heic=0")});
    EXPECT_EQ(once.action, Action::once);
    EXPECT_EQ(once.onceDirectory, dir);
    EXPECT_EQ(once.overrides.preset, CompressionPreset::gentle);
    EXPECT_EQ(once.overrides.formatStrategy, FormatStrategy::webp);
    EXPECT_EQ(once.overrides.originalPolicy, OriginalPolicy::replace);
    EXPECT_EQ(once.overrides.qualities,
              (std::map<ImageFormat, int>{{ImageFormat::jpeg, 55}, {ImageFormat::heic, 0}}));

    // The preset brings its numbers; explicit qualities then win; nothing else changes.
    AppConfig saved;
    saved.language = AppLanguage::english;
    const AppConfig applied = once.overrides.appliedTo(saved);
    QualitySettings expected = defaults(CompressionPreset::gentle);
    expected.jpeg = 55;
    expected.heic = 0;
    EXPECT_EQ(applied.qualities, expected);
    EXPECT_EQ(applied.language, AppLanguage::english);
    EXPECT_EQ(SettingsOverrides().appliedTo(saved), saved);
}

TEST(CommandLine, RejectsBadValuesWithAReasonNamingTheProblem) {
    QTemporaryDir folder;
    const struct {
        QStringList arguments;
        const char* reason;
    } cases[] = {
        {{QStringLiteral("--preset"), QStringLiteral("fast")}, "bad value for --preset: \"fast\""},
        {{QStringLiteral("--preset"), QStringLiteral("jpegCompatible")}, "bad value for --preset"},
        {{QStringLiteral("--format=gif")}, "bad value for --format: \"gif\""},
        {{QStringLiteral("--original"), QStringLiteral("delete")}, "bad value for --original"},
        {{QStringLiteral("--quality"), QStringLiteral("jpeg=101")}, "bad value for --quality"},
        {{QStringLiteral("--quality"), QStringLiteral("jpeg=-1")}, "bad value for --quality"},
        {{QStringLiteral("--quality"), QStringLiteral("jpg=50")}, "bad value for --quality"},
        {{QStringLiteral("--quality"), QStringLiteral("jpeg=high")}, "bad value for --quality"},
        {{QStringLiteral("--quality"), QStringLiteral("=50")}, "bad value for --quality"},
        {{QStringLiteral("--preset")}, "missing value for --preset"},
        {{QStringLiteral("--once")}, "missing value for --once"},
        {{QStringLiteral("--once"), QStringLiteral("DIR/missing")}, "folder not found: "},
        {{QStringLiteral("--headless"), QStringLiteral("--watch"), QStringLiteral("DIR/missing")},
         "folder not found: "},
        {{QStringLiteral("--headless"), QStringLiteral("--once"), QStringLiteral("DIR")},
         "--once cannot be combined with --headless"},
        {{QStringLiteral("--once"), QStringLiteral("DIR"), QStringLiteral("--watch"),
          QStringLiteral("DIR")},
         "--watch cannot be combined with --once"},
        {{QStringLiteral("--headless=yes")}, "--headless takes no value"},
        {{QStringLiteral("--watch-folder")}, "unknown option: --watch-folder"},
        {{QStringLiteral("DIR")}, "unknown option: "},
    };
    for (const auto& c : cases) {
        const auto parsed = parseWith(folder.path(), c.arguments);
        ASSERT_TRUE(std::holds_alternative<CommandLineError>(parsed)) << c.reason;
        const QString message = std::get<CommandLineError>(parsed).message;
        EXPECT_TRUE(message.startsWith(QString::fromUtf8(c.reason))) << message.toStdString();
        EXPECT_FALSE(message.contains(QLatin1Char('\n')));
    }
}

TEST(CommandLine, HelpDescribesEveryOptionAndVariable) {
    const QString help = usageText();
    for (const char* word :
         {"--headless", "--watch DIR", "--once DIR", "--preset", "--format", "--original",
          "--quality", "balanced, gentle, maximum or custom",
          "automatic, jpeg, png, webp, avif or heic", "VELT_CONFIG_DIR", "VELT_LOG_DIR",
          "VELT_DEBUG_LOG", "VELT_TOOL_DIR", "VELT_LAUNCH_SMOKE"})
        EXPECT_TRUE(help.contains(QString::fromUtf8(word))) << word;
}

}  // namespace
}  // namespace velt
