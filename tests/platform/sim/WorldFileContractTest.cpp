// The world file as outside checks write it: defaults, every documented field, and malformed input,
// which must give one line naming the field and never bring the bench down.
#include <fmt/format.h>
#include "SimFixture.h"

#include "support/Yaml.h"

using namespace zelk;
using namespace zelk::sim;
using nlohmann::json;

namespace {

struct WorldFileContract : zelk::testing::SimFixture {
    // Loads into a fresh desktop each time, so a failed load leaves nothing behind.
    std::string loadError(const json& world) {
        SimDesktop fresh;
        WorldExtras x;
        std::string error;
        bool ok = true;
        EXPECT_NO_THROW(ok = loadWorld(world, fresh, x, error)) << world.dump();
        if (ok) {
            EXPECT_EQ(error, "");
        }
        return error;
    }
    std::string loadError(const std::string& yaml) {
        SimDesktop fresh;
        WorldExtras x;
        std::string error;
        EXPECT_FALSE(loadWorldText(yaml, fresh, x, error)) << yaml;
        return error;
    }
};

const char* kFull = R"(
permissions: {accessibility: false, screenRecording: false}
keyboardLayout: dvorak
dock: true
displays:
  - id: 1
    name: "Built-in Retina Display"
    frame: [0, 0, 1440, 900]
    menuBarHeight: 30
    spaces: [{id: 1}, {id: 2}, {id: 3, fullscreen: true}]
    currentSpace: 2
  - {id: 7, name: "Studio", frame: [1440, -200, 2560, 1440], spaces: [{id: 70}]}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    path: /Applications/Safari.app
    kind: regular
    launchDelayMs: 300
    running:
      pid: 101
      hidden: false
      windows:
        - {id: 1001, title: "Apple", frame: [0, 25, 1200, 800], space: 2, minimized: false}
        - {id: 1002, title: "Down", frame: [10, 35, 600, 400], space: 1, minimized: true}
  - bundleID: com.example.menu
    name: Menu Thing
    path: /Applications/Utilities/Menu Thing.app
    kind: accessory
    running: {pid: 150, hidden: true}
  - {bundleID: com.example.daemon, kind: background}
frontmost: com.apple.Safari
focusedWindow: 1001
settings: {triggerKeys: [rightCommand], activationMode: onPress}
configFile: "general:\n  activationMode: onRelease\n"
faults: {axTimeout: [com.apple.Safari], launchFails: [com.example.daemon]}
)";

}  // namespace

TEST_F(WorldFileContract, OmittedFieldsTakeTheirDefaults) {
    load("apps: [{bundleID: a.x, running: {windows: [{}]}}]");
    ASSERT_EQ(world().displays().size(), 1u);
    const SimDisplay& d = world().displays()[0];
    EXPECT_EQ(d.id, 1u);
    EXPECT_EQ(d.frame, (Rect{0, 0, 1440, 900}));
    EXPECT_EQ(d.menuBarHeight, 25);
    ASSERT_EQ(d.spaces.size(), 1u);
    EXPECT_FALSE(d.spaces[0].fullscreen);
    EXPECT_EQ(d.currentSpace, d.spaces[0].id);
    EXPECT_EQ(world().keyboardLayout, "qwerty");
    EXPECT_TRUE(world().permissions.accessibility);
    EXPECT_TRUE(world().permissions.screenRecording);
    EXPECT_TRUE(extras.settings.is_object() && extras.settings.empty());
    EXPECT_FALSE(extras.configFile);
    EXPECT_FALSE(world().app(SimWorld::kDockBundleID));

    const SimApp* app = world().app("a.x");
    ASSERT_TRUE(app);
    EXPECT_EQ(app->name, "a.x");
    EXPECT_EQ(app->path, "/Applications/a.x.app");
    EXPECT_EQ(app->kind, AppKind::regular);
    EXPECT_EQ(app->launchDelayMs, 200);
    ASSERT_EQ(app->windowOrder.size(), 1u);
    const SimWindow* w = world().window(app->windowOrder[0]);
    EXPECT_NE(w->id, 0u);
    EXPECT_EQ(w->title, "a.x");
    EXPECT_EQ(w->frame, (Rect{0, 25, 1000, 700}));
    EXPECT_EQ(w->space, d.spaces[0].id);
    EXPECT_FALSE(w->minimized);
    // With no frontmost named, the first running regular app is in front with its window.
    EXPECT_EQ(world().frontPid(), app->pid);
    EXPECT_EQ(world().focusedWindow(), w->id);
}

