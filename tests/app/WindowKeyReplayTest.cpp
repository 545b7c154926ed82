// The window trigger with a key reaches a window of the focused app by its key; repeated presses step
// through windows sharing a key, and a key no window uses passes through to the app.
#include "ReplayHelpers.h"

using namespace zelk::testing;

namespace {

const char* kWorld = R"(
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running:
      pid: 101
      windows:
        - {id: 1001, title: "Apple — Docs", frame: [0, 25, 1200, 800], space: 1}
        - {id: 1002, title: "Apple — Blog", frame: [20, 45, 1200, 800], space: 1}
        - {id: 1003, title: "Work — Drafts", frame: [40, 65, 1200, 800], space: 1}
  - bundleID: com.apple.mail
    name: Mail
    running: {pid: 102, windows: [{id: 1011, title: "Inbox", frame: [40, 60, 900, 700], space: 1}]}
frontmost: com.apple.Safari
focusedWindow: 1001
)";

}  // namespace

TEST(WindowKeyReplay, KeysReachTheFocusedAppsWindowsAndStepThroughSharedOnes) {
    auto events = replay(kWorld, R"(
- {at: 1000, flags: [ralt]}
- {at: 1100, tap: b}
- {at: 1300, tap: d}
- {at: 1500, tap: d}
- {at: 1700, tap: d}
- {at: 1900, tap: q}
- {at: 2100, flags: []}
- {at: 3000, end: true}
)");
    auto downs = withoutKeyUps(events, {"key", "focus"});
    std::vector<std::string> expected{
        "1100 key action=swallowed down=true key=b keyCode=11",
        "1100 focus bundleID=com.apple.Safari pid=101 windowID=1002",
        // d is shared by Docs and Drafts: from Blog, the first; then the one after the focused one.
        "1300 key action=swallowed down=true key=d keyCode=2",
        "1300 focus bundleID=com.apple.Safari pid=101 windowID=1001",
        "1500 key action=swallowed down=true key=d keyCode=2",
        "1500 focus bundleID=com.apple.Safari pid=101 windowID=1003",
        "1700 key action=swallowed down=true key=d keyCode=2",
        "1700 focus bundleID=com.apple.Safari pid=101 windowID=1001",
        "1900 key action=passed down=true key=q keyCode=12",
    };
    EXPECT_EQ(downs, expected);
}

TEST(WindowKeyReplay, KeysFollowTheFocusedAppAndItsWindows) {
    auto events = replay(kWorld, R"(
- {at: 500, activate: com.apple.mail}
- {at: 1000, flags: [ralt]}
- {at: 1100, tap: b}
- {at: 1300, tap: a}
- {at: 1500, flags: []}
- {at: 2000, activate: com.apple.Safari}
- {at: 2100, openWindow: {bundleID: com.apple.Safari, id: 1004, title: "Untitled", frame: [0, 25, 800, 600], space: 1}}
- {at: 3000, flags: [ralt]}
- {at: 3100, tap: a}
- {at: 3300, flags: []}
- {at: 4000, end: true}
)",
                         true);
    auto downs = withoutKeyUps(events, {"key"});
    // Mail's one window has no pattern and takes the first free letter; b is Safari's and passes.
    EXPECT_EQ(downs[0], "1100 key action=passed down=true key=b keyCode=11");
    EXPECT_EQ(downs[1], "1300 key action=swallowed down=true key=a keyCode=0");
    // The new Safari window has no pattern key either: it takes a, the first letter not taken.
    EXPECT_EQ(downs[2], "3100 key action=swallowed down=true key=a keyCode=0");
    // The new window took the focus when it opened; the key still aims at it.
    EXPECT_TRUE(hasLog(events, "focus: target window #1004"));
}

TEST(WindowKeyReplay, TheAssignKeyResolvesTheFocusedWindowsRow) {
    auto events = replay(kWorld, R"(
- {at: 1000, flags: [ralt]}
- {at: 1100, tap: equal}
- {at: 1300, flags: []}
- {at: 2000, end: true}
)",
                         true);
    auto lines = logsStartingWith(events, "showWindowAssignPanel");
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0],
              "showWindowAssignPanel(for:) called — app=Safari focusedApp=Safari focusedWindow=1001");
    EXPECT_EQ(lines[1], "showWindowAssignPanel(for:) — resolved AppWindow id=1001 key=d title=Apple — Docs");
    EXPECT_EQ(
        lines[3],
        "showWindowAssignPanel(for:) — opening panel app=Safari key=d title=Apple — Docs hasSpec=false");
}

TEST(WindowKeyReplay, AKeyWithASavedItemIsCaughtAndRunsIt) {
    std::string world = kWorld;
    world += R"(settings:
  windowKeyAssignments:
    - {key: n, appURL: "file:///Applications/Safari.app/", actionKind: 0, webURL: "https://news.example"}
)";
    auto events = replay(world, R"(
- {at: 1000, flags: [ralt]}
- {at: 1100, tap: n}
- {at: 1300, flags: []}
- {at: 2000, end: true}
)",
                         true);
    auto keys = summary(events, {"key"});
    ASSERT_FALSE(keys.empty());
    EXPECT_EQ(keys[0], "1100 key action=swallowed down=true key=n keyCode=45");
    bool ran = false;
    for (auto& e : events)
        ran |= e["kind"] == "log" &&
               e["message"] ==
                   "runWindowKeyAssignments[specialScript]: runner=/bin/zsh script=open -na "
                   "'/Applications/Safari.app' --args --new-window 'https://news.example'";
    EXPECT_TRUE(ran);
}

// Quick presses of a shared key land on a new window each time, before the focus change has reached
// the rows.
TEST(WindowKeyReplay, QuickPressesOfASharedKeyVisitEachWindowOnce) {
    auto events = replay(kWorld, R"(
- {at: 1000, flags: [ralt]}
- {at: 1100, tap: b}
- {at: 1300, tap: d}
- {at: 1320, tap: d}
- {at: 1340, tap: d}
- {at: 1500, flags: []}
- {at: 2000, flags: [ralt]}
- {at: 2100, tap: d}
- {at: 2300, flags: []}
- {at: 3000, end: true}
)");
    auto focus = summary(events, {"focus"});
    std::vector<std::string> expected{
        "1100 focus bundleID=com.apple.Safari pid=101 windowID=1002",
        "1300 focus bundleID=com.apple.Safari pid=101 windowID=1001",
        "1320 focus bundleID=com.apple.Safari pid=101 windowID=1003",
        "1340 focus bundleID=com.apple.Safari pid=101 windowID=1001",
        // A new hold starts after the focused window again.
        "2100 focus bundleID=com.apple.Safari pid=101 windowID=1003",
    };
    EXPECT_EQ(focus, expected);
}

// A saved item added while zelk runs is caught at once under the window trigger.
TEST(WindowKeyReplay, ASavedItemAddedLaterIsCaught) {
    auto events = replay(kWorld, R"(
- {at: 500, setting: {windowKeyAssignments: [{key: n, appURL: "file:///Applications/Safari.app/", actionKind: 0, webURL: "https://news.example"}]}}
- {at: 1000, flags: [ralt]}
- {at: 1100, tap: n}
- {at: 1300, flags: []}
- {at: 2000, end: true}
)",
                         true);
    auto downs = withoutKeyUps(events, {"key"});
    ASSERT_FALSE(downs.empty());
    EXPECT_EQ(downs[0], "1100 key action=swallowed down=true key=n keyCode=45");
    EXPECT_TRUE(hasLog(events, "runWindowKeyAssignments[specialScript]: runner=/bin/zsh"));
}
