#include "SimFixture.h"
#include "platform/sim/SimKeyboardLayout.h"

using namespace zelk;
using namespace zelk::sim;
using zelk::testing::SimFixture;

namespace {
const char* kTwoSpaces = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}, {id: 3}], currentSpace: 1}
apps:
  - bundleID: a.safari
    name: Safari
    running:
      pid: 101
      windows:
        - {id: 11, title: "Here", space: 1}
        - {id: 12, title: "There", space: 2}
  - bundleID: a.mail
    name: Mail
    running: {pid: 102, windows: [{id: 21, title: "Inbox", space: 1}]}
  - bundleID: a.notes
    name: Notes
    launchDelayMs: 300
frontmost: a.safari
focusedWindow: 11
)";

struct Recorder {
    std::vector<WorldChange> changes;
    ferrow::Subscription sub;
    explicit Recorder(SimWorld& w) {
        sub = w.changes.subscribe([this](const WorldChange& c) { changes.push_back(c); });
    }
    std::vector<WorldChange::Kind> kinds() const {
        std::vector<WorldChange::Kind> k;
        for (auto& c : changes)
            k.push_back(c.kind);
        return k;
    }
};
}  // namespace

TEST_F(SimFixture, ActivatingAnAppOnAnotherSpaceSwitchesThenFocuses) {
    load(kTwoSpaces);
    Recorder rec(world());
    ASSERT_TRUE(world().activate(pidOf("a.safari"), 12));
    using K = WorldChange::Kind;
    EXPECT_EQ(rec.kinds(), (std::vector<K>{K::space, K::focus}));
    EXPECT_EQ(rec.changes[0].space, 2u);
    EXPECT_EQ(rec.changes[1].window, 12u);
    EXPECT_EQ(world().focusedWindow(), 12u);
}

TEST_F(SimFixture, AccessibilitySeesOnlyShownSpacesAndTimesOutOnHungApps) {
    load(kTwoSpaces);
    auto& ax = desktop.accessibility();
    auto app = ax.applicationElement(pidOf("a.safari"));
    auto windows = ax.copyAttribute(app, "AXWindows");
    ASSERT_TRUE(windows.ok());
    EXPECT_EQ(std::get<std::vector<platform::AXRef>>(*windows.value).size(), 1u);  // "There" is on Space 2
    EXPECT_EQ(ax.windowNumber(std::get<std::vector<platform::AXRef>>(*windows.value)[0]), 11u);

    world().faults.axTimeout.insert("a.safari");
    ax.setMessagingTimeout(app, 1.0);
    auto before = clock->now();
    auto hung = ax.copyAttribute(app, "AXWindows");
    EXPECT_EQ(hung.error, platform::AXError::cannotComplete);
    EXPECT_EQ(static_cast<int>(hung.error), -25204);
    EXPECT_EQ(clock->now() - before, ferrow::seconds(1.0));  // blocked for the whole time-out

    world().permissions.accessibility = false;
    EXPECT_EQ(ax.copyAttribute(ax.applicationElement(pidOf("a.mail")), "AXTitle").error,
              platform::AXError::apiDisabled);
}

TEST_F(SimFixture, NoValueAttributesAndWindowActions) {
    load(kTwoSpaces);
    auto& ax = desktop.accessibility();
    auto win = SimAccessibility::windowElement(pidOf("a.safari"), 11);
    EXPECT_EQ(ax.copyAttribute(win, "AXDescription").error, platform::AXError::noValue);
    EXPECT_EQ(ax.copyAttribute(win, "AXNoSuchThing").error, platform::AXError::attributeUnsupported);
    EXPECT_EQ(ax.setAttribute(win, "AXMinimized", true), platform::AXError::success);
    EXPECT_TRUE(world().window(11)->minimized);
    EXPECT_EQ(world().focusedWindow(), 0u);  // Safari's only visible window is down
    auto off = SimAccessibility::windowElement(pidOf("a.safari"), 12);
    EXPECT_EQ(ax.performAction(off, "AXRaise"), platform::AXError::invalidUIElement);
}

