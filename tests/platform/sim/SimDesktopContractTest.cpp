// What the program relies on from the simulated desktop, asked through the platform interfaces the way
// the program asks: notifications and their order, hung and dead apps, Spaces, minimised windows,
// missing permissions.
#include <algorithm>

#include <fmt/format.h>

#include "SimFixture.h"

using namespace zelk;
using namespace zelk::sim;
using platform::AXError;
using platform::AXRef;
using zelk::testing::SimFixture;

namespace {

// Two displays; Space 3 is a full-screen Space. Safari has a window on a Space nobody shows, Mail a
// minimised window, Terminal lives on the second display, MenuThing is a menu-bar app.
const char* kDesk = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}, {id: 3, fullscreen: true}], currentSpace: 1}
  - {id: 2, frame: [1440, 0, 1920, 1080], spaces: [{id: 10}, {id: 11}], currentSpace: 10}
apps:
  - bundleID: a.safari
    name: Safari
    running: {pid: 101, windows: [{id: 11, title: "Here", space: 1}, {id: 12, title: "There", space: 2}]}
  - bundleID: a.mail
    name: Mail
    running:
      pid: 102
      windows:
        - {id: 21, title: "Inbox", space: 1}
        - {id: 22, title: "Draft", space: 1, minimized: true}
  - bundleID: a.term
    name: Terminal
    running: {pid: 103, windows: [{id: 31, title: "zsh", frame: [1500, 50, 800, 600], space: 10}]}
  - bundleID: a.notes
    name: Notes
    path: /Applications/Notes.app
    launchDelayMs: 300
  - bundleID: a.menu
    name: MenuThing
    kind: accessory
    running: {pid: 104}
frontmost: a.safari
focusedWindow: 11
)";

const std::vector<std::string> kAXNotifications{
    "AXApplicationActivated", "AXApplicationDeactivated", "AXApplicationHidden",
    "AXApplicationShown",     "AXFocusedWindowChanged",   "AXWindowCreated",
    "AXUIElementDestroyed",   "AXWindowMiniaturized",     "AXWindowDeminiaturized"};

std::string workspaceName(platform::WorkspaceEventKind k) {
    using WK = platform::WorkspaceEventKind;
    switch (k) {
        case WK::didLaunch:
            return "didLaunch";
        case WK::didTerminate:
            return "didTerminate";
        case WK::didActivate:
            return "didActivate";
        case WK::didDeactivate:
            return "didDeactivate";
        case WK::didHide:
            return "didHide";
        case WK::didUnhide:
            return "didUnhide";
        case WK::activeSpaceDidChange:
            return "activeSpaceDidChange";
        case WK::runningApplicationsChanged:
            return "runningApplicationsChanged";
        case WK::screenParametersChanged:
            return "screenParametersChanged";
    }
    return "?";
}

// What a program observing the desktop hears, per channel, as it arrives on the main queue.
struct Listener {
    std::vector<std::string> workspace;  // "didActivate a.mail"
    std::vector<std::string> ax;         // "102 AXApplicationActivated" or "102 AXFocusedWindowChanged 21"
    ferrow::Subscription sub;
    platform::Accessibility& ax_;
    std::vector<std::uint64_t> observers;

    Listener(SimDesktop& desktop, const std::vector<std::int32_t>& pids) : ax_(desktop.accessibility()) {
        sub = desktop.workspace().observe([this](const platform::WorkspaceEvent& e) {
            workspace.push_back(e.app ? fmt::format("{} {}", workspaceName(e.kind), e.app->bundleID)
                                      : std::string(workspaceName(e.kind)));
        });
        auto& ax = desktop.accessibility();
        for (auto pid : pids) {
            auto observer = ax.createObserver(pid, [this, pid, &ax](AXRef element, const std::string& name) {
                std::string line = fmt::format("{} {}", pid, name);
                if (auto w = ax.windowNumber(element)) line += fmt::format(" {}", w);
                this->ax.push_back(line);
            });
            EXPECT_NE(observer, 0u);
            observers.push_back(observer);
            for (auto& n : kAXNotifications)
                EXPECT_EQ(ax.addNotification(observer, ax.applicationElement(pid), n), AXError::success);
        }
    }
    ~Listener() {
        for (auto o : observers)
            ax_.destroyObserver(o);
    }
    void clear() {
        workspace.clear();
        ax.clear();
    }
};

