#include "platform/x11/X11Connection.h"

#include <xcb/xcb_icccm.h>

#include <cstdlib>
#include <cstring>

namespace zelk::x11 {

const Client* Snapshot::client(std::uint32_t id) const {
    for (auto& c : clients)
        if (c.id == id) return &c;
    return nullptr;
}

std::unique_ptr<Connection> Connection::open(const std::string& display, std::string& error) {
    std::unique_ptr<Connection> c(new Connection());
    c->conn_ = xcb_connect(display.empty() ? nullptr : display.c_str(), &c->screenNumber_);
    if (!c->conn_ || xcb_connection_has_error(c->conn_)) {
        error = "cannot open display " +
                (display.empty()
                     ? std::string(std::getenv("DISPLAY") ? std::getenv("DISPLAY") : "(DISPLAY unset)")
                     : display);
        return nullptr;
    }
    auto it = xcb_setup_roots_iterator(xcb_get_setup(c->conn_));
    for (int i = 0; i < c->screenNumber_ && it.rem; ++i)
        xcb_screen_next(&it);
    c->screen_ = it.data;
    xcb_intern_atom_cookie_t* cookies = xcb_ewmh_init_atoms(c->conn_, &c->ewmh_);
    if (!xcb_ewmh_init_atoms_replies(&c->ewmh_, cookies, nullptr)) {
        error = "cannot read the window manager's atoms";
        return nullptr;
    }
    c->ewmhReady_ = true;
    return c;
}

Connection::~Connection() {
    if (ewmhReady_) xcb_ewmh_connection_wipe(&ewmh_);
    if (conn_) xcb_disconnect(conn_);
}

xcb_atom_t Connection::atom(const char* name) {
    auto reply = xcb_intern_atom_reply(
        conn_, xcb_intern_atom(conn_, 0, static_cast<std::uint16_t>(std::strlen(name)), name), nullptr);
    if (!reply) return XCB_ATOM_NONE;
    xcb_atom_t a = reply->atom;
    std::free(reply);
    return a;
}

namespace {

template <typename T>
struct Reply {
    T* ptr = nullptr;
    explicit Reply(T* p) : ptr(p) {}
    ~Reply() { std::free(ptr); }
    Reply(const Reply&) = delete;
    Reply& operator=(const Reply&) = delete;
    T* operator->() const { return ptr; }
    explicit operator bool() const { return ptr != nullptr; }
};

std::optional<std::uint32_t> cardinal(xcb_connection_t* c, xcb_get_property_cookie_t cookie) {
    Reply<xcb_get_property_reply_t> r(xcb_get_property_reply(c, cookie, nullptr));
    if (!r || r->format != 32 || xcb_get_property_value_length(r.ptr) < 4) return std::nullopt;
    return *static_cast<std::uint32_t*>(xcb_get_property_value(r.ptr));
}

std::string text(xcb_connection_t* c, xcb_get_property_cookie_t cookie) {
    Reply<xcb_get_property_reply_t> r(xcb_get_property_reply(c, cookie, nullptr));
    if (!r || r->format != 8) return {};
    return std::string(static_cast<const char*>(xcb_get_property_value(r.ptr)),
                       static_cast<std::size_t>(xcb_get_property_value_length(r.ptr)));
}

std::vector<std::uint32_t> atoms(xcb_connection_t* c, xcb_get_property_cookie_t cookie) {
    Reply<xcb_get_property_reply_t> r(xcb_get_property_reply(c, cookie, nullptr));
    std::vector<std::uint32_t> out;
    if (!r || r->format != 32) return out;
    auto* v = static_cast<std::uint32_t*>(xcb_get_property_value(r.ptr));
    out.assign(v, v + xcb_get_property_value_length(r.ptr) / 4);
    return out;
}

struct ClientCookies {
    xcb_get_property_cookie_t netName, name, pid, wmClass, desktop, state, type, extents;
    xcb_get_geometry_cookie_t geometry;
    xcb_translate_coordinates_cookie_t origin;
};

}  // namespace

std::shared_ptr<const Snapshot> Connection::snapshot() {
    std::lock_guard lock(mutex_);
    if (cached_ && !dirty_.load()) return cached_;
    dirty_.store(false);
    cached_ = readSnapshot();
    return cached_;
}

std::shared_ptr<const Snapshot> Connection::readSnapshot() {
    auto snap = std::make_shared<Snapshot>();
    auto stackingCookie = xcb_ewmh_get_client_list_stacking(&ewmh_, screenNumber_);
    auto activeCookie = xcb_ewmh_get_active_window(&ewmh_, screenNumber_);
    auto currentCookie = xcb_ewmh_get_current_desktop(&ewmh_, screenNumber_);
    auto countCookie = xcb_ewmh_get_number_of_desktops(&ewmh_, screenNumber_);
    std::vector<std::uint32_t> ids = atoms(conn_, stackingCookie);
    snap->active = cardinal(conn_, activeCookie).value_or(0);
    snap->currentDesktop = cardinal(conn_, currentCookie).value_or(0);
    snap->desktopCount = std::max<std::uint32_t>(1, cardinal(conn_, countCookie).value_or(1));

    const std::uint32_t big = 1024;
    std::vector<ClientCookies> cookies;
    cookies.reserve(ids.size());
    for (auto id : ids) {
        ClientCookies k;
        k.netName = xcb_get_property(conn_, 0, id, ewmh_._NET_WM_NAME, ewmh_.UTF8_STRING, 0, big);
        k.name = xcb_get_property(conn_, 0, id, XCB_ATOM_WM_NAME, XCB_ATOM_ANY, 0, big);
        k.pid = xcb_get_property(conn_, 0, id, ewmh_._NET_WM_PID, XCB_ATOM_CARDINAL, 0, 1);
        k.wmClass = xcb_get_property(conn_, 0, id, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, big);
        k.desktop = xcb_get_property(conn_, 0, id, ewmh_._NET_WM_DESKTOP, XCB_ATOM_CARDINAL, 0, 1);
        k.state = xcb_get_property(conn_, 0, id, ewmh_._NET_WM_STATE, XCB_ATOM_ATOM, 0, 64);
        k.type = xcb_get_property(conn_, 0, id, ewmh_._NET_WM_WINDOW_TYPE, XCB_ATOM_ATOM, 0, 64);
        k.extents = xcb_get_property(conn_, 0, id, ewmh_._NET_FRAME_EXTENTS, XCB_ATOM_CARDINAL, 0, 4);
        k.geometry = xcb_get_geometry(conn_, id);
        k.origin = xcb_translate_coordinates(conn_, id, screen_->root, 0, 0);
        cookies.push_back(k);
    }
    for (std::size_t i = 0; i < ids.size(); ++i) {
        auto& k = cookies[i];
        Client c;
        c.id = ids[i];
        c.title = text(conn_, k.netName);
        std::string legacy = text(conn_, k.name);
        if (c.title.empty()) c.title = legacy;
        c.pid = static_cast<std::int32_t>(cardinal(conn_, k.pid).value_or(0));
        std::string cls = text(conn_, k.wmClass);
        if (auto nul = cls.find('\0'); nul != std::string::npos) {
            c.instance = cls.substr(0, nul);
            std::string rest = cls.substr(nul + 1);
            c.cls = rest.substr(0, rest.find('\0'));
        }
        auto desktop = cardinal(conn_, k.desktop);
        c.sticky = desktop && *desktop == 0xFFFFFFFFu;
        c.desktop = desktop && !c.sticky ? *desktop : snap->currentDesktop;
        for (auto a : atoms(conn_, k.state))
            if (a == ewmh_._NET_WM_STATE_HIDDEN) c.hidden = true;
        bool skip = false;
        for (auto a : atoms(conn_, k.type)) {
            if (a == ewmh_._NET_WM_WINDOW_TYPE_DIALOG) c.dialog = true;
            if (a == ewmh_._NET_WM_WINDOW_TYPE_DOCK || a == ewmh_._NET_WM_WINDOW_TYPE_DESKTOP) skip = true;
        }
        auto extents = atoms(conn_, k.extents);
        Reply<xcb_get_geometry_reply_t> g(xcb_get_geometry_reply(conn_, k.geometry, nullptr));
        Reply<xcb_translate_coordinates_reply_t> o(xcb_translate_coordinates_reply(conn_, k.origin, nullptr));
        if (!g || !o) continue;  // gone while we read
        double left = 0, right = 0, top = 0, bottom = 0;
        if (extents.size() == 4) {
            left = extents[0];
            right = extents[1];
            top = extents[2];
            bottom = extents[3];
        }
        c.frame = Rect{o->dst_x - left, o->dst_y - top, g->width + left + right, g->height + top + bottom};
        if (!skip) snap->clients.push_back(std::move(c));
    }
    return snap;
}

void Connection::activate(std::uint32_t window) {
    xcb_ewmh_request_change_active_window(&ewmh_, screenNumber_, window, XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER,
                                          XCB_CURRENT_TIME, XCB_NONE);
    flush();
}

void Connection::switchDesktop(std::uint32_t desktop) {
    xcb_ewmh_request_change_current_desktop(&ewmh_, screenNumber_, desktop, XCB_CURRENT_TIME);
    flush();
}

void Connection::moveToDesktop(std::uint32_t window, std::uint32_t desktop) {
    xcb_ewmh_request_change_wm_desktop(&ewmh_, screenNumber_, window, desktop,
                                       XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER);
    flush();
}

void Connection::moveResize(std::uint32_t window, Rect frame) {
    auto flags = static_cast<xcb_ewmh_moveresize_window_opt_flags_t>(
        XCB_EWMH_MOVERESIZE_WINDOW_X | XCB_EWMH_MOVERESIZE_WINDOW_Y | XCB_EWMH_MOVERESIZE_WINDOW_WIDTH |
        XCB_EWMH_MOVERESIZE_WINDOW_HEIGHT);
    // Static gravity: the position is the client's own; the frame's decorations are taken off.
    std::uint32_t left = 0, right = 0, top = 0, bottom = 0;
    Reply<xcb_get_property_reply_t> r(xcb_get_property_reply(
        conn_, xcb_get_property(conn_, 0, window, ewmh_._NET_FRAME_EXTENTS, XCB_ATOM_CARDINAL, 0, 4),
        nullptr));
    if (r && r->format == 32 && xcb_get_property_value_length(r.ptr) == 16) {
        auto* v = static_cast<std::uint32_t*>(xcb_get_property_value(r.ptr));
        left = v[0];
        right = v[1];
        top = v[2];
        bottom = v[3];
    }
    auto clamp = [](double v) { return static_cast<std::uint32_t>(std::max(0.0, v)); };
    xcb_ewmh_request_moveresize_window(&ewmh_, screenNumber_, window, XCB_GRAVITY_STATIC,
                                       XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER, flags, clamp(frame.x + left),
                                       clamp(frame.y + top), clamp(frame.width - left - right),
                                       clamp(frame.height - top - bottom));
    flush();
}

void Connection::close(std::uint32_t window) {
    xcb_ewmh_request_close_window(&ewmh_, screenNumber_, window, XCB_CURRENT_TIME,
                                  XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER);
    flush();
}

void Connection::minimize(std::uint32_t window) {
    xcb_client_message_event_t ev{};
    ev.response_type = XCB_CLIENT_MESSAGE;
    ev.format = 32;
    ev.window = window;
    ev.type = atom("WM_CHANGE_STATE");
    ev.data.data32[0] = XCB_ICCCM_WM_STATE_ICONIC;
    xcb_send_event(conn_, 0, screen_->root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&ev));
    flush();
}

std::optional<std::string> Connection::windowName(std::uint32_t window) {
    Reply<xcb_get_property_reply_t> r(xcb_get_property_reply(
        conn_, xcb_get_property(conn_, 0, window, ewmh_._NET_WM_NAME, ewmh_.UTF8_STRING, 0, 1024), nullptr));
    if (!r) return std::nullopt;
    return std::string(static_cast<const char*>(xcb_get_property_value(r.ptr)),
                       static_cast<std::size_t>(xcb_get_property_value_length(r.ptr)));
}

}  // namespace zelk::x11
