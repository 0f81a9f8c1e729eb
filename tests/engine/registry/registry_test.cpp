#include "engine/registry/processed_file_registry.h"
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QSet>
#include <functional>

namespace velt {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::system_clock;

// 2001-01-01 00:00:00 UTC, the zero of the stored dates.
const Clock::time_point reference{978'307'200s};

ProcessedFileRecord record(Clock::time_point updatedAt = reference) {
    ProcessedFileRecord r;
    r.fingerprint = {1234, 0x0123456789abcdefULL, 0xfedcba9876543210ULL};
    r.decision = ProcessedDecision::compressed;
    r.updatedAt = updatedAt;
    r.resourceIdentifier = QStringLiteral("1048577");
    r.settingsKey = QStringLiteral("v2|preset:balanced");
    return r;
}

TEST(ProcessedRegistry, ExactTextFormWithSortedKeys) {
    ProcessedFileRegistry registry;
    ProcessedFileRecord b;
    b.fingerprint = {10, 1, 0xffffffffffffffffULL};
    b.decision = ProcessedDecision::alreadyOptimal;
    b.updatedAt = reference + 1500ms;
    b.resourceIdentifier = QStringLiteral("42");
    ProcessedFileRecord a;
    a.fingerprint = {7, 2, 3};
    a.decision = ProcessedDecision::existingOutputFresh;
    a.updatedAt = Clock::time_point{};  // the Unix epoch, before the reference date
    a.settingsKey = QStringLiteral("k");
    registry.entries[QStringLiteral("/p/b.jpg")] = b;
    registry.entries[QStringLiteral("/p/a.jpg")] = a;
    EXPECT_EQ(registry.encode().toStdString(),
              R"({"entries":{"/p/a.jpg":{"decision":"existingOutputFresh",)"
              R"("fingerprint":{"headHash":2,"size":7,"tailHash":3},"settingsKey":"k",)"
              R"("updatedAt":-978307200.0},"/p/b.jpg":{"decision":"alreadyOptimal",)"
              R"("fingerprint":{"headHash":1,"size":10,"tailHash":18446744073709551615},)"
              R"("resourceIdentifier":"42","updatedAt":1.5}},"version":1})");
}

TEST(ProcessedRegistry, SaveLoadRoundTripKeepsHashesAndDates) {
    testing::IsolatedDataFolder data;
    ProcessedFileRegistry registry;
    registry.version = 3;
    auto big = record(Clock::time_point{1'772'000'000s} + 123'456us);
    big.fingerprint = {4'000'000'000'000LL, 0x8000000000000001ULL, 0xffffffffffffffffULL};
    auto bare = record(reference - 86'400s + 1us);
    bare.decision = ProcessedDecision::alreadyOptimal;
    bare.resourceIdentifier.reset();
    bare.settingsKey.reset();
    registry.entries[QStringLiteral("/home/u/Фото/IMG 1.HEIC")] = big;
    registry.entries[QStringLiteral("/home/u/\"quoted\".png")] = bare;
    registry.save();
    EXPECT_FALSE(testing::readFile(data.file(registryFileName)).contains("null"));
    EXPECT_EQ(ProcessedFileRegistry::load(), registry);

    // A clock reading with nanoseconds comes back within a microsecond.
    ProcessedFileRegistry precise;
    const auto now = Clock::now();
    precise.entries[QStringLiteral("/n")] = record(now);
    const auto decoded = ProcessedFileRegistry::decode(precise.encode());
    ASSERT_TRUE(decoded.has_value());
    const auto back = decoded->entries.at(QStringLiteral("/n")).updatedAt;
    EXPECT_LE(std::chrono::abs(back - now), 1us);
}

const char* const validEntry =
    R"({"decision":"compressed","fingerprint":{"headHash":1,"size":2,"tailHash":3},)"
    R"("updatedAt":10.25)";

std::string registryWithEntry(const std::string& members) {
    return std::string(R"({"version":1,"entries":{"/a.jpg":)") + validEntry + members + "}}}";
}

TEST(ProcessedRegistry, BrokenFilesLoadEmpty) {
    testing::IsolatedDataFolder data;
    const QString file = data.file(registryFileName);
    const std::string valid = registryWithEntry("");
    auto replaced = [&](const std::string& from, const std::string& to) {
        std::string text = valid;
        const auto at = text.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        return text.replace(at, from.size(), to);
    };
    const std::string broken[] = {
        std::string("\x89PNG\r\n\x1a\n\xff\x00\x13", 11),
        valid.substr(0, valid.size() - 3),
        R"({"entries":{}})",
        R"({"version":1})",
        "[]",
        R"({"version":"1","entries":{}})",
        R"({"version":1.5,"entries":{}})",
        R"({"version":1,"entries":[]})",
        R"({"version":1,"entries":{"/a.jpg":"compressed"}})",
        replaced(R"("compressed")", R"("optimal")"),
        replaced(R"("headHash":1)", R"("headHash":-1)"),
        replaced(R"("headHash":1)", R"("headHash":1.5)"),
        replaced(R"("headHash":1)", R"("headHash":"1")"),
        replaced(R"("tailHash":3)", R"("tailHash":18446744073709551616)"),
        replaced(R"("headHash":1,)", ""),
        replaced(R"("size":2)", R"("size":"2")"),
        replaced(R"(10.25)", R"("2026-01-01T00:00:00Z")"),
        replaced(R"(10.25)", R"(1e300)"),
        replaced(R"(,"updatedAt":10.25)", ""),
        replaced(R"("fingerprint":{"headHash":1,"size":2,"tailHash":3},)", ""),
        registryWithEntry(R"(,"resourceIdentifier":42)"),
        registryWithEntry(R"(,"settingsKey":["v2"])"),
    };
    for (const std::string& text : broken) {
        SCOPED_TRACE(text);
        EXPECT_EQ(ProcessedFileRegistry::decode(QByteArray::fromStdString(text)), std::nullopt);
        testing::writeFile(file, QByteArray::fromStdString(text));
        EXPECT_EQ(ProcessedFileRegistry::load(), ProcessedFileRegistry{});
    }

    // The untouched text does load, so the cases above fail for their one change.
    testing::writeFile(file, QByteArray::fromStdString(valid));
    EXPECT_EQ(ProcessedFileRegistry::load().entries.size(), 1u);

    ASSERT_TRUE(QFile::remove(file));
    EXPECT_EQ(ProcessedFileRegistry::load(), ProcessedFileRegistry{});
    ASSERT_TRUE(QDir().mkpath(file));
    EXPECT_EQ(ProcessedFileRegistry::load(), ProcessedFileRegistry{});
}

TEST(ProcessedRegistry, UnknownKeysAreIgnored) {
    const std::string text =
        R"({"future":[1,2],"version":2,"entries":{"/a.jpg":{"decision":"existingOutputFresh",)"
        R"("fingerprint":{"headHash":18446744073709551615,"size":2,"tailHash":3,"mid":9},)"
        R"("updatedAt":-0.5,"note":{"x":null},"resourceIdentifier":"77"}}})";
    const auto decoded = ProcessedFileRegistry::decode(QByteArray::fromStdString(text));
    ASSERT_TRUE(decoded.has_value());
    EXPECT_EQ(decoded->version, 2);
    ProcessedFileRecord expected;
    expected.fingerprint = {2, 0xffffffffffffffffULL, 3};
    expected.decision = ProcessedDecision::existingOutputFresh;
    expected.updatedAt = reference - 500ms;
    expected.resourceIdentifier = QStringLiteral("77");
    EXPECT_EQ(decoded->entries,
              (std::map<QString, ProcessedFileRecord>{{QStringLiteral("/a.jpg"), expected}}));
}

TEST(ProcessedRegistry, PruningKeepsTheNewest) {
    auto build = [](auto dateOf) {
        ProcessedFileRegistry registry;
        for (int i = 0; i <= 2000; ++i)
            registry.entries[QStringLiteral("/f/%1").arg(i, 4, 10, QLatin1Char('0'))] =
                record(reference + dateOf(i));
        return registry;
    };
    struct Case {
        const char* name;
        std::function<Clock::duration(int)> dateOf;
        const char* dropped;
    };
    const Case cases[] = {
        {"older keys", [](int i) { return std::chrono::seconds(i); }, "/f/0000"},
        {"newer keys", [](int i) { return -std::chrono::seconds(i); }, "/f/2000"},
        {"oldest in the middle", [](int i) { return std::chrono::seconds(i == 777 ? -1 : 5); },
         "/f/0777"},
        {"equal dates keep key order", [](int) { return Clock::duration{}; }, "/f/2000"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto registry = build(c.dateOf);
        registry.pruneIfNeeded();
        EXPECT_EQ(registry.entries.size(), registryLimit);
        EXPECT_FALSE(registry.entries.contains(QString::fromLatin1(c.dropped)));
    }

    auto full = build([](int i) { return std::chrono::seconds(i); });
    full.entries.erase(full.entries.begin());
    const auto before = full;
    full.pruneIfNeeded();
    EXPECT_EQ(full, before);
}

TEST(ProcessedRegistry, MatchesOnlyWhenEverythingAgrees) {
    ProcessedFileRegistry registry;
    const QString path = QStringLiteral("/w/a.jpg");
    const auto settled = record();
    auto noKey = record();
    noKey.settingsKey.reset();
    auto noIdentifier = record();
    noIdentifier.resourceIdentifier.reset();
    auto otherDecision = record();
    otherDecision.decision = ProcessedDecision::alreadyOptimal;
    const auto& fp = settled.fingerprint;
    const QString& key = *settled.settingsKey;
    const std::optional<QString> id = settled.resourceIdentifier;
    struct Case {
        const char* name;
        ProcessedFileRecord stored;
        QString path;
        ContentFingerprint fingerprint;
        std::optional<QString> identifier;
        QString settingsKey;
        bool matches;
    };
    const Case cases[] = {
        {"all equal", settled, path, fp, id, key, true},
        {"decision ignored", otherDecision, path, fp, id, key, true},
        {"both without identifier", noIdentifier, path, fp, std::nullopt, key, true},
        {"other path", settled, QStringLiteral("/w/b.jpg"), fp, id, key, false},
        {"size", settled, path, {fp.size + 1, fp.headHash, fp.tailHash}, id, key, false},
        {"head", settled, path, {fp.size, fp.headHash ^ 1, fp.tailHash}, id, key, false},
        {"tail", settled, path, {fp.size, fp.headHash, fp.tailHash ^ 1}, id, key, false},
        {"new file number", settled, path, fp, QStringLiteral("99"), key, false},
        {"identifier lost", settled, path, fp, std::nullopt, key, false},
        {"identifier gained", noIdentifier, path, fp, id, key, false},
        {"other settings", settled, path, fp, id, key + QLatin1Char('x'), false},
        {"record without settings key", noKey, path, fp, id, key, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        registry.entries[path] = c.stored;
        EXPECT_EQ(registry.matches(c.path, c.fingerprint, c.identifier, c.settingsKey), c.matches);
    }
}

TEST(ProcessedRegistry, SaveFailureIsLoggedOnce) {
    testing::IsolatedDataFolder data;
    const QString log = data.file(QStringLiteral("native.log"));
    const QString blocker = data.file(QStringLiteral("blocker"));
    testing::writeFile(blocker, "a file where a folder must be");
    ProcessedFileRegistry registry;
    registry.entries[QStringLiteral("/a")] = record();
    {
        testing::ScopedEnvironment config("VELT_CONFIG_DIR",
                                          (blocker + QStringLiteral("/data")).toUtf8());
        registry.save();
    }
    // A folder in the file's place cannot be replaced either.
    ASSERT_TRUE(QDir().mkpath(data.file(registryFileName)));
    registry.save();
    const QByteArrayList lines = testing::readFile(log).split('\n');
    int failures = 0;
    for (const QByteArray& line : lines)
        failures += line.contains("] Processed registry save failed: ") && !line.endsWith(": ");
    EXPECT_EQ(failures, 2) << testing::readFile(log).toStdString();
    EXPECT_EQ(lines.size(), 3);  // two lines and the final newline
}

TEST(ProcessedRegistry, SettingsKeyNamesEverySetting) {
    const AppConfig base;
    EXPECT_EQ(processingSettingsKey(base),
              QStringLiteral("v2|preset:balanced|format:automatic|original:backup|jpeg:76|png:82|"
                             "webp:78|avif:50|heic:72"));
    std::vector<std::function<void(AppConfig&)>> changes = {
        [](AppConfig& c) { c.preset = CompressionPreset::gentle; },
        [](AppConfig& c) { c.preset = CompressionPreset::custom; },
        [](AppConfig& c) { c.formatStrategy = FormatStrategy::webp; },
        [](AppConfig& c) { c.originalPolicy = OriginalPolicy::replace; },
        [](AppConfig& c) { c.qualities.jpeg = 77; },
        [](AppConfig& c) { c.qualities.png = 100; },
        [](AppConfig& c) { c.qualities.webp = 0; },
        [](AppConfig& c) { c.qualities.avif = 51; },
        [](AppConfig& c) { c.qualities.heic = 7; },
    };
    QSet<QString> keys = {processingSettingsKey(base)};
    for (const auto& change : changes) {
        AppConfig changed = base;
        change(changed);
        keys.insert(processingSettingsKey(changed));
    }
    EXPECT_EQ(keys.size(), static_cast<qsizetype>(changes.size() + 1));
}

}  // namespace
}  // namespace velt