struct SimContract : SimFixture {
    void SetUp() override { load(kDesk); }
    std::vector<AXRef> axWindows(std::int32_t pid) {
        auto r = desktop.accessibility().copyAttribute(desktop.accessibility().applicationElement(pid),
                                                       "AXWindows");
        EXPECT_TRUE(r.ok());
        return r.ok() ? std::get<std::vector<AXRef>>(*r.value) : std::vector<AXRef>{};
    }
    std::vector<std::uint32_t> axWindowNumbers(std::int32_t pid) {
        std::vector<std::uint32_t> out;
        for (auto ref : axWindows(pid))
            out.push_back(desktop.accessibility().windowNumber(ref));
        return out;
    }
    std::optional<std::uint32_t> axFocusedWindow(std::int32_t pid) {
        auto& ax = desktop.accessibility();
        auto r = ax.copyAttribute(ax.applicationElement(pid), "AXFocusedWindow");
        if (!r.ok()) return std::nullopt;
        return ax.windowNumber(std::get<AXRef>(*r.value));
    }
    std::vector<std::uint32_t> onScreen() {
        std::vector<std::uint32_t> out;
        for (auto& row : desktop.windowServer().windowList(platform::windowlist::onScreenOnly, 0))
            out.push_back(row.number);
        std::sort(out.begin(), out.end());
        return out;
    }
    std::string uuid(std::size_t display) { return world().displays()[display].uuid; }
};

}  // namespace

TEST_F(SimContract, ActivationIsImmediateStateThenNotifiesDeactivationActivationAndFocusInOrder) {
    Listener heard(desktop, {101, 102, 103});
    auto& ws = desktop.workspace();
    ASSERT_TRUE(ws.activate(pidOf("a.mail"), false));
    // The state changes at once; the notifications come later, on the main queue.
    EXPECT_EQ(ws.frontmostApplication()->bundleID, "a.mail");
    EXPECT_TRUE(heard.workspace.empty());
    EXPECT_TRUE(heard.ax.empty());
    runFor(0);
    EXPECT_EQ(heard.workspace, (std::vector<std::string>{"didDeactivate a.safari", "didActivate a.mail"}));
    // The minimised Draft is not what comes forward.
    EXPECT_EQ(heard.ax,
              (std::vector<std::string>{"101 AXApplicationDeactivated", "102 AXApplicationActivated",
                                        "102 AXFocusedWindowChanged 21"}));
    EXPECT_EQ(axFocusedWindow(102), 21u);
    auto& ax = desktop.accessibility();
    auto focusedApp = ax.copyAttribute(ax.systemWideElement(), "AXFocusedApplication");
    ASSERT_TRUE(focusedApp.ok());
    EXPECT_EQ(ax.pidOf(std::get<AXRef>(*focusedApp.value)), 102);

    // Activating the front app again says nothing; a menu-bar app can't be brought forward.
    heard.clear();
    EXPECT_TRUE(ws.activate(pidOf("a.mail"), false));
    EXPECT_FALSE(ws.activate(104, false));
    runFor(0);
    EXPECT_TRUE(heard.workspace.empty());
    EXPECT_TRUE(heard.ax.empty());
    EXPECT_EQ(ws.frontmostApplication()->pid, 102);

    // Restoring a minimised window of the front app changes only the focused window.
    ASSERT_EQ(ax.setAttribute(SimAccessibility::windowElement(102, 22), "AXMinimized", false),
              AXError::success);
    runFor(0);
    EXPECT_TRUE(heard.workspace.empty());
    EXPECT_EQ(heard.ax,
              (std::vector<std::string>{"102 AXWindowDeminiaturized 22", "102 AXFocusedWindowChanged 22"}));
}

