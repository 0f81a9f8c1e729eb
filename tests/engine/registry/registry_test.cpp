#include "engine/core/content_fingerprint.h"
#include "engine/core/errors.h"
#include "engine/registry/legacy_registry_file.h"
#include "engine/registry/processed_file_registry.h"
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#include <QDir>
#include <QTemporaryDir>

namespace velt {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::system_clock;
using namespace Qt::StringLiterals;

// 2001-01-01 00:00:00 UTC, the zero of the legacy file's dates.
const Clock::time_point reference{978'307'200s};

ProcessedFileRecord record(int n = 0) {
    ProcessedFileRecord r;
    r.fingerprint = {1234 + n, 0x0123456789abcdefULL, 0xfedcba9876543210ULL};
    r.decision = ProcessedDecision::compressed;
    r.updatedAt = Clock::time_point{1'772'000'000s} + 123'456us;
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

// Every field comes back exactly from a new connection (hashes over the whole unsigned range,
// dates to the nanosecond, absent fields absent); outputs are found by their own path.
TEST(ProcessedRegistry, RecordsSurviveReopeningExactly) {
    testing::IsolatedDataFolder data;
    ProcessedFileRecord full = record();
    full.fingerprint = {10, 0x8000000000000001ULL, 0xffffffffffffffffULL};
    full.modifiedAt = FileTime(1'772'000'000'123'456'789ns);
    full.createdAt = FileTime(-5ns);
    full.output = u"/p/Фото 1_veltcompressed.webp"_s;
    full.outputFingerprint = ContentFingerprint{7, 0, ~0ULL};
    full.backup = u"/p/.velt-compressor-backups/2026-01-01/Фото 1.original.png"_s;
    full.backupDigest = QByteArray(32, '\x9f');
    ProcessedFileRecord failed;
    failed.decision = ProcessedDecision::failed;
    failed.failure = u"No space left on device"_s;
    failed.environmentFailure = true;
    failed.attempts = 3;
    {
        ProcessedFileRegistry registry;
        registry.remember(u"/p/Фото 1.png"_s, full);
        registry.remember(u"/p/b.jpg"_s, failed);
        registry.remember(u"/p/c.jpg"_s, record(1));
        registry.forget(u"/p/c.jpg"_s);
        registry.rememberBackup(*full.backup, 1234);
        registry.rememberBackup(u"/p/gone.png"_s, 5);
        registry.forgetBackup(u"/p/gone.png"_s);
    }
    ProcessedFileRegistry reopened;
    EXPECT_EQ(reopened.count(), 2);
    EXPECT_EQ(reopened.find(u"/p/Фото 1.png"_s), full);
    EXPECT_EQ(reopened.find(u"/p/b.jpg"_s), failed);
    EXPECT_EQ(reopened.find(u"/p/c.jpg"_s), std::nullopt);
    EXPECT_EQ(reopened.backupSize(*full.backup), 1234);
    EXPECT_EQ(reopened.backupSize(u"/p/gone.png"_s), std::nullopt);
    const auto owner = reopened.findByOutput(*full.output);
    ASSERT_TRUE(owner);
    EXPECT_EQ(owner->first, u"/p/Фото 1.png"_s);
    reopened.forgetOutput(u"/p/Фото 1.png"_s);
    EXPECT_EQ(reopened.findByOutput(*full.output), std::nullopt);
    EXPECT_EQ(reopened.find(u"/p/Фото 1.png"_s)->backup, full.backup);
}

// Each decision is written when it is made: a program killed right after keeps all of them.
TEST(ProcessedRegistry, AKilledProgramLosesNoDecision) {
    testing::IsolatedDataFolder data;
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ProcessedFileRegistry registry;
        for (int i = 0; i < 200; ++i) registry.remember(u"/p/%1.jpg"_s.arg(i), record(i));
        ::kill(::getpid(), SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    ProcessedFileRegistry registry;
    EXPECT_EQ(registry.count(), 200);
    EXPECT_EQ(registry.find(u"/p/199.jpg"_s), record(199));
}

// The JSON registry of earlier versions is carried over once, one record per source.
TEST(ProcessedRegistry, TheLegacyFileIsImportedOnce) {
    testing::IsolatedDataFolder data;
    testing::writeFile(
        data.file(legacyRegistryFileName),
        R"({"version":1,"entries":{)"
        R"("/p/a.png":{"decision":"existingOutputFresh","output":"/p/a_veltcompressed.jpg",)"
        R"("fingerprint":{"headHash":1,"size":2,"tailHash":3},"updatedAt":1.5},)"
        R"("/p/a_veltcompressed.jpg":{"decision":"compressed","source":"/p/a.png",)"
        R"("fingerprint":{"headHash":4,"size":5,"tailHash":6},"updatedAt":1.5},)"
        R"("/p/gone.heic.jpg":{"decision":"compressed","source":"/p/gone.heic",)"
        R"("fingerprint":{"headHash":7,"size":8,"tailHash":9},"updatedAt":1.5}}})");
    {
        ProcessedFileRegistry registry;
        EXPECT_EQ(registry.count(), 2);
        const auto a = registry.find(u"/p/a.png"_s);
        ASSERT_TRUE(a);
        EXPECT_EQ(a->fingerprint, (ContentFingerprint{2, 1, 3}));
        EXPECT_EQ(a->updatedAt, reference + 1500ms);
        EXPECT_EQ(a->outputFingerprint, (ContentFingerprint{5, 4, 6}));
        const auto gone = registry.findByOutput(u"/p/gone.heic.jpg"_s);
        ASSERT_TRUE(gone);
        EXPECT_EQ(gone->first, u"/p/gone.heic"_s);
        EXPECT_EQ(gone->second.fingerprint, ContentFingerprint{});
        registry.forget(u"/p/a.png"_s);
    }
    EXPECT_EQ(ProcessedFileRegistry().count(), 1) << "imported a second time";
    EXPECT_TRUE(testing::readFile(data.file(u"native.log"_s))
                    .contains("Imported 2 records from processed-files.json"));
}

TEST(ProcessedRegistry, BrokenLegacyFilesAreNotRead) {
    const std::string valid =
        R"({"version":1,"future":[1],"entries":{"/a.jpg":{"decision":"compressed","note":null,)"
        R"("fingerprint":{"headHash":1,"size":2,"tailHash":3,"mid":9},"updatedAt":-0.5}}})";
    const auto replaced = [&](const std::string& from, const std::string& to) {
        std::string text = valid;
        return text.replace(text.find(from), from.size(), to);
    };
    const std::string broken[] = {
        valid.substr(0, valid.size() - 3),
        R"({"entries":{}})",
        replaced(R"("compressed")", R"("optimal")"),
        replaced(R"("headHash":1)", R"("headHash":-1)"),
        replaced(R"(-0.5)", R"(1e300)"),
    };
    for (const std::string& text : broken)
        EXPECT_EQ(decodeLegacyRegistry(QByteArray::fromStdString(text)), std::nullopt) << text;
    const auto rows = decodeLegacyRegistry(QByteArray::fromStdString(valid));
    ASSERT_TRUE(rows);
    EXPECT_EQ(rows->at(u"/a.jpg"_s).updatedAt, reference - 500ms);
}

// Without a writable data folder the engine still remembers, until it stops, and says so once.
TEST(ProcessedRegistry, AnUnwritableDataFolderFallsBackToMemory) {
    testing::IsolatedDataFolder data;
    ASSERT_TRUE(QDir().mkpath(data.file(registryFileName) + u"/x"_s));  // a folder in its place
    ProcessedFileRegistry registry;
    registry.remember(u"/a"_s, record());
    EXPECT_EQ(registry.find(u"/a"_s), record());
    const QByteArray log = testing::readFile(data.file(u"native.log"_s));
    EXPECT_EQ(log.count("] Processed registry save failed: "), 1) << log.toStdString();
}

// Output markers carry the key, and earlier versions compare it with theirs.
TEST(ProcessedRegistry, SettingsKeyKeepsItsForm) {
    AppConfig c;
    EXPECT_EQ(processingSettingsKey(c),
              u"v2|preset:balanced|format:automatic|original:backup|"
              u"jpeg:76|png:82|webp:78|avif:50|heic:72"_s);
    c.metadataPolicy = MetadataPolicy::strip;
    EXPECT_TRUE(processingSettingsKey(c).endsWith(u"|metadata:strip"_s));
}

}  // namespace
}  // namespace velt
