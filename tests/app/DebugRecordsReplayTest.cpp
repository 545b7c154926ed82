// The debug commands that read the agent's own pieces: the window watch, the posted Command-N, the
// placement preview and the tab cycle's state, through the command protocol on the replay bench.
#include "ReplayHelpers.h"

namespace zelk::testing {
namespace {

const char* kWorld = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}], currentSpace: 1}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running: {pid: 101, windows: [{id: 1001, title: "Apple", space: 1}, {id: 1002, title: "News", space: 1}]}
  - bundleID: com.apple.mail
    name: Mail
    running: {pid: 102, windows: [{id: 1011, title: "Inbox", space: 1}]}
frontmost: com.apple.Safari
focusedWindow: 1001
settings: {hijackCommandTab: true}
)";

// The reply to the command sent at `t`.
json replyAt(const std::vector<json>& events, double t) {
    for (auto& e : events)
        if (e["kind"] == "reply" && e["t"].get<double>() == t) return e["response"];
    return nullptr;
}

std::vector<std::string> watched(const json& reply) {
    std::vector<std::string> out;
    for (auto& e : reply["debug"]["windowEvents"]["events"])
        out.push_back(e["event"].get<std::string>() + " " + e["id"].dump());
    return out;
}

}  // namespace

TEST(DebugRecordsReplay, TheWatchReportsWindowChangesUntilItsSecondsRunOut) {
    auto events = replay(kWorld, R"(
- {at: 1000, command: {command: debug-watch-start, seconds: 2}}
- {at: 1100, closeWindow: 1002}
- {at: 1200, activate: com.apple.mail}
- {at: 1500, command: {command: debug-watch-fetch}}
- {at: 1600, command: {command: debug-watch-fetch}}
- {at: 3200, closeWindow: 1011}
- {at: 3300, command: {command: debug-watch-fetch}}
- {at: 3400, command: {command: debug-watch-start, seconds: 0}}
- {at: 4000, end: true}
)");
    auto first = replyAt(events, 1500);
    ASSERT_EQ(first["ok"], true) << first.dump();
    EXPECT_EQ(watched(first), (std::vector<std::string>{"closed 1002", "focused 1011"}));
    EXPECT_TRUE(first["debug"]["windowEvents"]["watching"].get<bool>());
    // A fetch hands each event over once.
    EXPECT_TRUE(watched(replyAt(events, 1600)).empty());
    // Past its two seconds the watch has stopped and sees nothing more.
    auto late = replyAt(events, 3300);
    EXPECT_TRUE(watched(late).empty());
    EXPECT_FALSE(late["debug"]["windowEvents"]["watching"].get<bool>());
    EXPECT_EQ(replyAt(events, 3400)["error"],
              "debug-watch-start: seconds must be more than 0 and at most 3600");
}

TEST(DebugRecordsReplay, CommandNIsPostedByTheRouteAskedAndThePlacementIsOnlyPreviewed) {
    auto events = replay(kWorld, R"(
- {at: 1000, command: {command: debug-send-cmd-n, appQuery: mail, mode: "1"}}
- {at: 1100, command: {command: debug-send-cmd-n, mode: "7"}}
- {at: 1200, command: {command: debug-place, position: left-half}}
- {at: 1300, command: {command: debug-place, position: sideways}}
- {at: 2000, end: true}
)");
    auto sent = replyAt(events, 1000);
    ASSERT_EQ(sent["ok"], true) << sent.dump();
    EXPECT_EQ(sent["debug"]["windowEvents"]["bundleID"], "com.apple.mail");
    auto posted = summary(events, {"posted"});
    ASSERT_EQ(posted.size(), 2u);
    EXPECT_NE(posted[0].find("route=toPid"), std::string::npos) << posted[0];
    EXPECT_EQ(replyAt(events, 1100)["error"], "debug-send-cmd-n: route must be 0, 1 or 2");

    auto place = replyAt(events, 1200);
    ASSERT_EQ(place["ok"], true) << place.dump();
    const auto& preview = place["debug"]["placePreview"];
    EXPECT_EQ(preview["windowID"], 1001);
    ASSERT_TRUE(preview["frame"].is_array());
    EXPECT_EQ(preview["frame"][2].get<double>() * 2, 1440);
    // Nothing moved.
    for (auto& e : events) {
        if (e["kind"] == "window") {
            EXPECT_FALSE(e.contains("frame")) << e.dump();
        }
    }
    EXPECT_EQ(replyAt(events, 1300)["error"], "unknown position 'sideways'");
}

TEST(DebugRecordsReplay, TheTabCycleRecordShowsTheRunningCycle) {
    auto events = replay(kWorld, R"(
- {at: 500, command: {command: debug-tab-cycle}}
- {at: 1000, flags: [lcmd]}
- {at: 1100, tap: tab}
- {at: 1200, command: {command: debug-tab-cycle}}
- {at: 1300, flags: []}
- {at: 2000, end: true}
)");
    EXPECT_FALSE(replyAt(events, 500)["debug"]["tabCycle"]["cycling"].get<bool>());
    auto running = replyAt(events, 1200)["debug"]["tabCycle"];
    EXPECT_TRUE(running["cycling"].get<bool>());
    EXPECT_EQ(running["index"], 1);
    ASSERT_EQ(running["rows"].size(), 3u);
    EXPECT_EQ(running["rows"][0]["windowID"], 1001);
}

}  // namespace zelk::testing
