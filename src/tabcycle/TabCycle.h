#pragma once
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/Key.h"
#include "support/MainQueue.h"
#include "support/Observable.h"
#include "tabcycle/TabCycleEntries.h"

namespace zelk {
class InputManager;
}

namespace zelk::tabcycle {

// What the cycle reaches in other subsystems. Each entry has a default, so the cycle runs before
// every subsystem is in place (recently closed windows and stages answer "none" until they land).
struct TabCycleEnvironment {
    std::function<CycleSnapshot()> snapshot;
    std::function<void()> stampMissingSpaceIDs;
    std::function<bool(std::uint32_t windowID)> focusWindow;
    // Whether the tracked list still holds a window (a step checks its rows without copying the list).
    std::function<bool(std::uint32_t windowID)> hasWindow;
    // A number that changes each time the tracked list is published: a step whose rows were checked
    // against the same number skips the check. Without it every step checks.
    std::function<std::uint64_t()> windowListGeneration;
    // The most-recent order of windows, most recent first (read without a whole snapshot).
    std::function<std::vector<std::uint32_t>()> mostRecent;
    // The most-recent change held back during the gesture lands now.
    std::function<void()> flushPendingMRU;
    // Where "focus last window" returns to.
    std::function<void(std::optional<windows::ManagedWindow>)> setSlot;
    std::function<std::vector<ClosedWindowRow>()> recentlyClosed;
    std::function<bool(const std::string& uuid)> reopenClosed;
    std::function<void(const std::string& uuid)> forgetClosed;
    // Calls back on the main queue after each change of the tracked window list.
    std::function<ferrow::Subscription(std::function<void()>)> observeWindows;
    std::function<void()> refetchWindows;
    std::function<std::optional<std::uint32_t>()> mainDisplayID;
    std::function<void(std::optional<std::uint32_t>)> setAnchorDisplay;
    std::function<void(const std::string& icon, const std::string& label, std::int64_t ms)> flash;
    std::function<void()> clearFlash;
    // A search is open: a refresh reruns it.
    std::function<bool()> searchActive;
    std::function<void()> rerunSearch;
    // The system's key repeat interval.
    std::function<ferrow::Nanos()> keyRepeatInterval;
    void fillDefaults();
};

// The settings the cycle reads, taken when a cycle starts.
struct TabCycleSettings {
    bool enableTabCycle = true;
    TabCycleScope scope = TabCycleScope::auto_;
    TabCycleScope searchScope = TabCycleScope::allWindows;
    TabCycleFilter include{0x3};
    bool focusOnKeyUp = true;
    bool showAppSwitcher = false;
    int appSwitcherDelay = 150;
    static TabCycleSettings load();
};

// The most-recently-used walk over windows: its rows, the highlight, the filter, live focus while
// stepping, and the commit or cancel at the end. Main thread.
class TabCycle {
  public:
    // How long the "Refreshed" flash stays.
    static constexpr std::int64_t kRefreshedFlashMs = 450;
    static constexpr std::int64_t kLiveFocusMs = 10;
    static constexpr std::int64_t kLiveFocusRepeatMs = 180;

    TabCycle(InputManager& input, TabCycleEnvironment env);
    ~TabCycle();
    TabCycle(const TabCycle&) = delete;
    TabCycle& operator=(const TabCycle&) = delete;

    // Starts a cycle or steps it. `scope` none uses the setting; `skipClosed` leaves out closed rows
    // and turns the filter off.
    void handleTabCycle(bool reverse, std::optional<TabCycleScope> scope, bool skipClosed = false,
                        std::optional<std::string> advanceKey = std::nullopt, bool isRepeat = false);
    // Ends the cycle: `cancel` restores the window it began on; `commit` lands on the highlighted row.
    void resetTabCycle(bool commit, bool cancel);
    // A key of the running cycle; true when taken.
    bool handleTabCycleKey(Key key);
    // Left and Right in `auto`: all windows for now, or back.
    void setAllWindowsExpanded(bool expanded);
    // Reload the window list during a panel (the refresh combo).
    void refreshOSDWindowList();
    // The highlighted row is removed (closed rows leave the recently closed list too).
    void removeHighlightedEntry();
    // Keep the rows in step with the live window list.
    void syncWithLiveWindows();
    // The row with this id leaves the cycle (it was closed or acted on elsewhere); false without it.
    bool dropEntry(const std::string& rowID);

    bool cycling() const { return tabCycling; }
    std::optional<TabCycleEntry> highlightedEntry() const;

    // Observable state the panel draws.
    ferrow::Observable<std::vector<TabCycleEntry>> tabCycleEntries;
    ferrow::Observable<std::size_t> tabCycleIndex{0};
    ferrow::Observable<std::string> tabCycleSearchBuffer;
    ferrow::Observable<bool> tabCycleAllWindowsExpanded{false};
    bool tabCycling = false;
    std::vector<TabCycleEntry> tabCycleAllEntries, tabCycleSearchAllEntries;
    bool tabCycleSearchTouched = false;
    bool tabCycleSearchDisabled = false;
    std::optional<std::string> tabCycleAdvanceKey;
    std::optional<TabCycleScope> tabCycleScopeOverride;
    ferrow::Nanos lastTabCycleRepeatStepAt = 0;
    std::optional<windows::ManagedWindow> windowBeforeTabCycle;
    ferrow::WorkItem pendingTabCycleFocusWork;
    // Fires after a change made outside a key event (a window closing, a refresh, live focus).
    ferrow::Signal<int> changed;

    const TabCycleSettings& settings() const { return settings_; }

  private:
    void start(bool reverse, std::optional<TabCycleScope> scope, bool skipClosed,
               std::optional<std::string> advanceKey);
    void step(bool reverse, bool isRepeat);
    std::size_t startRow(const std::vector<TabCycleEntry>& rows, const CycleSnapshot& world,
                         TabCycleScope effective) const;
    void scheduleLiveFocus(bool isRepeat);
    void markChecked();
    void refilter();
    void setRows(std::vector<TabCycleEntry> rows, std::size_t index);
    EntryRequest request(TabCycleScope scope, bool forSearch) const;
    std::vector<TabCycleEntry> rowsWithClosed(TabCycleScope scope, const CycleSnapshot& world,
                                              bool forSearch) const;
    TabCycleScope configuredScope() const;
    bool liveFocusOff() const;
    void clearCycle();
    static std::string mruText(const std::vector<std::uint32_t>& mru, std::size_t limit);
    ferrow::Nanos now() const;

    InputManager& input_;
    TabCycleEnvironment env_;
    TabCycleSettings settings_;
    ferrow::Subscription tabCycleWindowsObserver_;
    bool landedByDigit_ = false;
    // The window list generation the rows were last checked against.
    std::optional<std::uint64_t> checkedGeneration_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace zelk::tabcycle
