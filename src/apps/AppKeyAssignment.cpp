#include "apps/AppKeyAssignment.h"

#include "search/Graphemes.h"
#include "support/Format.h"

namespace zelk::apps {

std::string lowercasedKey(std::string_view key) {
    return search::isAscii(key) ? ferrow::toLowerAscii(key) : search::lowercased(key);
}

std::string AppKeyAssignment::id() const {
    return lowercasedKey(key) + "-" + (app ? app->identifier() : std::string()) + "-" +
           std::to_string(rawValue(whenAlreadyFocusedAction)) + "-" + (launchIfNotRunning ? "true" : "false");
}

std::string AppKeyAssignment::relationKey() const {
    return lowercasedKey(key) + "-" + (app ? app->identifier() : std::string());
}

nlohmann::json AppKeyAssignment::toJson() const {
    return {{"key", key},
            {"app", app ? app->toJson() : LaunchableApp::placeholder()->toJson()},
            {"index", index},
            {"whenAlreadyFocusedAction", rawValue(whenAlreadyFocusedAction)},
            {"launchIfNotRunning", launchIfNotRunning}};
}

std::optional<AppKeyAssignment> AppKeyAssignment::fromJson(const nlohmann::json& json) {
    if (!json.is_object() || !json.contains("key") || !json["key"].is_string()) return std::nullopt;
    auto app = LaunchableApp::fromJson(json.value("app", nlohmann::json()));
    if (!app) return std::nullopt;
    AppKeyAssignment a;
    a.key = lowercasedKey(json["key"].get<std::string>());
    if (a.key.empty()) return std::nullopt;
    a.app = std::move(app);
    if (auto it = json.find("index"); it != json.end() && it->is_number_integer()) a.index = it->get<int>();
    if (auto it = json.find("whenAlreadyFocusedAction"); it != json.end() && it->is_number_integer())
        a.whenAlreadyFocusedAction = whenAlreadyFocusedActionFromRaw(it->get<long long>())
                                         .value_or(WhenAlreadyFocusedAction::followGlobal);
    if (auto it = json.find("launchIfNotRunning"); it != json.end() && it->is_boolean())
        a.launchIfNotRunning = it->get<bool>();
    return a;
}

AppKeyAssignment AppKeyAssignment::placeholder() {
    AppKeyAssignment a;
    a.key = "§";
    a.app = LaunchableApp::placeholder();
    return a;
}

}  // namespace zelk::apps
