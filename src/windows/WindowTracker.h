#pragma once
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "support/Observable.h"
#include "windows/AppWindowEnumerator.h"
#include "windows/WindowEnvironment.h"
#include "windows/WindowListReader.h"

namespace zelk::windows {

// The published window list: merged from accessibility and the window server, never emptied by a
// failure of either, always sorted by id.
class WindowTracker {
  public:
    static constexpr ferrow::Nanos kThrottle = 100 * ferrow::kNanosPerMs;
    static constexpr ferrow::Nanos kBudget = 2 * ferrow::kNanosPerSecond;

    explicit WindowTracker(WindowEnvironment& env);

    // Full refresh; unforced calls within 0.1 s of the last start do nothing. False when throttled.
    bool refreshWindows(bool force);
    // One app; neither budget nor throttle applies.
    void refreshApp(const platform::RunningApp& app);
    // Windows known to be gone: removed and announced on `windowsClosed`.
    void pruneWindows(const std::vector<std::uint32_t>& ids);

    void stampMissingSpaceIDs();
    std::optional<std::uint64_t> liveSpaceID(const ManagedWindow& window);
    void stampWindowsMovedToSpace(const std::vector<std::uint32_t>& ids, std::uint64_t space);

    const std::vector<ManagedWindow>& windows() const { return windows_.get(); }
    ferrow::Observable<std::vector<ManagedWindow>>& windowsObservable() { return windows_; }
    std::optional<ManagedWindow> window(std::uint32_t id) const;
    std::vector<ManagedWindow> windowsOfApp(const std::string& bundleID) const;
    // Removes a window at once (window-server destroy), without a refresh.
    void remove(std::uint32_t id);

    const std::map<std::uint32_t, Rect>& lastKnownBounds() const { return lastKnownBounds_; }
    const std::optional<platform::RunningApp>& frontmostApp() const { return frontmostApp_; }
    void setFrontmostApp(std::optional<platform::RunningApp> app) { frontmostApp_ = std::move(app); }
    std::map<std::string, std::map<std::uint32_t, int>>& windowNumbersByBundle() { return windowNumbers_; }

    AXHealth& health() { return health_; }
    SpaceWalk& walk() { return walk_; }
    WindowListReader& listReader() { return listReader_; }
    AppWindowEnumerator& enumerator() { return enumerator_; }

    // After every publish (the focus resolution runs here).
    std::function<void()> afterPublish;
    // An app seen only through its windows was adopted (its observer should start).
    std::function<void(const platform::RunningApp&)> adopted;
    // An app's accessibility answered an enumeration.
    std::function<void(const platform::RunningApp&)> answered;
    ferrow::Signal<std::vector<ManagedWindow>> windowsClosed;

    // Ordered-out ghosts leave; pure over the list and the window list rows.
    static std::vector<ManagedWindow> dropOrderedOutGhosts(std::vector<ManagedWindow> list,
                                                           const std::vector<platform::WindowInfo>& rows,
                                                           const std::vector<platform::RunningApp>& running,
                                                           std::uint64_t activeSpace);

  private:
    void preserve(const platform::RunningApp& app, const char* reason, std::vector<ManagedWindow>& into,
                  int& preservedApps, int& preservedWindows);
    void publish(std::vector<ManagedWindow> list);
    void assignWindowNumbers(const std::vector<ManagedWindow>& list);
    std::vector<ManagedWindow> filtered(std::vector<ManagedWindow> list) const;
    // A window kept without its app being asked (or whose app isn't asked at all) carries facts as old
    // as the app's last answer, so it can't be judged a ghost.
    bool isStale(const ManagedWindow& w, ferrow::Nanos now);
    // Ghost dropping over the fresh part of the list; stale windows stay as they are. Without rows
    // (no permission, or the window server answered nothing) every window would look ordered out.
    std::vector<ManagedWindow> dropGhostsAmongFresh(std::vector<ManagedWindow> list,
                                                    const std::vector<platform::WindowInfo>& rows,
                                                    const std::vector<platform::RunningApp>& running);

    WindowEnvironment& env_;
    AXHealth health_;
    SpaceWalk walk_;
    WindowListReader listReader_;
    AppWindowEnumerator enumerator_;
    ferrow::Observable<std::vector<ManagedWindow>> windows_;
    std::map<std::uint32_t, Rect> lastKnownBounds_;
    std::optional<platform::RunningApp> frontmostApp_;
    std::optional<ferrow::Nanos> lastRefreshTime_;
    // Windows the last full refresh preserved; a per-app refresh that reads their app again takes
    // them out.
    std::set<std::uint32_t> preservedIDs_;
    std::map<std::string, std::map<std::uint32_t, int>> windowNumbers_;
};

}  // namespace zelk::windows