TEST_F(SimContract, HidingUnhidingAndQuittingNotifyAndHandFocusOn) {
    Listener heard(desktop, {101, 102});
    auto& ws = desktop.workspace();
    ASSERT_TRUE(ws.hide(101));
    runFor(0);
    EXPECT_EQ(heard.workspace,
              (std::vector<std::string>{"didHide a.safari", "didDeactivate a.safari", "didActivate a.mail"}));
    EXPECT_EQ(heard.ax,
              (std::vector<std::string>{"101 AXApplicationHidden", "101 AXApplicationDeactivated",
                                        "102 AXApplicationActivated", "102 AXFocusedWindowChanged 21"}));
    EXPECT_TRUE(ws.runningApp(101)->hidden);
    EXPECT_EQ(onScreen(), (std::vector<std::uint32_t>{21, 31}));
    // A hidden app still lists its windows to accessibility.
    EXPECT_EQ(axWindowNumbers(101), (std::vector<std::uint32_t>{11}));
    EXPECT_FALSE(ws.hide(101));  // already hidden: nothing happens

    heard.clear();
    ASSERT_TRUE(ws.unhide(101));
    runFor(0);
    EXPECT_EQ(heard.workspace, (std::vector<std::string>{"didUnhide a.safari"}));
    EXPECT_EQ(ws.frontmostApplication()->pid, 102);  // showing an app doesn't activate it
    EXPECT_EQ(onScreen(), (std::vector<std::uint32_t>{11, 21, 31}));

    heard.clear();
    ASSERT_TRUE(ws.activate(101, false));
    ASSERT_TRUE(ws.terminate(101));
    runFor(0);
    EXPECT_EQ(heard.workspace, (std::vector<std::string>{
                                   "didDeactivate a.mail", "didActivate a.safari", "didTerminate a.safari",
                                   "runningApplicationsChanged", "didActivate a.mail"}));
    EXPECT_EQ(ws.frontmostApplication()->pid, 102);
    EXPECT_FALSE(ws.runningApp(101));
    // The dead app's windows are gone from the window server, and accessibility answers as for a dead peer.
    auto& server = desktop.windowServer();
    EXPECT_FALSE(server.windowTitle(11));
    EXPECT_FALSE(server.windowTitle(12));
    EXPECT_FALSE(server.processForPID(101));
    auto& ax = desktop.accessibility();
    EXPECT_EQ(ax.copyAttribute(ax.applicationElement(101), "AXWindows").error, AXError::cannotComplete);
    EXPECT_FALSE(ws.terminate(101));
}

TEST_F(SimContract, OpeningAnAppTakesItsLaunchDelayAndEveryCallerHearsTheResult) {
    Listener heard(desktop, {});
    std::vector<std::uint8_t> created;
    desktop.windowServer().registerNotifyProc(
        1325, [&](int, const std::vector<std::uint8_t>& payload) { created.push_back(payload[8]); });
    auto& ws = desktop.workspace();
    platform::OpenConfiguration config;
    config.activates = true;
    std::vector<std::optional<std::int32_t>> results;
    auto done = [&](platform::LaunchResult r) {
        results.push_back(r.app ? std::optional(r.app->pid) : std::nullopt);
    };
    ws.openApplication("/Applications/Notes.app", config, done);
    runFor(100);
    ws.openApplication("/Applications/Notes.app", config, done);  // a second open while it starts
    runFor(199);
    EXPECT_FALSE(world().app("a.notes")->running);
    EXPECT_TRUE(results.empty());
    EXPECT_TRUE(heard.workspace.empty());
    runFor(1);
    runFor(0);
    ASSERT_TRUE(world().app("a.notes")->running);
    std::int32_t pid = world().app("a.notes")->pid;
    EXPECT_EQ(results, (std::vector<std::optional<std::int32_t>>{pid, pid}));
    EXPECT_EQ(heard.workspace, (std::vector<std::string>{"didLaunch a.notes", "runningApplicationsChanged",
                                                         "didDeactivate a.safari", "didActivate a.notes"}));
    EXPECT_EQ(created.size(), 1u);
    EXPECT_EQ(ws.frontmostApplication()->pid, pid);
    EXPECT_EQ(axFocusedWindow(pid), world().app("a.notes")->windowOrder.front());

    // Opening a running app brings it forward without a launch.
    heard.clear();
    ws.openApplication("/Applications/Mail.app", config, done);
    runFor(0);
    EXPECT_EQ(heard.workspace, (std::vector<std::string>{"didDeactivate a.notes", "didActivate a.mail"}));
    EXPECT_EQ(results.back(), 102);

    ws.openApplication("/Applications/Nothing.app", config, done);
    runFor(0);
    EXPECT_EQ(results.back(), std::nullopt);
}

