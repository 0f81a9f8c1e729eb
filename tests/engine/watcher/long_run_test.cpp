// A watcher that runs for months: quiet when idle, a registry that holds every file, settings that
// act on new files only, failures remembered per version.
#include "engine/pipeline/process.h"
#include "engine_test_rig.h"
#include "support/test_images.h"

#include <gtest/gtest.h>

namespace velt {
namespace {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using testing::EngineRig;
using testing::eventually;

void writePhoto(const QString& path, int seed = 0) {
    ASSERT_TRUE(testing::writeJPEGWithCjpeg(testing::photoLikeBitmap(96 + seed, 64), 95, path));
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

}  // namespace
}  // namespace velt
