// zelk-x11-test-client: opens titled windows for several fake apps, one process per app, and records
// every key press each app receives.
//
//   zelk-x11-test-client --log DIR CLASS=TITLE[>LATER][@DESKTOP][,TITLE[>LATER][@DESKTOP]...] ...
//   zelk-x11-test-client --press KEYCODE[d|u],...   (presses keys through XTest, then exits)
//
// Each app's windows carry WM_CLASS (the class twice), _NET_WM_PID (its own process) and, when given,
// the desktop to open on. A window with a later title takes it the moment the window manager lists the
// window, as a client that names its window once it has loaded something would. Key presses are appended to
// DIR/CLASS.keys as "KEYCODE STATE" lines. A window closes when the window manager asks it to
// (WM_DELETE_WINDOW); an app exits with its last window.
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/xcb.h>
#include <xcb/xcb_icccm.h>
#include <xcb/xtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace {

struct WindowSpec {
    std::string title;
    std::string later;  // the title taken once the window is listed, empty for none
    long desktop = -1;
};
struct AppSpec {
    std::string cls;
    std::vector<WindowSpec> windows;
};

std::optional<AppSpec> parseApp(const std::string& arg) {
    auto eq = arg.find('=');
    if (eq == std::string::npos || eq == 0) return std::nullopt;
    AppSpec app{arg.substr(0, eq), {}};
    std::string rest = arg.substr(eq + 1);
    std::size_t start = 0;
    while (start <= rest.size()) {
        auto comma = rest.find(',', start);
        std::string item = rest.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        WindowSpec w;
        auto at = item.rfind('@');
        w.title = at == std::string::npos ? item : item.substr(0, at);
        if (at != std::string::npos) w.desktop = std::strtol(item.c_str() + at + 1, nullptr, 10);
        if (auto gt = w.title.find('>'); gt != std::string::npos) {
            w.later = w.title.substr(gt + 1);
            w.title.resize(gt);
        }
        if (!w.title.empty()) app.windows.push_back(w);
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    if (app.windows.empty()) return std::nullopt;
    return app;
}

xcb_atom_t intern(xcb_connection_t* c, const char* name) {
    auto* r = xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, static_cast<uint16_t>(std::strlen(name)), name),
                                    nullptr);
    xcb_atom_t a = r ? r->atom : xcb_atom_t{XCB_ATOM_NONE};
    std::free(r);
    return a;
}

void setTitle(xcb_connection_t* c, xcb_window_t id, const std::string& title) {
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, intern(c, "_NET_WM_NAME"), intern(c, "UTF8_STRING"), 8,
                        static_cast<uint32_t>(title.size()), title.data());
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                        static_cast<uint32_t>(title.size()), title.data());
}

// Renames each window that has a later title as soon as it shows in the window manager's client list.
void retitleOnceListed(xcb_connection_t* c, xcb_window_t root, const AppSpec& app,
                       const std::set<xcb_window_t>& opened) {
    std::vector<std::pair<xcb_window_t, std::string>> pending;
    auto it = opened.begin();
    for (auto& w : app.windows) {
        if (it == opened.end()) break;
        if (!w.later.empty()) pending.emplace_back(*it, w.later);
        ++it;
    }
    xcb_atom_t list = intern(c, "_NET_CLIENT_LIST");
    for (int tries = 0; !pending.empty() && tries < 4000; ++tries) {
        auto* r =
            xcb_get_property_reply(c, xcb_get_property(c, 0, root, list, XCB_ATOM_WINDOW, 0, 1024), nullptr);
        std::set<xcb_window_t> listed;
        if (r) {
            auto* ids = static_cast<xcb_window_t*>(xcb_get_property_value(r));
            listed.insert(ids, ids + xcb_get_property_value_length(r) / 4);
        }
        std::free(r);
        for (auto p = pending.begin(); p != pending.end();) {
            if (listed.count(p->first)) {
                setTitle(c, p->first, p->second);
                p = pending.erase(p);
            } else {
                ++p;
            }
        }
        xcb_flush(c);
        if (!pending.empty()) ::usleep(500);
    }
}

