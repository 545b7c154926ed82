#pragma once
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "command/CommandDispatcher.h"

namespace zelk::command {

// The program's version as the tool reports it.
inline constexpr const char* kZelkVersion = "0.1.0";

struct FrontmostAppInfo {
    std::string name;
    std::string bundleID;
};

// Where `status` takes each of its fields from. An empty function leaves its field out (or at zero);
// `platformStatusProviders` fills what the platform and the settings already know, and the agent
// replaces the rest as the managers that own them join.
struct StatusProviders {
    std::function<std::string()> version;
    std::function<std::int32_t()> pid;
    std::function<std::string()> triggerKeysApp, triggerKeysWindow, triggerKeysStage;
    std::function<std::optional<FrontmostAppInfo>()> frontmostApp;
    std::function<std::optional<ZelkWindowInfo>()> focusedWindow;
    std::function<std::optional<ZelkSpaceInfo>()> activeSpace;
    std::function<std::int64_t()> totalSpaces;
    std::function<std::optional<ZelkStageInfo>()> activeStage;
};

StatusProviders platformStatusProviders();
ZelkStatusInfo collectStatus(const StatusProviders& providers);

// The commands that need no manager: `status` from the providers, and `osd`, which posts the
// panel's distributed notification so that it reaches the running instance as any outside tool would.
void registerBuiltinCommands(CommandDispatcher& dispatcher, StatusProviders providers);

ZelkResponse handleOsd(const ZelkRequest& request);

}  // namespace zelk::command
