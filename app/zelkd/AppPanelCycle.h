#pragma once
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "input/OSDModel.h"
#include "input/SelectionTarget.h"
#include "support/Clock.h"

namespace zelk {
class InputManager;
}

namespace zelk::agent {

// What walking the application panel reads and does, from the managers of this build.
struct AppPanelCycleEnvironment {
    std::function<std::vector<osd::OSDSection>()> sections;  // the app panel's rows, as shown
    std::function<std::vector<std::string>()> focusedRows;   // the focused window's row id, then its app's
    std::function<bool(const std::string& bundleID)> activateApp;  // focus it, or launch it
    std::function<bool(std::uint32_t windowID)> focusWindow;
    std::function<void()> refreshPanel;
    std::function<ferrow::Nanos()> now;
    std::function<ferrow::Nanos()> keyRepeatInterval;
};

// Walking the application panel like a list: Tab and the arrows move the app cycle's pick
// (`appSwitcherCycleSelectedID`) through the panel's rows, and the release activates it.
class AppPanelCycle {
  public:
    AppPanelCycle(InputManager& input, AppPanelCycleEnvironment env);

    void stepAppPanel(bool reverse, bool isRepeat);
    // The picked row's app or window, brought forward. False when the pick is gone from the panel.
    bool activateSelection(const std::string& rowID);
    // The picked row as the selection actions see it, and the removal of rows an action made stale.
    HighlightedRows highlightedRows();

  private:
    InputManager& input_;
    AppPanelCycleEnvironment env_;
    ferrow::Nanos lastRepeatStepAt_ = 0;
};

}  // namespace zelk::agent
