#include "model/settings.h"
#include "model/config_file.h"
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QFile>

namespace velt {
namespace {

using testing::IsolatedDataFolder;

AppConfig with(const std::function<void(AppConfig&)>& change) {
    AppConfig config;
    change(config);
    return config;
}

const QualitySettings legacyQualities{82, 82, 82, 52, 72};

TEST(SettingsDecoding, Table) {
    const std::pair<const char*, std::optional<AppConfig>> cases[] = {
        {"{}", AppConfig()},
        {R"({"enabled":null,"language":null,"preset":null,"qualities":null})", AppConfig()},
        // Missing qualities follow the preset read, before normalising.
        {R"({"preset":"gentle"})", with([](AppConfig& c) {
             c.preset = CompressionPreset::gentle;
             c.qualities = {86, 92, 86, 62, 82};
         })},
        {R"({"preset":"jpegCompatible"})", with([](AppConfig& c) {
             c.preset = CompressionPreset::jpegCompatible;
             c.qualities = legacyQualities;
         })},
        {R"({"preset":"gentle","qualities":{"jpeg":1,"png":2,"webp":3,"avif":4,"heic":5}})",
         with([](AppConfig& c) {
             c.preset = CompressionPreset::gentle;
             c.qualities = {1, 2, 3, 4, 5};
         })},
        {R"({"qualities":{"jpeg":-5,"png":200,"webp":3,"avif":4,"heic":5}})",
         with([](AppConfig& c) {
             c.qualities = {-5, 200, 3, 4, 5};
         })},
        // The user's own numbers kept aside under a named preset; damaged, only they go.
        {R"({"preset":"gentle","customQualities":{"jpeg":1,"png":2,"webp":3,"avif":4,"heic":5}})",
         with([](AppConfig& c) {
             c.preset = CompressionPreset::gentle;
             c.qualities = {86, 92, 86, 62, 82};
             c.customQualities = QualitySettings{1, 2, 3, 4, 5};
         })},
        {R"({"customQualities":{"jpeg":1},"enabled":false})",
         with([](AppConfig& c) { c.enabled = false; })},
        // Old and unknown stored texts: strategy and policy fall back alone.
        {R"({"formatStrategy":"heicToJpeg","enabled":false})", with([](AppConfig& c) {
             c.formatStrategy = FormatStrategy::jpeg;
             c.enabled = false;
         })},
        {R"({"formatStrategy":"keepOriginal","language":"english"})",
         with([](AppConfig& c) { c.language = AppLanguage::english; })},
        {R"({"originalPolicy":"remove"})",
         with([](AppConfig& c) { c.originalPolicy = OriginalPolicy::replace; })},
        {R"({"originalPolicy":"outputFolder"})", AppConfig()},
        {R"({"metadataPolicy":"keepAll"})",
         with([](AppConfig& c) { c.metadataPolicy = MetadataPolicy::keepAll; })},
        {R"({"backupRetentionDays":30})", with([](AppConfig& c) { c.backupRetentionDays = 30; })},
        {R"({"backupRetentionDays":14})", AppConfig()},
        {R"({"metadataPolicy":"keepSome","language":"english"})",
         with([](AppConfig& c) { c.language = AppLanguage::english; })},
        {R"({"watchDirectory":"file:///home/u/My%20Photos/","watchDirectoryBookmark":"AAEC",)"
         R"("outputDirectory":"file:///tmp/out/"})",
         with([](AppConfig& c) {
             c.watchDirectory = QStringLiteral("/home/u/My Photos");
             c.watchDirectoryBookmark = QByteArray("\x00\x01\x02", 3);
             c.outputDirectory = QStringLiteral("/tmp/out");
         })},
        // Refused: the whole file then counts as broken.
        {R"({"preset":"ultra"})", std::nullopt},
        {R"({"language":"german"})", std::nullopt},
        {R"({"qualities":{"jpeg":1,"png":2,"webp":3,"avif":4}})", std::nullopt},
        {R"({"qualities":{"jpeg":1.5,"png":2,"webp":3,"avif":4,"heic":5}})", std::nullopt},
        {R"({"qualities":{"jpeg":99999999999999999999,"png":2,"webp":3,"avif":4,"heic":5}})",
         std::nullopt},
        {R"({"enabled":"yes"})", std::nullopt},
        {R"({"preset":3})", std::nullopt},
        {R"({"watchDirectory":"photos"})", std::nullopt},
        {R"({"watchDirectoryBookmark":"!!"})", std::nullopt},
        {"[]", std::nullopt},
        {R"({"enabled":tr)", std::nullopt},
        {"\x89PNG\r\n\x1a\n\xff\xfe", std::nullopt},
    };
    for (const auto& [json, expected] : cases)
        EXPECT_EQ(decodeAppConfig(QByteArray(json)), expected) << json;
}

// The file is read by other versions of the program: its keys, the order they are written in,
// the omitted empty folders, and "backup" for a kept original, which older versions know it by.
TEST(SettingsEncoding, FieldOrderOmittedOptionalsAndPolicyText) {
    AppConfig config;
    config.originalPolicy = OriginalPolicy::keep;
    EXPECT_EQ(encodeAppConfig(config).toStdString(),
              R"({"enabled":true,"autostart":false,"autostartAsked":false,)"
              R"("showMenuBarProgress":true,"notificationsEnabled":true,"language":"russian",)"
              R"("preset":"balanced","formatStrategy":"automatic","originalPolicy":"backup",)"
              R"("qualities":{"jpeg":76,"png":82,"webp":78,"avif":50,"heic":72},)"
              R"("metadataPolicy":"keepWithoutLocation","backupRetentionDays":0})");
}

TEST(SettingsEncoding, RoundTripsEveryField) {
    AppConfig config;
    config.enabled = false;
    config.autostart = true;
    config.autostartAsked = true;
    config.showMenuBarProgress = false;
    config.notificationsEnabled = false;
    config.language = AppLanguage::english;
    config.watchDirectory = QStringLiteral("/home/u/Фото 📷/a.b.c");
    config.watchDirectoryBookmark = QByteArray("/home/u/Фото 📷/a.b.c");
    config.preset = CompressionPreset::custom;
    config.formatStrategy = FormatStrategy::webp;
    config.originalPolicy = OriginalPolicy::replace;
    config.qualities = {10, 20, 30, 40, 50};
    config.customQualities = QualitySettings{11, 21, 31, 41, 51};
    config.metadataPolicy = MetadataPolicy::strip;
    config.backupRetentionDays = 90;
    const QByteArray encoded = encodeAppConfig(config);
    EXPECT_TRUE(encoded.contains("\"watchDirectory\":\"file:///home/u/"));
    EXPECT_TRUE(encoded.contains("a.b.c/\""));  // folders end in a slash
    EXPECT_EQ(decodeAppConfig(encoded), config);
}

// Every setting the engine works with restarts it; nothing else does.
TEST(SettingsRestart, ComparesOnlyWhatTheEngineUses) {
    const std::pair<std::function<void(AppConfig&)>, bool> cases[] = {
        {[](AppConfig&) {}, false},
        {[](AppConfig& c) { c.language = AppLanguage::english; }, false},
        {[](AppConfig& c) { c.notificationsEnabled = false; }, false},
        {[](AppConfig& c) { c.enabled = false; }, false},
        {[](AppConfig& c) { c.autostart = c.autostartAsked = true; }, false},
        {[](AppConfig& c) { c.showMenuBarProgress = false; }, false},
        {[](AppConfig& c) { c.watchDirectory = QStringLiteral("/home/u/Pictures/."); }, false},
        {[](AppConfig& c) { c.watchDirectory = QStringLiteral("/home/u/Downloads"); }, true},
        {[](AppConfig& c) { c.watchDirectory.reset(); }, true},
        {[](AppConfig& c) { c.watchDirectoryBookmark = "x"; }, true},
        {[](AppConfig& c) { c.preset = CompressionPreset::gentle; }, true},
        {[](AppConfig& c) { c.formatStrategy = FormatStrategy::png; }, true},
        {[](AppConfig& c) { c.originalPolicy = OriginalPolicy::replace; }, true},
        {[](AppConfig& c) { c.qualities.heic += 1; }, true},
        {[](AppConfig& c) { c.metadataPolicy = MetadataPolicy::strip; }, true},
    };
    for (std::size_t row = 0; row < std::size(cases); ++row) {
        AppConfig before;
        before.watchDirectory = QStringLiteral("/home/u/Pictures");
        AppConfig after = before;
        cases[row].first(after);
        EXPECT_EQ(before.requiresCompressorRestart(after), cases[row].second) << "row " << row;
        EXPECT_EQ(after.requiresCompressorRestart(before), cases[row].second) << "row " << row;
    }
}

TEST(ImageFormatTest, MenuOffersWhatTheWriterCanEncode) {
    EXPECT_TRUE(isNativeWritable(ImageFormat::jpeg));
    EXPECT_FALSE(isNativeWritable(ImageFormat::heic));
    EXPECT_EQ(formatStrategyMenuCases().size(), 4u);
    setWritableTypeIdentifiersProvider([] {
        return QStringList{QStringLiteral("public.jpeg"), QStringLiteral("public.heic")};
    });
    EXPECT_TRUE(isNativeWritable(ImageFormat::heic));
    EXPECT_EQ(formatStrategyMenuCases().back(), FormatStrategy::heic);
    setWritableTypeIdentifiersProvider(nullptr);
}

// The file on disk: whatever sits there, loading gives the defaults and never crashes; a failed
// save is logged.
TEST(ConfigFile, BrokenFilesGiveDefaults) {
    IsolatedDataFolder data;
    const QString path = data.file(configFileName);
    testing::writeFile(path, "{\"preset\":\"gentle\"");
    EXPECT_EQ(loadAppConfig(), AppConfig());
    if (!testing::runningAsRoot()) {
        testing::writeFile(path, R"({"language":"english"})");
        QFile::setPermissions(path, QFileDevice::Permissions());
        EXPECT_EQ(loadAppConfig(), AppConfig());
    }
    QFile::remove(path);
    EXPECT_EQ(loadAppConfig(), AppConfig());
    ASSERT_TRUE(QDir().mkpath(path));  // a folder where the file belongs
    EXPECT_EQ(loadAppConfig(), AppConfig());
    EXPECT_FALSE(saveAppConfig(AppConfig()));
    EXPECT_TRUE(
        testing::readFile(data.file(QStringLiteral("native.log"))).contains("Config save failed "));
}

// Loading brings an old file up to date: the legacy preset becomes balanced with its numbers
// kept, and the output folder goes.
TEST(ConfigFile, LoadNormalisesAndSaveLeavesNoTemporary) {
    IsolatedDataFolder data;
    testing::writeFile(data.file(configFileName),
                       R"({"preset":"jpegCompatible","outputDirectory":"file:///o/"})");
    const AppConfig loaded = loadAppConfig();
    EXPECT_EQ(loaded.preset, CompressionPreset::balanced);
    EXPECT_EQ(loaded.qualities, legacyQualities);
    EXPECT_FALSE(loaded.outputDirectory);
    ASSERT_TRUE(saveAppConfig(loaded));
    EXPECT_FALSE(testing::readFile(data.file(configFileName)).contains("outputDirectory"));
    EXPECT_EQ(loadAppConfig(), loaded);
    EXPECT_EQ(QDir(data.path()).entryList(QDir::Files), QStringList{configFileName});
}

}  // namespace
}  // namespace velt
