#pragma once
#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace zelk::agent {

// The latest time a script may name: 24 hours of virtual time, in milliseconds. Later times, and
// times that aren't finite numbers, are refused before the run.
inline constexpr std::int64_t kMaxReplayTimeMs = 24LL * 60 * 60 * 1000;

// One timed event of a replay script: its kind ("flags", "keyDown", "tap", "command", ...) and body.
struct ReplayEvent {
    std::int64_t atMs = 0;
    std::string kind;
    nlohmann::json value;
    bool repeat = false;   // keyDown/keyUp: auto-repeat
    std::size_t line = 0;  // position in the script, for messages
};

struct ReplayScript {
    std::vector<ReplayEvent> events;  // in application order (a tap's key up is placed 10 ms on)
    bool endsExplicitly = false;
    std::int64_t endMs = 0;  // when the run stops
};

// Reads a script (a YAML list); on failure false with a one-line reason ("event 3: unknown key 'foo'").
bool parseReplayScript(const std::string& yamlText, ReplayScript& script, std::string& error);
bool parseReplayScript(const nlohmann::json& list, ReplayScript& script, std::string& error);

}  // namespace zelk::agent