int runApp(const AppSpec& app, const std::string& logDir, int index) {
    int screenNumber = 0;
    xcb_connection_t* c = xcb_connect(nullptr, &screenNumber);
    if (xcb_connection_has_error(c)) {
        std::cerr << "zelk-x11-test-client: cannot open the display\n";
        return 1;
    }
    auto it = xcb_setup_roots_iterator(xcb_get_setup(c));
    for (int i = 0; i < screenNumber; ++i)
        xcb_screen_next(&it);
    xcb_screen_t* screen = it.data;
    xcb_atom_t protocols = intern(c, "WM_PROTOCOLS"), del = intern(c, "WM_DELETE_WINDOW");
    xcb_atom_t netName = intern(c, "_NET_WM_NAME"), utf8 = intern(c, "UTF8_STRING");
    xcb_atom_t netPid = intern(c, "_NET_WM_PID"), netDesktop = intern(c, "_NET_WM_DESKTOP");
    std::set<xcb_window_t> open;
    std::uint32_t pid = static_cast<std::uint32_t>(::getpid());
    std::string wmClass = app.cls + '\0' + app.cls + '\0';
    int n = 0;
    for (auto& w : app.windows) {
        xcb_window_t id = xcb_generate_id(c);
        std::uint32_t values[] = {screen->white_pixel,
                                  XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_STRUCTURE_NOTIFY};
        auto x = static_cast<int16_t>(40 + 60 * index + 20 * n),
             y = static_cast<int16_t>(40 + 40 * index + 20 * n);
        xcb_create_window(c, XCB_COPY_FROM_PARENT, id, screen->root, x, y, 480, 320, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                          XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK, values);
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, netName, utf8, 8,
                            static_cast<uint32_t>(w.title.size()), w.title.data());
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                            static_cast<uint32_t>(w.title.size()), w.title.data());
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                            static_cast<uint32_t>(wmClass.size()), wmClass.data());
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, netPid, XCB_ATOM_CARDINAL, 32, 1, &pid);
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, protocols, XCB_ATOM_ATOM, 32, 1, &del);
        xcb_icccm_wm_hints_t hints{};
        xcb_icccm_wm_hints_set_input(&hints, 1);
        xcb_icccm_wm_hints_set_normal(&hints);
        xcb_icccm_set_wm_hints(c, id, &hints);
        // Where the window asked to be, so the fake apps cascade instead of piling up in one place.
        xcb_size_hints_t size{};
        xcb_icccm_size_hints_set_position(&size, 1, x, y);
        xcb_icccm_set_wm_normal_hints(c, id, &size);
        if (w.desktop >= 0) {
            auto d = static_cast<std::uint32_t>(w.desktop);
            xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, netDesktop, XCB_ATOM_CARDINAL, 32, 1, &d);
        }
        xcb_map_window(c, id);
        open.insert(id);
        ++n;
    }
    xcb_flush(c);
    retitleOnceListed(c, screen->root, app, open);
    std::ofstream log(logDir + "/" + app.cls + ".keys", std::ios::app);
    while (!open.empty()) {
        xcb_generic_event_t* e = xcb_wait_for_event(c);
        if (!e) break;
        switch (e->response_type & 0x7F) {
            case XCB_KEY_PRESS: {
                auto* k = reinterpret_cast<xcb_key_press_event_t*>(e);
                log << int(k->detail) << ' ' << k->state << std::endl;
                break;
            }
            case XCB_CLIENT_MESSAGE: {
                auto* m = reinterpret_cast<xcb_client_message_event_t*>(e);
                if (m->type == protocols && m->data.data32[0] == del) {
                    xcb_destroy_window(c, m->window);
                    xcb_flush(c);
                    open.erase(m->window);
                }
                break;
            }
            default:
                break;
        }
        std::free(e);
    }
    xcb_disconnect(c);
    return 0;
}

// Key codes with "d" (down) or "u" (up), comma-separated; a bare code is a down and an up.
int press(const std::string& sequence) {
    xcb_connection_t* c = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(c)) return 1;
    std::size_t start = 0;
    while (start < sequence.size()) {
        auto comma = sequence.find(',', start);
        std::string item =
            sequence.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        start = comma == std::string::npos ? sequence.size() : comma + 1;
        if (item.empty()) continue;
        auto code = static_cast<std::uint8_t>(std::strtol(item.c_str(), nullptr, 10));
        char last = item.back();
        if (last != 'u') xcb_test_fake_input(c, XCB_KEY_PRESS, code, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
        if (last != 'd') xcb_test_fake_input(c, XCB_KEY_RELEASE, code, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    }
    // A round trip, so every key is in the server before we leave.
    std::free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
    xcb_disconnect(c);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::string logDir = ".";
    std::vector<AppSpec> apps;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--press" && i + 1 < argc) return press(argv[i + 1]);
        if (arg == "--log" && i + 1 < argc) {
            logDir = argv[++i];
            continue;
        }
        auto app = parseApp(arg);
        if (!app) {
            std::cerr << "zelk-x11-test-client: bad app '" << arg << "' (want CLASS=TITLE[@DESKTOP],...)\n";
            return 2;
        }
        apps.push_back(*app);
    }
    if (apps.empty()) {
        std::cerr << "usage: zelk-x11-test-client --log DIR CLASS=TITLE[@DESKTOP][,TITLE...] ...\n";
        return 2;
    }
    std::vector<pid_t> children;
    for (std::size_t i = 0; i < apps.size(); ++i) {
        pid_t pid = ::fork();
        if (pid == 0) return runApp(apps[i], logDir, static_cast<int>(i));
        if (pid > 0) children.push_back(pid);
    }
    for (auto pid : children)
        ::waitpid(pid, nullptr, 0);
    return 0;
}
