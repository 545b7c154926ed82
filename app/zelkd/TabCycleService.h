#pragma once
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "input/OSDModel.h"
#include "input/RoutingServices.h"
#include "input/SelectionTarget.h"
#include "tabcycle/TabCycle.h"

namespace zelk {
class InputManager;
class KeyRouter;
}  // namespace zelk
namespace zelk::osd {
class OSDController;
}
namespace zelk::windows {
class WindowManager;
}

namespace zelk::agent {

// The tab cycle of the running program: its rows read from window tracking and the most-recent
// order, its focus through the focus pipeline, its anchor and flash on the panel, and the hooks and
// routing services through which the trigger state and the key chain reach it.
class TabCycleService {
  public:
    // `panel` is asked each time: the panel is made after the cycle.
    TabCycleService(windows::WindowManager& windows, KeyRouter& router,
                    std::function<osd::OSDController*()> panel);
    ~TabCycleService();
    TabCycleService(const TabCycleService&) = delete;
    TabCycleService& operator=(const TabCycleService&) = delete;

    tabcycle::TabCycle& cycle() { return *cycle_; }
    // Turns the cycle's routes on and hooks it to the trigger state.
    void wire(InputManager& input);
    void unwire(InputManager& input);
    // The panel's rows: numbered 1 to 9 for their digits, the highlight on the row a release lands on.
    std::vector<osd::OSDSection> panelSections() const;
    std::string filter() const { return cycle_->tabCycleSearchBuffer.get(); }
    // The highlighted row for the selection actions: a live window of a running cycle (a recently
    // closed row is no action's target), and the removal of the rows an action made stale.
    HighlightedRows highlightedRows();
    // Who belongs to the active stage, for the stage filter; none while no stage is active.
    void setActiveStage(std::function<std::optional<tabcycle::StageMembers>()> members) {
        activeStage_ = std::move(members);
    }

    // The recently closed rows the cycle offers, and what reopening or forgetting one does.
    struct ClosedSource {
        std::function<std::vector<tabcycle::ClosedWindowRow>()> rows;
        std::function<bool(const std::string& uuid)> reopen;
        std::function<void(const std::string& uuid)> forget;
    };
    void setRecentlyClosed(ClosedSource source) { closed_ = std::move(source); }

  private:
    tabcycle::TabCycleEnvironment environment();
    tabcycle::CycleSnapshot snapshot() const;

    windows::WindowManager& windows_;
    KeyRouter& router_;
    std::function<osd::OSDController*()> panel_;
    std::unique_ptr<tabcycle::TabCycle> cycle_;
    std::function<std::optional<tabcycle::StageMembers>()> activeStage_;
    std::vector<ferrow::Subscription> subscriptions_;
    ClosedSource closed_;
    // Counts the publications of the tracked window list, so a step knows when to check its rows.
    std::uint64_t windowListGeneration_ = 0;
};

}  // namespace zelk::agent
