// What a tick looks at: the whole listing at first and after an overflow, the names events
// report, and on the periodic check a slice of the files listed last while the folder's entries
// are unchanged (a change no event reports is still seen).
#include "engine/watcher/scan_planner.h"
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QObject>
#include <QTemporaryDir>

namespace velt {
namespace {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

TEST(ScanPlanner, ListsOnlyWhenItMustAndSweepsIdleFolders) {
    QTemporaryDir folder;
    QObject owner;
    FolderEvents events(folder.path(), &owner);
    ASSERT_TRUE(events.isActive());
    ScanPlanner planner;
    const auto start = EngineClock::now();
    const auto check = 30s;

    ASSERT_TRUE(planner.tick(&events, false, start, check));
    EXPECT_TRUE(planner.takePlan(folder.path()).listing);
    QStringList listed;
    for (int i = 0; i < ScanPlanner::sweepSlice + 2; ++i) listed << u"/x/%1.jpg"_s.arg(i);
    planner.listed(listed);

    EXPECT_FALSE(planner.tick(&events, false, start + 1s, check)) << "an idle tick looked";
    EXPECT_TRUE(planner.tick(&events, true, start + 2s, check)) << "a waiting file was left";
    EXPECT_FALSE(planner.takePlan(folder.path()).listing);

    testing::writeFile(QDir(folder.path()).filePath(u"new.jpg"_s), "x");
    ASSERT_TRUE(planner.tick(&events, false, start + 3s, check));
    auto plan = planner.takePlan(folder.path());
    EXPECT_FALSE(plan.listing);
    EXPECT_EQ(plan.names, std::vector<QByteArray>{"new.jpg"});

    // The periodic check after the folder changed lists it; when it did not, it sweeps a slice
    // and the next check the rest, from the start again.
    ASSERT_TRUE(planner.tick(&events, false, start + 40s, check));
    EXPECT_TRUE(planner.takePlan(folder.path()).listing);
    planner.listed(listed);
    ASSERT_TRUE(planner.tick(&events, false, start + 80s, check));
    plan = planner.takePlan(folder.path());
    EXPECT_FALSE(plan.listing);
    EXPECT_EQ(plan.again, listed.mid(0, ScanPlanner::sweepSlice));
    ASSERT_TRUE(planner.tick(&events, false, start + 120s, check));
    EXPECT_EQ(planner.takePlan(folder.path()).again,
              listed.mid(ScanPlanner::sweepSlice) + listed.mid(0, ScanPlanner::sweepSlice - 2));

    // Without file events every tick lists.
    EXPECT_TRUE(planner.tick(nullptr, false, start + 121s, check));
    EXPECT_TRUE(planner.takePlan(folder.path()).listing);
}

}  // namespace
}  // namespace velt
