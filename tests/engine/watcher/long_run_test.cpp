// A watcher that runs for months: quiet when idle, a registry that holds every file, settings that
// act on new files only, failures remembered per version.
#include "engine/core/errors.h"
#include "engine/pipeline/process.h"
#include "engine_test_rig.h"
#include "support/test_images.h"

#include <gtest/gtest.h>
#include <QDirIterator>
#include <map>

namespace velt {
namespace {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using testing::EngineRig;
using testing::eventually;

void writePhoto(const QString& path, int seed = 0) {
    ASSERT_TRUE(testing::writeJPEGWithCjpeg(testing::photoLikeBitmap(96 + seed, 64), 95, path));
}

using Snapshot = std::map<QString, QByteArray>;

// Every file under `folder`, hidden ones and backups included, with its bytes.
Snapshot snapshot(const QString& folder) {
    Snapshot files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        files[QDir(folder).relativeFilePath(path)] = testing::readFile(path);
    }
    return files;
}

// The names that appeared, went or changed between two snapshots.
std::string changes(const Snapshot& before, const Snapshot& after) {
    QStringList changed;
    for (const auto& [name, bytes] : before) {
        const auto now = after.find(name);
        if (now == after.end() || now->second != bytes) changed << name;
    }
    for (const auto& [name, bytes] : after)
        if (!before.contains(name)) changed << name;
    return changed.join(u", "_s).toStdString();
}

AppConfig withPolicy(OriginalPolicy policy, int jpegQuality = 76) {
    AppConfig config;
    config.originalPolicy = policy;
    config.formatStrategy = FormatStrategy::jpeg;
    config.preset = CompressionPreset::custom;
    config.qualities.jpeg = jpegQuality;
    return config;
}

// After the engine has written outputs, an idle folder is not listed on every tick, in both
// policies: its own-write and recent-write records run out.
TEST(LongRun, AnIdleWatcherListsNothingAfterItsOwnWrites) {
    testing::ScopedEnvironment debug("VELT_DEBUG_LOG", QByteArray("1"));
    for (const auto policy : {OriginalPolicy::keep, OriginalPolicy::replace}) {
        EngineRig rig(&process);
        rig.start(withPolicy(policy));
        for (int i = 0; i < 3; ++i) writePhoto(rig.file(u"photo %1.jpg"_s.arg(i)), i);
        ASSERT_TRUE(eventually([&] { return rig.history().size() == 3; }, 20s));
        std::this_thread::sleep_for(2 * testing::fastTiming().ownWriteSettling);
        const auto before = rig.log().count("] Scan ");
        std::this_thread::sleep_for(20 * testing::fastTiming().polling);
        EXPECT_LE(rig.log().count("] Scan ") - before, 1) << "policy " << int(policy);
    }
}

FolderCompressionResult remember(EngineContext& context, const QString& file) {
    context.rememberProcessed(file, ProcessedDecision::alreadyOptimal);
    return EngineRig::settle(context, file);
}

// Far more files than the old registry held: a restart handles none of them again.
TEST(LongRun, ARestartOnThousandsOfHandledFilesHandlesNone) {
    EngineRig rig(remember);
    for (int i = 0; i < 2500; ++i) testing::writeFile(rig.file(u"%1.jpg"_s.arg(i)), "jpeg");
    const AppConfig replace = withPolicy(OriginalPolicy::replace);
    rig.engine->runOnce(replace, rig.folder.path());
    ASSERT_EQ(rig.callCount(), 2500u);
    rig.relaunch(remember);
    rig.engine->runOnce(replace, rig.folder.path());
    EXPECT_EQ(rig.callCount(), 2500u) << "handled files were handled again after a restart";
}

// A change of settings never reaches back: the program's own outputs are never encoded again,
// and a source whose output exists is not redone.
TEST(LongRun, SettingsActOnNewFilesOnly) {
    const struct {
        const char* what;
        AppConfig before;
        AppConfig after;
        bool registryLost = false;  // a kill before its write, an unwritable data folder
    } rows[] = {
        {"keep, then replace", withPolicy(OriginalPolicy::keep),
         withPolicy(OriginalPolicy::replace)},
        {"replace, then another quality", withPolicy(OriginalPolicy::replace),
         withPolicy(OriginalPolicy::replace, 60)},
        {"replace, then keep", withPolicy(OriginalPolicy::replace),
         withPolicy(OriginalPolicy::keep)},
        {"keep, then another quality", withPolicy(OriginalPolicy::keep),
         withPolicy(OriginalPolicy::keep, 60)},
        {"keep, then replace, registry lost", withPolicy(OriginalPolicy::keep),
         withPolicy(OriginalPolicy::replace), true},
        {"replace, then another quality, registry lost", withPolicy(OriginalPolicy::replace),
         withPolicy(OriginalPolicy::replace, 60), true},
    };
    for (const auto& row : rows) {
        EngineRig rig(&process);
        for (int i = 0; i < 3; ++i) writePhoto(rig.file(u"IMG_%1.jpg"_s.arg(i)), i);
        rig.engine->runOnce(row.before, rig.folder.path());
        const auto settled = snapshot(rig.folder.path());
        rig.engine.reset();
        if (row.registryLost) {
            for (const QString& name : QDir(rig.data.path()).entryList({u"processed-files*"_s}))
                QFile::remove(rig.data.file(name));
        }
        rig.relaunch(&process);
        rig.engine->runOnce(row.after, rig.folder.path());
        EXPECT_EQ(changes(settled, snapshot(rig.folder.path())), "") << row.what;
    }
}

// Compressing the folder again, in a batch and while watching, works from the originals: a kept
// original, or the verified backup of a replaced one, never the program's own output. Each
// result is what a first compression with the new settings gives; no second backup is made.
TEST(LongRun, CompressingAgainStartsFromTheOriginals) {
    for (const bool watching : {false, true}) {
        for (const auto policy : {OriginalPolicy::keep, OriginalPolicy::replace}) {
            EngineRig rig(&process);
            EngineRig reference(&process);
            for (int i = 0; i < 3; ++i) {
                writePhoto(rig.file(u"IMG_%1.jpg"_s.arg(i)), i);
                writePhoto(reference.file(u"IMG_%1.jpg"_s.arg(i)), i);
            }
            rig.engine->runOnce(withPolicy(policy), rig.folder.path());
            const Snapshot first = snapshot(rig.folder.path());
            rig.relaunch(&process);
            if (watching) {
                rig.start(withPolicy(policy, 60));
                rig.engine->compressAgain();
                ASSERT_TRUE(eventually([&] { return rig.history().size() == 6; }, 20s));
                rig.engine->stop();
            } else {
                rig.engine->runOnce(withPolicy(policy, 60), rig.folder.path(), nullptr, 1, true);
            }
            reference.engine->runOnce(withPolicy(policy, 60), reference.folder.path());
            const Snapshot again = snapshot(rig.folder.path());
            const Snapshot fresh = snapshot(reference.folder.path());
            const std::string row = "policy " + std::to_string(int(policy)) + ", watching " +
                                    std::to_string(watching) + ": ";
            EXPECT_EQ(again.size(), first.size()) << row;
            for (const auto& [name, bytes] : again) {
                if (name.startsWith(u'.'))
                    EXPECT_EQ(bytes, first.at(name)) << row << "a backup changed or appeared";
                else
                    EXPECT_EQ(bytes, fresh.at(name)) << row << name.toStdString();
            }
        }
    }
}

// A broken file is tried once per version, across restarts; a failure caused by the
// environment is tried again on a later full scan and succeeds once the cause is gone.
TEST(LongRun, FailuresAreRememberedPerVersion) {
    std::atomic<bool> environmentBroken = true;
    const auto behaviour = [&](EngineContext& context,
                               const QString& file) -> FolderCompressionResult {
        if (file.endsWith(u"broken.jpg"_s))
            throw FileSystemError(FileSystemError::readCorruptFile, u"Broken image"_s);
        if (environmentBroken) throw FileSystemError::fromErrno(ENOSPC, u"Cannot write"_s, file);
        return EngineRig::settle(context, file);
    };
    EngineRig rig(behaviour);
    EngineTiming timing = testing::fastTiming();
    timing.fullScan = 200ms;
    rig.engine->setTimingForTesting(timing);
    testing::writeFile(rig.file(u"broken.jpg"_s), "not a picture");
    testing::writeFile(rig.file(u"photo.jpg"_s), "a picture");
    rig.start();
    ASSERT_TRUE(eventually([&] { return rig.callCount() == 2; }));
    environmentBroken = false;
    EXPECT_TRUE(eventually([&] { return rig.callsEndingWith(u"photo.jpg"_s) == 2; }))
        << "a file that failed for lack of space was not tried again";

    const auto events = rig.events().size();
    for (const bool restart : {true, false}) {  // a restart, then a change of settings
        if (restart) rig.relaunch(behaviour);
        rig.engine->setTimingForTesting(timing);
        rig.start(withPolicy(restart ? OriginalPolicy::keep : OriginalPolicy::replace));
        std::this_thread::sleep_for(1s);
        EXPECT_EQ(rig.callsEndingWith(u"broken.jpg"_s), 1u) << "tried again, restart " << restart;
        EXPECT_EQ(rig.events().size(), events);
    }
}

}  // namespace
}  // namespace velt