TEST_F(WorldFileContract, EveryDocumentedFieldIsRead) {
    load(kFull);
    EXPECT_FALSE(world().permissions.accessibility);
    EXPECT_FALSE(world().permissions.screenRecording);
    EXPECT_EQ(world().keyboardLayout, "dvorak");
    ASSERT_TRUE(world().app(SimWorld::kDockBundleID));
    EXPECT_TRUE(world().app(SimWorld::kDockBundleID)->running);

    auto screens = desktop.platform().screens->screens();
    ASSERT_EQ(screens.size(), 2u);
    EXPECT_EQ(screens[0].name, "Built-in Retina Display");
    EXPECT_EQ(screens[0].visibleFrame, (Rect{0, 30, 1440, 870}));
    EXPECT_EQ(screens[1].displayID, 7u);
    EXPECT_EQ(screens[1].name, "Studio");
    EXPECT_EQ(screens[1].frame, (Rect{1440, -200, 2560, 1440}));
    auto spaces = desktop.windowServer().managedDisplaySpaces();
    EXPECT_EQ((*spaces)[0].spaces, (std::vector<platform::SpaceEntry>{{1, 0}, {2, 0}, {3, 4}}));
    EXPECT_EQ((*spaces)[0].currentSpace.id64, 2u);
    EXPECT_EQ((*spaces)[1].currentSpace.id64, 70u);

    const SimApp* safari = world().app("com.apple.Safari");
    EXPECT_EQ(safari->path, "/Applications/Safari.app");
    EXPECT_EQ(safari->launchDelayMs, 300);
    EXPECT_EQ(safari->pid, 101);
    EXPECT_FALSE(safari->hidden);
    const SimWindow* down = world().window(1002);
    ASSERT_TRUE(down);
    EXPECT_EQ(down->title, "Down");
    EXPECT_EQ(down->frame, (Rect{10, 35, 600, 400}));
    EXPECT_EQ(down->space, 1u);
    EXPECT_TRUE(down->minimized);
    auto menu = desktop.workspace().runningApp(150);
    ASSERT_TRUE(menu);
    EXPECT_EQ(menu->name, "Menu Thing");
    EXPECT_EQ(menu->bundlePath, "/Applications/Utilities/Menu Thing.app");
    EXPECT_EQ(menu->activationPolicy, platform::ActivationPolicy::accessory);
    EXPECT_TRUE(menu->hidden);
    EXPECT_FALSE(world().app("com.example.daemon")->running);
    EXPECT_EQ(world().app("com.example.daemon")->kind, AppKind::background);

    EXPECT_EQ(desktop.workspace().frontmostApplication()->bundleID, "com.apple.Safari");
    EXPECT_EQ(world().focusedWindow(), 1001u);
    EXPECT_EQ(extras.settings,
              json::parse(R"({"triggerKeys": ["rightCommand"], "activationMode": "onPress"})"));
    EXPECT_EQ(extras.configFile, "general:\n  activationMode: onRelease\n");
    EXPECT_EQ(world().faults.axTimeout, (std::set<std::string>{"com.apple.Safari"}));
    EXPECT_EQ(world().faults.launchFails, (std::set<std::string>{"com.example.daemon"}));
}

