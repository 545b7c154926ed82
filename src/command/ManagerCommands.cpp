#include "command/ManagerCommands.h"

#include <fmt/format.h>

namespace zelk::command {

namespace {

using C = ZelkCommand;

// What the user asked for, in messages: the query when there is one, else the bundle id.
std::string appQueryText(const ZelkRequest& r) {
    if (r.query && !r.query->empty()) return *r.query;
    return r.bundleID.value_or("");
}

ZelkResponse focusApp(const ManagerProviders& p, const ZelkRequest& r) {
    auto apps = p.findApps(r);
    if (apps.empty()) return ZelkResponse::failure(fmt::format("no matching app for '{}'", appQueryText(r)));
    const AppTarget& app = apps.front();
    if (!p.focusApp(app))
        return ZelkResponse::failure(fmt::format("focus failed for {} (pid {})", app.name, app.pid));
    std::string text = fmt::format("focused {} (pid {})", app.name, app.pid);
    if (r.hideOthers && p.hideOtherApps) {
        int hidden = p.hideOtherApps(app);
        if (hidden > 0) text += fmt::format("; hid {} other app(s)", hidden);
    }
    return ZelkResponse::success(text);
}

ZelkResponse eachApp(const ManagerProviders& p, const ZelkRequest& r,
                     const std::function<bool(const AppTarget&)>& act, const char* verb) {
    auto apps = p.findApps(r);
    if (apps.empty()) return ZelkResponse::failure("no matching app");
    int n = 0;
    for (auto& app : apps)
        n += act(app) ? 1 : 0;
    return ZelkResponse::success(fmt::format("{} {} app(s)", verb, n));
}

ZelkResponse quitApp(const ManagerProviders& p, const ZelkRequest& r) {
    auto apps = p.findApps(r);
    if (apps.empty()) return ZelkResponse::failure("no matching app");
    const AppTarget& app = apps.front();
    std::string name = app.name.empty() ? "app" : app.name;
    if (!p.quitApp(app)) return ZelkResponse::failure(name + " refused to quit");
    return ZelkResponse::success("quit " + name);
}

ZelkResponse focusWindow(const ManagerProviders& p, const ZelkRequest& r) {
    auto windows = p.findWindows(r);
    if (windows.empty()) return ZelkResponse::failure("no matching window");
    std::uint32_t id = windows.front();
    if (!p.focusWindow(id)) return ZelkResponse::failure(fmt::format("focus failed for window #{}", id));
    return ZelkResponse::success(fmt::format("focused window #{}", id));
}

// minimize-window and unminimize-window: one window by id, or every window a query names.
ZelkResponse eachWindow(const ManagerProviders& p, const ZelkRequest& r,
                        const std::function<bool(std::uint32_t)>& act, const char* done, const char* failed) {
    auto windows = p.findWindows(r);
    if (windows.empty()) return ZelkResponse::failure("no matching window");
    if (r.windowID) {
        if (!act(windows.front())) return ZelkResponse::failure(failed);
        return ZelkResponse::success(fmt::format("{} window #{}", done, windows.front()));
    }
    int n = 0;
    for (auto id : windows)
        n += act(id) ? 1 : 0;
    if (n == 0) return ZelkResponse::failure(failed);
    return ZelkResponse::success(fmt::format("{} {} window(s)", done, n));
}

}  // namespace

void registerManagerCommands(CommandDispatcher& d, const ManagerProviders& providers) {
    // Handlers share one copy of the providers.
    auto p = std::make_shared<const ManagerProviders>(providers);
    auto reg = [&](C command, bool available, CommandHandler handler) {
        if (available) d.registerHandler(command, std::move(handler));
    };

    reg(C::listApps, bool(p->listApps), [p](const ZelkRequest&) {
        auto r = ZelkResponse::success();
        r.apps = p->listApps();
        return r;
    });
    reg(C::listWindows, bool(p->listWindows), [p](const ZelkRequest& req) {
        auto r = ZelkResponse::success();
        r.windows = p->listWindows(req.appQuery);
        return r;
    });
    reg(C::listSpaces, bool(p->listSpaces), [p](const ZelkRequest&) {
        auto r = ZelkResponse::success();
        r.spaces = p->listSpaces();
        return r;
    });

    bool apps = bool(p->findApps);
    reg(C::focusApp, apps && p->focusApp, [p](const ZelkRequest& r) { return focusApp(*p, r); });
    reg(C::hideApp, apps && p->hideApp,
        [p](const ZelkRequest& r) { return eachApp(*p, r, p->hideApp, "hid"); });
    reg(C::unhideApp, apps && p->unhideApp,
        [p](const ZelkRequest& r) { return eachApp(*p, r, p->unhideApp, "unhid"); });
    reg(C::quitApp, apps && p->quitApp, [p](const ZelkRequest& r) { return quitApp(*p, r); });

    bool windows = bool(p->findWindows);
    reg(C::focusWindow, windows && p->focusWindow, [p](const ZelkRequest& r) { return focusWindow(*p, r); });
    reg(C::minimizeWindow, windows && p->minimizeWindow, [p](const ZelkRequest& r) {
        return eachWindow(*p, r, p->minimizeWindow, "minimized", "minimize failed");
    });
    reg(C::unminimizeWindow, windows && p->unminimizeWindow, [p](const ZelkRequest& r) {
        return eachWindow(*p, r, p->unminimizeWindow, "unminimized", "unminimize failed");
    });
    reg(C::focusLastWindow, bool(p->focusLastWindow), [p](const ZelkRequest&) {
        p->focusLastWindow();
        return ZelkResponse::success("focus-last-window requested");
    });
    reg(C::minimizeFocused, bool(p->minimizeFocused), [p](const ZelkRequest&) {
        p->minimizeFocused();
        return ZelkResponse::success("minimize-focused requested");
    });
    reg(C::minimizeOthers, bool(p->minimizeOthers), [p](const ZelkRequest&) {
        if (!p->minimizeOthers()) return ZelkResponse::failure("no frontmost app");
        return ZelkResponse::success("minimized other windows of frontmost app");
    });

    reg(C::switchSpace, bool(p->switchSpace), [p](const ZelkRequest& r) {
        if (!r.spaceIndex || *r.spaceIndex < 0 || *r.spaceIndex > 9)
            return ZelkResponse::failure("space index must be 0-9 (0 = previous)");
        std::int64_t target = p->switchSpace(*r.spaceIndex);
        // No Space to go to is a failure, never a switch "to Space #0".
        if (target <= 0)
            return ZelkResponse::failure(*r.spaceIndex == 0
                                             ? std::string("no previous space to switch to")
                                             : fmt::format("space #{} does not exist", *r.spaceIndex));
        return ZelkResponse::success(fmt::format("switching to Space #{}", target));
    });
    reg(C::moveWindowToSpace, bool(p->moveWindowToSpace), [p](const ZelkRequest& r) {
        if (!r.spaceIndex || *r.spaceIndex < 1 || *r.spaceIndex > 9)
            return ZelkResponse::failure("space index must be 1-9");
        return p->moveWindowToSpace(r, *r.spaceIndex);
    });
}

}  // namespace zelk::command
