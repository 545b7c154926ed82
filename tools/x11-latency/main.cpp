// zelk-x11-latency: how long a key press takes to become an activated window. Holding the right Super
// key, it presses two letters in turn N times through XTest and waits each time for the window manager
// to publish the other app's window as _NET_ACTIVE_WINDOW; then prints the median and the worst.
//
//   zelk-x11-latency LETTER_KEYCODE:WINDOW LETTER_KEYCODE:WINDOW [N]
#include <xcb/xcb.h>
#include <xcb/xtest.h>

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr std::uint8_t kSuperR = 134;

std::uint32_t activeWindow(xcb_connection_t* c, xcb_window_t root, xcb_atom_t atom) {
    auto* r = xcb_get_property_reply(c, xcb_get_property(c, 0, root, atom, XCB_ATOM_WINDOW, 0, 1), nullptr);
    std::uint32_t w = r && xcb_get_property_value_length(r) >= 4
                          ? *static_cast<std::uint32_t*>(xcb_get_property_value(r))
                          : 0;
    std::free(r);
    return w;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: zelk-x11-latency KEYCODE:WINDOW KEYCODE:WINDOW [N]\n");
        return 2;
    }
    struct Target {
        std::uint8_t key;
        std::uint32_t window;
    };
    std::vector<Target> targets;
    for (int i = 1; i <= 2; ++i) {
        std::string arg = argv[i];
        auto colon = arg.find(':');
        if (colon == std::string::npos) return 2;
        targets.push_back({static_cast<std::uint8_t>(std::stoi(arg.substr(0, colon))),
                           static_cast<std::uint32_t>(std::stoul(arg.substr(colon + 1), nullptr, 0))});
    }
    int n = argc > 3 ? std::atoi(argv[3]) : 100;
    xcb_connection_t* c = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(c)) return 1;
    xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
    auto* a = xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, 18, "_NET_ACTIVE_WINDOW"), nullptr);
    xcb_atom_t active = a->atom;
    std::free(a);
    std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(c, root, XCB_CW_EVENT_MASK, &mask);
    // One press of the trigger and a letter: the milliseconds until the window manager publishes the
    // target as active, or none after two seconds.
    auto press = [&](const Target& t) -> std::optional<double> {
        xcb_test_fake_input(c, XCB_KEY_PRESS, kSuperR, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
        xcb_test_fake_input(c, XCB_KEY_PRESS, t.key, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
        auto start = std::chrono::steady_clock::now();
        auto deadline = start + std::chrono::seconds(2);
        xcb_flush(c);
        bool done = false;
        while (!done && std::chrono::steady_clock::now() < deadline) {
            xcb_generic_event_t* e = xcb_poll_for_event(c);
            if (!e) {
                if (xcb_connection_has_error(c)) break;
                pollfd fd{xcb_get_file_descriptor(c), POLLIN, 0};
                ::poll(&fd, 1, 10);
                continue;
            }
            if ((e->response_type & 0x7F) == XCB_PROPERTY_NOTIFY &&
                reinterpret_cast<xcb_property_notify_event_t*>(e)->atom == active &&
                activeWindow(c, root, active) == t.window)
                done = true;
            std::free(e);
        }
        auto elapsed =
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
        xcb_test_fake_input(c, XCB_KEY_RELEASE, t.key, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
        xcb_test_fake_input(c, XCB_KEY_RELEASE, kSuperR, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
        std::free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
        return done ? std::optional<double>(elapsed) : std::nullopt;
    };
    // Unmeasured: one press for each target, ending on the second, so every measured press changes
    // the active window (a press for the window already active changes nothing the clock could stop
    // on), and what the agent does once on its first keys is left out. How long those took is shown.
    for (const Target& t : {targets[0], targets[1]}) {
        auto warm = press(t);
        std::fprintf(stderr, "warm-up press (key %d): %s\n", t.key,
                     warm ? (std::to_string(*warm) + " ms").c_str() : "activated nothing within 2 s");
    }
    std::vector<double> ms;
    int missed = 0;
    for (int i = 0; i < n; ++i) {
        if (auto elapsed = press(targets[static_cast<std::size_t>(i % 2)]))
            ms.push_back(*elapsed);
        else {
            ++missed;
            std::fprintf(stderr, "press %d (key %d) activated nothing within 2 s\n", i + 1,
                         targets[static_cast<std::size_t>(i % 2)].key);
        }
    }
    if (ms.empty()) {
        std::printf("no press activated its window (%d missed)\n", missed);
        return 1;
    }
    // The first press also pays for what the agent does once (its first window reads), so it is
    // shown on its own as well.
    double first = ms.front();
    std::sort(ms.begin(), ms.end());
    double worstAfterFirst =
        ms.size() > 1 ? std::max(ms[ms.size() - 2], first == ms.back() ? 0.0 : ms.back()) : first;
    std::printf(
        "key press -> activated window over %zu presses: median %.2f ms, worst %.2f ms, best %.2f ms; "
        "first %.2f ms, worst after it %.2f ms%s\n",
        ms.size(), ms[ms.size() / 2], ms.back(), ms.front(), first, worstAfterFirst,
        missed ? (", " + std::to_string(missed) + " missed").c_str() : "");
    return missed ? 1 : 0;
}