TEST_F(WorldFileContract, AFocusedWindowAloneBringsItsAppToTheFront) {
    load(R"(
apps:
  - {bundleID: a.one, running: {pid: 11, windows: [{id: 1}]}}
  - {bundleID: a.two, running: {pid: 12, windows: [{id: 2}, {id: 3}]}}
focusedWindow: 3
)");
    EXPECT_EQ(world().frontPid(), 12);
    EXPECT_EQ(world().focusedWindow(), 3u);
    EXPECT_EQ(
        loadError(std::string("apps: [{bundleID: a.one, running: {windows: [{id: 1}]}}]\nfocusedWindow: 9")),
        "focusedWindow: no window 9");
}

TEST_F(WorldFileContract, AppsStartingWithAMinimisedFrontWindowFocusTheirFirstVisibleOne) {
    load(R"(
apps:
  - bundleID: a.one
    running: {pid: 11, windows: [{id: 1, minimized: true}, {id: 2}]}
)");
    EXPECT_EQ(world().focusedWindow(), 2u);
}

TEST_F(WorldFileContract, MalformedFieldsGiveOneLineNamingTheField) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"apps: [{bundleID: a, kind: daemon}]", "apps[0].kind: expected regular, accessory or background"},
        {"apps: [{bundleID: a, launchDelayMs: soon}]", "apps[0].launchDelayMs: expected a number"},
        {"apps: [{bundleID: a}, {bundleID: a}]", "apps[1].bundleID: listed twice"},
        {"apps: [{bundleID: a, running: {hidden: maybe}}]", "apps[0].running.hidden: expected true or false"},
        {"apps: [{bundleID: a, running: {windows: [{id: -1}]}}]",
         "apps[0].running.windows[0].id: expected a number of at least 0"},
        {"apps: [{bundleID: a, running: {windows: [{id: 4}]}}, {bundleID: b, running: {windows: [{id: 4}]}}]",
         "apps[1].running.windows[0].id: window 4 listed twice"},
        {"apps: [{bundleID: a, running: {windows: [{space: 9}]}}]",
         "apps[0].running.windows[0].space: no Space 9"},
        {"apps: [{bundleID: a, running: {pid: 7}}, {bundleID: b, running: {pid: 7}}]",
         "apps[1].running.pid: pid 7 listed twice"},
        {"apps: [{bundleID: a, running: {pid: 999}}]", "apps[0].running.pid: pid 999 is taken by the system"},
        {"apps: [{bundleID: a, windowsOnLaunch: [{space: 5}]}]",
         "apps[0].windowsOnLaunch[0].space: no Space 5"},
        {"apps: [{bundleID: a, windowsOnLaunch: 3}]", "apps[0].windowsOnLaunch: expected a list"},
        {"displays: [{id: 1}, {id: 1}]\napps: []", "displays[1].id: display 1 listed twice"},
        {"displays: [{spaces: [{id: 1}, {id: 1}]}]\napps: []", "displays[0].spaces[1]: Space 1 listed twice"},
        {"displays: [{spaces: [1, 2], currentSpace: 3}]\napps: []",
         "displays[0].currentSpace: no Space 3 on this display"},
        {"displays: [{menuBarHeight: tall}]\napps: []", "displays[0].menuBarHeight: expected a number"},
        {"displays: [{spaces: [{fullscreen: true}]}]\napps: []", "displays[0].spaces[0]: expected {id: N}"},
        {"permissions: {accessibility: yes please}\napps: []",
         "permissions.accessibility: expected true or false"},
        {"permissions: [true]\napps: []", "permissions: expected a mapping"},
        {"settings: [activationMode]\napps: []", "settings: expected a mapping"},
        {"configFile: {a: 1}\napps: []", "configFile: expected YAML text"},
        {"apps: [{bundleID: a, running: {windows: [{id: 1}]}}, {bundleID: b, running: {windows: [{id: "
         "2}]}}]\n"
         "frontmost: a\nfocusedWindow: 2",
         "focusedWindow: window 2 is not a window of a"},
        {"faults: {axTimeout: [5]}\napps: []", "faults.axTimeout[0]: expected a bundle id"},
        {"faults: {launchFails: a.b}\napps: []", "faults.launchFails: expected a list of bundle ids"},
    };
    for (auto& [yaml, expected] : cases)
        EXPECT_EQ(loadError(yaml), expected) << yaml;
}

