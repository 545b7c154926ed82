// The real agent on a real X server: Xvfb and openbox from scripts/x11-test-desktop.sh, fake apps from
// the test client, keys pressed through XTest and every answer read back from the X server.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/xcb.h>
#include <xcb/xtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <thread>

#include "platform/x11/X11Desktop.h"

namespace zelk::x11 {
namespace {

namespace fs = std::filesystem;
extern "C" char** environ;

// Xvfb's default keymap.
constexpr std::uint8_t kSuperL = 133, kSuperR = 134, kH = 43, kI = 31, kM = 58, kC = 54;

pid_t spawn(const std::vector<std::string>& args, const std::map<std::string, std::string>& env, int stdoutFd,
            bool quiet = false) {
    std::vector<std::string> envStrings;
    for (char** e = environ; *e; ++e) {
        std::string entry = *e;
        if (!env.count(entry.substr(0, entry.find('=')))) envStrings.push_back(entry);
    }
    for (auto& [k, v] : env)
        envStrings.push_back(k + "=" + v);
    std::vector<char*> argv, envp;
    for (auto& a : const_cast<std::vector<std::string>&>(args))
        argv.push_back(a.data());
    argv.push_back(nullptr);
    for (auto& e : envStrings)
        envp.push_back(e.data());
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (stdoutFd >= 0) posix_spawn_file_actions_adddup2(&actions, stdoutFd, 1);
    if (quiet) posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), envp.data()) != 0) pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

// A desktop with three fake apps and the agent on it; everything stops with the session.
class X11Session {
  public:
    // Empty when the desktop runs; else why not.
    std::string start() {
        dir_ = fs::temp_directory_path() / ("zelk-x11-" + std::to_string(::getpid()));
        fs::remove_all(dir_);
        for (auto sub : {"log", "run", "state", "config", "share", "data"})
            fs::create_directories(dir_ / sub);
        fs::permissions(dir_ / "run", fs::perms::owner_all);
        int out[2];
        if (::pipe(out) != 0) return "no pipe";
        desktopPid_ = spawn({"bash", std::string(ZELK_SOURCE_DIR) + "/scripts/x11-test-desktop.sh",
                             "--client", ZELK_X11_TEST_CLIENT, "--log", (dir_ / "log").string(),
                             "Mail=Inbox,Drafts@1", "Notes=Shopping", "Calendar=Agenda@2"},
                            {}, out[1]);
        ::close(out[1]);
        std::string line;
        pollfd fd{out[0], POLLIN, 0};
        char c;
        while (::poll(&fd, 1, 20000) > 0 && ::read(out[0], &c, 1) == 1 && c != '\n')
            line.push_back(c);
        ::close(out[0]);
        if (line.rfind("DISPLAY=", 0) != 0) {
            int status = 0;
            ::waitpid(desktopPid_, &status, 0);
            desktopPid_ = -1;
            if (WIFEXITED(status) && WEXITSTATUS(status) == 3) return "skip";
            return "the test desktop did not start";
        }
        display_ = line.substr(8);
        conn_ = xcb_connect(display_.c_str(), nullptr);
        if (xcb_connection_has_error(conn_)) return "cannot connect to " + display_;
        root_ = xcb_setup_roots_iterator(xcb_get_setup(conn_)).data->root;
        // Open and managed: the windows exist before the window manager lists them.
        if (!waitFor([&] {
                return windowNamed("Agenda") && windowNamed("Shopping") && windowNamed("Drafts") &&
                       listedClients() >= 4;
            }))
            return "the fake apps did not open their windows";
        return "";
    }

    std::map<std::string, std::string> env() const {
        return {{"DISPLAY", display_},
                {"XDG_RUNTIME_DIR", (dir_ / "run").string()},
                {"XDG_STATE_HOME", (dir_ / "state").string()},
                {"XDG_CONFIG_HOME", (dir_ / "config").string()},
                {"XDG_DATA_DIRS", (dir_ / "share").string()},
                {"XDG_DATA_HOME", (dir_ / "data").string()},
                {"HOME", dir_.string()}};
    }

