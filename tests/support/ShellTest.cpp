#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/FolderWatch.h"
#include "support/MainQueue.h"
#include "support/Shell.h"

using namespace ferrow;

TEST(Shell, CollectsOutputExitCodeAndEnvironment) {
    auto r =
        runShell({"/bin/sh", {"-c", "echo out; echo err >&2; echo $ZELK_T; exit 3"}, 5, {{"ZELK_T", "v"}}});
    EXPECT_TRUE(r.started);
    EXPECT_EQ(r.exitCode, 3);
    EXPECT_EQ(r.output, "out\nv\n");
    EXPECT_EQ(r.errorOutput, "err\n");
}

TEST(Shell, KillsOnTimeoutAndReportsMissingPrograms) {
    auto r = runShell({"/bin/sleep", {"5"}, 0.05});
    EXPECT_TRUE(r.timedOut);
    EXPECT_EQ(r.exitCode, -1);
    auto missing = runShell({"/no/such/program"});
    EXPECT_FALSE(missing.started);
    auto detached = runShell({"/bin/true", {}, 1, {}, false});
    EXPECT_TRUE(detached.started);
}

TEST(FolderWatch, ReportsAFileWrittenInTheFolderOnTheMainQueue) {
    MainQueue::install(std::make_shared<VirtualClock>());
    auto dir = std::filesystem::path(::testing::TempDir()) / "zelk-watch";
    std::filesystem::create_directories(dir);
    std::vector<std::string> seen;
    FolderWatch watch(
        {dir.string()}, [&](const std::string& p) { seen.push_back(p); }, false);
    ASSERT_TRUE(watch.isWatching());
    std::ofstream(dir / "config.yaml") << "a: 1\n";
    ASSERT_GT(watch.processEvents(5000), 0);  // the event is already queued by the kernel
    EXPECT_TRUE(seen.empty());                // nothing runs until the main queue does
    MainQueue::shared().runDue();
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen.front(), (dir / "config.yaml").string());
    MainQueue::reset();
}
