#pragma once
#include <memory>
#include <vector>

#include "command/BuiltinCommands.h"
#include "command/ManagerCommands.h"
#include "command/StageCommands.h"
#include "companions/TactoraPayload.h"
#include "input/OSDController.h"
#include "input/RoutingServices.h"
#include "input/SelectionActions.h"
#include "platform/Key.h"
#include "support/Observable.h"
#include "windows/WindowKeyAssignments.h"
#include "windows/WindowKeyWalk.h"

namespace zelk {
class AppDelegate;
}
namespace zelk::apps {
class AppManager;
}
namespace zelk::spaces {
class ISSManager;
class WindowMover;
class SpacesIndicator;
}  // namespace zelk::spaces
namespace zelk::companions {
class LaunchMonitor;
}
namespace zelk::windows {
class AppWindowKeys;
class WindowKeyAssignmentRunner;
class WindowManager;
class WindowMinimizer;
}  // namespace zelk::windows

namespace zelk::stages {
class StageService;
}
namespace zelk::companions {
class TactoraManager;
}

namespace zelk::agent {

// The long-lived managers of this build, created on the installed platform, and what the router and
// the command service reach through them.
class SearchService;
class OverviewService;
class RecentlyClosedService;

class Subsystems {
  public:
    Subsystems();
    ~Subsystems();
    Subsystems(const Subsystems&) = delete;
    Subsystems& operator=(const Subsystems&) = delete;

    // The catalogue is built at its launch step; window tracking starts with it.
    void attach(AppDelegate& delegate);
    void start();

    apps::AppManager& apps();
    windows::WindowManager& windows() { return *windows_; }
    spaces::ISSManager& iss() { return *iss_; }
    SearchService& search() { return *search_; }
    // The full-screen overview, made and wired by the agent.
    OverviewService& overview() { return *overview_; }
    void setOverview(std::unique_ptr<OverviewService> overview);
    spaces::WindowMover& mover() { return *mover_; }
    spaces::SpacesIndicator& spacesIndicator() { return *spacesIndicator_; }
    companions::LaunchMonitor& launchMonitor() { return *launchMonitor_; }
    RecentlyClosedService& recentlyClosed() { return *recentlyClosed_; }
    companions::TactoraManager& companion() { return *companion_; }

    RoutingServices routingServices();
    command::ManagerProviders commandProviders();
    // The stage and placement commands.
    command::StageProviders stageProviders();
    stages::StageService& stages() { return *stages_; }
    // The platform's answers for `status`, with the focused window from window tracking.
    command::StatusProviders statusProviders();
    // What the panel lists: the app panel's letters and apps, the window panel's window keys.
    osd::OSDEnvironment panelEnvironment();
    osd::SearchContent searchPanelContent();
    // What the actions on a highlighted row reach: the window list, activation, the search's rows.
    SelectionEnvironment selectionEnvironment();
    HighlightedRows searchHighlightedRows();

  private:
    void followPointer();
    // Stage activation and capture reach the catalogue, Spaces and notifications; the stage trigger's
    // keys reach them (StageWiring.cpp).
    void attachStageHooks();
    void fillStageRouting(RoutingServices& s);
    // Moving windows between Spaces: the move keys, `move-window-to-space`, and the one Space
    // numbering that `switch-space`, `list-spaces` and `status` share.
    void wireSpaceMoves(RoutingServices& services);
    void addSpaceCommands(command::ManagerProviders& providers);
    void numberSpacesForStatus(command::StatusProviders& providers);
    // The strip of Spaces hears this program's switches before they happen.
    void makeSpacesIndicator();
    // Launches of apps that weren't running are watched for the launch pills.
    void makeLaunchMonitor();
    void keepClosedWindows();
    // The companion keyboard follows the app trigger and the bindings.
    void wireCompanion();
    companions::TactoraBindingInputs companionBindingInputs();
    // Rebuilds the window rows and their keys, and the keys the window trigger catches.
    void refreshAppWindows();
    std::vector<Key> windowKeysInUse(const std::vector<Key>& candidates);
    bool focusWindowByKey(const std::string& key);
    // The key's rows take the order of the walk through a shared window key (the panel hides); the walk
    // goes on while the window trigger is held, and ends with it.
    void keepWindowKeyWalkOrder();
    void endWindowKeyWalk();
    std::optional<windows::KeyedApp> focusedKeyedApp();
    std::vector<windows::WindowKeyAssignment> savedWindowKeys();
    // The assign panel's resolution for the focused window, logged (the panel is a view of its own).
    void showWindowAssignPanel();
    std::vector<osd::OSDSection> appPanelSections(const osd::PanelSettings& settings);
    std::vector<osd::OSDSection> windowPanelSections(const osd::PanelSettings& settings);

    AppDelegate* delegate_ = nullptr;
    std::unique_ptr<windows::AppWindowKeys> windowKeys_;
    std::unique_ptr<windows::WindowKeyAssignmentRunner> keyRunner_;
    std::unique_ptr<spaces::ISSManager> iss_;
    std::unique_ptr<windows::WindowManager> windows_;
    std::unique_ptr<spaces::WindowMover> mover_;
    std::unique_ptr<windows::WindowMinimizer> minimizer_;
    std::unique_ptr<SearchService> search_;
    std::unique_ptr<OverviewService> overview_;
    std::unique_ptr<RecentlyClosedService> recentlyClosed_;
    std::unique_ptr<companions::TactoraManager> companion_;
    std::unique_ptr<stages::StageService> stages_;
    std::unique_ptr<spaces::SpacesIndicator> spacesIndicator_;
    std::unique_ptr<companions::LaunchMonitor> launchMonitor_;
    windows::WindowKeyWalk windowKeyWalk_;  // repeated presses of a shared window key in one hold
    std::vector<ferrow::Subscription> subscriptions_;
    bool started_ = false;
};

}  // namespace zelk::agent
