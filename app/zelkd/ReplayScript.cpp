#include "ReplayScript.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "platform/Key.h"
#include "platform/sim/SimEventTap.h"
#include "support/Yaml.h"

namespace zelk::agent {

using nlohmann::json;

namespace {
const std::set<std::string> kKinds{
    "flags",    "keyDown",    "keyUp",       "tap",        "launch",      "quit",    "crash",
    "activate", "openWindow", "closeWindow", "retitle",    "switchSpace", "command", "setting",
    "fault",    "end",        "minimize",    "unminimize", "pointer",     "hide",    "unhide"};
}

bool parseReplayScript(const json& list, ReplayScript& script, std::string& error) {
    script = ReplayScript{};
    if (!list.is_array() && !list.is_null()) {
        error = "script: expected a list of events";
        return false;
    }
    std::int64_t last = 0;
    struct Ordered {
        ReplayEvent event;
        std::size_t seq;
    };
    std::vector<Ordered> ordered;
    for (std::size_t i = 0; list.is_array() && i < list.size(); ++i) {
        const json& e = list[i];
        auto fail = [&](const std::string& why) {
            error = fmt::format("event {}: {}", i + 1, why);
            return false;
        };
        if (!e.is_object()) return fail("expected a mapping");
        if (!e.contains("at") || !e["at"].is_number()) return fail("missing 'at' (milliseconds)");
        double at = e["at"].get<double>();
        if (at < 0) return fail("'at' is negative");
        auto atMs = static_cast<std::int64_t>(at);
        if (atMs < last) return fail(fmt::format("'at' {} goes back in time (previous {})", atMs, last));
        last = atMs;
        std::string kind;
        for (auto& [k, _] : e.items())
            if (k != "at" && k != "repeat") {
                if (!kind.empty())
                    return fail(fmt::format("two events in one entry ('{}' and '{}')", kind, k));
                kind = k;
            }
        if (kind.empty()) return fail("no event");
        if (!kKinds.count(kind)) return fail(fmt::format("unknown event '{}'", kind));
        ReplayEvent ev{atMs, kind, e[kind], e.value("repeat", false), i + 1};
        if (kind == "keyDown" || kind == "keyUp" || kind == "tap") {
            if (!ev.value.is_string() || !keyFromName(ev.value.get<std::string>()) ||
                keyFromName(ev.value.get<std::string>()) == Key::none)
                return fail(fmt::format("unknown key '{}'", ev.value.is_string() ? ev.value.get<std::string>()
                                                                                 : ev.value.dump()));
        }
        if (kind == "flags") {
            if (!ev.value.is_array()) return fail("flags: expected a list of modifier names");
            for (auto& f : ev.value)
                if (!f.is_string() || !sim::modifierKey(f.get<std::string>()))
                    return fail(fmt::format("flags: unknown modifier {}", f.dump()));
        }
        if ((kind == "launch" || kind == "quit" || kind == "crash" || kind == "activate" || kind == "hide" ||
             kind == "unhide") &&
            !ev.value.is_string())
            return fail(kind + ": expected a bundle identifier");
        if ((kind == "closeWindow" || kind == "minimize" || kind == "unminimize") &&
            !(ev.value.is_number_integer() && ev.value.get<std::int64_t>() >= 0))
            return fail(kind + ": expected a window id");
        if ((kind == "openWindow" || kind == "retitle" || kind == "switchSpace" || kind == "command" ||
             kind == "setting" || kind == "fault" || kind == "pointer") &&
            !ev.value.is_object())
            return fail(kind + ": expected a mapping");
        if (kind == "end") {
            script.endsExplicitly = true;
            script.endMs = atMs;
            ordered.push_back({ev, i * 2});
            break;
        }
        if (kind == "tap") {
            ReplayEvent down = ev, up = ev;
            down.kind = "keyDown";
            up.kind = "keyUp";
            up.atMs += 10;
            ordered.push_back({down, i * 2});
            ordered.push_back({up, i * 2 + 1});
            continue;
        }
        ordered.push_back({ev, i * 2});
    }
    std::stable_sort(ordered.begin(), ordered.end(), [](const Ordered& a, const Ordered& b) {
        return a.event.atMs != b.event.atMs ? a.event.atMs < b.event.atMs : a.seq < b.seq;
    });
    for (auto& o : ordered)
        script.events.push_back(o.event);
    if (!script.endsExplicitly) {
        std::int64_t lastAt = script.events.empty() ? 0 : script.events.back().atMs;
        script.endMs = lastAt + 5000;
    }
    // A tap's key up may fall after the end.
    script.events.erase(std::remove_if(script.events.begin(), script.events.end(),
                                       [&](const ReplayEvent& e) { return e.atMs > script.endMs; }),
                        script.events.end());
    return true;
}

bool parseReplayScript(const std::string& text, ReplayScript& script, std::string& error) {
    ferrow::YamlError yamlError;
    auto value = ferrow::parseYaml(text, &yamlError);
    if (!value) {
        error = fmt::format("line {}: {}", yamlError.line, yamlError.message);
        return false;
    }
    return parseReplayScript(*value, script, error);
}

}  // namespace zelk::agent
