#include "platform/x11/X11Desktop.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/randr.h>

#include <cstdlib>
#include <cstring>

#include "platform/x11/X11EventTap.h"
#include "support/Log.h"
#include "support/MainQueue.h"

extern char** environ;

namespace zelk::x11 {

using ferrow::Log;

std::unique_ptr<X11Desktop> X11Desktop::open(const std::string& display, std::string& error) {
    std::unique_ptr<X11Desktop> d(new X11Desktop());
    d->displayName_ = display;
    d->conn_ = Connection::open(display, error);
    if (!d->conn_) return nullptr;
    d->entries_ = scanDesktopEntries(applicationFolders());
    d->eventTap_ = std::make_unique<X11EventTap>(display);
    d->last_ = d->conn_->readSnapshot();
    d->startPump();
    return d;
}

X11Desktop::~X11Desktop() {
    stopping_.store(true);
    if (wake_[1] >= 0) {
        char c = 0;
        [[maybe_unused]] auto n = ::write(wake_[1], &c, 1);
    }
    if (thread_.joinable()) thread_.join();
    for (int fd : wake_)
        if (fd >= 0) ::close(fd);
    eventTap_.reset();
}

platform::Platform X11Desktop::platform(platform::SettingsStore* settings) {
    platform::Platform p;
    p.name = "X11 desktop";
    p.accessibility = &accessibility_;
    p.windowServer = &windowServer_;
    p.workspace = &workspace_;
    p.eventTap = eventTap_.get();
    p.screens = &screens_;
    p.pointer = &pointer_;
    p.notifications = &notifications_;
    p.settings = settings;
    p.processes = &processes_;
    return p;
}

// The event connection only listens: property changes on the root (client list, active window,
// current desktop) and on each client (title, state, desktop), and structure changes (moves).
void X11Desktop::startPump() {
    std::string error;
    auto events = Connection::open(displayName_, error);
    if (!events || ::pipe(wake_) != 0) {
        Log::error("x11: no event connection ({}); changes are read on demand only", error);
        return;
    }
    std::uint32_t rootMask = XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(events->xcb(), events->root(), XCB_CW_EVENT_MASK, &rootMask);
    events->flush();
    events_ = std::move(events);
    watchClients(*last_);
    thread_ = std::thread([this, ev = events_] {
        pollfd fds[2] = {{xcb_get_file_descriptor(ev->xcb()), POLLIN, 0}, {wake_[0], POLLIN, 0}};
        std::uint32_t clientMask = XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY;
        while (!stopping_.load()) {
            std::vector<std::uint32_t> watch;
            {
                std::lock_guard lock(watchMutex_);
                watch.swap(toWatch_);
            }
            for (auto id : watch)
                xcb_change_window_attributes(ev->xcb(), id, XCB_CW_EVENT_MASK, &clientMask);
            bool any = false;
            if (!watch.empty()) {
                // A client changed between the read that found it and this selection sent no event
                // (the window manager sets its desktop, state and frame right after listing it): once
                // the server has applied the selection, everything is read again.
                std::free(xcb_get_input_focus_reply(ev->xcb(), xcb_get_input_focus(ev->xcb()), nullptr));
                any = true;
            }
            while (xcb_generic_event_t* e = xcb_poll_for_event(ev->xcb())) {
                std::free(e);
                any = true;
            }
            if (xcb_connection_has_error(ev->xcb())) {
                Log::error("x11: the event connection closed");
                return;
            }
            if (any) {
                conn_->invalidate();
                if (!pumpQueued_.exchange(true)) ferrow::mainAsync([this] { pump(); });
            }
            if (::poll(fds, 2, -1) < 0 && errno != EINTR) return;
            if (fds[1].revents) {
                char buf[64];
                [[maybe_unused]] auto n = ::read(wake_[0], buf, sizeof buf);
            }
        }
    });
}

void X11Desktop::watchClients(const Snapshot& snapshot) {
    // Clients live inside the window manager's frames, so the root's structure events don't cover
    // their property changes: each new client is watched as soon as a read finds it. Only the
    // listening thread touches its connection, so it is woken to make the selection.
    if (!events_) return;
    bool any = false;
    {
        std::lock_guard lock(watchMutex_);
        for (auto& c : snapshot.clients)
            if (watched_.insert(c.id).second) {
                toWatch_.push_back(c.id);
                any = true;
            }
    }
    if (any) {
        char c = 1;
        [[maybe_unused]] auto n = ::write(wake_[1], &c, 1);
    }
}

void X11Desktop::pump() {
    pumpQueued_.store(false);
    auto now = conn_->snapshot();
    auto before = last_;
    last_ = now;
    watchClients(*now);
    for (auto& change : diffSnapshots(*before, *now)) {
        windowServer_.dispatch(change);
        accessibility_.dispatch(change);
        workspace_.dispatch(change, *before);
    }
}

std::vector<DesktopEntry> X11Desktop::entries() {
    std::lock_guard lock(entriesMutex_);
    return entries_;
}

void X11Desktop::rescanEntries() {
    auto fresh = scanDesktopEntries(applicationFolders());
    std::lock_guard lock(entriesMutex_);
    entries_ = std::move(fresh);
}

std::vector<platform::RunningApp> X11Desktop::apps(const Snapshot& snapshot) {
    std::vector<platform::RunningApp> out;
    auto known = entries();
    for (auto& c : snapshot.clients) {
        if (c.pid <= 0) continue;
        bool seen = false;
        for (auto& a : out)
            if (a.pid == c.pid) seen = true;
        if (seen) continue;
        platform::RunningApp app;
        app.pid = c.pid;
        app.bundleID = !c.cls.empty() ? c.cls : c.instance;
        app.name = app.bundleID;
        app.bundlePath = std::string(kClassPathPrefix) + app.bundleID;
        if (const DesktopEntry* e = entryForClass(known, c.cls, c.instance)) {
            app.name = e->name;
            app.bundlePath = e->path;
        }
        char exe[4096];
        auto n = ::readlink(("/proc/" + std::to_string(c.pid) + "/exe").c_str(), exe, sizeof exe - 1);
        if (n > 0) app.executablePath.assign(exe, static_cast<std::size_t>(n));
        bool anyShown = false;
        for (auto& w : snapshot.clients)
            if (w.pid == c.pid && !w.hidden) anyShown = true;
        app.hidden = !anyShown;
        out.push_back(std::move(app));
    }
    return out;
}

std::vector<platform::Screen> X11Desktop::screens() {
    std::vector<platform::Screen> out;
    auto* c = conn_->xcb();
    auto* reply = xcb_randr_get_monitors_reply(c, xcb_randr_get_monitors(c, conn_->root(), 1), nullptr);
    if (reply) {
        auto it = xcb_randr_get_monitors_monitors_iterator(reply);
        for (; it.rem; xcb_randr_monitor_info_next(&it)) {
            platform::Screen s;
            auto* name = xcb_get_atom_name_reply(c, xcb_get_atom_name(c, it.data->name), nullptr);
            if (name) {
                s.name.assign(xcb_get_atom_name_name(name),
                              static_cast<std::size_t>(xcb_get_atom_name_name_length(name)));
                std::free(name);
            }
            s.uuid = s.name;
            s.displayID = static_cast<std::uint32_t>(out.size() + 1);
            s.frame =
                Rect{double(it.data->x), double(it.data->y), double(it.data->width), double(it.data->height)};
            s.visibleFrame = s.frame;
            s.backingScale = 1;
            s.isBuiltin = false;
            // The primary output is the first screen, as the one with the menu bar is elsewhere.
            if (it.data->primary)
                out.insert(out.begin(), s);
            else
                out.push_back(s);
        }
        std::free(reply);
    }
    if (out.empty()) {
        platform::Screen s;
        s.name = s.uuid = "screen";
        s.displayID = 1;
        s.frame = s.visibleFrame =
            Rect{0, 0, double(conn_->screen()->width_in_pixels), double(conn_->screen()->height_in_pixels)};
        s.backingScale = 1;
        out.push_back(s);
    }
    return out;
}

std::string X11Desktop::primaryDisplay() {
    return screens().front().uuid;
}

std::vector<platform::Screen> X11Screens::screens() {
    return d_.screens();
}

std::optional<platform::Screen> X11Screens::mainScreen() {
    auto all = d_.screens();
    auto snap = d_.snapshot();
    if (const Client* c = snap->client(snap->active))
        for (auto& s : all)
            if (s.frame.contains(c->frame.center())) return s;
    return all.front();
}

Point X11Pointer::location() {
    auto* c = d_.conn().xcb();
    auto* r = xcb_query_pointer_reply(c, xcb_query_pointer(c, d_.conn().root()), nullptr);
    if (!r) return {};
    Point p{double(r->root_x), double(r->root_y)};
    std::free(r);
    return p;
}

void X11Pointer::warp(Point to) {
    xcb_warp_pointer(d_.conn().xcb(), XCB_NONE, d_.conn().root(), 0, 0, 0, 0, static_cast<std::int16_t>(to.x),
                     static_cast<std::int16_t>(to.y));
    d_.conn().flush();
}

std::uint32_t X11Pointer::pressedButtons() {
    auto* c = d_.conn().xcb();
    auto* r = xcb_query_pointer_reply(c, xcb_query_pointer(c, d_.conn().root()), nullptr);
    if (!r) return 0;
    std::uint32_t buttons = 0;
    for (int b = 0; b < 5; ++b)
        if (r->mask & (XCB_BUTTON_MASK_1 << b)) buttons |= 1u << b;
    std::free(r);
    return buttons;
}

namespace {
bool onPath(const std::string& program) {
    const char* path = std::getenv("PATH");
    std::string list = path ? path : "/usr/bin:/bin";
    std::size_t start = 0;
    while (start <= list.size()) {
        auto end = list.find(':', start);
        std::string dir = list.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (!dir.empty() && ::access((dir + "/" + program).c_str(), X_OK) == 0) return true;
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return false;
}
}  // namespace

void X11Notifications::postUserNotification(const std::string& identifier, const std::string& title,
                                            const std::string& body) {
    static const bool hasNotifySend = onPath("notify-send");
    if (!hasNotifySend) {
        Log::info("notify: {}: {} ({})", title, body, identifier);
        return;
    }
    platform::ProcessRequest request{"notify-send", {"--app-name=zelk", title, body}, 5, {}, false};
    X11Processes().run(request);
}

void X11Notifications::postDistributed(const std::string& name, const platform::UserInfo& userInfo) {
    auto it = channels_.find(name);
    if (it == channels_.end()) return;
    std::weak_ptr<ferrow::Signal<platform::UserInfo>> channel = it->second;
    ferrow::mainAsync([channel, userInfo] {
        if (auto c = channel.lock()) c->emit(userInfo);
    });
}

ferrow::Subscription X11Notifications::observeDistributed(
    const std::string& name, std::function<void(const platform::UserInfo&)> callback) {
    auto& channel = channels_[name];
    if (!channel) channel = std::make_shared<ferrow::Signal<platform::UserInfo>>();
    return channel->subscribe(std::move(callback));
}

platform::ProcessResult X11Processes::run(const platform::ProcessRequest& request) {
    platform::ProcessResult result;
    int out[2], err[2];
    if (::pipe(out) != 0) return result;
    if (::pipe(err) != 0) {
        ::close(out[0]);
        ::close(out[1]);
        return result;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    posix_spawn_file_actions_addclose(&actions, err[0]);
    std::vector<std::string> args{request.program};
    args.insert(args.end(), request.arguments.begin(), request.arguments.end());
    std::vector<char*> argv;
    for (auto& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    std::vector<std::string> envStrings;
    for (char** e = environ; *e; ++e) {
        std::string entry = *e;
        auto key = entry.substr(0, entry.find('='));
        if (!request.environment.count(key)) envStrings.push_back(entry);
    }
    for (auto& [k, v] : request.environment)
        envStrings.push_back(k + "=" + v);
    std::vector<char*> envp;
    for (auto& e : envStrings)
        envp.push_back(e.data());
    envp.push_back(nullptr);
    pid_t pid = 0;
    int rc = posix_spawnp(&pid, request.program.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    ::close(err[1]);
    if (rc != 0) {
        ::close(out[0]);
        ::close(err[0]);
        result.errorOutput = std::strerror(rc);
        return result;
    }
    result.started = true;
    if (!request.wait) {
        ::close(out[0]);
        ::close(err[0]);
        // Reaped in the background so it leaves no zombie.
        std::thread([pid] { ::waitpid(pid, nullptr, 0); }).detach();
        result.exitCode = 0;
        return result;
    }
    auto drain = [](int fd, std::string& into) {
        char buf[4096];
        ssize_t n;
        while ((n = ::read(fd, buf, sizeof buf)) > 0)
            into.append(buf, static_cast<std::size_t>(n));
        ::close(fd);
    };
    std::thread errReader([&] { drain(err[0], result.errorOutput); });
    drain(out[0], result.output);
    errReader.join();
    int status = 0;
    ::waitpid(pid, &status, 0);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

std::optional<std::string> X11Processes::runScript(const std::string& source, std::string* error) {
    auto r = run({"/bin/sh", {"-c", source}, 10, {}, true});
    if (!r.started || r.exitCode != 0) {
        if (error) *error = r.started ? r.errorOutput : "cannot run /bin/sh";
        return std::nullopt;
    }
    return r.output;
}

}  // namespace zelk::x11
