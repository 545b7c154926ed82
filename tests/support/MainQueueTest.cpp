#include <gtest/gtest.h>

#include <thread>

#include "support/MainQueue.h"
#include "support/Task.h"
#include "support/Timing.h"

using namespace ferrow;

namespace {
struct QueueFixture : ::testing::Test {
    void SetUp() override { MainQueue::install(std::make_shared<VirtualClock>()); }
    void TearDown() override { MainQueue::reset(); }
    MainQueue& q() { return MainQueue::shared(); }
    Nanos t0 = kVirtualUptimeBase;
};
}  // namespace

TEST_F(QueueFixture, RunsInDueOrderThenFifoAndAdvancesClock) {
    std::vector<std::string> order;
    q().asyncAfter(ms(20), [&] { order.push_back("b@" + std::to_string((q().now() - t0) / kNanosPerMs)); });
    q().asyncAfter(ms(10), [&] { order.push_back("a@" + std::to_string((q().now() - t0) / kNanosPerMs)); });
    q().asyncAfter(ms(20), [&] { order.push_back("c"); });
    q().async([&] { order.push_back("now"); });
    q().runUntil(t0 + ms(15));
    EXPECT_EQ(order, (std::vector<std::string>{"now", "a@10"}));
    EXPECT_EQ(q().now(), t0 + ms(15));
    q().runUntil(t0 + ms(100));
    EXPECT_EQ(order, (std::vector<std::string>{"now", "a@10", "b@20", "c"}));
}

TEST_F(QueueFixture, CancelledWorkNeverRunsAndReportsState) {
    bool ran = false;
    auto item = mainAsyncAfter(5, [&] { ran = true; });
    EXPECT_TRUE(item.isPending());
    item.cancel();
    q().runUntil(t0 + ms(10));
    EXPECT_FALSE(ran);
    EXPECT_FALSE(item.isPending());
    WorkItem empty;
    empty.cancel();  // harmless
    auto done = mainAsyncAfter(1, [] {});
    q().runUntil(t0 + ms(20));
    EXPECT_FALSE(done.isPending());
    EXPECT_FALSE(done.isCancelled());
}

TEST_F(QueueFixture, BlockedTimeDelaysDueWorkWithoutRunningIt) {
    std::vector<Nanos> seen;
    mainAsyncAfter(100, [&] { seen.push_back(q().now() - t0); });
    q().async([&] { q().clock().block(ms(1000)); });  // a hung platform call
    q().runUntil(t0 + ms(2000));
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0], ms(1000));  // ran late, after the blocked call returned
}

TEST(MainQueueReal, SyncFromAnotherThreadWaitsForTheWork) {
    MainQueue::install(std::make_shared<RealClock>());
    auto& q = MainQueue::shared();
    int value = 0;
    std::thread other([&] {
        q.sync([&] { value = 42; });
        EXPECT_EQ(value, 42);
        q.stop();
    });
    q.run();
    other.join();
    EXPECT_EQ(value, 42);
    EXPECT_EQ(q.syncCount(), 1u);
    MainQueue::reset();
}

TEST_F(QueueFixture, DebounceRunsLatestOnceAfterQuiet) {
    Debouncer d(ms(500));
    std::vector<std::pair<int, Nanos>> runs;
    for (int i = 0; i < 3; ++i) {
        q().runUntil(t0 + ms(100 * i));
        d.call([&, i] { runs.push_back({i, q().now() - t0}); });
    }
    q().runUntil(t0 + ms(5000));
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0], std::make_pair(2, ms(700)));
}

TEST_F(QueueFixture, ThrottleRunsFirstAtOnceAndLatestAtIntervalEnd) {
    Throttler t(ms(2000));
    std::vector<std::pair<int, Nanos>> runs;
    auto at = [&](int msAt, int v) {
        q().runUntil(t0 + ms(msAt));
        t.call([&, v] { runs.push_back({v, q().now() - t0}); });
    };
    at(0, 1);     // leading
    at(500, 2);   // folded
    at(1500, 3);  // latest wins, at 2000
    at(2100, 4);  // inside the interval opened at 2000: runs at 4000
    at(9000, 5);  // quiet again: at once
    q().runUntil(t0 + ms(20000));
    std::vector<std::pair<int, Nanos>> expected{{1, 0}, {3, ms(2000)}, {4, ms(4000)}, {5, ms(9000)}};
    EXPECT_EQ(runs, expected);
}

TEST_F(QueueFixture, RepeaterFiresCountTimesAndStopsFromInside) {
    int fired = 0;
    Repeater r("AXPermissionsChecker", seconds(2.0), -1, [&] {
        ++fired;
        if (fired == 3) r.stop();
    });
    q().runUntil(t0 + ms(60000));
    EXPECT_EQ(fired, 3);
    EXPECT_FALSE(r.isRunning());
    int limited = 0;
    Repeater twice("x", ms(10), 2, [&] { ++limited; });
    q().runUntil(t0 + ms(70000));
    EXPECT_EQ(limited, 2);
}

namespace {
Task<int> pollUntil(int* counter, int target) {
    int polls = 0;
    while (*counter < target && polls < 100) {
        co_await sleepMs(50);
        ++polls;
    }
    co_return polls;
}
Task<void> outer(int* counter, int* result, Nanos* finishedAt) {
    *result = co_await pollUntil(counter, 3);
    *finishedAt = MainQueue::shared().now();
}
}  // namespace

TEST_F(QueueFixture, TasksSuspendOnTheVirtualClockWhileOtherWorkRuns) {
    int counter = 0, result = -1;
    Nanos finished = 0;
    spawn(outer(&counter, &result, &finished));
    for (int i = 1; i <= 3; ++i)
        mainAsyncAfter(120 * i, [&] { ++counter; });
    q().runUntil(t0 + ms(10000));
    EXPECT_EQ(counter, 3);
    EXPECT_EQ(result, 8);  // polls at 50..400; counter reaches 3 at 360
    EXPECT_EQ(finished - t0, ms(400));
}
