#include "stages/StageModel.h"

#include <algorithm>
#include <cctype>
#include <random>
#include <set>

#include "support/Log.h"

namespace zelk::stages {
namespace {

using nlohmann::json;

std::optional<std::string> stringField(const json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end() || !it->is_string()) return std::nullopt;
    return it->get<std::string>();
}

// A URL as the JSON coder reads one: a non-empty text without white space.
bool looksLikeURL(const std::string& text) {
    return !text.empty() &&
           std::none_of(text.begin(), text.end(), [](unsigned char c) { return std::isspace(c); });
}

bool isUUID(const std::string& text) {
    if (text.size() != 36) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash ? text[i] != '-' : !std::isxdigit(static_cast<unsigned char>(text[i]))) return false;
    }
    return true;
}

std::string upper(std::string text) {
    for (auto& c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

std::function<std::string()>& uuidSource() {
    static std::function<std::string()> source;
    return source;
}

std::string randomUUID() {
    static std::mt19937_64 engine{std::random_device{}()};
    std::uniform_int_distribution<unsigned> nibble(0, 15);
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string out;
    for (int i = 0; i < 32; ++i) {
        unsigned v = nibble(engine);
        if (i == 12) v = 4;            // version 4
        if (i == 16) v = 8 | (v & 3);  // RFC variant
        if (i == 8 || i == 12 || i == 16 || i == 20) out += '-';
        out += kHex[v];
    }
    return out;
}

// The legacy form: a list of apps, each a whole-app item.
std::vector<StageItem> itemsFromLegacyApps(const json& apps) {
    std::vector<StageItem> items;
    if (!apps.is_array()) return items;
    for (const auto& entry : apps) {
        auto app = apps::LaunchableApp::fromJson(entry);
        if (!app) continue;
        StageItem item;
        item.id = makeUUID();
        item.app = std::move(app);
        items.push_back(std::move(item));
    }
    return items;
}

}  // namespace

bool isAppSpec(const WindowSpec& spec) {
    return std::holds_alternative<AppSpec>(spec);
}

std::string describe(const WindowSpec& spec) {
    if (auto* d = std::get_if<DocumentPathSpec>(&spec)) return "doc:" + d->path;
    if (auto* u = std::get_if<BrowserURLSpec>(&spec)) return "url:" + u->url;
    if (auto* c = std::get_if<TerminalCWDSpec>(&spec)) return "cwd:" + c->path;
    return "app";
}

json toJson(const WindowSpec& spec) {
    if (auto* d = std::get_if<DocumentPathSpec>(&spec)) return {{"type", "documentPath"}, {"path", d->path}};
    if (auto* u = std::get_if<BrowserURLSpec>(&spec)) return {{"type", "browserURL"}, {"url", u->url}};
    if (auto* c = std::get_if<TerminalCWDSpec>(&spec)) return {{"type", "terminalCWD"}, {"path", c->path}};
    return {{"type", "app"}};
}

std::optional<WindowSpec> windowSpecFromJson(const json& j, std::string& error) {
    if (!j.is_object()) {
        error = "windowSpec is not an object";
        return std::nullopt;
    }
    auto type = stringField(j, "type");
    if (!type) {
        error = "windowSpec has no type";
        return std::nullopt;
    }
    auto payload = [&](const char* key) -> std::optional<std::string> {
        auto value = stringField(j, key);
        if (!value) error = "windowSpec of type '" + *type + "' has no " + key;
        return value;
    };
    if (*type == "app") return AppSpec{};
    if (*type == "documentPath") {
        if (auto p = payload("path")) return DocumentPathSpec{*p};
        return std::nullopt;
    }
    if (*type == "browserURL") {
        if (auto u = payload("url")) return BrowserURLSpec{*u};
        return std::nullopt;
    }
    if (*type == "terminalCWD") {
        if (auto p = payload("path")) return TerminalCWDSpec{*p};
        return std::nullopt;
    }
    error = "Unknown WindowSpec type '" + *type + "'";
    return std::nullopt;
}

json toJson(const WindowAction& action) {
    json j{{"url", action.url}, {"appURL", action.appURL}, {"name", action.name}};
    if (action.scriptRunner) j["scriptRunner"] = *action.scriptRunner;
    return j;
}

std::optional<WindowAction> windowActionFromJson(const json& j, std::string& error) {
    if (!j.is_object()) {
        error = "windowAction is not an object";
        return std::nullopt;
    }
    WindowAction action;
    auto url = stringField(j, "url");
    if (!url || !looksLikeURL(*url)) {
        error = "url is not a URL";
        return std::nullopt;
    }
    auto appURL = stringField(j, "appURL");
    if (!appURL || !looksLikeURL(*appURL)) {
        error = "appURL is not a URL";
        return std::nullopt;
    }
    auto name = stringField(j, "name");
    if (!name) {
        error = "windowAction has no name";
        return std::nullopt;
    }
    action.url = *url;
    action.appURL = *appURL;
    action.name = *name;
    action.scriptRunner = stringField(j, "scriptRunner");
    return action;
}

const std::string& StageItem::bundleID() const {
    static const std::string none;
    return app ? app->bundleIdentifier() : none;
}

bool StageItem::operator==(const StageItem& other) const {
    auto appID = [](const StageItem& i) { return i.app ? i.app->identifier() : std::string(); };
    return id == other.id && appID(*this) == appID(other) && windowSpec == other.windowSpec &&
           windowTitle == other.windowTitle && windowAction == other.windowAction &&
           windowID == other.windowID && windowPlacement == other.windowPlacement;
}

json toJson(const StageItem& item) {
    json j{{"id", item.id},
           {"app", item.app ? item.app->toJson() : json::object()},
           {"windowSpec", toJson(item.windowSpec)},
           {"windowTitle", item.windowTitle}};
    if (item.windowAction) j["windowAction"] = toJson(*item.windowAction);
    if (item.windowPlacement) j["windowPlacement"] = toJson(*item.windowPlacement);
    return j;
}

std::optional<StageItem> stageItemFromJson(const json& j, std::string& error) {
    if (!j.is_object()) {
        error = "StageItem is not an object";
        return std::nullopt;
    }
    StageItem item;
    auto id = stringField(j, "id");
    if (!id || !isUUID(*id)) {
        error = "id is not a UUID";
        return std::nullopt;
    }
    item.id = upper(*id);
    auto appIt = j.find("app");
    if (appIt == j.end() || !(item.app = apps::LaunchableApp::fromJson(*appIt))) {
        error = "app is missing or unreadable";
        return std::nullopt;
    }
    auto specIt = j.find("windowSpec");
    if (specIt == j.end()) {
        error = "windowSpec is missing";
        return std::nullopt;
    }
    auto spec = windowSpecFromJson(*specIt, error);
    if (!spec) return std::nullopt;
    item.windowSpec = *spec;
    auto title = stringField(j, "windowTitle");
    if (!title) {
        error = "windowTitle is missing";
        return std::nullopt;
    }
    item.windowTitle = *title;
    if (auto it = j.find("windowAction"); it != j.end() && !it->is_null()) {
        auto action = windowActionFromJson(*it, error);
        if (!action) return std::nullopt;
        item.windowAction = *action;
    }
    // A placement from a newer or older build must not cost the item.
    if (auto it = j.find("windowPlacement"); it != j.end() && !it->is_null()) {
        std::string placementError;
        item.windowPlacement = windowPlacementFromJson(*it, placementError);
    }
    return item;
}

std::string defaultStageName(const std::string& key) {
    return "Stage " + upper(key);
}

json toJson(const Stage& stage) {
    json items = json::array();
    for (const auto& item : stage.items)
        items.push_back(toJson(item));
    json j{{"key", stage.key}, {"name", stage.name}, {"items", std::move(items)}};
    if (stage.spaceID) j["spaceID"] = *stage.spaceID;
    return j;
}

std::optional<Stage> stageFromJson(const json& j, std::string& error) {
    if (!j.is_object()) {
        error = "Stage is not an object";
        return std::nullopt;
    }
    Stage stage;
    auto key = stringField(j, "key");
    auto name = stringField(j, "name");
    if (!key || !name) {
        error = key ? "Stage has no name" : "Stage has no key";
        return std::nullopt;
    }
    stage.key = *key;
    stage.name = *name;
    // Readers that don't keep signedness (YAML, hand-written JSON) give a plain integer.
    if (auto it = j.find("spaceID"); it != j.end() && it->is_number_integer() &&
                                     (it->is_number_unsigned() || it->get<std::int64_t>() >= 0))
        stage.spaceID = it->get<std::uint64_t>();
    auto items = j.find("items");
    if (items == j.end() || !items->is_array()) {
        if (auto apps = j.find("apps"); apps != j.end()) stage.items = itemsFromLegacyApps(*apps);
        return stage;
    }
    for (const auto& element : *items) {
        std::string itemError;
        if (auto item = stageItemFromJson(element, itemError))
            stage.items.push_back(std::move(*item));
        else
            ferrow::Log::error("LossyStageItem: dropped a StageItem during decode, error={}", itemError);
    }
    if (stage.items.size() < items->size())
        ferrow::Log::error(
            "Stage \"{}\" lost {} of {} item(s) during decode (likely schema drift, e.g. a downgrade or "
            "partial "
            "corruption)",
            stage.name, items->size() - stage.items.size(), items->size());
    return stage;
}

std::vector<Stage> stagesFromJson(const json& j) {
    std::vector<Stage> stages;
    if (!j.is_array()) return stages;
    std::set<std::string> keys;
    for (const auto& element : j) {
        std::string error;
        auto stage = stageFromJson(element, error);
        if (!stage) {
            ferrow::Log::error("stages: dropped a stage during decode, error={}", error);
            continue;
        }
        if (!keys.insert(stage->key).second) {
            ferrow::Log::error("stages: dropped a second stage on key '{}' ({})", stage->key, stage->name);
            continue;
        }
        stages.push_back(std::move(*stage));
    }
    return stages;
}

json toJson(const std::vector<Stage>& stages) {
    json list = json::array();
    for (const auto& stage : stages)
        list.push_back(toJson(stage));
    return list;
}

std::string makeUUID() {
    return uuidSource() ? uuidSource()() : randomUUID();
}

void setUUIDSource(std::function<std::string()> source) {
    uuidSource() = std::move(source);
}

}  // namespace zelk::stages