TEST_F(SimContract, AHungAppTimesOutAloneWhileTheWindowServerStillAnswersForIt) {
    auto& ax = desktop.accessibility();
    auto& server = desktop.windowServer();
    world().faults.axTimeout.insert("a.safari");
    auto safari = ax.applicationElement(101);
    auto mail = ax.applicationElement(102);
    ax.setMessagingTimeout(safari, 1.0);
    ax.setMessagingTimeout(mail, 1.0);

    auto before = clock->now();
    EXPECT_TRUE(ax.copyAttribute(mail, "AXWindows").ok());
    EXPECT_EQ(clock->now(), before);  // the healthy app answers at once
    EXPECT_EQ(ax.copyAttribute(safari, "AXTitle").error, AXError::cannotComplete);
    EXPECT_EQ(ax.performAction(SimAccessibility::windowElement(101, 11), "AXRaise"), AXError::cannotComplete);
    auto observer = ax.createObserver(101, [](AXRef, const std::string&) {});
    EXPECT_EQ(ax.addNotification(observer, safari, "AXWindowCreated"), AXError::cannotComplete);
    EXPECT_EQ(clock->now() - before, ferrow::seconds(3.0));  // each call waits out the time-out
    // The window server knows the hung app's windows regardless.
    EXPECT_EQ(server.windowTitle(11), "Here");
    auto owner = server.windowOwner(11);
    ASSERT_TRUE(owner);
    EXPECT_EQ(server.connectionPID(*owner), 101);

    world().faults.axTimeout.erase("a.safari");
    EXPECT_EQ(ax.copyAttribute(safari, "AXTitle").error, AXError::success);
}

TEST_F(SimContract, AWindowOnAHiddenSpaceIsKnownOnlyToTheWindowServerUntilItsSpaceShows) {
    auto& ax = desktop.accessibility();
    auto& server = desktop.windowServer();
    EXPECT_EQ(axWindowNumbers(101), (std::vector<std::uint32_t>{11}));
    EXPECT_EQ(ax.copyAttribute(SimAccessibility::windowElement(101, 12), "AXTitle").error,
              AXError::invalidUIElement);
    EXPECT_EQ(server.windowTitle(12), "There");
    EXPECT_EQ(server.spacesForWindows(7, {12}), (std::vector<std::uint64_t>{2}));
    EXPECT_EQ(server.windowsOnSpace(2, 7), (std::vector<std::uint32_t>{12}));
    auto all = server.windowList(platform::windowlist::excludeDesktopElements, 0);
    auto row = std::find_if(all.begin(), all.end(), [](auto& r) { return r.number == 12; });
    ASSERT_NE(row, all.end());
    EXPECT_FALSE(row->isOnscreen);

    Listener heard(desktop, {101});
    ASSERT_TRUE(server.managedDisplaySetCurrentSpace(uuid(0), 2));
    runFor(0);
    EXPECT_EQ(heard.workspace, (std::vector<std::string>{"activeSpaceDidChange"}));
    EXPECT_EQ(heard.ax, (std::vector<std::string>{"101 AXFocusedWindowChanged 12"}));
    EXPECT_EQ(axWindowNumbers(101), (std::vector<std::uint32_t>{12}));
    EXPECT_EQ(server.activeSpace(), 2u);
}

