#pragma once
#include <nlohmann/json.hpp>

#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

#include "support/Observable.h"

namespace zelk::command {
class CommandService;
}
namespace zelk::agent {
class Subsystems;
class TabCycleService;
class AppPanelCycle;
class DebugService;
}  // namespace zelk::agent
namespace zelk::diagnostics {
class WindowEventWatch;
}
namespace zelk::command {
struct DebugProviders;
}
namespace zelk::platform {
class Processes;
}
namespace zelk {
class AppDelegate;
class KeyRouter;
class SelectionActions;
}  // namespace zelk
namespace zelk::osd {
class OSDController;
}
namespace zelk::configfile {
class ConfigFileManager;
}

namespace zelk::agent {

// The program as one unit: its life cycle on the installed platform, and the entry for command
// requests that don't come through the socket (the replay bench).
class Agent {
  public:
    // `commandService`: listen on the socket (the live agent); the replay bench feeds commands itself.
    explicit Agent(bool commandService = false);
    ~Agent();
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;

    // Launch, as the application object does: will-finish then did-finish.
    void start();
    // Quit: the termination handler, in its order.
    void terminate();
    bool running() const { return started_ && !terminated_; }
    KeyRouter& router() { return *router_; }
    Subsystems& subsystems() { return *subsystems_; }
    command::CommandService& commands() { return *commands_; }
    osd::OSDController& panel() { return *panel_; }
    TabCycleService& tabCycle() { return *tabCycle_; }
    SelectionActions& selectionActions() { return *selection_; }
    // One request of the command protocol (the JSON object), answered with the response object.
    nlohmann::ordered_json handleCommand(const nlohmann::json& request);
    // Keeps the configuration files in this folder in step with the settings from the start on, and
    // answers the config commands. Call before start(); without it (the replay bench, tests) no file
    // outside the program is touched.
    void useConfigFolder(const std::filesystem::path& folder);
    configfile::ConfigFileManager* config() { return config_.get(); }
    // Where the debug dump puts its folder and archive, and what runs its programs (default: the
    // temporary folder and the installed platform's child processes).
    void useDebugDump(std::filesystem::path outputFolder, platform::Processes* processes);
    DebugService& debug() { return *debug_; }

  private:
    std::unique_ptr<AppDelegate> delegate_;
    std::unique_ptr<Subsystems> subsystems_;
    std::unique_ptr<KeyRouter> router_;
    std::unique_ptr<osd::OSDController> panel_;
    void wirePanel();
    void unwirePanel();
    // The tab cycle is made before the panel that lists it, and hooked to the trigger state.
    void makeTabCycle();
    // The tab cycle offers recently closed windows and reopens or forgets them.
    void wireClosedRows();
    std::unique_ptr<TabCycleService> tabCycle_;
    std::unique_ptr<SelectionActions> selection_;
    void wireSelectionActions();
    // Tab and the arrows walk the app panel's rows once the user has been looking at it.
    std::unique_ptr<AppPanelCycle> appCycle_;
    void wireAppCycle();
    ferrow::Subscription panelSub_;
    ferrow::Subscription searchRowsSub_;
    std::unique_ptr<command::CommandService> commands_;
    std::unique_ptr<configfile::ConfigFileManager> config_;
    void dropConfigFolder();
    std::unique_ptr<DebugService> debug_;
    // The records of the debug commands that read the agent's own pieces (AgentDebugRecords.cpp).
    void addAgentDebugRecords(command::DebugProviders& providers);
    std::unique_ptr<diagnostics::WindowEventWatch> watch_;
    std::vector<ferrow::Subscription> watchSubs_;
    std::filesystem::path dumpFolder_;
    platform::Processes* dumpProcesses_ = nullptr;
    void wireDebug();
    bool started_ = false;
    bool terminated_ = false;
};

}  // namespace zelk::agent
