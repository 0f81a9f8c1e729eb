#include "app/command_line.h"

#include "app_test_support.h"

namespace velt::testing {
namespace {

TEST(CommandLine, AcceptsEveryModeAndSetting) {
    QTemporaryDir folder;
    const QString dir = folder.path();
    // A refused line throws here, which fails the test.
    const auto request = [&](const char* line) {
        return std::get<CommandLineRequest>(parseCommandLine(words(line, dir)));
    };
    EXPECT_EQ(request("--headless --watch DIR").watchDirectory, dir);
    EXPECT_EQ(request("--update").action, CommandLineRequest::Action::update);
    const CommandLineRequest settings = request("--settings --watch DIR");
    EXPECT_EQ(settings.action, CommandLineRequest::Action::run);
    EXPECT_EQ(settings.open, CommandLineRequest::DesktopPart::settings);
    EXPECT_EQ(settings.watchDirectory, dir);
    const CommandLineRequest once = request(
        "--once=DIR --preset gentle --format webp --original=replace --quality jpeg=55 "
        "--quality heic=0 --metadata=keepAll");
    EXPECT_EQ(once.action, CommandLineRequest::Action::once);
    EXPECT_EQ(once.onceDirectory, dir);

    // The preset brings its numbers, explicit qualities then win, and nothing else changes.
    AppConfig expected;
    EXPECT_EQ(SettingsOverrides().appliedTo(expected), expected);
    expected.preset = CompressionPreset::gentle;
    expected.qualities = defaults(CompressionPreset::gentle);
    expected.qualities.jpeg = 55;
    expected.qualities.heic = 0;
    expected.formatStrategy = FormatStrategy::webp;
    expected.originalPolicy = OriginalPolicy::replace;
    expected.metadataPolicy = MetadataPolicy::keepAll;
    EXPECT_EQ(once.overrides.appliedTo(AppConfig()), expected);
}

}  // namespace
}  // namespace velt::testing
