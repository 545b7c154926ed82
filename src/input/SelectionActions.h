#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "input/SelectionTarget.h"
#include "platform/EventTap.h"
#include "platform/Workspace.h"

namespace zelk {

class InputManager;
class KeyRouter;

// A window as the actions see it in the tracked window list.
struct ActionWindow {
    std::uint32_t id = 0;
    std::int32_t pid = 0;
    std::string bundleID;
    std::string title;
};

// What the actions reach in other subsystems. Every entry may be left empty: an empty row source has
// no row, an empty lookup finds nothing.
struct SelectionEnvironment {
    std::function<std::optional<ActionWindow>(std::uint32_t id)> trackedWindow;
    std::function<std::vector<ActionWindow>(std::int32_t pid)> windowsOfPid;
    std::function<bool(const platform::RunningApp&)> forceActivate;
    std::function<void(const std::string& icon, const std::string& label, std::int64_t durationMs)> showFlash;
    // The panels that can have a highlighted row, in the order they are asked.
    HighlightedRows appCycle, search, tabCycle;
};

// The value the program writes into the user-data field of the events it makes up ("zelk_syn").
inline constexpr std::int64_t kSyntheticEventMarker = 0x7A656C6B5F73796E;

// Commands on the highlighted row of an open search or tab cycle: close, quit, minimise or hide, and a
// new window. The panel stays open (but for a new window), the rows that no longer stand leave it, and
// a short flash confirms. Main thread.
class SelectionActions {
  public:
    static constexpr std::int64_t kFlashMs = 450;
    static constexpr std::int64_t kNewWindowDelayMs = 80;

    SelectionActions(InputManager& input, KeyRouter& router, SelectionEnvironment env);
    ~SelectionActions();
    SelectionActions(const SelectionActions&) = delete;
    SelectionActions& operator=(const SelectionActions&) = delete;

    // The tab cycle (or any later panel) offers its rows here.
    void setTabCycleRows(HighlightedRows rows) { env_.tabCycle = std::move(rows); }
    void setAppCycleRows(HighlightedRows rows) { env_.appCycle = std::move(rows); }

    std::optional<SelectionActionTarget> selectionTarget() const;
    // True when the key was acted on (and is to be swallowed): w, q, h or o with a target.
    bool runSelectionAction(const std::string& key);

    void closeSelectionTarget(const SelectionActionTarget& target);
    void quitSelectionTarget(const SelectionActionTarget& target);
    void minimizeOrHideSelectionTarget(const SelectionActionTarget& target);
    void newWindowForSelectionTarget(const SelectionActionTarget& target);
    void pruneRowsAfterAction(const RowMatch& matches);
    // Command-N to the app in front, by the route given (0 is what the new-window action takes).
    void postSyntheticCmdN(std::int32_t pid, platform::PostRoute route);
    // Option-Return: opens the highlighted app's menu-bar extra; false when there is none to open.
    bool pressMenuExtraOfSelection();
    void recordSelectionActionSide();

  private:
    std::optional<platform::RunningApp> runningAppOf(const SelectionActionTarget& target) const;
    bool closeWindowViaAX(std::int32_t pid, std::uint32_t windowID, const std::string& title);
    void flash(const std::string& icon, const std::string& label);

    InputManager& input_;
    KeyRouter& router_;
    SelectionEnvironment env_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace zelk
