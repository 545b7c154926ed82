#include <gtest/gtest.h>

#include <algorithm>

#include "platform/draw/StageToastPainter.h"
#include "stages/StageToast.h"
#include "support/MainQueue.h"

namespace zelk::testing {
namespace {

using stages::ToastSpan;

TEST(StageToastText, DoubleStarsMarkTheBoldRunsAndAnUnpairedMarkerStaysText) {
    EXPECT_EQ(stages::toastSpans("Stage **Work** has windows on another Space."),
              (std::vector<ToastSpan>{
                  {"Stage ", false}, {"Work", true}, {" has windows on another Space.", false}}));
    EXPECT_EQ(stages::toastSpans("**A****B**"), (std::vector<ToastSpan>{{"A", true}, {"B", true}}));
    EXPECT_EQ(stages::toastSpans("a ** b"), (std::vector<ToastSpan>{{"a ** b", false}}));
    EXPECT_EQ(stages::plainToastTitle("Stage **<Work & Play>** stopped"), "Stage <Work & Play> stopped");
}

TEST(StageToastFrame, TheCardIsCentredNearTheTopAndNeverWiderThanTheScreen) {
    EXPECT_EQ(stages::stageToastFrame({0, 25, 1440, 875}), (Rect{490, 73, 460, 64}));
    EXPECT_EQ(stages::stageToastFrame({1440, 0, 300, 600}), (Rect{1440, 48, 300, 64}));
}

struct StageToastTimer : ::testing::Test {
    std::shared_ptr<ferrow::VirtualClock> clock = std::make_shared<ferrow::VirtualClock>();
    ferrow::MainQueue& queue = ferrow::MainQueue::install(clock);
    ~StageToastTimer() override { ferrow::MainQueue::reset(); }
    void advance(std::int64_t ms) { queue.runUntil(clock->now() + ferrow::ms(ms)); }
};

TEST_F(StageToastTimer, AToastLeavesAfterItsTimeAndANewOneRestartsTheClock) {
    stages::StageToast toast(nullptr);
    toast.show("one", "", 4000);
    advance(3000);
    toast.show("two", "", 4000);
    EXPECT_EQ(toast.model().get().seq, 2u);
    advance(3500);
    EXPECT_TRUE(toast.model().get().visible);
    EXPECT_EQ(toast.model().get().title, "two");
    advance(600);
    EXPECT_FALSE(toast.model().get().visible);
}

TEST(StageToastPainter, TheCardFillsItsFrameAndAHiddenToastDrawsNothing) {
    stages::StageToastModel m;
    m.visible = true;
    m.title = "Stage **Work** has windows on another Space.";
    m.line = "Switch to that Space first, or enable multi-space mode in Settings.";
    m.frame = {20, 10, 460, 64};
    draw::ImageSurface s(500, 100);
    draw::drawStageToast(s, m);
    auto alpha = [&s](int x, int y) {
        return s.pixels()[std::size_t(y) * std::size_t(s.size().width) + std::size_t(x)] >> 24;
    };
    EXPECT_GT(alpha(250, 42), 0u);  // inside the card
    EXPECT_EQ(alpha(10, 42), 0u);   // left of it
    EXPECT_EQ(alpha(250, 90), 0u);  // below it
    m.visible = false;
    draw::ImageSurface empty(500, 100);
    draw::drawStageToast(empty, m);
    auto pixels = empty.pixels();
    EXPECT_TRUE(std::all_of(pixels.begin(), pixels.end(), [](std::uint32_t p) { return p == 0; }));
}

}  // namespace
}  // namespace zelk::testing
