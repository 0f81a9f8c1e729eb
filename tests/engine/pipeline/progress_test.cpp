#include "engine/pipeline/smooth_progress.h"

#include <gtest/gtest.h>
#include <atomic>
#include <mutex>
#include <thread>

namespace velt {
namespace {

using namespace std::chrono_literals;

TEST(SmoothProgressValues, EasesOutAndStaysWithinRange) {
    const std::pair<double, int> cases[] = {{-1.0, 55}, {0.0, 55}, {0.25, 69}, {0.5, 79},
                                            {0.75, 85}, {1.0, 88}, {5.0, 88}};
    for (const auto& [fraction, expected] : cases)
        EXPECT_EQ(SmoothProgress::valueAt(55, 88, fraction * 10s, 10s), expected) << fraction;
}

TEST(SmoothProgressTicks, ReportCopiesAndStopWhenDestroyed) {
    std::mutex mutex;
    std::vector<CompressionStats> ticks;
    CompressionStats stats;
    stats.active = 1;
    stats.done = 7;
    {
        SmoothProgress progress(stats, 55, 88, 2s, [&](const CompressionStats& s) {
            const std::lock_guard lock(mutex);
            ticks.push_back(s);
        });
        std::this_thread::sleep_for(650ms);
    }
    const std::lock_guard lock(mutex);
    const auto count = ticks.size();
    ASSERT_GE(count, 2u);
    for (std::size_t i = 0; i < count; ++i) {
        EXPECT_EQ(ticks[i].done, 7);
        ASSERT_TRUE(ticks[i].progress);
        EXPECT_GE(*ticks[i].progress, 55);
        EXPECT_LT(*ticks[i].progress, 88);
        if (i > 0) {
            EXPECT_GE(*ticks[i].progress, *ticks[i - 1].progress);
        }
    }
    std::this_thread::sleep_for(400ms);
    EXPECT_EQ(ticks.size(), count);  // no tick after destruction
}

}  // namespace
}  // namespace velt
