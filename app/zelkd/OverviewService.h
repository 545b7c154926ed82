#pragma once
#include <nlohmann/json.hpp>

#include <memory>
#include <vector>

#include "expose/ExposeController.h"
#include "input/HotkeyRouter.h"
#include "platform/PanelEvents.h"
#include "platform/draw/ExposePainter.h"
#include "support/Observable.h"

namespace zelk {
class InputManager;
class KeyRouter;
}  // namespace zelk
namespace zelk::command {
class CommandDispatcher;
}

namespace zelk::expose {
class CapturedPictureSource;
}

namespace zelk::agent {

class Subsystems;

// The overview in this build: the manager over window tracking, the Spaces, placement and the
// accessibility actions, the overview key of routing, the keys while it is up, the hot corner's
// pointer monitor, and the `expose` command.
class OverviewService final : public HotkeyRouter {
  public:
    explicit OverviewService(Subsystems& subsystems);
    ~OverviewService();
    OverviewService(const OverviewService&) = delete;
    OverviewService& operator=(const OverviewService&) = delete;

    expose::ExposeManager& manager() { return *manager_; }
    void wire(InputManager& input, KeyRouter& router, command::CommandDispatcher& commands);
    void unwire(InputManager& input);

    // Keys go to the overview while it is up, else to the router it stands in front of.
    platform::TapDecision routeKeyDown(Key key, const platform::KeyEvent& event, const TriggerList& keys,
                                       bool isAutoRepeat) override;
    void commitOnTriggerUp() override;
    void showStagePanelIfAny() override;
    void cancelForOverlay() override;
    bool tabCycleBuilt() const override;

    // How often the hot corner reads the pointer while a corner is chosen.
    static constexpr std::int64_t kPointerPollMs = 50;

  private:
    void pollPointer();
    // The mouse and the trackpad reach the manager while its panels are up.
    void followPanelEvents();
    void panelEvent(const platform::PanelEvent& event);

    expose::ExposeEnvironment environment();

    Subsystems& subsystems_;
    // Declared before the manager, which reads it until it goes.
    std::unique_ptr<expose::CapturedPictureSource> pictures_;
    std::unique_ptr<expose::ExposeManager> manager_;
    std::vector<ferrow::Subscription> subscriptions_;
    InputManager* input_ = nullptr;
    HotkeyRouter* inner_ = nullptr;
    ferrow::WorkItem pointerPoll_;
    std::optional<Point> lastPointer_;
    bool receivingPanelEvents_ = false;
};

// The trace's `panel` event for the overview (view "ExposeOverlayView"): whether it is up, its phase,
// grouping, filters, selection, toast and question, and its tiles per screen; `text` is the readable line.
nlohmann::json overviewEvent(const expose::ExposeManager& manager);
// What the frames draw of the overview: tiles with their pictures or placeholders, labels, the bar.
draw::OverviewPicture overviewPicture(const expose::ExposeManager& manager);

}  // namespace zelk::agent
