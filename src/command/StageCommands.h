#pragma once
#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "command/CommandDispatcher.h"
#include "stages/WindowPlacement.h"

namespace zelk::command {

// The window a placement acts on.
struct PlaceTarget {
    std::uint32_t windowID = 0;
    std::string appName;
    std::string bundleID;
};

// What the stage and placement commands need from the stage subsystem. A command is registered only
// when its providers are set, so a part not built yet still reads "not available yet".
struct StageProviders {
    // Every stage, or only the one on `key`; items resolved to live windows when asked.
    std::function<std::vector<ZelkStageInfo>(const std::optional<std::string>& key, bool includeWindows)>
        listStages;
    std::function<bool(const std::string& key)> stageExists;

    // `windowID` exactly, else the best window of `query` or `appQuery`, else the focused window.
    std::function<std::optional<PlaceTarget>(const ZelkRequest&)> placeTarget;
    // Whether a screen name means a screen of today's setup (rather than falling back to the main one).
    std::function<bool(const std::string& name)> screenMatches;
    // Whether the catalogue knows the app.
    std::function<bool(const std::string& bundleID)> knowsApp;
    std::function<bool(std::uint32_t windowID, const stages::WindowPlacement&)> placeWindow;

    std::function<void(const std::string& key)> activateStage;
    std::function<std::optional<std::string>()> activeStageKey;
    std::function<void(const std::string& key)> closeStage;

    // Diagnostics: what a save would capture now, and the stage state of the running program.
    std::function<nlohmann::json(const ZelkRequest&)> captureDebug;
    std::function<nlohmann::json(const ZelkRequest&)> stageDebug;
};

void registerStageCommands(CommandDispatcher& dispatcher, const StageProviders& providers);

}  // namespace zelk::command
