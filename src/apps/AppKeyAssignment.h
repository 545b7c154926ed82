#pragma once
#include <nlohmann/json.hpp>

#include <optional>
#include <string>

#include "apps/LaunchableApp.h"
#include "config/WhenAlreadyFocusedAction.h"

namespace zelk::apps {

// A key bound to an application, statically by the user or dynamically by the derivation.
struct AppKeyAssignment {
    std::string key;  // one character, lowercased
    AppRef app;
    int index = 0;  // position among the dynamic assignments; 0 for a static one
    WhenAlreadyFocusedAction whenAlreadyFocusedAction = WhenAlreadyFocusedAction::followGlobal;
    bool launchIfNotRunning = true;

    // "{key}-{identifier}-{action raw}-{launch}".
    std::string id() const;
    // "{key}-{identifier}": where relatedApps keeps this assignment's alternatives.
    std::string relationKey() const;

    nlohmann::json toJson() const;
    // Lenient: no key or no app, no record; an action that doesn't decode defers to the global one.
    static std::optional<AppKeyAssignment> fromJson(const nlohmann::json& json);
    // The focused app's record before any app was focused.
    static AppKeyAssignment placeholder();
};

// Lowercases one key as typed (ASCII letters; other characters stay as they are).
std::string lowercasedKey(std::string_view key);

}  // namespace zelk::apps
