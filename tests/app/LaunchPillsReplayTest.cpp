#include "ReplayHelpers.h"

namespace zelk::testing {
namespace {

// Mail is bound to m and not running; it takes `delay` ms to start.
std::string mailWorld(int delay, bool noticeLost = false) {
    std::string world = R"(
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running: {pid: 101, windows: [{id: 1001, title: "Apple", frame: [0, 25, 1200, 800], space: 1}]}
  - {bundleID: com.apple.mail, name: Mail, launchDelayMs: )" +
                        std::to_string(delay) + R"(}
frontmost: com.apple.Safari
settings:
  activationMode: onPress
  appKeyAssignments:
    - {key: m, app: {path: /Applications/Mail.app, originalName: Mail, identifier: com.apple.mail}, index: 0,
       whenAlreadyFocusedAction: 5, launchIfNotRunning: true}
)";
    if (noticeLost) world += "faults: {launchNoticeLost: [com.apple.mail]}\n";
    return world;
}

// The launch goes out when the trigger is released, at 1300: the times below count from there.
const char* kPressM = R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: m}
- {at: 1300, flags: []}
- {at: 12000, end: true}
)";

std::vector<std::string> pillLines(const std::vector<json>& events) {
    std::vector<std::string> out;
    for (auto& e : events)
        if (e["kind"] == "pills")
            out.push_back(e["t"].dump() + " " +
                          (e["visible"].get<bool>() ? e["text"].get<std::string>() : "hidden"));
    return out;
}

TEST(LaunchPillsReplay, ASlowLaunchFromAKeyShowsLaunchingThenLaunched) {
    auto events = replay(mailWorld(2000), kPressM);
    EXPECT_EQ(pillLines(events),
              (std::vector<std::string>{"2800 Launching Mail", "3300 Mail launched", "4500 hidden"}));
    for (auto& e : events)
        if (e["kind"] == "pills" && e["visible"].get<bool>()) {
            EXPECT_EQ(e["pills"][0]["id"], "com.apple.mail");
            EXPECT_EQ(e["frame"].size(), 4u);
        }
}

TEST(LaunchPillsReplay, ALostLaunchNotificationEndsInTakingAWhile) {
    auto events = replay(mailWorld(3000, true), kPressM);
    EXPECT_EQ(pillLines(events), (std::vector<std::string>{"2800 Launching Mail",
                                                           "6300 Mail is taking a while", "8800 hidden"}));
}

TEST(LaunchPillsReplay, TheMachinesLaunchLatencyAddsToTheAppsOwn) {
    auto events = replay(mailWorld(300), R"(
- {at: 500, fault: {launchLatencyMs: 1700}}
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: m}
- {at: 1300, flags: []}
- {at: 8000, end: true}
)");
    EXPECT_EQ(pillLines(events),
              (std::vector<std::string>{"2800 Launching Mail", "3300 Mail launched", "4500 hidden"}));
}

TEST(LaunchPillsReplay, AFastLaunchShowsNoPill) {
    auto events = replay(mailWorld(300), kPressM);
    EXPECT_TRUE(pillLines(events).empty());
    EXPECT_FALSE(summary(events, {"launch"}).empty());
}

}  // namespace
}  // namespace zelk::testing
