// Release numbers, manifest validation, and whether a release is newer, as tables (whether it
// runs here is a case of the updater's checks).
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
        {"1.2+build.7", Components{1, 2}},
        {"-5", Components{5}},  // the suffix cut keeps what follows a leading separator
        {"+1.2", Components{1, 2}},
        {"-beta", std::nullopt},
        {"1..2", Components{1, 2}},
        {".5.", Components{5}},
        {"9223372036854775807", Components{9223372036854775807}},
        {"9223372036854775808", std::nullopt},  // one past 64 bits
        {"", std::nullopt},
        {"-", std::nullopt},
        {"v1.2", std::nullopt},
        {"1. 2", std::nullopt},  // no trimming
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

constexpr const char* digest = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";

// An acceptable manifest with the members of `patch` put over its own.
std::string manifestWith(const std::string& patch) {
    nlohmann::json object = {
        {"version", "1.4.2"}, {"download", "https://example.org/v.tar.gz"}, {"sha256", digest}};
    object.update(nlohmann::json::parse(patch));
    return object.dump();
}

TEST(AppUpdateManifestTest, ValidatesInOrderWithTheFixedMessages) {
    const std::string d = digest;
    const std::string upper = QString::fromLatin1(digest).toUpper().toStdString();
    const char* https = "The update URL must use HTTPS";
    const char* checksum = "The update checksum is invalid";
    const char* version = "The update version is invalid";
    const struct {
        std::string patch;
        const char* message;  // nothing: accepted
    } cases[] = {
        {"{}", nullptr},
        {R"({"download": "HTTPS://example.org/v"})", nullptr},
        {R"({"download": "http://example.org/v"})", https},
        {R"({"download": "https:///v"})", https},
        {R"({"download": "example.org/v"})", https},
        {R"({"sha256": " \n)" + upper + R"(\t "})", nullptr},
        {R"({"sha256": ")" + d.substr(1) + R"("})", checksum},
        {R"({"sha256": ")" + d + R"(0"})", checksum},
        {R"({"sha256": "g)" + d.substr(1) + R"("})", checksum},
        {R"({"version": "v1.2"})", version},
        {R"({"version": ""})", version},
        {R"({"build": "57a"})", "The update build number is invalid"},
        {R"({"minimum_macOS": "x"})", "The minimum macOS version is invalid"},
        {R"({"build": null, "notes": null, "minimum_macOS": null, "other": 1})", nullptr},
        // The URL before the checksum, the checksum before the version, the version before the
        // build.
        {R"({"version": "v1", "download": "http://e.org/v", "sha256": "short"})", https},
        {R"({"version": "v1", "sha256": "short"})", checksum},
        {R"({"version": "v1", "build": "x"})", version},
    };
    for (const auto& c : cases) {
        try {
            const auto manifest = AppUpdateManifest::decode(manifestWith(c.patch));
            EXPECT_EQ(c.message, nullptr) << c.patch;
            EXPECT_EQ(manifest.sha256, QString::fromLatin1(digest)) << c.patch;
        } catch (const AppUpdateError& error) {
            ASSERT_NE(c.message, nullptr) << c.patch << ": " << error.what();
            EXPECT_EQ(error.kind(), AppUpdateError::Kind::invalidManifest);
            EXPECT_EQ(error.errorDescription(), QString::fromUtf8(c.message)) << c.patch;
        }
    }
    // The texts are kept as written; only the checksum is normalised.
    const auto kept = AppUpdateManifest::decode(manifestWith(
        R"({"version": "1.2.3-rc1", "build": "0057", "notes": "Fixes", "minimum_macOS": "2.31"})"));
    EXPECT_EQ(kept.version, QStringLiteral("1.2.3-rc1"));
    EXPECT_EQ(kept.build, QStringLiteral("0057"));
    EXPECT_EQ(kept.notes, QStringLiteral("Fixes"));
    EXPECT_EQ(kept.minimumMacOS, QStringLiteral("2.31"));
}

TEST(AppUpdateManifestTest, SyntaxMissingKeysAndWrongTypesAreDecoderErrors) {
    for (const std::string& json :
         {std::string("not json"), std::string(""), std::string("[1]"),
          std::string(R"({"download": "https://e.org/v", "sha256": "x"})"),
          std::string(R"({"version": "1", "sha256": "x"})"),
          std::string(R"({"version": "1", "download": "https://e.org/v"})"),
          manifestWith(R"({"version": 1.2})"), manifestWith(R"({"build": 57})")}) {
        EXPECT_THROW(AppUpdateManifest::decode(json), nlohmann::json::exception) << json;
    }
}

AppUpdateManifest manifest(const char* version, std::optional<QString> build = {}) {
    AppUpdateManifest m;
    m.version = QString::fromUtf8(version);
    m.build = std::move(build);
    return m;
}

TEST(AppUpdateManifestTest, NewerComparesVersionsComponentWiseThenBuilds) {
    const struct {
        AppUpdateManifest offered;
        const char* version;
        const char* build;
        bool newer;
    } cases[] = {
        {manifest("1.2.1"), "1.2.0", "12", true},
        {manifest("1.10"), "1.2", "12", true},  // numbers, not text
        {manifest("1.2"), "1.10", "12", false},
        {manifest("1.2.1"), "1.2", "12", true},  // a missing component counts as 0
        {manifest("1"), "0.9.9", "12", true},
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

}  // namespace
}  // namespace velt::testing
