#pragma once
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "config/Settings.h"
#include "support/MainQueue.h"
#include "support/Observable.h"
#include "windows/ClosedWindow.h"
#include "windows/ManagedWindow.h"

namespace zelk::windows {

// Keeps what is needed to reopen a window once it closes. A window's identity is captured a short
// while after it gains focus (passing through a window on the way to another costs nothing); when
// window tracking prunes it, the captured state becomes the first entry of the list kept in the
// `recentlyClosedWindows` setting. Main thread only.
class RecentlyClosedWindows {
  public:
    static constexpr ferrow::Nanos kCaptureDelay = 600 * ferrow::kNanosPerMs;

    struct Sources {
        // The state worth keeping for a live window; nothing when it has no identity of its own
        // (a whole-app window, an app that keeps none, an app that isn't running).
        std::function<std::optional<CapturedWindowState>(const ManagedWindow&)> capture;
        // When the window last had focus, on the program's clock.
        std::function<std::optional<ferrow::Nanos>(std::uint32_t)> focusTime;
        // Whether the window is still tracked: captured states of gone windows are let go.
        std::function<bool(std::uint32_t)> windowExists;
        // Opens the entry's window again (its app, document, address or folder, and placement).
        std::function<void(const ClosedWindow&)> reopen;
    };

    RecentlyClosedWindows(Settings& settings, Sources sources);
    ~RecentlyClosedWindows();
    RecentlyClosedWindows(const RecentlyClosedWindows&) = delete;
    RecentlyClosedWindows& operator=(const RecentlyClosedWindows&) = delete;

    // The focused window changed: the one capture waiting is replaced by one for this window.
    void captureLiveSpec(const std::optional<ManagedWindow>& window);
    // Window tracking let these windows go (a per-app refresh or a destroy from the window server).
    void windowsPruned(const std::vector<ManagedWindow>& gone);
    void recordClosedWindow(const CapturedWindowState& state, const ManagedWindow& window);
    // False when no entry has that id.
    bool removeRecentlyClosedWindow(const std::string& id);
    bool reopenRecentlyClosedWindow(const std::string& id);

    // The stored list, newest first.
    std::vector<ClosedWindow> entries() const;
    std::optional<ClosedWindow> entry(const std::string& id) const;
    // Fires after every change of the list, made here or written into the setting from outside.
    ferrow::Signal<> changed;

    const std::map<std::uint32_t, CapturedWindowState>& liveWindowSpecCache() const { return cache_; }
    std::optional<std::uint32_t> pendingSpecCaptureWID() const { return pendingWID_; }

  private:
    void runCapture(const ManagedWindow& window);
    void store(const std::vector<ClosedWindow>& list);
    double wallNow() const;
    // A time on the program's clock as wall-clock seconds.
    double wallAt(ferrow::Nanos t) const;

    Settings& settings_;
    Sources sources_;
    std::map<std::uint32_t, CapturedWindowState> cache_;
    ferrow::WorkItem pendingWork_;
    std::optional<std::uint32_t> pendingWID_;
    ferrow::Subscription settingSub_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace zelk::windows
