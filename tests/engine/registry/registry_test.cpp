#include "engine/core/content_fingerprint.h"
#include "engine/core/errors.h"
#include "engine/registry/processed_file_registry.h"
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QSet>
#include <QTemporaryDir>
#include <functional>

namespace velt {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::system_clock;
using namespace Qt::StringLiterals;

// 2001-01-01 00:00:00 UTC, the zero of the stored dates.
const Clock::time_point reference{978'307'200s};

ProcessedFileRecord record(Clock::time_point updatedAt = reference) {
    ProcessedFileRecord r;
    r.fingerprint = {1234, 0x0123456789abcdefULL, 0xfedcba9876543210ULL};
    r.decision = ProcessedDecision::compressed;
    r.updatedAt = updatedAt;
    r.resourceIdentifier = u"1048577"_s;
    r.settingsKey = u"v2|preset:balanced"_s;
    return r;
}

TEST(Fingerprint, HeadAndTailBlocksAndDigest) {
    EXPECT_EQ(fnv1a64("foobar", 6), 0x85944171f73967e8ULL);
    QTemporaryDir dir;
    QByteArray data(fingerprintBlockBytes + 1, Qt::Uninitialized);
    for (qsizetype i = 0; i < data.size(); ++i) data[i] = static_cast<char>((i * 7919) >> 5);
    const auto hash = [&](qsizetype from) {
        return fnv1a64(data.constData() + from, fingerprintBlockBytes);
    };
    testing::writeFile(dir.filePath(u"empty"_s), {});
    EXPECT_EQ(contentFingerprint(dir.filePath(u"empty"_s)), std::nullopt);
    for (const qsizetype size : {data.size() - 1, data.size()}) {
        testing::writeFile(dir.filePath(u"f"_s), data.left(size));
        const auto fingerprint = contentFingerprint(dir.filePath(u"f"_s));
        ASSERT_TRUE(fingerprint.has_value());
        EXPECT_EQ(*fingerprint,
                  (ContentFingerprint{size, hash(0), hash(size - fingerprintBlockBytes)}));
    }
    testing::writeFile(dir.filePath(u"abc"_s), "abc");
    EXPECT_EQ(sha256Digest(dir.filePath(u"abc"_s)).toHex(),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_THROW(sha256Digest(dir.filePath(u"missing"_s)), FileSystemError);
}

TEST(ProcessedRegistry, ExactTextAndRoundTrip) {
    testing::IsolatedDataFolder data;
    ProcessedFileRegistry registry;
    auto b = record(reference + 1500ms);
    b.fingerprint = {10, 0x8000000000000001ULL, 0xffffffffffffffffULL};
    b.decision = ProcessedDecision::alreadyOptimal;
    b.settingsKey.reset();
    auto a = record(Clock::time_point{});  // the Unix epoch, before the reference date
    a.fingerprint = {7, 2, 3};
    a.decision = ProcessedDecision::existingOutputFresh;
    a.resourceIdentifier.reset();
    registry.entries[u"/p/b.jpg"_s] = b;
    registry.entries[u"/p/a.jpg"_s] = a;
    EXPECT_EQ(registry.encode().toStdString(),
              R"({"entries":{"/p/a.jpg":{"decision":"existingOutputFresh",)"
              R"("fingerprint":{"headHash":2,"size":7,"tailHash":3},)"
              R"("settingsKey":"v2|preset:balanced","updatedAt":-978307200.0},)"
              R"("/p/b.jpg":{"decision":"alreadyOptimal","fingerprint":{"headHash":)"
              R"(9223372036854775809,"size":10,"tailHash":18446744073709551615},)"
              R"("resourceIdentifier":"1048577","updatedAt":1.5}},"version":1})");
    registry.entries[u"/home/u/Фото/IMG 1.HEIC"_s] =
        record(Clock::time_point{1'772'000'000s} + 123'456us);
    registry.save();
    EXPECT_EQ(ProcessedFileRegistry::load(), registry);
}

TEST(ProcessedRegistry, BrokenFilesLoadEmptyUnknownKeysAreIgnored) {
    testing::IsolatedDataFolder data;
    const QString file = data.file(registryFileName);
    const std::string valid =
        R"({"version":1,"future":[1],"entries":{"/a.jpg":{"decision":"compressed","note":null,)"
        R"("fingerprint":{"headHash":1,"size":2,"tailHash":3,"mid":9},"updatedAt":-0.5}}})";
    const auto replaced = [&](const std::string& from, const std::string& to) {
        std::string text = valid;
        return text.replace(text.find(from), from.size(), to);
    };
    const std::string broken[] = {
        std::string("\x89PNG\r\n\x1a\n\xff\x00\x13", 11),
        valid.substr(0, valid.size() - 3),
        R"({"entries":{}})",
        R"({"version":1.5,"entries":{}})",
        replaced(R"("compressed")", R"("optimal")"),
        replaced(R"("headHash":1)", R"("headHash":-1)"),
        replaced(R"("tailHash":3)", R"("tailHash":18446744073709551616)"),
        replaced(R"("size":2,)", ""),
        replaced(R"(-0.5)", R"("2026-01-01T00:00:00Z")"),
        replaced(R"(-0.5)", R"(1e300)"),
        replaced(R"("note":null)", R"("resourceIdentifier":42)"),
    };
    for (const std::string& text : broken) {
        SCOPED_TRACE(text);
        testing::writeFile(file, QByteArray::fromStdString(text));
        EXPECT_EQ(ProcessedFileRegistry::load(), ProcessedFileRegistry{});
    }
    testing::writeFile(file, QByteArray::fromStdString(valid));
    ProcessedFileRecord expected;
    expected.fingerprint = {2, 1, 3};
    expected.decision = ProcessedDecision::compressed;
    expected.updatedAt = reference - 500ms;
    EXPECT_EQ(ProcessedFileRegistry::load().entries,
              (std::map<QString, ProcessedFileRecord>{{u"/a.jpg"_s, expected}}));
}

TEST(ProcessedRegistry, PruningDropsTheOldestOnly) {
    for (const int oldest : {0, 777, 2000}) {
        ProcessedFileRegistry registry;
        for (int i = 0; i <= 2000; ++i)
            registry.entries[u"/f/%1"_s.arg(i)] = record(reference + (i == oldest ? -1s : 5s));
        registry.pruneIfNeeded();
        EXPECT_EQ(registry.entries.size(), registryLimit);
        EXPECT_FALSE(registry.entries.contains(u"/f/%1"_s.arg(oldest))) << oldest;
        const auto full = registry;
        registry.pruneIfNeeded();
        EXPECT_EQ(registry, full);
    }
}

TEST(ProcessedRegistry, SaveFailureIsLogged) {
    testing::IsolatedDataFolder data;
    ASSERT_TRUE(QDir().mkpath(data.file(registryFileName)));  // a folder in the file's place
    ProcessedFileRegistry registry;
    registry.entries[u"/a"_s] = record();
    registry.save();
    const QByteArray log = testing::readFile(data.file(u"native.log"_s));
    EXPECT_EQ(log.count("] Processed registry save failed: "), 1) << log.toStdString();
}

TEST(ProcessedRegistry, SettingsKeyNamesEverySetting) {
    AppConfig c;
    EXPECT_EQ(processingSettingsKey(c),
              u"v2|preset:balanced|format:automatic|original:backup|"
              u"jpeg:76|png:82|webp:78|avif:50|heic:72"_s);
    // Changed one after another, every setting must give a key not seen before.
    QSet<QString> keys = {processingSettingsKey(c)};
    for (const auto& change : std::initializer_list<std::function<void()>>{
             [&] { c.preset = CompressionPreset::custom; },
             [&] { c.formatStrategy = FormatStrategy::webp; },
             [&] { c.originalPolicy = OriginalPolicy::replace; }, [&] { c.qualities.jpeg = 77; },
             [&] { c.qualities.png = 100; }, [&] { c.qualities.webp = 0; },
             [&] { c.qualities.avif = 51; }, [&] { c.qualities.heic = 7; },
             [&] { c.metadataPolicy = MetadataPolicy::keepAll; },
             [&] { c.metadataPolicy = MetadataPolicy::strip; }}) {
        change();
        EXPECT_FALSE(keys.contains(processingSettingsKey(c)));
        keys.insert(processingSettingsKey(c));
    }
}

}  // namespace
}  // namespace velt
