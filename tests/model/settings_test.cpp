#include "model/settings.h"
#include "model/config_file.h"
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QFile>

namespace velt {
namespace {

using testing::IsolatedDataFolder;

AppConfig with(std::function<void(AppConfig&)> change) {
    AppConfig config;
    change(config);
    return config;
}

struct DecodeCase {
    const char* name;
    const char* json;
    std::optional<AppConfig> expected;  // nothing: the decode must fail
};

void PrintTo(const DecodeCase& c, std::ostream* os) {
    *os << c.name;
}

class SettingsDecoding : public ::testing::TestWithParam<DecodeCase> {};

TEST_P(SettingsDecoding, DecodesAsExpected) {
    const DecodeCase& c = GetParam();
    const auto decoded = decodeAppConfig(QByteArray(c.json));
    ASSERT_EQ(decoded.has_value(), c.expected.has_value());
    if (decoded) {
        EXPECT_EQ(*decoded, *c.expected);
    }
}

const QualitySettings gentleQualities{86, 92, 86, 62, 82};
const QualitySettings legacyQualities{82, 82, 82, 52, 72};

INSTANTIATE_TEST_SUITE_P(
    Table, SettingsDecoding,
    ::testing::Values(
        DecodeCase{"EmptyObjectIsDefaults", "{}", AppConfig()},
        DecodeCase{"NullsTakeDefaults",
                   R"({"enabled":null,"language":null,"preset":null,"qualities":null})",
                   AppConfig()},
        DecodeCase{"QualitiesFollowDecodedPreset", R"({"preset":"gentle"})", with([](AppConfig& c) {
                       c.preset = CompressionPreset::gentle;
                       c.qualities = gentleQualities;
                   })},
        DecodeCase{"LegacyPresetKeepsItsRowBeforeNormalising", R"({"preset":"jpegCompatible"})",
                   with([](AppConfig& c) {
                       c.preset = CompressionPreset::jpegCompatible;
                       c.qualities = legacyQualities;
                   })},
        DecodeCase{
            "ExplicitQualitiesWin",
            R"({"preset":"gentle","qualities":{"jpeg":1,"png":2,"webp":3,"avif":4,"heic":5}})",
            with([](AppConfig& c) {
                c.preset = CompressionPreset::gentle;
                c.qualities = {1, 2, 3, 4, 5};
            })},
        DecodeCase{"QualitiesAreNotClamped",
                   R"({"qualities":{"jpeg":-5,"png":200,"webp":3,"avif":4,"heic":5}})",
                   with([](AppConfig& c) {
                       c.qualities = {-5, 200, 3, 4, 5};
                   })},
        DecodeCase{"HeicToJpegIsJpeg", R"({"formatStrategy":"heicToJpeg","enabled":false})",
                   with([](AppConfig& c) {
                       c.formatStrategy = FormatStrategy::jpeg;
                       c.enabled = false;
                   })},
        DecodeCase{"KeepOriginalIsAutomatic", R"({"formatStrategy":"keepOriginal"})", AppConfig()},
        DecodeCase{"UnknownStrategyResetsOnlyItself",
                   R"({"formatStrategy":"tiff","language":"english"})",
                   with([](AppConfig& c) { c.language = AppLanguage::english; })},
        DecodeCase{"RemoveIsReplace", R"({"originalPolicy":"remove"})",
                   with([](AppConfig& c) { c.originalPolicy = OriginalPolicy::replace; })},
        DecodeCase{"OutputFolderIsKeep", R"({"originalPolicy":"outputFolder"})", AppConfig()},
        DecodeCase{"UnknownPolicyIsKeep", R"({"originalPolicy":"shred"})", AppConfig()},
        DecodeCase{
            "FoldersAndBookmark",
            R"({"watchDirectory":"file:///home/u/My%20Photos/","watchDirectoryBookmark":"AAEC","outputDirectory":"file:///tmp/out/"})",
            with([](AppConfig& c) {
                c.watchDirectory = QStringLiteral("/home/u/My Photos");
                c.watchDirectoryBookmark = QByteArray("\x00\x01\x02", 3);
                c.outputDirectory = QStringLiteral("/tmp/out");
            })},
        DecodeCase{"MetadataKeepAll", R"({"metadataPolicy":"keepAll"})",
                   with([](AppConfig& c) { c.metadataPolicy = MetadataPolicy::keepAll; })},
        DecodeCase{"MetadataStrip", R"({"metadataPolicy":"strip","enabled":false})",
                   with([](AppConfig& c) {
                       c.metadataPolicy = MetadataPolicy::strip;
                       c.enabled = false;
                   })},
        DecodeCase{"UnknownMetadataPolicyResetsOnlyItself",
                   R"({"metadataPolicy":"keepSome","language":"english"})",
                   with([](AppConfig& c) { c.language = AppLanguage::english; })},
        DecodeCase{"NullMetadataPolicyIsDefault", R"({"metadataPolicy":null})", AppConfig()},
        DecodeCase{"NumberForMetadataPolicyFails", R"({"metadataPolicy":2})", std::nullopt},
        DecodeCase{"UnknownPresetFails", R"({"preset":"ultra"})", std::nullopt},
        DecodeCase{"UnknownLanguageFails", R"({"language":"german"})", std::nullopt},
        DecodeCase{"QualitiesWithoutHeicFail",
                   R"({"qualities":{"jpeg":1,"png":2,"webp":3,"avif":4}})", std::nullopt},
        DecodeCase{"FractionalQualityFails",
                   R"({"qualities":{"jpeg":1.5,"png":2,"webp":3,"avif":4,"heic":5}})",
                   std::nullopt},
        DecodeCase{
            "HugeQualityFails",
            R"({"qualities":{"jpeg":99999999999999999999,"png":2,"webp":3,"avif":4,"heic":5}})",
            std::nullopt},
        DecodeCase{"StringForBoolFails", R"({"enabled":"yes"})", std::nullopt},
        DecodeCase{"NumberForPresetFails", R"({"preset":3})", std::nullopt},
        DecodeCase{"NumberForStrategyFails", R"({"formatStrategy":1})", std::nullopt},
        DecodeCase{"RelativeFolderFails", R"({"watchDirectory":"photos"})", std::nullopt},
        DecodeCase{"BadBase64Fails", R"({"watchDirectoryBookmark":"!!"})", std::nullopt},
        DecodeCase{"ArrayFails", "[]", std::nullopt},
        DecodeCase{"TruncatedFails", R"({"enabled":tr)", std::nullopt},
        DecodeCase{"GarbageFails", "\x89PNG\r\n\x1a\n\xff\xfe", std::nullopt}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(SettingsEncoding, FieldOrderOmittedOptionalsAndPolicyText) {
    AppConfig config;
    config.originalPolicy = OriginalPolicy::keep;
    EXPECT_EQ(encodeAppConfig(config).toStdString(),
              R"({"enabled":true,"autostart":false,"autostartAsked":false,)"
              R"("showMenuBarProgress":true,"notificationsEnabled":true,"language":"russian",)"
              R"("preset":"balanced","formatStrategy":"automatic","originalPolicy":"backup",)"
              R"("qualities":{"jpeg":76,"png":82,"webp":78,"avif":50,"heic":72},)"
              R"("metadataPolicy":"keepWithoutLocation"})");
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
    config.metadataPolicy = MetadataPolicy::strip;
    const QByteArray encoded = encodeAppConfig(config);
    EXPECT_TRUE(encoded.contains("\"watchDirectory\":\"file:///home/u/"));
    EXPECT_TRUE(encoded.contains("a.b.c/\""));  // folders end in a slash
    EXPECT_EQ(decodeAppConfig(encoded), config);
}

TEST(SettingsNormalisation, LegacyPresetAndOutputFolder) {
    auto config = *decodeAppConfig(R"({"preset":"jpegCompatible","outputDirectory":"file:///o/"})");
    config.normalizeForCurrentVersion();
    EXPECT_EQ(config.preset, CompressionPreset::balanced);
    EXPECT_EQ(config.qualities, legacyQualities);
    EXPECT_FALSE(config.outputDirectory.has_value());
    EXPECT_FALSE(encodeAppConfig(config).contains("outputDirectory"));
}

struct RestartCase {
    const char* name;
    std::function<void(AppConfig&)> change;
    bool restart;
};

void PrintTo(const RestartCase& c, std::ostream* os) {
    *os << c.name;
}

class RestartTest : public ::testing::TestWithParam<RestartCase> {};

TEST_P(RestartTest, ComparesOnlyWhatTheEngineUses) {
    AppConfig before;
    before.watchDirectory = QStringLiteral("/home/u/Pictures");
    AppConfig after = before;
    GetParam().change(after);
    EXPECT_EQ(before.requiresCompressorRestart(after), GetParam().restart);
    EXPECT_EQ(after.requiresCompressorRestart(before), GetParam().restart);
}

INSTANTIATE_TEST_SUITE_P(
    Table, RestartTest,
    ::testing::Values(
        RestartCase{"Nothing", [](AppConfig&) {}, false},
        RestartCase{"Language", [](AppConfig& c) { c.language = AppLanguage::english; }, false},
        RestartCase{"Notifications", [](AppConfig& c) { c.notificationsEnabled = false; }, false},
        RestartCase{"Enabled", [](AppConfig& c) { c.enabled = false; }, false},
        RestartCase{"AutostartAndProgress",
                    [](AppConfig& c) {
                        c.autostart = c.autostartAsked = true;
                        c.showMenuBarProgress = false;
                    },
                    false},
        RestartCase{"SameFolderWrittenDifferently",
                    [](AppConfig& c) { c.watchDirectory = QStringLiteral("/home/u/Pictures/."); },
                    false},
        RestartCase{"OtherFolder",
                    [](AppConfig& c) { c.watchDirectory = QStringLiteral("/home/u/Downloads"); },
                    true},
        RestartCase{"FolderRemoved", [](AppConfig& c) { c.watchDirectory.reset(); }, true},
        RestartCase{"Bookmark", [](AppConfig& c) { c.watchDirectoryBookmark = "x"; }, true},
        RestartCase{"Preset", [](AppConfig& c) { c.preset = CompressionPreset::gentle; }, true},
        RestartCase{"Strategy", [](AppConfig& c) { c.formatStrategy = FormatStrategy::png; }, true},
        RestartCase{"Policy", [](AppConfig& c) { c.originalPolicy = OriginalPolicy::replace; },
                    true},
        RestartCase{"OneQuality", [](AppConfig& c) { c.qualities.heic += 1; }, true},
        RestartCase{"MetadataPolicy",
                    [](AppConfig& c) { c.metadataPolicy = MetadataPolicy::strip; }, true}),
    [](const auto& info) { return std::string(info.param.name); });

// The settings window builds its pop-up from these: every case once, its text round-trips, and
// the two languages differ where the words do.
TEST(ImageFormatTest, ExtensionsAndTypeIdentifiers) {
    EXPECT_EQ(imageFormatFromFileExtension(QStringLiteral("JPEG")), ImageFormat::jpeg);
    EXPECT_EQ(imageFormatFromFileExtension(QStringLiteral("heif")), ImageFormat::heic);
    EXPECT_EQ(imageFormatFromFileExtension(QStringLiteral("gif")), std::nullopt);
    EXPECT_EQ(fileExtension(ImageFormat::jpeg), QStringLiteral("jpg"));
    EXPECT_EQ(imageFormatFromTypeIdentifier(QStringLiteral("public.heif")), ImageFormat::heic);
    EXPECT_EQ(imageFormatFromTypeIdentifier(QStringLiteral("com.google.webp")), ImageFormat::webp);
    EXPECT_EQ(imageFormatFromTypeIdentifier(std::nullopt), std::nullopt);
    EXPECT_EQ(imageFormatFromTypeIdentifier(QStringLiteral("public.tiff")), std::nullopt);
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

// The file on disk: whatever sits there, loading gives the defaults and never crashes.
TEST(ConfigFile, BrokenFilesGiveDefaults) {
    IsolatedDataFolder data;
    const QString path = data.file(configFileName);
    for (const QByteArray& content :
         {QByteArray(""), QByteArray("{\"preset\":\"gentle\""), QByteArray(4096, '\xff'),
          QByteArray("{\"qualities\":[1,2,3]}"), QByteArray("null")}) {
        testing::writeFile(path, content);
        EXPECT_EQ(loadAppConfig(), AppConfig()) << content.left(40).toStdString();
    }
    QFile::remove(path);
    EXPECT_EQ(loadAppConfig(), AppConfig());
    ASSERT_TRUE(QDir().mkpath(path));  // a folder where the file belongs
    EXPECT_EQ(loadAppConfig(), AppConfig());
    EXPECT_FALSE(saveAppConfig(AppConfig()));
    EXPECT_TRUE(
        testing::readFile(data.file(QStringLiteral("native.log"))).contains("Config save failed "));
}

TEST(ConfigFile, UnreadableFileGivesDefaults) {
    if (testing::runningAsRoot()) GTEST_SKIP() << "root reads through permission bits";
    IsolatedDataFolder data;
    const QString path = data.file(configFileName);
    testing::writeFile(path, R"({"language":"english"})");
    QFile::setPermissions(path, QFileDevice::Permissions());
    EXPECT_EQ(loadAppConfig(), AppConfig());
}

TEST(ConfigFile, SaveThenLoadNormalises) {
    IsolatedDataFolder data;
    AppConfig config;
    config.preset = CompressionPreset::jpegCompatible;
    config.outputDirectory = QStringLiteral("/tmp/old");
    config.language = AppLanguage::english;
    ASSERT_TRUE(saveAppConfig(config));
    const AppConfig loaded = loadAppConfig();
    EXPECT_EQ(loaded.preset, CompressionPreset::balanced);
    EXPECT_EQ(loaded.language, AppLanguage::english);
    EXPECT_FALSE(loaded.outputDirectory);
    // No temporary file is left beside the saved one.
    EXPECT_EQ(QDir(data.path()).entryList(QDir::Files), QStringList{configFileName});
}

TEST(ConfigFile, UnwritableDataFolderIsLoggedNotFatal) {
    QTemporaryDir root;
    testing::writeFile(root.filePath(QStringLiteral("blocker")), "x");
    // A file where the data folder's parent should be: no user, root included, can create it.
    testing::ScopedEnvironment config("VELT_CONFIG_DIR",
                                      root.filePath(QStringLiteral("blocker/data")).toUtf8());
    testing::ScopedEnvironment log("VELT_LOG_DIR", root.path().toUtf8());
    EXPECT_FALSE(saveAppConfig(AppConfig()));
    EXPECT_EQ(loadAppConfig(), AppConfig());
    EXPECT_TRUE(testing::readFile(root.filePath(QStringLiteral("native.log")))
                    .contains("Config save failed "));
}

}  // namespace
}  // namespace velt
