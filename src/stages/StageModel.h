#pragma once
#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "apps/LaunchableApp.h"
#include "stages/WindowPlacement.h"

// The records a stage is made of and their JSON form in the settings.
namespace zelk::stages {

// How a stage item names its window so it can be found again after a restart.
struct DocumentPathSpec {
    std::string path;
    bool operator==(const DocumentPathSpec&) const = default;
};
// An empty URL is a browser window whose URL could not be read in an app with several windows: it
// matches by title only.
struct BrowserURLSpec {
    std::string url;
    bool operator==(const BrowserURLSpec&) const = default;
};
struct TerminalCWDSpec {
    std::string path;
    bool operator==(const TerminalCWDSpec&) const = default;
};
struct AppSpec {
    bool operator==(const AppSpec&) const = default;
};
using WindowSpec = std::variant<DocumentPathSpec, BrowserURLSpec, TerminalCWDSpec, AppSpec>;

bool isAppSpec(const WindowSpec& spec);
// "doc:{path}", "url:{url}", "cwd:{path}" or "app", for log lines.
std::string describe(const WindowSpec& spec);
nlohmann::json toJson(const WindowSpec& spec);
std::optional<WindowSpec> windowSpecFromJson(const nlohmann::json& json, std::string& error);

// How an item with an action is opened.
struct WindowAction {
    std::string url;
    std::string appURL;
    std::string name;
    std::optional<std::string> scriptRunner;
    bool operator==(const WindowAction&) const = default;
};
nlohmann::json toJson(const WindowAction& action);
std::optional<WindowAction> windowActionFromJson(const nlohmann::json& json, std::string& error);

struct StageItem {
    std::string id;  // a UUID in upper case
    std::shared_ptr<apps::LaunchableApp> app;
    WindowSpec windowSpec = AppSpec{};
    std::string windowTitle;
    std::optional<WindowAction> windowAction;
    std::optional<std::uint32_t> windowID;  // the live window the item resolved to; never stored
    std::optional<WindowPlacement> windowPlacement;

    const std::string& bundleID() const;
    // Same stored identity and same live window; the app is compared by identifier.
    bool operator==(const StageItem& other) const;
};
nlohmann::json toJson(const StageItem& item);
std::optional<StageItem> stageItemFromJson(const nlohmann::json& json, std::string& error);

struct Stage {
    std::string key;
    std::string name;
    std::vector<StageItem> items;
    std::optional<std::uint64_t> spaceID;
    bool operator==(const Stage&) const = default;
};
// "Stage " and the key upper-cased.
std::string defaultStageName(const std::string& key);
nlohmann::json toJson(const Stage& stage);
// Needs `key` and `name`. Items decode one by one: a bad item is dropped and logged, the rest stay in
// order. Without a usable `items` list, a legacy `apps` list becomes whole-app items.
std::optional<Stage> stageFromJson(const nlohmann::json& json, std::string& error);

// The stages setting: a list of stage records. Unreadable stages and later duplicates of a key are
// dropped with a log line; the others survive.
std::vector<Stage> stagesFromJson(const nlohmann::json& json);
nlohmann::json toJson(const std::vector<Stage>& stages);

// A fresh random UUID in upper case. Tests may install a deterministic source.
std::string makeUUID();
void setUUIDSource(std::function<std::string()> source);

}  // namespace zelk::stages