    // `settings`: the settings file the agent starts with, as JSON.
    bool startAgent(const std::string& settings = "") {
        if (!settings.empty()) {
            fs::create_directories(dir_ / "state" / "zelk");
            std::ofstream(dir_ / "state" / "zelk" / "com.ferrowlabs.zelk.json") << settings;
        }
        agentPid_ = spawn({ZELKD_PATH, "--backend", "x11", "--log-file", (dir_ / "zelkd.log").string()},
                          env(), ::open("/dev/null", O_WRONLY));
        // Ready once it answers and knows every window: the fake apps start in any order and the window
        // manager lists their windows as it manages them, so one window listed says nothing of the others.
        return waitFor([&] {
            auto listed = zelk({"window", "list"});
            for (auto title : {"Inbox", "Drafts", "Shopping", "Agenda"})
                if (listed.find(title) == std::string::npos) return false;
            return true;
        });
    }

    // More fake apps, opened now on the running desktop.
    void openApps(std::vector<std::string> apps) {
        apps.insert(apps.begin(), {ZELK_X11_TEST_CLIENT, "--log", (dir_ / "log").string()});
        clientPids_.push_back(spawn(apps, env(), -1));
    }

    ~X11Session() {
        for (auto pid : clientPids_)
            if (pid > 0) {
                ::kill(pid, SIGTERM);
                ::waitpid(pid, nullptr, 0);
            }
        if (agentPid_ > 0) {
            ::kill(agentPid_, SIGTERM);
            ::waitpid(agentPid_, nullptr, 0);
        }
        if (conn_) xcb_disconnect(conn_);
        if (desktopPid_ > 0) {
            ::kill(desktopPid_, SIGTERM);
            ::waitpid(desktopPid_, nullptr, 0);
        }
        if (!dir_.empty()) fs::remove_all(dir_);
    }

    std::string zelk(std::vector<std::string> args) {
        args.insert(args.begin(), ZELK_PATH);
        int out[2];
        if (::pipe(out) != 0) return {};
        pid_t pid = spawn(args, env(), out[1]);
        ::close(out[1]);
        std::string text;
        char buf[4096];
        ssize_t n;
        while ((n = ::read(out[0], buf, sizeof buf)) > 0)
            text.append(buf, static_cast<std::size_t>(n));
        ::close(out[0]);
        int status = 0;
        ::waitpid(pid, &status, 0);
        return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? text : "";
    }