TEST_F(SimContract, MinimisedWindowsStayListedButNeverOnScreenOrFocused) {
    auto& ax = desktop.accessibility();
    auto& server = desktop.windowServer();
    auto numbers = axWindowNumbers(102);
    std::sort(numbers.begin(), numbers.end());
    EXPECT_EQ(numbers, (std::vector<std::uint32_t>{21, 22}));
    EXPECT_EQ(ax.copyAttribute(SimAccessibility::windowElement(102, 22), "AXMinimized").value,
              platform::AXValue(true));
    auto onSpace = server.windowsOnSpace(1, 2);
    EXPECT_EQ(std::count(onSpace.begin(), onSpace.end(), 22u), 0);
    onSpace = server.windowsOnSpace(1, 7);
    EXPECT_EQ(std::count(onSpace.begin(), onSpace.end(), 22u), 1);
    auto shown = onScreen();
    EXPECT_EQ(std::count(shown.begin(), shown.end(), 22u), 0);

    // Minimising the last visible window leaves the app in front with no focused window.
    desktop.workspace().activate(102, false);
    ASSERT_EQ(ax.setAttribute(SimAccessibility::windowElement(102, 21), "AXMinimized", true),
              AXError::success);
    EXPECT_EQ(desktop.workspace().frontmostApplication()->pid, 102);
    EXPECT_FALSE(axFocusedWindow(102));
    EXPECT_EQ(world().focusedWindow(), 0u);
    // Activating it again brings back neither on its own.
    desktop.workspace().activate(102, false);
    EXPECT_EQ(world().focusedWindow(), 0u);
}

TEST_F(SimContract, ClosingTheFocusedWindowFocusesTheNextVisibleOneOfTheApp) {
    // Mail's windows front to back: Inbox, the minimised Draft, one on a Space nobody shows, Notes.
    world().openWindow("a.mail", SimWindow{24, 0, "Notes", {0, 25, 500, 500}, 1});
    world().openWindow("a.mail", SimWindow{23, 0, "Elsewhere", {0, 25, 500, 500}, 2});
    world().raiseWithinApp(22);
    world().raiseWithinApp(21);
    ASSERT_EQ(world().app("a.mail")->windowOrder, (std::vector<std::uint32_t>{21, 22, 23, 24}));
    desktop.workspace().activate(102, false);
    ASSERT_TRUE(world().closeWindow(21));
    EXPECT_EQ(world().focusedWindow(), 24u);
    EXPECT_EQ(axFocusedWindow(102), 24u);
}

TEST_F(SimContract, WithoutTheAccessibilityPermissionEveryCallFailsAndTheWindowServerStillWorks) {
    auto& ax = desktop.accessibility();
    auto observer = ax.createObserver(101, [](AXRef, const std::string&) {});
    world().permissions.accessibility = false;
    EXPECT_FALSE(ax.isProcessTrusted());
    EXPECT_FALSE(ax.isProcessTrustedWithPrompt(true));
    auto win = SimAccessibility::windowElement(101, 11);
    EXPECT_EQ(ax.copyAttribute(ax.systemWideElement(), "AXFocusedApplication").error, AXError::apiDisabled);
    EXPECT_EQ(ax.setAttribute(win, "AXMinimized", true), AXError::apiDisabled);
    EXPECT_EQ(ax.performAction(win, "AXRaise"), AXError::apiDisabled);
    EXPECT_EQ(ax.elementAtPosition(ax.systemWideElement(), {100, 100}).error, AXError::apiDisabled);
    EXPECT_EQ(ax.addNotification(observer, ax.applicationElement(101), "AXWindowCreated"),
              AXError::apiDisabled);
    EXPECT_EQ(ax.createObserver(102, [](AXRef, const std::string&) {}), 0u);
    EXPECT_FALSE(
        desktop.eventTap().createTap([](const platform::KeyEvent&) { return platform::TapDecision::pass; }));
    EXPECT_FALSE(world().window(11)->minimized);
    EXPECT_EQ(onScreen(), (std::vector<std::uint32_t>{11, 21, 31}));
    world().permissions.accessibility = true;
    EXPECT_EQ(ax.performAction(win, "AXRaise"), AXError::success);
}

