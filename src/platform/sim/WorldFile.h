#pragma once
#include <nlohmann/json.hpp>

#include <optional>
#include <string>

#include "platform/sim/SimDesktop.h"

namespace zelk::sim {

// What a world file asks of the program beside the desktop itself.
struct WorldExtras {
    nlohmann::json settings = nlohmann::json::object();  // written to the settings store before start
    std::optional<std::string> configFile;               // placed as the config file before start
};

// Loads a world (YAML text, or its JSON value) into a fresh simulated desktop. On failure returns
// false with a one-line reason naming the field ("apps[2].running.windows[0].frame: expected [x, y, w, h]").
bool loadWorld(const nlohmann::json& world, SimDesktop& desktop, WorldExtras& extras, std::string& error);
bool loadWorldText(const std::string& yamlText, SimDesktop& desktop, WorldExtras& extras, std::string& error);

// The believable desktop the agent runs on by default: a dozen apps, several windows, three Spaces,
// two displays.
const std::string& defaultWorldYaml();

}  // namespace zelk::sim
