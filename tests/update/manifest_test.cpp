// Release numbers, manifest validation and the update errors' texts, as tables.
#include "update/app_update_error.h"
#include "update/app_update_manifest.h"
#include "update/app_version.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace velt::testing {
namespace {

using Components = std::vector<std::int64_t>;

TEST(AppVersionTest, ParsesDottedNumbersAndRefusesTheRest) {
    const struct {
        const char* text;
        std::optional<Components> expected;
    } cases[] = {
        {"1.4.2", Components{1, 4, 2}},
        {"2.1.0-beta", Components{2, 1, 0}},
        {"1.2.3-rc1", Components{1, 2, 3}},
        {"1.2+build.7", Components{1, 2}},
        {"-5", Components{5}},  // the suffix cut keeps what follows a leading separator
        {"+1.2", Components{1, 2}},
        {"-beta", std::nullopt},
        {"1..2", Components{1, 2}},
        {".5.", Components{5}},
        {"9223372036854775807", Components{9223372036854775807}},
        {"9223372036854775808", std::nullopt},  // one past 64 bits
        {"", std::nullopt},
        {"...", std::nullopt},
        {"-", std::nullopt},
        {"v1.2", std::nullopt},
        {" 1.2", std::nullopt},  // no trimming
        {"1.2 ", std::nullopt},
        {"1. 2", std::nullopt},
        {"1.2a", std::nullopt},
        {"١.٢", std::nullopt},  // only ASCII digits
    };
    for (const auto& c : cases) {
        const auto parsed = AppVersion::parse(QString::fromUtf8(c.text));
        ASSERT_EQ(parsed.has_value(), c.expected.has_value()) << c.text;
        if (parsed) {
            EXPECT_EQ(parsed->components(), *c.expected) << c.text;
        }
    }
}

TEST(AppVersionTest, ComparesComponentWiseWithMissingOnesAsZero) {
    const struct {
        const char* a;
        const char* b;
        bool less;
        bool equal;
    } cases[] = {
        {"1.2", "1.10", true, false},    {"1.10", "1.2", false, false},
        {"1.2", "1.2.0", false, false},  {"1.2.0", "1.2", false, false},
        {"1.2", "1.2.1", true, false},   {"2", "10", true, false},
        {"1.2.3", "1.2.3", false, true}, {"0.9.9", "1", true, false},
    };
    for (const auto& c : cases) {
        const auto a = *AppVersion::parse(QString::fromUtf8(c.a));
        const auto b = *AppVersion::parse(QString::fromUtf8(c.b));
        EXPECT_EQ(a < b, c.less) << c.a << " < " << c.b;
        EXPECT_EQ(a == b, c.equal) << c.a << " == " << c.b;
    }
}

constexpr const char* digest = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";

std::string document(const std::string& fields) {
    return "{" + fields + "}";
}

std::string standard(const std::string& version = "\"1.4.2\"",
                     const std::string& download = "\"https://example.org/v.tar.gz\"",
                     const std::string& sha = std::string("\"") + digest + "\"",
                     const std::string& extra = "") {
    std::string fields =
        "\"version\": " + version + ", \"download\": " + download + ", \"sha256\": " + sha;
    if (!extra.empty()) fields += ", " + extra;
    return document(fields);
}

TEST(AppUpdateManifestTest, ValidatesInOrderWithTheFixedMessages) {
    const std::string upper =
        "\" \\n" + QString::fromLatin1(digest).toUpper().toStdString() + "\\t \"";
    const std::string shortDigest = std::string("\"") + std::string(digest).substr(1) + "\"";
    const std::string longDigest = std::string("\"") + digest + "0\"";
    const std::string withG = std::string("\"g") + std::string(digest).substr(1) + "\"";
    const struct {
        std::string json;
        const char* message;  // nothing: accepted
    } cases[] = {
        {standard(), nullptr},
        {standard("\"1.4.2\"", "\"HTTPS://example.org/v.tar.gz\""), nullptr},
        {standard("\"1.4.2\"", "\"http://example.org/v.tar.gz\""), "The update URL must use HTTPS"},
        {standard("\"1.4.2\"", "\"https:///v.tar.gz\""), "The update URL must use HTTPS"},
        {standard("\"1.4.2\"", "\"example.org/v.tar.gz\""), "The update URL must use HTTPS"},
        {standard("\"1.4.2\"", "\"\""), "The update URL must use HTTPS"},
        {standard("\"1.4.2\"", "\"https://example.org/v\"", upper), nullptr},
        {standard("\"1.4.2\"", "\"https://example.org/v\"", shortDigest),
         "The update checksum is invalid"},
        {standard("\"1.4.2\"", "\"https://example.org/v\"", longDigest),
         "The update checksum is invalid"},
        {standard("\"1.4.2\"", "\"https://example.org/v\"", withG),
         "The update checksum is invalid"},
        {standard("\"v1.2\""), "The update version is invalid"},
        {standard("\"\""), "The update version is invalid"},
        {standard("\"1.2.3-rc1\""), nullptr},
        {standard("\"1.2\"", "\"https://e.org/v\"", std::string("\"") + digest + "\"",
                  "\"build\": \"57a\""),
         "The update build number is invalid"},
        {standard("\"1.2\"", "\"https://e.org/v\"", std::string("\"") + digest + "\"",
                  "\"minimum_macOS\": \"x\""),
         "The minimum macOS version is invalid"},
        {standard("\"1.2\"", "\"https://e.org/v\"", std::string("\"") + digest + "\"",
                  "\"build\": null, \"notes\": null, \"minimum_macOS\": null, \"other\": 1"),
         nullptr},
        // Order: the URL before the checksum, the checksum before the version, the version
        // before the build.
        {standard("\"v1\"", "\"http://e.org/v\"", "\"short\""), "The update URL must use HTTPS"},
        {standard("\"v1\"", "\"https://e.org/v\"", "\"short\""), "The update checksum is invalid"},
        {standard("\"v1\"", "\"https://e.org/v\"", std::string("\"") + digest + "\"",
                  "\"build\": \"x\""),
         "The update version is invalid"},
    };
    for (const auto& c : cases) {
        try {
            const auto manifest = AppUpdateManifest::decode(c.json);
            EXPECT_EQ(c.message, nullptr) << c.json;
            EXPECT_EQ(manifest.sha256, QString::fromLatin1(digest)) << c.json;
        } catch (const AppUpdateError& error) {
            ASSERT_NE(c.message, nullptr) << c.json << ": " << error.what();
            EXPECT_EQ(error.kind(), AppUpdateError::Kind::invalidManifest);
            EXPECT_EQ(error.errorDescription(), QString::fromUtf8(c.message)) << c.json;
        }
    }
    // The texts are kept as written; only the checksum is normalised.
    const auto kept = AppUpdateManifest::decode(
        standard("\"1.2.3-rc1\"", "\"https://e.org/v\"", upper,
                 "\"build\": \"0057\", \"notes\": \"Fixes\", \"minimum_macOS\": \"2.31\""));
    EXPECT_EQ(kept.version, QStringLiteral("1.2.3-rc1"));
    EXPECT_EQ(kept.build, QStringLiteral("0057"));
    EXPECT_EQ(kept.notes, QStringLiteral("Fixes"));
    EXPECT_EQ(kept.minimumMacOS, QStringLiteral("2.31"));
}

TEST(AppUpdateManifestTest, SyntaxMissingKeysAndWrongTypesAreDecoderErrors) {
    for (const std::string& json :
         {std::string("not json"), std::string(""), std::string("[1]"),
          document("\"download\": \"https://e.org/v\", \"sha256\": \"x\""),
          document("\"version\": \"1\", \"sha256\": \"x\""),
          document("\"version\": \"1\", \"download\": \"https://e.org/v\""), standard("1.2"),
          standard("\"1\"", "\"https://e.org/v\"", std::string("\"") + digest + "\"",
                   "\"build\": 57")}) {
        EXPECT_THROW(AppUpdateManifest::decode(json), nlohmann::json::exception) << json;
    }
}

AppUpdateManifest manifest(const char* version, std::optional<QString> build = {},
                           std::optional<QString> minimum = {}) {
    AppUpdateManifest m;
    m.version = QString::fromUtf8(version);
    m.build = std::move(build);
    m.minimumMacOS = std::move(minimum);
    return m;
}

TEST(AppUpdateManifestTest, NewerComparesVersionsThenBuilds) {
    const struct {
        AppUpdateManifest offered;
        const char* version;
        const char* build;
        bool newer;
    } cases[] = {
        {manifest("1.2.1"), "1.2.0", "12", true},
        {manifest("1.2.0"), "1.2.1", "12", false},
        {manifest("1.2.0", QStringLiteral("13")), "1.2", "12", false},  // trailing zero
        {manifest("1.2.0", QStringLiteral("13")), "1.2.0", "12", true},
        {manifest("1.2.0", QStringLiteral("12")), "1.2.0", "12", false},
        {manifest("1.2.0"), "1.2.0", "12", false},  // no build: not newer
        {manifest("1.2.0", QStringLiteral("13")), "1.2.0", "x", false},
        {manifest("2.0"), "0", "0", true},
        {manifest("2.0"), "dev", "0", false},
        {manifest("2.0-beta"), "1.9", "0", true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(isNewer(c.offered, QString::fromUtf8(c.version), QString::fromUtf8(c.build)),
                  c.newer)
            << c.offered.version.toStdString() << " over " << c.version;
}

TEST(AppUpdateManifestTest, SupportedWhenTheSystemIsNotOlderThanTheMinimum) {
    EXPECT_TRUE(isSupported(manifest("1"), QStringLiteral("2.36")));
    EXPECT_TRUE(isSupported(manifest("1", {}, QStringLiteral("2.36")), QStringLiteral("2.36")));
    EXPECT_TRUE(isSupported(manifest("1", {}, QStringLiteral("2.31")), QStringLiteral("2.36")));
    EXPECT_FALSE(isSupported(manifest("1", {}, QStringLiteral("2.37")), QStringLiteral("2.36")));
    EXPECT_FALSE(isSupported(manifest("1", {}, QStringLiteral("99")), QStringLiteral("2.36")));
}

}  // namespace
}  // namespace velt::testing
