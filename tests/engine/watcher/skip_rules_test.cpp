// The skip decision as a table: what the engine remembers about a file, how much time has passed,
// and what the file looks like now → skip or process. The clock is passed in, so no test sleeps.
#include "engine/watcher/skip_rules.h"

#include "engine_test_rig.h"

#include <gtest/gtest.h>

namespace velt {
namespace {

using namespace std::chrono_literals;

enum class Memory {
    nothing,
    pendingSame,
    pendingOther,
    ownWrite,
    ownWriteOtherContent,
    recentWrite,
    processedSame,
    failedSame,
    failedOther,
    failedRetryIn1s  // the environment caused it
};

struct Row {
    const char* what;
    Memory memory;
    std::chrono::milliseconds elapsed;  // since the remembered moment
    bool skip;
};

const Row rows[] = {
    {"a new file starts waiting", Memory::nothing, 0ms, true},
    {"still settling", Memory::pendingSame, 799ms, true},
    {"held still for the stability interval", Memory::pendingSame, 800ms, false},
    {"changed while waiting starts over", Memory::pendingOther, 5s, true},
    {"the engine's own untouched output", Memory::ownWrite, 1h, true},
    {"its output replaced by someone", Memory::ownWriteOtherContent, 0ms, false},
    {"just touched by the engine", Memory::recentWrite, 3999ms, true},
    {"the cool-down has passed", Memory::recentWrite, 4s, false},
    {"already handled in this version", Memory::processedSame, 1h, true},
    {"failed in this version", Memory::failedSame, 1h, true},
    {"failed, then changed", Memory::failedOther, 0ms, false},
    {"failed for lack of space, before its retry", Memory::failedRetryIn1s, 999ms, true},
    {"failed for lack of space, retried", Memory::failedRetryIn1s, 1s, false},
};

TEST(SkipRules, Table) {
    for (const Row& row : rows) {
        testing::ContextRig rig;
        EngineContext& context = rig.context;
        const QString file = rig.file(QStringLiteral("photo.jpg"));
        testing::writeFile(file, "current content");
        const FileSignature now = *fileSignature(file);
        FileSignature other = now;
        other.size += 1;
        const EngineTiming timing;
        const auto then = EngineClock::now();
        const QString key = standardizedPath(file);
        // Past the wait for new files, so that only the rule under test can skip.
        if (row.memory > Memory::pendingOther) context.files.noteSeenSince(key, now, then - 1h);
        switch (row.memory) {
            case Memory::nothing:
                break;
            case Memory::pendingSame:
                context.files.noteSeenSince(key, now, then);
                break;
            case Memory::pendingOther:
                context.files.noteSeenSince(key, other, then);
                break;
            case Memory::ownWrite:
                context.files.noteOwnWrite(key, {now.size, contentFingerprint(file), then});
                break;
            case Memory::ownWriteOtherContent: {
                auto fingerprint = *contentFingerprint(file);
                fingerprint.headHash ^= 1;
                context.files.noteOwnWrite(key, {now.size, fingerprint, then});
                break;
            }
            case Memory::recentWrite:
                context.files.noteRecentWrite(key, {then, now});
                break;
            case Memory::processedSame:
                context.files.markHandled(key, now);
                break;
            case Memory::failedSame:
                context.files.noteFailed(key, now);
                break;
            case Memory::failedOther:
                context.files.noteFailed(key, other);
                break;
            case Memory::failedRetryIn1s:
                context.files.noteFailed(key, now, then + 1s);
                break;
        }
        EXPECT_EQ(shouldSkip(context, timing, file, then + row.elapsed), row.skip) << row.what;
    }
}

}  // namespace
}  // namespace velt