TEST_F(SimContract, EachDisplayShowsItsOwnSpaceAndTheActiveSpaceFollowsTheFocusedDisplay) {
    auto& server = desktop.windowServer();
    auto spaces = server.managedDisplaySpaces();
    ASSERT_TRUE(spaces);
    ASSERT_EQ(spaces->size(), 2u);
    EXPECT_EQ((*spaces)[0].displayIdentifier, uuid(0));
    EXPECT_EQ((*spaces)[0].currentSpace.id64, 1u);
    EXPECT_EQ((*spaces)[0].spaces, (std::vector<platform::SpaceEntry>{{1, 0}, {2, 0}, {3, 4}}));
    EXPECT_EQ((*spaces)[1].currentSpace.id64, 10u);
    EXPECT_EQ(server.activeSpace(), 1u);
    EXPECT_EQ(server.activeMenuBarDisplayIdentifier(), uuid(0));

    desktop.workspace().activate(103, false);
    EXPECT_EQ(server.activeSpace(), 10u);
    EXPECT_EQ(server.activeMenuBarDisplayIdentifier(), uuid(1));
    EXPECT_EQ(desktop.platform().screens->mainScreen()->displayID, 2u);

    // A Space belongs to one display: another display can't show it, and switching one leaves the other.
    EXPECT_FALSE(server.managedDisplaySetCurrentSpace(uuid(1), 2));
    EXPECT_FALSE(server.managedDisplaySetCurrentSpace("NO-SUCH-DISPLAY", 2));
    ASSERT_TRUE(server.managedDisplaySetCurrentSpace(uuid(0), 3));  // the full-screen Space, empty
    EXPECT_EQ(server.managedDisplaySpaces()->at(0).currentSpace, (platform::SpaceEntry{3, 4}));
    EXPECT_EQ(server.managedDisplaySpaces()->at(1).currentSpace.id64, 10u);
    EXPECT_TRUE(server.windowsOnSpace(3, 7).empty());
    EXPECT_EQ(onScreen(), (std::vector<std::uint32_t>{31}));
}

TEST_F(SimContract, WindowsMovedToAnotherSpaceGoWithItAndASwipeFocusesWhatItShows) {
    auto& server = desktop.windowServer();
    Listener heard(desktop, {101, 102});
    // Releases from 14.5 on refuse the direct move for other processes' windows.
    world().osMajorVersion = 14;
    EXPECT_FALSE(server.directMoveRefused());
    ASSERT_TRUE(server.moveWindowsToManagedSpace({21}, 2));
    EXPECT_EQ(server.spacesForWindows(7, {21}), (std::vector<std::uint64_t>{2}));
    EXPECT_EQ(axWindowNumbers(102), (std::vector<std::uint32_t>{22}));
    EXPECT_FALSE(server.moveWindowsToManagedSpace({21}, 99));
    EXPECT_FALSE(server.moveWindowsToManagedSpace({4242}, 1));
    EXPECT_EQ(world().window(21)->space, 2u);

    // The user switches outside zelk: Mail's Inbox is now the topmost window shown, Safari's There
    // lies under it, so Safari (in front, with a window there) keeps focus.
    world().raiseWithinApp(21);
    heard.clear();
    ASSERT_TRUE(world().switchSpace(0, 2));
    runFor(0);
    EXPECT_EQ(heard.workspace, (std::vector<std::string>{"activeSpaceDidChange"}));
    EXPECT_EQ(heard.ax, (std::vector<std::string>{"101 AXFocusedWindowChanged 12"}));
    EXPECT_EQ(axWindowNumbers(102), (std::vector<std::uint32_t>{21}));

    // Back on Space 1 nothing is shown but Mail's minimised Draft: no window has focus.
    server.moveWindowsToManagedSpace({11}, 3);
    heard.clear();
    ASSERT_TRUE(world().switchSpace(0, 1));
    runFor(0);
    EXPECT_EQ(heard.workspace, (std::vector<std::string>{"activeSpaceDidChange"}));
    EXPECT_EQ(world().focusedWindow(), 0u);  // nothing of any app is shown there
    EXPECT_FALSE(world().switchSpace(0, 10));
}

