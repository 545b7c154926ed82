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
    "flags",      "keyDown",     "keyUp",   "tap",         "launch",  "quit",    "crash", "activate",
    "openWindow", "closeWindow", "retitle", "switchSpace", "command", "setting", "fault", "end",
    "minimize",   "unminimize",  "pointer", "hide",        "unhide",  "click"};

bool isId(const json& v) {
    return v.is_number_integer() && v.get<std::int64_t>() >= 0 && v.get<std::int64_t>() <= 0xFFFFFFFFLL;
}

// The fields of a mapping event: what is wrong with the first bad one, or "" when they all fit (the
// runner reads them without further checks).
std::string checkBody(const std::string& kind, const json& v) {
    auto field = [&](const char* name, bool required, auto&& ok, const char* expected) -> std::string {
        if (!v.contains(name) || v[name].is_null())
            return required ? fmt::format("{}.{}: missing", kind, name) : "";
        return ok(v[name]) ? "" : fmt::format("{}.{}: expected {}", kind, name, expected);
    };
    auto id = [](const json& x) { return isId(x); };
    auto text = [](const json& x) { return x.is_string(); };
    auto number = [](const json& x) { return x.is_number(); };
    auto flag = [](const json& x) { return x.is_boolean(); };
    auto rect = [](const json& x) {
        return x.is_array() && x.size() == 4 &&
               std::all_of(x.begin(), x.end(), [](const json& n) { return n.is_number(); });
    };
    std::vector<std::string> problems;
    if (kind == "openWindow")
        problems = {field("bundleID", true, text, "a bundle identifier"),
                    field("id", false, id, "a window id"), field("title", false, text, "a string"),
                    field("frame", false, rect, "[x, y, w, h]"), field("space", false, id, "a Space id")};
    else if (kind == "retitle")
        problems = {field("id", true, id, "a window id"), field("title", true, text, "a string")};
    else if (kind == "switchSpace")
        problems = {field("display", false, id, "a display id"), field("space", true, id, "a Space id")};
    else if (kind == "pointer" || kind == "click")
        problems = {field("x", true, number, "a number"), field("y", true, number, "a number")};
    else if (kind == "fault") {
        for (const char* name : {"axTimeout", "axRecover", "launchFails", "overlay"})
            problems.push_back(field(name, false, text, "a string"));
        for (const char* name : {"tapDisabled", "tapDisabledByUserInput", "tapDead", "screenLocked",
                                 "noWindowServer", "missionControl", "appExpose"})
            problems.push_back(field(name, false, flag, "true or false"));
        problems.push_back(field(
            "secureInput", false, [](const json& x) { return x.is_boolean() || isId(x); },
            "true, false or a pid"));
        problems.push_back(field(
            "permission", false,
            [](const json& x) {
                if (!x.is_object()) return false;
                for (auto& [k, value] : x.items())
                    if ((k != "accessibility" && k != "screenRecording") || !value.is_boolean()) return false;
                return true;
            },
            "{accessibility: true/false, screenRecording: true/false}"));
    }
    for (auto& p : problems)
        if (!p.empty()) return p;
    return "";
}
}  // namespace

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
             kind == "setting" || kind == "fault" || kind == "pointer" || kind == "click") &&
            !ev.value.is_object())
            return fail(kind + ": expected a mapping");
        if (ev.value.is_object())
            if (auto problem = checkBody(kind, ev.value); !problem.empty()) return fail(problem);
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
