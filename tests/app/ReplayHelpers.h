#pragma once
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "ReplayRunner.h"

namespace zelk::testing {

using nlohmann::json;

// Runs a world and a script on the replay bench and answers the trace's events, without the log
// lines unless asked.
inline std::vector<json> replay(const std::string& world, const std::string& script, bool keepLogs = false) {
    std::stringstream out;
    agent::ReplayOptions options;
    options.jsonTrace = &out;
    std::string error;
    EXPECT_EQ(agent::ReplayRunner().run(world, script, options, error), 0) << error;
    std::vector<json> events;
    std::string line;
    while (std::getline(out, line)) {
        auto e = json::parse(line);
        if (!keepLogs && e["kind"] == "log") continue;
        events.push_back(e);
    }
    return events;
}

// The events of the given kinds, each as "t kind field=value ...", for compact golden comparison.
inline std::vector<std::string> summary(const std::vector<json>& events, std::set<std::string> kinds) {
    std::vector<std::string> out;
    for (auto& e : events) {
        std::string kind = e["kind"];
        if (!kinds.count(kind)) continue;
        std::string s = e["t"].dump() + " " + kind;
        for (auto& [k, v] : e.items())
            if (k != "t" && k != "kind")
                s += " " + k + "=" + (v.is_string() ? v.get<std::string>() : v.dump());
        out.push_back(s);
    }
    return out;
}

// The summaries of the given kinds without key releases: what each press did, and what followed.
inline std::vector<std::string> withoutKeyUps(const std::vector<json>& events, std::set<std::string> kinds) {
    std::vector<std::string> out;
    for (auto& line : summary(events, std::move(kinds)))
        if (line.find("down=false") == std::string::npos) out.push_back(line);
    return out;
}

// The log messages that begin with `start`.
inline std::vector<std::string> logsStartingWith(const std::vector<json>& events, const std::string& start) {
    std::vector<std::string> out;
    for (auto& e : events)
        if (e["kind"] == "log" && e["message"].get<std::string>().starts_with(start))
            out.push_back(e["message"]);
    return out;
}

inline bool hasLog(const std::vector<json>& events, const std::string& start) {
    return !logsStartingWith(events, start).empty();
}

// The panel events of a trace, the last one at or before a time, and what its rows show.
inline std::vector<json> panelEvents(const std::vector<json>& events) {
    std::vector<json> out;
    for (auto& e : events)
        if (e["kind"] == "panel") out.push_back(e);
    return out;
}

inline json lastPanelAt(const std::vector<json>& events, double t) {
    json last = nullptr;
    for (auto& p : panelEvents(events))
        if (p["t"].get<double>() <= t) last = p;
    return last;
}

inline std::vector<std::string> panelTitles(const json& panel) {
    std::vector<std::string> out;
    if (panel.is_null() || !panel.contains("items")) return out;
    for (auto& r : panel["items"])
        out.push_back(r["title"]);
    return out;
}

// The title of the highlighted row; empty when none is.
inline std::string highlightedTitle(const json& panel) {
    if (panel.is_null() || !panel.contains("items")) return "";
    for (auto& r : panel["items"])
        if (r.value("highlighted", false)) return r["title"];
    return "";
}

// Focus changes from `from` on, as "t windowID".
inline std::vector<std::string> focusesAfter(const std::vector<json>& events, double from) {
    std::vector<std::string> out;
    for (auto& e : events)
        if (e["kind"] == "focus" && e["t"].get<double>() >= from && e.contains("windowID"))
            out.push_back(e["t"].dump() + " " + e["windowID"].dump());
    return out;
}

}  // namespace zelk::testing
