#include "encoders/standin_tools.h"
#include "engine/core/errors.h"
#include "engine/encoders/tool_runner.h"
#include "engine/install/safe_install.h"
#include "engine/pipeline/process.h"
#include "engine_test_rig.h"
#include "support/test_images.h"

#include <gtest/gtest.h>
#include <QDirIterator>
#include <QFile>
#include <condition_variable>
#include <fstream>
#include <future>
#include <mutex>

namespace velt {
namespace {

using namespace Qt::StringLiterals;

using namespace std::chrono_literals;
using testing::EngineRig;
using testing::eventually;

FolderCompressionResult wrote(const QString& file, std::int64_t saved) {
    CompressionHistoryEntry entry;
    entry.id = QUuid::createUuid();
    entry.date = QDateTime::currentDateTimeUtc();
    entry.sourceURL = file;
    entry.status = CompressionHistoryStatus::compressed;
    return {true, saved, entry, {}};
}

TEST(FolderCompressorLifecycle, StartFailsOnMissingFolderOrPlainFile) {
    EngineRig rig;
    for (const QString& bad : {rig.file(u"missing"_s), rig.file(u"plain"_s)}) {
        if (bad.endsWith(QLatin1String("plain"))) testing::writeFile(bad, "x");
        try {
            rig.engine->start(AppConfig(), bad);
            ADD_FAILURE() << "start succeeded on " << bad.toStdString();
        } catch (const FileSystemError& error) {
            EXPECT_EQ(error.code(), FileSystemError::noSuchFile);
        }
        EXPECT_FALSE(rig.engine->isRunning());
    }
    rig.start();
    EXPECT_TRUE(rig.engine->isRunning());
    rig.engine->stop();
    EXPECT_FALSE(rig.engine->isRunning());
}

TEST(FolderCompressorScan, NewFileIsProcessedOnceAfterHoldingStill) {
    EngineRig rig([](EngineContext& context, const QString& file) {
        EngineRig::settle(context, file);
        return wrote(file, 100);
    });
    rig.start();
    testing::writeFile(rig.file(u"Фото 1.jpg"_s), QByteArray(300, 'x'));
    ASSERT_TRUE(eventually([&] { return rig.history().size() == 1; }));
    std::this_thread::sleep_for(400ms);  // several more scans
    ASSERT_EQ(rig.callCount(), 1u);
    EXPECT_EQ(rig.calls()[0].file, rig.file(u"Фото 1.jpg"_s));
    EXPECT_TRUE(eventually([&] { return !rig.stats().empty() && !rig.stats().back().active; }));
    const CompressionStats last = rig.stats().back();
    EXPECT_EQ(last.done, 1);
    EXPECT_EQ(last.savedBytes, 100);
    EXPECT_EQ(last.progress, std::nullopt);
    EXPECT_TRUE(rig.log().contains("Processed Фото 1.jpg wrote=true saved=100"));
}

TEST(FolderCompressorScan, GrowingFileWaitsUntilItsSignatureHoldsStill) {
    EngineRig rig;
    rig.start();
    const QString path = rig.file(u"slow copy.png"_s);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    for (int step = 0; step < 15; ++step) {  // grows for about 1.2 s
        file.write(QByteArray(1000, 'p'));
        file.flush();
        std::this_thread::sleep_for(80ms);
        ASSERT_EQ(rig.callCount(), 0u) << "processed while still growing, step " << step;
    }
    file.close();
    ASSERT_TRUE(eventually([&] { return rig.callCount() == 1; }));
    EXPECT_EQ(rig.calls()[0].sizeSeen, 15000);
}

// A video, and an image whose name is not UTF-8 (Linux names are bytes), are reported once per
// version, never processed (nor under a mangled name); other files are ignored in silence.
TEST(FolderCompressorScan, UnsupportedFilesAreReportedOncePerVersion) {
    const std::pair<QByteArray, const char*> rows[] = {
        {"clip.MOV", "Unsupported file clip.MOV"},
        {"ph\xffto.jpg", "Unsupported file name (not valid UTF-8) ph\\xffto.jpg"},
    };
    for (const auto& [name, logged] : rows) {
        EngineRig rig;
        rig.start();
        testing::writeFile(rig.file(u"notes.txt"_s), "text");
        const QByteArray path = QFile::encodeName(rig.folder.path()) + '/' + name;
        const auto write = [&](const char* bytes) {
            ASSERT_TRUE(std::ofstream(path.constData(), std::ios::binary) << bytes);
        };
        write("movie");
        ASSERT_TRUE(eventually([&] { return rig.events().size() == 1; })) << logged;
        std::this_thread::sleep_for(300ms);
        EXPECT_EQ(rig.events().size(), 1u) << logged;
        EXPECT_EQ(rig.events()[0],
                  CompressionNotificationEvent::unsupportedFile(QString::fromUtf8(path)));
        write("a changed version");
        EXPECT_TRUE(eventually([&] { return rig.events().size() == 2; })) << logged;
        EXPECT_EQ(rig.callCount(), 0u);
        EXPECT_EQ(rig.log().count(logged), 2) << logged;
    }
}

TEST(FolderCompressorScan, OneFailureIsReportedAndTheScanGoesOn) {
    EngineRig rig([](EngineContext& context, const QString& file) -> FolderCompressionResult {
        if (file.endsWith(QLatin1String("bad.jpg")))
            throw FileSystemError(FileSystemError::readCorruptFile, u"Broken image"_s);
        EngineRig::settle(context, file);
        return wrote(file, 5);
    });
    rig.start();
    testing::writeFile(rig.file(u"bad.jpg"_s), QByteArray(1234, 'b'));
    testing::writeFile(rig.file(u"good.jpg"_s), "g");
    ASSERT_TRUE(eventually([&] { return rig.history().size() >= 2; }));
    const auto events = rig.events();
    ASSERT_GE(events.size(), 1u);
    const Message damaged{Text::fileDamaged, {}};
    EXPECT_EQ(events[0],
              CompressionNotificationEvent::processingFailed(rig.file(u"bad.jpg"_s), damaged));
    const auto history = rig.history();
    const auto failed = std::ranges::find(history, CompressionHistoryStatus::failed,
                                          &CompressionHistoryEntry::status);
    ASSERT_NE(failed, history.end());
    EXPECT_EQ(failed->originalBytes, 1234);
    EXPECT_EQ(failed->reason, damaged);
    EXPECT_FALSE(failed->outputURL);
    EXPECT_TRUE(
        eventually([&] { return rig.stats().back().errors >= 1 && rig.stats().back().done == 1; }));
    EXPECT_TRUE(
        rig.log().contains("Process error " + rig.file(u"bad.jpg"_s).toUtf8() + ": Broken image"));

    // That version of the broken file is not tried again, however many scans pass...
    const auto attemptsOnBad = [&] { return rig.callsEndingWith(u"bad.jpg"_s); };
    std::this_thread::sleep_for(20 * testing::fastTiming().polling);
    EXPECT_EQ(attemptsOnBad(), 1u);
    EXPECT_EQ(rig.history().size(), 2u);
    // ...until it changes (a restart does not: see LongRun).
    testing::writeFile(rig.file(u"bad.jpg"_s), QByteArray(99, 'c'));
    EXPECT_TRUE(eventually([&] { return attemptsOnBad() == 2; }));
}

TEST(FolderCompressorScan, ChangedSourceIsRetriedAsNew) {
    std::atomic<int> attempts = 0;
    EngineRig rig([&](EngineContext& context, const QString& file) -> FolderCompressionResult {
        if (attempts++ == 0)
            throw FolderCompressorControlError(FolderCompressorControlError::sourceChanged);
        return EngineRig::settle(context, file);
    });
    rig.start();
    testing::writeFile(rig.file(u"a.heic"_s), "h");
    ASSERT_TRUE(eventually([&] { return rig.callCount() == 2; }));
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(rig.callCount(), 2u);
    EXPECT_TRUE(rig.log().contains("Source changed during processing; retry deferred a.heic"));
    EXPECT_TRUE(rig.events().empty());
    EXPECT_EQ(rig.stats().back().errors, 0);
}

// Writes a sibling output and records it, as the pipeline does under the keep policy.
FolderCompressionResult writeSibling(EngineContext& context, const QString& file) {
    const QString output = QString(file).replace(u".jpg"_s, u"_veltcompressed.jpg"_s);
    testing::writeFile(output, "smaller");
    auto record = context.recordOf(file, ProcessedDecision::compressed);
    record->output = output;
    record->outputFingerprint = contentFingerprint(output);
    context.remember(file, *record);
    return EngineRig::settle(context, file);
}

// A kept original is settled across restarts while its recorded output exists, and only then.
TEST(FolderCompressorRegistry, AKeptOriginalIsSettledWhileItsOutputExists) {
    EngineRig rig(writeSibling);
    rig.start();
    testing::writeFile(rig.file(u"a.jpg"_s), "jpeg bytes");
    ASSERT_TRUE(eventually([&] { return rig.callCount() == 1; }));
    rig.relaunch(writeSibling);
    rig.start();
    std::this_thread::sleep_for(600ms);
    EXPECT_EQ(rig.callCount(), 1u) << "a settled file was processed again after a restart";
    rig.engine->stop();
    QFile::remove(rig.file(u"a_veltcompressed.jpg"_s));
    rig.relaunch(writeSibling);
    rig.start();
    EXPECT_TRUE(eventually([&] { return rig.callCount() == 2; }));
}

TEST(FolderCompressorStop, StopEndsARunningToolPromptly) {
    QTemporaryDir tools;
    const QString hang = testing::installStandin(tools.path(), u"hang"_s, u"cjpeg"_s);
    const QString ready = tools.filePath(u"ready"_s);
    testing::ScopedEnvironment announce("VELT_STANDIN_READY", ready.toUtf8());
    EngineRig rig([&](EngineContext& context, const QString& file) -> FolderCompressionResult {
        const QString temp = tempURL(file);
        struct RemoveTemp {
            QString path;
            ~RemoveTemp() { QFile::remove(path); }
        } guard{temp};
        testing::writeFile(temp, "partial");
        // Its input, which it never reads, holds the feeding thread until the stop.
        runTool(hang, {u"-outfile"_s, temp, u"/dev/stdin"_s}, context.lifecycle, {},
                testing::piecesOf(QByteArray(8'000'000, 'x')));
        return {};
    });
    rig.start();
    testing::writeFile(rig.file(u"big photo.jpg"_s), "jpeg");
    const pid_t pid = testing::waitForReadyPid(ready);
    ASSERT_GT(pid, 0);

    const auto before = std::chrono::steady_clock::now();
    rig.engine->stop();
    const auto took = std::chrono::steady_clock::now() - before;
    EXPECT_LT(took, 1s);
    EXPECT_TRUE(testing::processGone(pid));
    EXPECT_FALSE(rig.engine->isRunning());
    EXPECT_TRUE(rig.log().contains("Processing cancelled big photo.jpg"));
    EXPECT_EQ(rig.stats().back().active, 0);
    EXPECT_EQ(rig.stats().back().errors, 0);
    const QStringList left = QDir(rig.folder.path()).entryList(QDir::Files | QDir::Hidden);
    EXPECT_EQ(left, QStringList{u"big photo.jpg"_s});
}

// A batch starts a file only when its memory fits beside the files in progress: two that need 60
// of a budget of 100 go one after another whatever the number of jobs, with 130 together; files
// larger than the whole budget each run alone, never refused. Each file waits (up to a bound) for
// a partner, so a gate that lets both in shows it at once.
TEST(FolderCompressorBatch, FilesRunTogetherOnlyWhenTheirMemoryFits) {
    const struct {
        std::int64_t budget, need;
        int together;
    } cases[] = {{100, 60, 1}, {130, 60, 2}, {100, 250, 1}};
    for (const auto& [budget, need, together] : cases) {
        std::mutex mutex;
        std::condition_variable partner;
        int inside = 0, most = 0;
        EngineRig rig([&](EngineContext& context, const QString& file) {
            std::unique_lock lock(mutex);
            most = std::max(most, ++inside);
            partner.notify_all();
            partner.wait_for(lock, 1s, [&] { return inside > 1; });
            --inside;
            return EngineRig::settle(context, file);
        });
        for (const QString& name : {u"a.jpg"_s, u"b.jpg"_s})
            testing::writeFile(rig.file(name), "x");
        rig.engine->setBatchMemoryForTesting({budget, [need](const QString&) { return need; }});
        EXPECT_EQ(rig.engine->runOnce(AppConfig(), rig.folder.path(), nullptr, 2).size(), 2u);
        EXPECT_EQ(most, together) << budget << " " << need;
    }
}

TEST(FolderCompressorStop, StopFromInsideACallbackDoesNotDeadlock) {
    EngineRig rig([](EngineContext& context, const QString& file) {
        EngineRig::settle(context, file);
        return wrote(file, 1);
    });
    std::atomic<bool> stopped = false;
    rig.engine->callbacks.onHistory = [&](const CompressionHistoryEntry&) {
        rig.engine->stop();  // runs on the engine's own queue
        stopped = true;
    };
    rig.start();
    testing::writeFile(rig.file(u"a.jpg"_s), "x");
    ASSERT_TRUE(eventually([&] { return stopped.load(); }));
    EXPECT_FALSE(rig.engine->isRunning());
    testing::writeFile(rig.file(u"b.jpg"_s), "x");
    std::this_thread::sleep_for(400ms);
    EXPECT_EQ(rig.callCount(), 1u);  // nothing is watched any more
}

TEST(FolderCompressorLifecycle, StartingTwiceLeavesOnePollTimer) {
    testing::ScopedEnvironment debug("VELT_DEBUG_LOG", QByteArray("1"));
    EngineRig rig;
    EngineTiming timing = testing::fastTiming();
    timing.polling = 100ms;
    timing.scanDebounce = 0ms;
    rig.engine->setTimingForTesting(timing);
    rig.engine->setFileEventsForTesting(false);  // every tick lists the folder
    rig.start();
    rig.start();
    std::this_thread::sleep_for(1050ms);
    rig.engine->stop();
    const auto scans = rig.log().count("] Scan ");
    // One timer scans about ten times in this second (plus the scan each start requests); two
    // timers would scan about twenty times.
    EXPECT_GE(scans, 6);
    EXPECT_LE(scans, 14);
}

// File events only spare idle ticks: a file dropped, renamed into the folder or rewritten in
// place is picked up with them and without them.
TEST(FolderCompressorEvents, ChangesArePickedUpWithAndWithoutEvents) {
    for (const bool events : {true, false}) {
        EngineRig rig;
        rig.engine->setFileEventsForTesting(events);
        rig.start();
        QTemporaryDir outside;
        const auto processedCount = [&](const char* name) {
            return rig.callsEndingWith(QString::fromUtf8(name));
        };
        testing::writeFile(rig.file(u"dropped.jpg"_s), "a");
        EXPECT_TRUE(eventually([&] { return processedCount("dropped.jpg") == 1; }));
        const QString staged = QDir(outside.path()).filePath(u"moved.png"_s);
        testing::writeFile(staged, "b");
        ASSERT_EQ(::rename(QFile::encodeName(staged).constData(),
                           QFile::encodeName(rig.file(u"moved.png"_s)).constData()),
                  0);
        EXPECT_TRUE(eventually([&] { return processedCount("moved.png") == 1; }));
        testing::writeFile(rig.file(u"dropped.jpg"_s), "rewritten in place");
        EXPECT_TRUE(eventually([&] { return processedCount("dropped.jpg") == 2; }));
    }
}

// A drop onto a paused engine, replacing originals: the photo goes through the
// real pipeline with its verified backup in its own folder; a copy inside a backup folder and a
// text file are reported and left as they are.
TEST(FolderCompressorDrop, ADroppedPhotoIsCompressedBesideItsBackupEvenWhileStopped) {
    EngineRig rig(&process);
    rig.start();
    rig.engine->stop();
    QTemporaryDir elsewhere;
    const QString photo = elsewhere.filePath(u"photo.jpg"_s);
    ASSERT_TRUE(testing::writeJPEGWithCjpeg(testing::photoLikeBitmap(640, 480), 100, photo));
    const QByteArray original = testing::readFile(photo);
    ASSERT_TRUE(QDir(elsewhere.path()).mkpath(u".velt-compressor-backups"_s));
    const QString oldBackup = elsewhere.filePath(u".velt-compressor-backups/old.jpg"_s);
    testing::writeFile(oldBackup, original);
    const QString notes = elsewhere.filePath(u"notes.txt"_s);
    testing::writeFile(notes, "text");

    AppConfig replacing;
    replacing.originalPolicy = OriginalPolicy::replace;
    std::promise<std::vector<BatchFileResult>> finished;
    rig.engine->compressDropped(replacing, {photo, oldBackup, notes},
                                [&](const auto& results) { finished.set_value(results); });
    auto results = finished.get_future();
    ASSERT_EQ(results.wait_for(60s), std::future_status::ready);
    std::vector<BatchFileResult::Outcome> outcomes;
    for (const BatchFileResult& result : results.get()) outcomes.push_back(result.outcome);
    using Outcome = BatchFileResult::Outcome;
    EXPECT_EQ(outcomes, (std::vector{Outcome::skipped, Outcome::skipped, Outcome::compressed}));
    EXPECT_EQ(rig.events().size(), 2u);

    EXPECT_LT(QFileInfo(photo).size(), original.size());
    QDirIterator backups(elsewhere.filePath(u".velt-compressor-backups"_s),
                         {u"photo.original*.jpg"_s}, QDir::Files, QDirIterator::Subdirectories);
    ASSERT_TRUE(backups.hasNext());
    EXPECT_EQ(testing::readFile(backups.next()), original);
    EXPECT_EQ(testing::readFile(oldBackup), original);
    EXPECT_EQ(testing::readFile(notes), "text");
    EXPECT_FALSE(rig.engine->isRunning());
}

}  // namespace
}  // namespace velt