TEST_F(WorldFileContract, AnyFieldOfAnyTypeGivesALoadOrOneLineNeverACrash) {
    auto full = ferrow::parseYaml(kFull);
    ASSERT_TRUE(full);
    const std::vector<json> replacements{"x",     -1,  2.5, json::array({1}), json::object({{"a", 1}}),
                                         nullptr, true};
    std::vector<json::json_pointer> pointers;
    auto flat = full->flatten();  // the leaves
    for (auto& [path, _] : flat.items()) {
        json::json_pointer p(path);
        while (!p.empty()) {  // and every node above them
            pointers.push_back(p);
            p = p.parent_pointer();
        }
    }
    int failures = 0;
    for (auto& p : pointers) {
        for (auto& r : replacements) {
            json world = *full;
            world[p] = r;
            std::string error = loadError(world);
            EXPECT_EQ(error.find('\n'), std::string::npos) << error;
            failures += error.empty() ? 0 : 1;
        }
    }
    EXPECT_GT(failures, 50);  // the mutations really do break the world
}

TEST_F(WorldFileContract, KeyboardLayoutsDecideWhichKeyEachPhysicalKeyTypes) {
    // Key codes are physical (QWERTY) positions: Dvorak types o on the s key, AZERTY a on the q key.
    struct Case {
        const char* layout;
        Key key;
        std::uint16_t code;
    };
    const std::vector<Case> cases{
        {"qwerty", Key::q, 12},     {"qwerty", Key::semicolon, 41}, {"dvorak", Key::o, 1},
        {"dvorak", Key::e, 2},      {"dvorak", Key::q, 7},          {"dvorak", Key::s, 41},
        {"dvorak", Key::comma, 13}, {"azerty", Key::a, 12},         {"azerty", Key::z, 13},
        {"azerty", Key::w, 6},      {"azerty", Key::m, 41},         {"azerty", Key::comma, 46},
        {"azerty", Key::one, 18},   {"dvorak", Key::tab, 48},
    };
    for (auto& c : cases) {
        SimDesktop d;
        WorldExtras x;
        std::string error;
        ASSERT_TRUE(loadWorldText(std::string("keyboardLayout: ") + c.layout +
                                      "\napps: [{bundleID: a.x, running: {pid: 40, windows: [{}]}}]",
                                  d, x, error))
            << error;
        auto& tap = d.eventTap();
        EXPECT_EQ(tap.keyCode(c.key), c.code) << c.layout << " " << keyName(c.key);
        EXPECT_EQ(tap.key(c.code), c.key) << c.layout << " " << c.code;
        ASSERT_TRUE(tap.key(c.key, true, false));
        EXPECT_EQ(d.world().receivedKeys.back().keyCode, c.code);  // what reaches the app is physical
        EXPECT_EQ(d.world().receivedKeys.back().pid, 40);
    }
    // AZERTY has no key of its own for [ (its place types ^).
    SimDesktop d;
    WorldExtras x;
    std::string error;
    ASSERT_TRUE(loadWorldText("keyboardLayout: azerty\napps: []", d, x, error));
    EXPECT_FALSE(d.eventTap().keyCode(Key::leftBracket));
    EXPECT_FALSE(d.eventTap().key(Key::leftBracket, true, false));
}