TEST_F(SimFixture, LaunchTakesItsDelayAndPostsWorkspaceNotificationsAfterwards) {
    load(kTwoSpaces);
    std::vector<platform::WorkspaceEventKind> seen;
    auto sub =
        desktop.workspace().observe([&](const platform::WorkspaceEvent& e) { seen.push_back(e.kind); });
    std::optional<std::int32_t> launched;
    ASSERT_TRUE(world().launch("a.notes", true, [&](std::optional<std::int32_t> pid) { launched = pid; }));
    runFor(299);
    EXPECT_FALSE(launched);
    EXPECT_FALSE(world().app("a.notes")->running);
    runFor(1);
    ASSERT_TRUE(launched);
    EXPECT_EQ(world().frontPid(), *launched);
    runFor(1);  // notifications come on the main queue after the change
    using WK = platform::WorkspaceEventKind;
    EXPECT_EQ(seen, (std::vector<WK>{WK::didLaunch, WK::runningApplicationsChanged, WK::didDeactivate,
                                     WK::didActivate}));

    world().faults.launchFails.insert("a.notes");
    world().terminate(*launched);
    std::optional<std::int32_t> second = 42;
    world().launch("a.notes", true, [&](std::optional<std::int32_t> pid) { second = pid; });
    runFor(400);
    EXPECT_FALSE(second);
}

TEST_F(SimFixture, QuittingTheFrontAppHandsFocusToTheNextOne) {
    load(kTwoSpaces);
    world().activate(pidOf("a.mail"));
    world().activate(pidOf("a.safari"));
    world().terminate(pidOf("a.safari"));
    EXPECT_EQ(world().frontPid(), pidOf("a.mail"));
    EXPECT_EQ(world().focusedWindow(), 21u);
    EXPECT_EQ(world().window(11), nullptr);
}

TEST(SimKeyRecord, ValidatorChecksEveryByte) {
    std::vector<std::uint8_t> r(0xF8, 0);
    r[0x04] = 0xF8;
    r[0x08] = 0x01;
    for (int i = 0x20; i <= 0x2F; ++i)
        r[i] = 0xFF;
    r[0x3A] = 0x10;
    r[0x3C] = 0x39;
    r[0x3D] = 0x30;  // window id 0x3039 = 12345
    EXPECT_EQ(validateKeyWindowRecord(r, 1), "");
    EXPECT_NE(validateKeyWindowRecord(r, 2), "");
    auto bad = r;
    bad[0x30] = 1;
    EXPECT_EQ(validateKeyWindowRecord(bad, 1), "byte 48");
    bad = r;
    bad.pop_back();
    EXPECT_NE(validateKeyWindowRecord(bad, 1), "");
}

TEST_F(SimFixture, KeyWindowRecordsMakeAVisibleWindowKey) {
    load(kTwoSpaces);
    auto& ws = desktop.windowServer();
    world().openWindow("a.safari", SimWindow{13, 0, "Third", {0, 0, 500, 500}, 1});
    world().raiseWithinApp(11);
    std::vector<std::uint8_t> r(0xF8, 0);
    r[0x04] = 0xF8;
    r[0x08] = 0x02;
    for (int i = 0x20; i <= 0x2F; ++i)
        r[i] = 0xFF;
    r[0x3A] = 0x10;
    r[0x3C] = 13;
    auto psn = ws.processForPID(pidOf("a.safari"));
    ASSERT_TRUE(psn);
    EXPECT_TRUE(ws.postEventRecordTo(*psn, r));
    EXPECT_EQ(world().focusedWindow(), 13u);
    r[0x3A] = 0;
    EXPECT_FALSE(ws.postEventRecordTo(*psn, r));
    EXPECT_FALSE(ws.records().back().valid);
}

