#pragma once
#include <xcb/xcb.h>
#include <xcb/xcb_ewmh.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/Geometry.h"

namespace zelk::x11 {

// One managed client window as the window manager publishes it.
struct Client {
    std::uint32_t id = 0;
    std::int32_t pid = 0;  // 0 when the client doesn't say
    std::string title;
    std::string instance;  // WM_CLASS instance part
    std::string cls;       // WM_CLASS class part: the app's identifier
    std::uint32_t desktop = 0;
    bool sticky = false;  // on every desktop
    bool hidden = false;  // minimised (_NET_WM_STATE_HIDDEN)
    bool dialog = false;
    Rect frame;  // with the window manager's decorations, root coordinates
};

// The desktop's state in one read: clients bottom to top, the active client and the desktops.
struct Snapshot {
    std::vector<Client> clients;
    std::uint32_t active = 0;
    std::uint32_t currentDesktop = 0;
    std::uint32_t desktopCount = 1;
    const Client* client(std::uint32_t id) const;
};

// A connection to the X server with the EWMH atoms. Reads are pipelined; the snapshot is cached until
// the event pump says something changed.
class Connection {
  public:
    // Opens the display (empty: $DISPLAY); nullptr with `error` set when it can't.
    static std::unique_ptr<Connection> open(const std::string& display, std::string& error);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    xcb_connection_t* xcb() { return conn_; }
    xcb_ewmh_connection_t* ewmh() { return &ewmh_; }
    xcb_window_t root() const { return screen_->root; }
    xcb_screen_t* screen() { return screen_; }
    int screenNumber() const { return screenNumber_; }
    xcb_atom_t atom(const char* name);

    // The cached snapshot, read again when invalidated.
    std::shared_ptr<const Snapshot> snapshot();
    void invalidate() { dirty_.store(true); }
    std::shared_ptr<const Snapshot> readSnapshot();

    // Requests to the window manager.
    void activate(std::uint32_t window);
    void switchDesktop(std::uint32_t desktop);
    void moveToDesktop(std::uint32_t window, std::uint32_t desktop);
    void moveResize(std::uint32_t window, Rect frame);
    void close(std::uint32_t window);
    void minimize(std::uint32_t window);
    void flush() { xcb_flush(conn_); }
    // The server closed the connection (it went away).
    bool broken() { return xcb_connection_has_error(conn_) != 0; }

    std::optional<std::string> windowName(std::uint32_t window);

  private:
    Connection() = default;
    xcb_connection_t* conn_ = nullptr;
    xcb_screen_t* screen_ = nullptr;
    int screenNumber_ = 0;
    xcb_ewmh_connection_t ewmh_{};
    bool ewmhReady_ = false;
    std::mutex mutex_;
    std::shared_ptr<const Snapshot> cached_;
    std::atomic<bool> dirty_{true};
};

}  // namespace zelk::x11