TEST_F(WorldFileContract, ValuesOutsideTheirRangeAreRefusedNotWrapped) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"apps: [{bundleID: a, running: {windows: [{id: 99999999999}]}}]",
         "apps[0].running.windows[0].id: expected a number from 0 to 4294967295"},
        {"apps: [{bundleID: a, running: {windows: [{id: 2.5}]}}]",
         "apps[0].running.windows[0].id: expected a whole number"},
        {"apps: [{bundleID: a, running: {pid: 1e20}}]",
         "apps[0].running.pid: expected a number from 0 to 2147483647"},
        {"apps: [{bundleID: a, running: {pid: -5}}]", "apps[0].running.pid: expected a number of at least 0"},
        {"apps: [{bundleID: a, launchDelayMs: -1}]",
         "apps[0].launchDelayMs: expected a number of at least 0"},
        {"apps: [{bundleID: a, launchDelayMs: .inf}]", "apps[0].launchDelayMs: expected a finite number"},
        {"apps: [{bundleID: a, running: {windows: [{frame: [0, 0, .nan, 10]}]}}]",
         "apps[0].running.windows[0].frame: expected [x, y, w, h] of finite numbers within ±10000000"},
        {"apps: [{bundleID: a, running: {windows: [{frame: [0, 0, -5, 10]}]}}]",
         "apps[0].running.windows[0].frame: expected a width and height of at least 0"},
        {"displays: [{frame: [0, 0, 0, 0]}]\napps: []",
         "displays[0].frame: expected a width and height of at least 1"},
        {"displays: [{menuBarHeight: -3}]\napps: []",
         "displays[0].menuBarHeight: expected a number of at least 0"},
        {"displays: [{id: 4294967296}]\napps: []", "displays[0].id: expected a number from 0 to 4294967295"},
        {"apps: []\nfocusedWindow: -1", "world.focusedWindow: expected a number of at least 0"},
        {"apps: []\napps: []", "line 2, column 1: duplicate key 'apps'"},
        {"apps: [{bundleID: a, name: x, name: y}]", "line 1, column 31: duplicate key 'name'"},
    };
    for (auto& [yaml, expected] : cases)
        EXPECT_EQ(loadError(yaml), expected) << yaml;

    // The edges of each range still load.
    SimDesktop fresh;
    WorldExtras x;
    std::string error;
    EXPECT_TRUE(loadWorldText(
        "apps: [{bundleID: a, running: {pid: 2147483647, windows: [{id: 4294967295}]}}]", fresh, x, error))
        << error;
    EXPECT_EQ(fresh.world().appByPid(2147483647)->bundleID, "a");
}

TEST_F(WorldFileContract, AppsAreFoundByPidAndBundleAsTheyStartAndStop) {
    std::string yaml = "apps:\n";
    for (int i = 0; i < 300; ++i)
        yaml += fmt::format("  - {{bundleID: app.{0}, running: {{pid: {1}}}}}\n", i, i % 2 ? 1000 + i : 0);
    SimDesktop fresh;
    WorldExtras x;
    std::string error;
    ASSERT_TRUE(loadWorldText(yaml, fresh, x, error)) << error;
    SimWorld& w = fresh.world();
    for (int i = 0; i < 300; ++i) {
        SimApp* byBundle = w.app(fmt::format("app.{}", i));
        ASSERT_TRUE(byBundle);
        EXPECT_EQ(w.appByPid(byBundle->pid), byBundle);
        if (i % 2) {
            EXPECT_EQ(byBundle->pid, 1000 + i);
        }
    }
    SimApp* one = w.app("app.1");
    EXPECT_TRUE(w.terminate(1001));
    EXPECT_EQ(w.appByPid(1001), nullptr);  // a pid that ended names nothing
    EXPECT_FALSE(w.terminate(1001));
    EXPECT_EQ(one->pid, 0);
    EXPECT_EQ(w.appByPid(SimWorld::kOwnPID)->bundleID, SimWorld::kOwnBundleID);
    EXPECT_EQ(w.app("app.missing"), nullptr);
    EXPECT_EQ(w.appByPid(123456), nullptr);
}

TEST_F(WorldFileContract, ScriptsAreAnsweredByTheirExactTextOnly) {
    load(R"(
apps: []
scripts:
  - {source: "tell application \"Finder\" to get name", answer: "Finder"}
)");
    auto* processes = desktop.platform().processes;
    std::string error;
    EXPECT_EQ(processes->runScript("tell application \"Finder\" to get name", &error), "Finder");
    EXPECT_EQ(processes->runScript("tell application \"Finder\" to get name ", &error), std::nullopt);
    EXPECT_FALSE(error.empty());
    EXPECT_EQ(loadError(std::string("scripts: {a: b}\napps: []")), "scripts: expected a list");
    EXPECT_EQ(loadError(std::string("scripts: [{answer: b}]\napps: []")), "scripts[0].source: missing");
    EXPECT_EQ(loadError(std::string("scripts: [{source: a}]\napps: []")), "scripts[0].answer: missing");
    EXPECT_EQ(loadError(std::string("scripts: [{source: a, answer: [b]}]\napps: []")),
              "scripts[0].answer: expected a string");
}