namespace {
platform::GestureEvent compact(double d, int phase) {
    platform::GestureEvent e;
    e.integers = {{55, 30}, {110, 23}, {123, 1}, {132, phase}};
    e.doubles = {{124, d}, {129, d * 9999}};
    return e;
}
platform::GestureEvent newest(double s, int phase) {
    platform::GestureEvent e;
    e.integers = {{55, 30}, {110, 23}, {132, phase}, {134, phase}, {123, 1}, {115, phase == 1 ? 4 : 0}};
    e.doubles = {
        {124, (phase == 1 ? 0.02 : 0.001) * s}, {125, (phase == 1 ? 0.02 : 0.001) * s}, {126, 0.001}};
    return e;
}
}  // namespace

TEST_F(SimFixture, DockSwipesSwitchSpacesAfterTheLatencyAndChain) {
    load(kTwoSpaces);
    world().spaceSwitchLatencyMs = 200;
    auto& ws = desktop.windowServer();
    // Compact form: right twice, the second while the first still slides.
    ws.postGestureEvent(compact(1.0, 1));
    ws.postGestureEvent(compact(1.0, 4));
    runFor(100);
    EXPECT_EQ(world().displays()[0].currentSpace, 1u);
    ws.postGestureEvent(compact(1.0, 1));
    ws.postGestureEvent(compact(1.0, 4));
    runFor(100);
    EXPECT_EQ(world().displays()[0].currentSpace, 2u);
    runFor(200);
    EXPECT_EQ(world().displays()[0].currentSpace, 3u);
    // At the last Space a further right swipe bounces.
    ws.postGestureEvent(compact(1.0, 1));
    ws.postGestureEvent(compact(1.0, 4));
    runFor(300);
    EXPECT_EQ(world().displays()[0].currentSpace, 3u);
    // Newest form: a negative sign means right, so a positive one goes left.
    ws.postGestureEvent(newest(1.0, 1));
    ws.postGestureEvent(newest(1.0, 4));
    runFor(300);
    EXPECT_EQ(world().displays()[0].currentSpace, 2u);
    // An end without a begin does nothing.
    ws.postGestureEvent(compact(-1.0, 4));
    runFor(300);
    EXPECT_EQ(world().displays()[0].currentSpace, 2u);
}

TEST_F(SimFixture, WindowListHidesNamesWithoutScreenRecordingAndShowsDockOverlays) {
    load(kTwoSpaces);
    auto& ws = desktop.windowServer();
    auto all = ws.windowList(platform::windowlist::excludeDesktopElements, 0);
    EXPECT_EQ(all.size(), 3u);
    auto onScreen = ws.windowList(platform::windowlist::onScreenOnly, 0);
    EXPECT_EQ(onScreen.size(), 2u);
    world().permissions.screenRecording = false;
    EXPECT_FALSE(ws.windowList(platform::windowlist::onScreenOnly, 0)[0].name.has_value());
    ws.coreDockSendNotification("com.apple.expose.awake");
    auto rows = ws.windowList(platform::windowlist::onScreenOnly, 0);
    int a = 0, b = 0;
    for (auto& r : rows) {
        if (r.ownerName == "Dock" && r.layer == 20) ++a;
        if (r.ownerName == "Dock" && r.layer == 18) ++b;
    }
    EXPECT_GT(b, 0);
    EXPECT_LT(b, a);  // Mission Control
}

TEST_F(SimFixture, KeyboardLayoutsMapPhysicalKeys) {
    // Physical QWERTY "s" (code 1) types "o" on Dvorak; "q" (12) types "a" on AZERTY.
    EXPECT_EQ(SimKeyboardLayout::key("dvorak", 1), Key::o);
    EXPECT_EQ(SimKeyboardLayout::keyCode("dvorak", Key::s), std::optional<std::uint16_t>(41));
    EXPECT_EQ(SimKeyboardLayout::key("azerty", 12), Key::a);
    EXPECT_EQ(SimKeyboardLayout::key("qwerty", 48), Key::tab);
    for (int k = 0; k < kKeyCount; ++k) {
        auto code = SimKeyboardLayout::keyCode("dvorak", static_cast<Key>(k));
        if (code) {
            EXPECT_EQ(SimKeyboardLayout::key("dvorak", *code), static_cast<Key>(k));
        }
    }
}