TEST_F(SimContract, SecureInputHidesKeyPressesFromTheTapButNotModifierChanges) {
    auto& tap = desktop.eventTap();
    std::vector<platform::EventType> seen;
    ASSERT_TRUE(tap.createTap([&](const platform::KeyEvent& e) {
        seen.push_back(e.type);
        return platform::TapDecision::swallow;
    }));
    world().faults.secureInputPID = pidOf("a.mail");
    tap.setHeldModifiers({"rightCommand"});
    tap.key(Key::a, true, false);
    tap.key(Key::a, false, false);
    EXPECT_EQ(seen, (std::vector<platform::EventType>{platform::EventType::flagsChanged}));
    // The keys the tap can't see reach the app in front unchanged.
    ASSERT_EQ(world().receivedKeys.size(), 2u);
    EXPECT_EQ(world().receivedKeys[0].pid, 101);

    world().faults.secureInputPID.reset();
    seen.clear();
    world().receivedKeys.clear();
    tap.key(Key::a, true, false);
    EXPECT_EQ(seen, (std::vector<platform::EventType>{platform::EventType::keyDown}));
    EXPECT_TRUE(world().receivedKeys.empty());
}

namespace {
const char* kWithFinder = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}], currentSpace: 1}
apps:
  - bundleID: com.apple.finder
    name: Finder
    path: /System/Library/CoreServices/Finder.app
    finder: true
    running: {pid: 80, hidden: true}
  - bundleID: a.safari
    name: Safari
    running: {pid: 101, windows: [{id: 11, title: "Here", space: 1}]}
  - bundleID: a.mail
    name: Mail
    running: {pid: 102, windows: [{id: 21, title: "Inbox", space: 1}]}
frontmost: a.safari
)";
}  // namespace

struct SimFinder : SimFixture {
    void SetUp() override { load(kWithFinder); }
};

TEST_F(SimFinder, TakesTheFrontWhenNoOtherAppCan) {
    Listener heard(desktop, {80, 101, 102});
    auto& ws = desktop.workspace();
    ASSERT_TRUE(ws.terminate(101));
    runFor(0);
    EXPECT_EQ(ws.frontmostApplication()->pid, 102);  // another app is left: it comes first
    heard.clear();
    ASSERT_TRUE(ws.hide(102));
    runFor(0);
    // The Finder shows itself and comes to the front; the app that left is told first.
    EXPECT_EQ(ws.frontmostApplication()->pid, 80);
    EXPECT_FALSE(ws.runningApp(80)->hidden);
    EXPECT_EQ(heard.workspace,
              (std::vector<std::string>{"didHide a.mail", "didUnhide com.apple.finder",
                                        "didDeactivate a.mail", "didActivate com.apple.finder"}));
    ASSERT_TRUE(ws.activate(102, false));
    ASSERT_TRUE(ws.terminate(102));
    runFor(0);
    EXPECT_EQ(ws.frontmostApplication()->pid, 80);
}

TEST(SimFinderWorld, OneRegularFinderAtMost) {
    auto refuse = [](const std::string& apps) {
        SimDesktop d;
        WorldExtras extras;
        std::string error;
        EXPECT_FALSE(loadWorldText("apps:\n" + apps, d, extras, error));
        return error;
    };
    EXPECT_EQ(refuse("  - {bundleID: a.f, finder: true}\n  - {bundleID: a.g, finder: true}\n"),
              "apps[1].finder: a world has one Finder");
    EXPECT_EQ(refuse("  - {bundleID: a.f, kind: accessory, finder: true}\n"),
              "apps[0].finder: the Finder is a regular app");
}