TEST_F(WorldFileContract, ChildProcessesAnswerByTheirCommandLineOnly) {
    load(R"(
apps: []
processes:
  - {command: "/usr/sbin/lsof -U -a -p 7 -F n", output: "n/tmp/s\n"}
  - {command: "/bin/tool --fail", exitCode: 3}
  - {command: "/bin/tool --hang", timesOut: true}
)");
    auto* processes = desktop.platform().processes;
    auto run = [&](std::string program, std::vector<std::string> args, double timeout = 10) {
        platform::ProcessRequest r;
        r.program = std::move(program);
        r.arguments = std::move(args);
        r.timeoutSeconds = timeout;
        return processes->run(r);
    };
    auto lsof = run("/usr/sbin/lsof", {"-U", "-a", "-p", "7", "-F", "n"});
    EXPECT_TRUE(lsof.started);
    EXPECT_EQ(lsof.exitCode, 0);
    EXPECT_EQ(lsof.output, "n/tmp/s\n");
    EXPECT_EQ(run("/bin/tool", {"--fail"}).exitCode, 3);
    const auto before = ferrow::now();
    auto hung = run("/bin/tool", {"--hang"}, 5);
    EXPECT_TRUE(hung.timedOut);
    EXPECT_EQ(ferrow::now() - before, ferrow::seconds(5));  // the time-out passes on the virtual clock
    EXPECT_EQ(run("/usr/sbin/lsof", {"-U", "-a", "-p", "8", "-F", "n"}).exitCode, 127);
    EXPECT_EQ(loadError(std::string("processes: {a: b}\napps: []")), "processes: expected a list");
    EXPECT_EQ(loadError(std::string("processes: [{output: b}]\napps: []")), "processes[0].command: missing");
    EXPECT_EQ(loadError(std::string("processes: [{command: a, exitCode: x}]\napps: []")),
              "processes[0].exitCode: expected a number");
}

TEST_F(WorldFileContract, AWindowsWebAreaHangsBelowItInTheAccessibilityTree) {
    load(R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}], currentSpace: 1}
apps:
  - bundleID: org.mozilla.firefox
    running: {pid: 201, windows: [{id: 11, space: 1, webArea: "https://example.org/"}, {id: 12, space: 1}]}
)");
    auto& ax = *desktop.platform().accessibility;
    auto children = [&](platform::AXRef e) {
        auto r = ax.copyAttribute(e, "AXChildren");
        auto* list = r.value ? std::get_if<std::vector<platform::AXRef>>(&*r.value) : nullptr;
        return list ? *list : std::vector<platform::AXRef>{};
    };
    auto text = [&](platform::AXRef e, const char* attr) {
        auto r = ax.copyAttribute(e, attr);
        auto* s = r.value ? std::get_if<std::string>(&*r.value) : nullptr;
        return s ? *s : std::string("-");
    };
    auto scroll = children(SimAccessibility::windowElement(201, 11));
    ASSERT_EQ(scroll.size(), 1u);
    EXPECT_EQ(text(scroll[0], "AXRole"), "AXScrollArea");
    auto area = children(scroll[0]);
    ASSERT_EQ(area.size(), 1u);
    EXPECT_EQ(text(area[0], "AXRole"), "AXWebArea");
    EXPECT_EQ(text(area[0], "AXURL"), "https://example.org/");
    EXPECT_TRUE(children(area[0]).empty());
    EXPECT_TRUE(children(SimAccessibility::windowElement(201, 12)).empty());
}