    // Presses "123d" down, "123u" up, "123" both; the keys are in the server when this returns.
    void keys(const std::vector<std::string>& sequence) {
        for (auto& item : sequence) {
            auto code = static_cast<std::uint8_t>(std::stoi(item));
            if (item.back() != 'u')
                xcb_test_fake_input(conn_, XCB_KEY_PRESS, code, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
            if (item.back() != 'd')
                xcb_test_fake_input(conn_, XCB_KEY_RELEASE, code, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
        }
        std::free(xcb_get_input_focus_reply(conn_, xcb_get_input_focus(conn_), nullptr));
    }

    std::uint32_t cardinal(const char* name) {
        auto* a = xcb_intern_atom_reply(conn_, xcb_intern_atom(conn_, 0, std::strlen(name), name), nullptr);
        auto* r = xcb_get_property_reply(
            conn_, xcb_get_property(conn_, 0, root_, a->atom, XCB_ATOM_ANY, 0, 1), nullptr);
        std::free(a);
        std::uint32_t v = r && xcb_get_property_value_length(r) >= 4
                              ? *static_cast<std::uint32_t*>(xcb_get_property_value(r))
                              : 0;
        std::free(r);
        return v;
    }
    std::uint32_t activeWindow() { return cardinal("_NET_ACTIVE_WINDOW"); }
    // How many clients the window manager lists.
    std::size_t listedClients() {
        auto* a = xcb_intern_atom_reply(conn_, xcb_intern_atom(conn_, 0, 16, "_NET_CLIENT_LIST"), nullptr);
        auto* r =
            xcb_get_property_reply(conn_,
                                   xcb_get_property(conn_, 0, root_, a ? a->atom : xcb_atom_t{XCB_ATOM_NONE},
                                                    XCB_ATOM_WINDOW, 0, 1024),
                                   nullptr);
        std::size_t n = r ? static_cast<std::size_t>(xcb_get_property_value_length(r)) / 4 : 0;
        std::free(a);
        std::free(r);
        return n;
    }
    std::uint32_t currentDesktop() { return cardinal("_NET_CURRENT_DESKTOP"); }

    std::optional<std::uint32_t> windowNamed(const std::string& title) {
        auto* tree = xcb_query_tree_reply(conn_, xcb_query_tree(conn_, root_), nullptr);
        if (!tree) return std::nullopt;
        std::optional<std::uint32_t> found;
        std::vector<xcb_window_t> todo(xcb_query_tree_children(tree),
                                       xcb_query_tree_children(tree) + xcb_query_tree_children_length(tree));
        std::free(tree);
        // Clients sit one level down, inside the window manager's frames.
        for (std::size_t i = 0; i < todo.size() && !found; ++i) {
            auto* r = xcb_get_property_reply(
                conn_, xcb_get_property(conn_, 0, todo[i], XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 0, 256),
                nullptr);
            if (r && std::string(static_cast<char*>(xcb_get_property_value(r)),
                                 static_cast<std::size_t>(xcb_get_property_value_length(r))) == title)
                found = todo[i];
            std::free(r);
            if (auto* sub = xcb_query_tree_reply(conn_, xcb_query_tree(conn_, todo[i]), nullptr)) {
                todo.insert(todo.end(), xcb_query_tree_children(sub),
                            xcb_query_tree_children(sub) + xcb_query_tree_children_length(sub));
                std::free(sub);
            }
        }
        return found;
    }

    bool mapped(std::uint32_t window) {
        auto* a = xcb_get_window_attributes_reply(conn_, xcb_get_window_attributes(conn_, window), nullptr);
        bool viewable = a && a->map_state == XCB_MAP_STATE_VIEWABLE;
        std::free(a);
        return viewable;
    }

    // A window's place on the screen, in root coordinates.
    Rect placeOf(std::uint32_t window) {
        auto* g = xcb_get_geometry_reply(conn_, xcb_get_geometry(conn_, window), nullptr);
        auto* o = xcb_translate_coordinates_reply(
            conn_, xcb_translate_coordinates(conn_, window, root_, 0, 0), nullptr);
        Rect r;
        if (g && o) r = {double(o->dst_x), double(o->dst_y), double(g->width), double(g->height)};
        std::free(g);
        std::free(o);
        return r;
    }

    // What the screen shows in a rectangle, as 0xRRGGBB, row by row: read from the root, so whatever
    // window covers it.
    std::vector<std::uint32_t> screenPixels(Rect r) {
        auto* img = xcb_get_image_reply(
            conn_,
            xcb_get_image(conn_, XCB_IMAGE_FORMAT_Z_PIXMAP, root_, static_cast<std::int16_t>(r.x),
                          static_cast<std::int16_t>(r.y), static_cast<std::uint16_t>(r.width),
                          static_cast<std::uint16_t>(r.height), ~0u),
            nullptr);
        std::vector<std::uint32_t> out;
        if (img && std::size_t(xcb_get_image_data_length(img)) == std::size_t(r.width * r.height * 4)) {
            out.resize(std::size_t(r.width * r.height));
            std::memcpy(out.data(), xcb_get_image_data(img), out.size() * 4);
            for (auto& p : out)
                p &= 0xFFFFFF;
        }
        std::free(img);
        return out;
    }

    // Stops the X server and everything on it; the agent is left running, to see what it does.
    void stopDesktop() {
        if (conn_) xcb_disconnect(conn_);
        conn_ = nullptr;
        ::kill(desktopPid_, SIGTERM);
        ::waitpid(desktopPid_, nullptr, 0);
        desktopPid_ = -1;
    }
    // The agent's exit status once it has exited by itself.
    std::optional<int> agentExit() {
        int status = 0;
        if (agentPid_ <= 0 || ::waitpid(agentPid_, &status, WNOHANG) != agentPid_) return std::nullopt;
        agentPid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    // The agent's log without its debug lines, to tell what it did when a check fails.
    std::string agentLog() {
        std::ifstream in(dir_ / "zelkd.log");
        std::string line, out;
        while (std::getline(in, line))
            if (line.find("] debug ") == std::string::npos) out += line + "\n";
        int status = 0;
        if (agentPid_ > 0 && ::waitpid(agentPid_, &status, WNOHANG) == agentPid_)
            out += "agent exited with status " + std::to_string(status) + "\n";
        return out;
    }

    std::string keysOf(const std::string& app) {
        std::ifstream in(dir_ / "log" / (app + ".keys"));
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }

    // Other processes answer in their own time: the condition is read again until it holds or ten
    // seconds pass.
    bool waitFor(const std::function<bool()>& condition) {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < deadline) {
            if (condition()) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return condition();
    }

  private:
    fs::path dir_;
    std::string display_;
    pid_t desktopPid_ = -1, agentPid_ = -1;
    std::vector<pid_t> clientPids_;
    xcb_connection_t* conn_ = nullptr;
    xcb_window_t root_ = 0;
};

#define START_SESSION_WITH(session, settings)                                                   \
    do {                                                                                        \
        auto why = (session).start();                                                           \
        if (why == "skip")                                                                      \
            GTEST_SKIP() << "Xvfb or openbox is not installed (scripts/deps.sh installs them)"; \
        ASSERT_EQ(why, "");                                                                     \
        ASSERT_TRUE((session).startAgent(settings)) << "the agent did not come up:\n"           \
                                                    << (session).agentLog();                    \
    } while (0)
#define START_SESSION(session) START_SESSION_WITH(session, "")

TEST(X11Desktop, TheTriggerAndALetterReachAppsAndPlainTypingPasses) {
    X11Session s;
    START_SESSION(s);
    auto inbox = *s.windowNamed("Inbox");
    auto agenda = *s.windowNamed("Agenda");
    // Start from another app, so the letter's app isn't the focused one (which would hide it).
    auto shopping = *s.windowNamed("Shopping");
    ASSERT_NE(s.zelk({"app", "focus", "Notes"}), "");
    ASSERT_TRUE(s.waitFor([&] { return s.activeWindow() == shopping; }));

    // Right Super and "m": Mail's window becomes active, and Mail never sees the letter.
    s.keys({std::to_string(kSuperR) + "d", std::to_string(kM), std::to_string(kSuperR) + "u"});
    ASSERT_TRUE(s.waitFor([&] { return s.activeWindow() == inbox; }));

    // Plain typing reaches the focused client unchanged.
    s.keys({std::to_string(kH), std::to_string(kI)});
    ASSERT_TRUE(s.waitFor([&] { return s.keysOf("Mail").find("43 0\n31 0\n") != std::string::npos; }))
        << s.keysOf("Mail");
    EXPECT_EQ(s.keysOf("Mail").find("58 "), std::string::npos) << "the trigger's letter leaked";

    // Left Super isn't the trigger: the held key is replayed to the client, modifier and all.
    s.keys({std::to_string(kSuperL) + "d", std::to_string(kM), std::to_string(kSuperL) + "u"});
    ASSERT_TRUE(s.waitFor([&] { return s.keysOf("Mail").find("58 64\n") != std::string::npos; }))
        << s.keysOf("Mail");
    EXPECT_EQ(s.activeWindow(), inbox);

    // An app whose only window is on the third desktop: the desktop switches, then the window activates.
    s.keys({std::to_string(kSuperR) + "d", std::to_string(kC), std::to_string(kSuperR) + "u"});
    ASSERT_TRUE(s.waitFor([&] { return s.currentDesktop() == 2 && s.activeWindow() == agenda; }))
        << "desktop " << s.currentDesktop() << ", active " << s.activeWindow();
    EXPECT_EQ(s.keysOf("Calendar").find("54 "), std::string::npos);
}

TEST(X11Desktop, CommandsAnswerFromTheRealDesktop) {
    X11Session s;
    START_SESSION(s);
    auto status = s.zelk({"status"});
    EXPECT_NE(status.find("1 of 4"), std::string::npos) << status;
    auto windows = s.zelk({"window", "list"});
    for (auto title : {"Inbox", "Drafts", "Shopping", "Agenda"})
        EXPECT_NE(windows.find(title), std::string::npos) << title << " missing from\n" << windows;
    auto apps = s.zelk({"app", "list"});
    for (auto app : {"Mail", "Notes", "Calendar"})
        EXPECT_NE(apps.find(app), std::string::npos) << app << " missing from\n" << apps;

    EXPECT_NE(s.zelk({"space", "switch", "2"}).find("switching to Space #2"), std::string::npos);
    EXPECT_TRUE(s.waitFor([&] { return s.currentDesktop() == 1; })) << s.currentDesktop();

    // A window on another desktop is focused by switching there first.
    auto shopping = *s.windowNamed("Shopping");
    EXPECT_NE(s.zelk({"window", "focus", "Shopping"}).find("focused window"), std::string::npos);
    EXPECT_TRUE(s.waitFor([&] { return s.currentDesktop() == 0 && s.activeWindow() == shopping; }));
}

TEST(X11Desktop, WindowsOpenedOrRenamedWhileTheAgentRunsAreListedAsTheyAre) {
    X11Session s;
    START_SESSION(s);
    // Each window is renamed the moment the window manager lists it: the agent's first read of it and
    // the rename race, and the list must still end with the new titles.
    s.openApps({"Music=Loading>Library,Queue>Playlists@1", "Chat=Connecting>General"});
    std::string windows;
    EXPECT_TRUE(s.waitFor([&] {
        windows = s.zelk({"window", "list"});
        for (auto title : {"Library", "Playlists", "General"})
            if (windows.find(title) == std::string::npos) return false;
        for (auto title : {"Loading", "Queue", "Connecting"})
            if (windows.find(title) != std::string::npos) return false;
        return true;
    })) << windows;
    std::istringstream lines(windows);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.find("Playlists") == std::string::npos) continue;
        EXPECT_NE(line.find("Playlists  2 "), std::string::npos) << "not on the second Space: " << line;
    }
}

// How much of a picture is the panel's dark ground, and how much is light text on it.
struct Ink {
    double dark = 0, light = 0;
};
Ink inkOf(const std::vector<std::uint32_t>& pixels) {
    Ink ink;
    for (auto p : pixels) {
        const std::uint32_t r = (p >> 16) & 0xFF, g = (p >> 8) & 0xFF, b = p & 0xFF;
        if (r < 0x40 && g < 0x40 && b < 0x40) ink.dark += 1;
        if (r > 0xB0 && g > 0xB0 && b > 0xB0) ink.light += 1;
    }
    if (!pixels.empty()) {
        ink.dark /= double(pixels.size());
        ink.light /= double(pixels.size());
    }
    return ink;
}

TEST(X11Desktop, HoldingTheTriggerDrawsTheAppPanelOnScreenAndReleasingTakesItAway) {
    X11Session s;
    START_SESSION_WITH(s, R"({"showAppSwitcher": true})");
    auto shopping = *s.windowNamed("Shopping");
    ASSERT_NE(s.zelk({"app", "focus", "Notes"}), "");
    ASSERT_TRUE(s.waitFor([&] { return s.activeWindow() == shopping; }));
    auto panel = s.windowNamed("zelk panel");
    ASSERT_TRUE(panel) << "the agent made no panel window";
    EXPECT_FALSE(s.mapped(*panel));
    const Rect screen{0, 0, 1280, 800};
    auto before = s.screenPixels(screen);
    ASSERT_FALSE(before.empty());

    s.keys({std::to_string(kSuperR) + "d"});
    ASSERT_TRUE(s.waitFor([&] { return s.mapped(*panel); })) << s.agentLog();
    const Rect place = s.placeOf(*panel);
    ASSERT_GT(place.width, 40);
    ASSERT_GT(place.height, 40);
    // Inside the shadow and the rounded corners: the panel's own ground, with its rows' text on it.
    const Rect inside{place.x + 24, place.y + 24, place.width - 48, place.height - 48};
    std::vector<std::uint32_t> shown;
    ASSERT_TRUE(s.waitFor([&] {
        shown = s.screenPixels(inside);
        auto ink = inkOf(shown);
        return ink.dark > 0.6 && ink.light > 0.002;
    })) << "dark "
        << inkOf(shown).dark << ", light " << inkOf(shown).light;
    auto under = [&](const std::vector<std::uint32_t>& whole) {
        std::vector<std::uint32_t> out;
        for (int y = int(inside.y); y < int(inside.maxY()); ++y)
            for (int x = int(inside.x); x < int(inside.maxX()); ++x)
                out.push_back(whole[std::size_t(y) * 1280 + std::size_t(x)]);
        return out;
    };
    EXPECT_NE(under(before), shown) << "the screen didn't change where the panel stands";

    // Released: the window goes and the screen shows what it showed before.
    s.keys({std::to_string(kSuperR) + "u"});
    ASSERT_TRUE(s.waitFor([&] { return !s.mapped(*panel); })) << s.agentLog();
    EXPECT_TRUE(s.waitFor([&] { return s.screenPixels(inside) == under(before); }))
        << "the panel's pixels stayed on screen";
}

TEST(X11Desktop, TheAgentEndsWithItsXServer) {
    X11Session s;
    START_SESSION(s);
    // A trigger held when the server goes: the tap is mid-key when the agent shuts down.
    s.keys({"134d"});
    s.stopDesktop();
    std::optional<int> exit;
    EXPECT_TRUE(s.waitFor([&] { return (exit = s.agentExit()).has_value(); })) << s.agentLog();
    EXPECT_EQ(exit, 1);
}

}  // namespace
}  // namespace zelk::x11
