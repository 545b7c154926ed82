#pragma once
#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>

namespace zelk::windows {

// A row of the window switcher: one window of an app with the key that reaches it under the window
// trigger (lower case; empty when it has none).
struct AppWindow {
    std::uint32_t id = 0;
    std::string title;
    std::string bundleIdentifier;
    bool focused = false;
    std::string key;
    bool operator==(const AppWindow&) const = default;
};

inline nlohmann::json toJson(const AppWindow& w) {
    return {{"id", w.id},
            {"title", w.title},
            {"bundleIdentifier", w.bundleIdentifier},
            {"focused", w.focused},
            {"key", w.key}};
}

}  // namespace zelk::windows