TEST_F(SimFixture, TapSeesEventsOnlyWhileAliveAndPassedKeysReachTheFrontApp) {
    load(kTwoSpaces);
    auto& tap = desktop.eventTap();
    std::vector<platform::KeyEvent> seen;
    ASSERT_TRUE(tap.createTap([&](const platform::KeyEvent& e) {
        seen.push_back(e);
        return e.keyCode == 1 ? platform::TapDecision::swallow : platform::TapDecision::pass;
    }));
    tap.setHeldModifiers({"rightCommand"});
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].type, platform::EventType::flagsChanged);
    EXPECT_EQ(seen[0].keyCode, 54);
    EXPECT_EQ(seen[0].flags, platform::flag::rcmd | platform::flag::command);
    tap.key(Key::s, true, false);
    tap.key(Key::d, true, false);
    EXPECT_EQ(world().receivedKeys.size(), 1u);  // s was swallowed
    EXPECT_EQ(world().receivedKeys[0].keyCode, 2);
    world().faults.tapDead = true;
    tap.key(Key::s, true, false);
    EXPECT_EQ(world().receivedKeys.size(), 2u);  // a dead tap passes everything unseen
    world().faults.tapDead = false;
    tap.disableBySystem();
    EXPECT_EQ(seen.back().type, platform::EventType::tapDisabledByTimeout);
    EXPECT_FALSE(tap.isTapEnabled());
}

TEST_F(SimFixture, CapsLockPressReachesTheHidCallbackAndFlipsTheLockLater) {
    load(kTwoSpaces);
    auto& tap = desktop.eventTap();
    std::vector<bool> hid;
    tap.startCapsLockMonitor([&](bool held) { hid.push_back(held); });
    tap.setHeldModifiers({"capsLock"});
    EXPECT_FALSE(tap.capsLockState());
    runFor(4);
    EXPECT_FALSE(tap.capsLockState());
    runFor(1);
    EXPECT_TRUE(tap.capsLockState());
    tap.setHeldModifiers({});
    runFor(1);
    EXPECT_EQ(hid, (std::vector<bool>{true, false}));
}

TEST(WorldFile, ErrorsNameTheField) {
    ferrow::MainQueue::install(std::make_shared<ferrow::VirtualClock>());
    auto fails = [](const std::string& yaml) {
        SimDesktop d;
        WorldExtras x;
        std::string error;
        EXPECT_FALSE(loadWorldText(yaml, d, x, error));
        return error;
    };
    EXPECT_EQ(fails("displays: []\napps: []"), "displays: expected a non-empty list");
    EXPECT_EQ(fails("{}"), "apps: missing");
    EXPECT_EQ(fails("apps: [{bundleID: a, running: {windows: [{id: 1, frame: [1, 2]}]}}]"),
              "apps[0].running.windows[0].frame: expected [x, y, w, h]");
    EXPECT_EQ(fails("apps: [{name: x}]"), "apps[0].bundleID: missing");
    EXPECT_EQ(fails("apps: []\nfrontmost: nope"), "frontmost: 'nope' is not a running app");
    EXPECT_EQ(fails("keyboardLayout: colemak\napps: []"),
              "keyboardLayout: unknown layout 'colemak' (qwerty, dvorak or azerty)");
    EXPECT_NE(fails("apps: [").find("line"), std::string::npos);
    ferrow::MainQueue::reset();
}

TEST_F(SimFixture, DefaultWorldIsBelievable) {
    loadDefault();
    EXPECT_EQ(world().displays().size(), 2u);
    EXPECT_GE(world().apps().size(), 12u);
    std::size_t spaces = 0;
    for (auto& d : world().displays())
        spaces += d.spaces.size();
    EXPECT_GE(spaces, 3u);
    EXPECT_EQ(world().focusedWindow(), 1001u);
}
