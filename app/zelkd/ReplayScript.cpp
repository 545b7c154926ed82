#include "ReplayScript.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

#include "platform/Key.h"
#include "platform/sim/SimEventTap.h"
#include "support/Yaml.h"

namespace zelk::agent {

std::string oneLine(const std::string& text);

using nlohmann::json;

namespace {
const std::set<std::string> kKinds{
    "flags",      "keyDown",     "keyUp",   "tap",         "launch",  "quit",    "crash", "activate",
    "openWindow", "closeWindow", "retitle", "switchSpace", "command", "setting", "fault", "end",
    "minimize",   "unminimize",  "pointer", "hide",        "unhide",  "click"};
// Display changes, beside the desktop events above.
const std::set<std::string> kDisplayKinds{"resizeDisplay"};
// The mouse and the trackpad on zelk's own full-screen panels.
const std::set<std::string> kPanelKinds{"mouseDown", "mouseDrag", "mouseUp", "scroll", "fling"};
const std::set<std::string> kScrollPhases{"began", "changed", "ended", "cancelled"};

// What a field may hold. Every field of every event is checked through fieldProblem() before the run,
// so the runner reads values of the right type and range without further checks.
enum class Field { boolean, text, windowID, spaceID, displayID, pid, coordinate, rect, time };

constexpr double kMaxCoordinate = 1e7;  // points; far beyond any arrangement of displays

bool isWhole(const json& v, std::int64_t low, std::uint64_t high) {
    if (v.is_number_unsigned()) return v.get<std::uint64_t>() <= high;
    if (v.is_number_integer()) {
        auto n = v.get<std::int64_t>();
        return n >= low && (n < 0 || static_cast<std::uint64_t>(n) <= high);
    }
    return false;
}

bool isFiniteWithin(const json& v, double low, double high) {
    if (!v.is_number()) return false;
    double d = v.get<double>();
    return std::isfinite(d) && d >= low && d <= high;
}

bool fits(const json& v, Field type) {
    switch (type) {
        case Field::boolean:
            return v.is_boolean();
        case Field::text:
            return v.is_string();
        case Field::windowID:
        case Field::displayID:
            return isWhole(v, 0, std::numeric_limits<std::uint32_t>::max());
        case Field::spaceID:
            return isWhole(v, 0, std::numeric_limits<std::uint64_t>::max());
        case Field::pid:
            return isWhole(v, 1, std::numeric_limits<std::int32_t>::max());
        case Field::coordinate:
            return isFiniteWithin(v, -kMaxCoordinate, kMaxCoordinate);
        case Field::rect:
            return v.is_array() && v.size() == 4 && std::all_of(v.begin(), v.end(), [](const json& n) {
                       return isFiniteWithin(n, -kMaxCoordinate, kMaxCoordinate);
                   });
        case Field::time:
            return isFiniteWithin(v, 0, static_cast<double>(kMaxReplayTimeMs));
    }
    return false;
}

std::string expected(Field type) {
    switch (type) {
        case Field::boolean:
            return "true or false";
        case Field::text:
            return "a string";
        case Field::windowID:
            return "a window id (0 to 4294967295)";
        case Field::displayID:
            return "a display id (0 to 4294967295)";
        case Field::spaceID:
            return "a Space id (a whole number of at least 0)";
        case Field::pid:
            return "a pid (1 to 2147483647)";
        case Field::coordinate:
            return fmt::format("a finite number of points within ±{:.0f}", kMaxCoordinate);
        case Field::rect:
            return fmt::format("[x, y, w, h] of finite numbers within ±{:.0f}", kMaxCoordinate);
        case Field::time:
            return fmt::format("milliseconds from 0 to {} (24 hours)", kMaxReplayTimeMs);
    }
    return "";
}

// The one check every field goes through: "" when it fits, else "NAME: expected WHAT".
std::string fieldProblem(const std::string& name, const json& value, Field type) {
    return fits(value, type) ? "" : fmt::format("{}: expected {}", name, expected(type));
}

// The fields of a mapping event: what is wrong with the first bad one, or "" when they all fit (the
// runner reads them without further checks).
std::string checkBody(const std::string& kind, const json& v) {
    auto field = [&](const char* name, bool required, Field type) -> std::string {
        if (!v.contains(name) || v[name].is_null())
            return required ? fmt::format("{}.{}: missing", kind, name) : "";
        return fieldProblem(kind + "." + name, v[name], type);
    };
    std::vector<std::string> problems;
    if (kind == "openWindow")
        problems = {field("bundleID", true, Field::text), field("id", false, Field::windowID),
                    field("title", false, Field::text), field("frame", false, Field::rect),
                    field("space", false, Field::spaceID)};
    else if (kind == "retitle")
        problems = {field("id", true, Field::windowID), field("title", true, Field::text)};
    else if (kind == "switchSpace")
        problems = {field("display", false, Field::displayID), field("space", true, Field::spaceID)};
    else if (kind == "resizeDisplay")
        problems = {field("display", true, Field::displayID), field("frame", true, Field::rect)};
    else if (kind == "pointer" || kind == "click" || kind == "mouseDown" || kind == "mouseDrag" ||
             kind == "mouseUp")
        problems = {field("x", true, Field::coordinate), field("y", true, Field::coordinate)};
    else if (kind == "scroll" || kind == "fling") {
        problems = {field("dx", false, Field::coordinate), field("dy", false, Field::coordinate),
                    field("inverted", false, Field::boolean)};
        if (kind == "scroll") {
            problems.push_back(field("phase", true, Field::text));
            if (v.contains("phase") && v["phase"].is_string() &&
                !kScrollPhases.count(v["phase"].get<std::string>()))
                problems.push_back("scroll.phase: expected began, changed, ended or cancelled");
        }
    } else if (kind == "fault") {
        for (const char* name : {"axTimeout", "axRecover", "launchFails", "launchNoticeLost", "overlay"})
            problems.push_back(field(name, false, Field::text));
        for (const char* name : {"tapDisabled", "tapDisabledByUserInput", "tapDead", "screenLocked",
                                 "noWindowServer", "missionControl", "appExpose", "spaceNoticesLost"})
            problems.push_back(field(name, false, Field::boolean));
        problems.push_back(field("launchLatencyMs", false, Field::time));
        if (v.contains("secureInput") && !v["secureInput"].is_boolean() &&
            !fits(v["secureInput"], Field::pid))
            problems.push_back("fault.secureInput: expected true, false or " + expected(Field::pid));
        if (v.contains("permission")) {
            const json& p = v["permission"];
            if (!p.is_object())
                problems.push_back(
                    "fault.permission: expected {accessibility: true/false, screenRecording: true/false}");
            else
                for (auto& [k, value] : p.items())
                    problems.push_back(k == "accessibility" || k == "screenRecording"
                                           ? fieldProblem("fault.permission." + k, value, Field::boolean)
                                           : fmt::format("fault.permission: unknown key '{}'", k));
        }
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
            error = oneLine(fmt::format("event {}: {}", i + 1, why));
            return false;
        };
        if (!e.is_object()) return fail("expected a mapping");
        if (!e.contains("at") || e["at"].is_null()) return fail("missing 'at' (milliseconds)");
        if (auto problem = fieldProblem("at", e["at"], Field::time); !problem.empty()) return fail(problem);
        // Within the bound the value fits an integer exactly; fractions of a millisecond are dropped.
        auto atMs = static_cast<std::int64_t>(e["at"].get<double>());
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
        if (!kKinds.count(kind) && !kDisplayKinds.count(kind) && !kPanelKinds.count(kind))
            return fail(fmt::format("unknown event '{}'", kind));
        bool repeat = false;
        if (e.contains("repeat") && !e["repeat"].is_null()) {
            if (auto problem = fieldProblem("repeat", e["repeat"], Field::boolean); !problem.empty())
                return fail(problem);
            repeat = e["repeat"].get<bool>();
        }
        ReplayEvent ev{atMs, kind, e[kind], repeat, i + 1};
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
        if (kind == "closeWindow" || kind == "minimize" || kind == "unminimize")
            if (auto problem = fieldProblem(kind, ev.value, Field::windowID); !problem.empty())
                return fail(problem);
        if ((kind == "openWindow" || kind == "retitle" || kind == "switchSpace" || kind == "command" ||
             kind == "setting" || kind == "fault" || kind == "pointer" || kind == "click" ||
             kind == "resizeDisplay" || kPanelKinds.count(kind)) &&
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
        if (kind == "fling") {
            // A whole gesture at one time: it begins, moves by the deltas, and ends.
            for (const char* phase : {"began", "changed", "ended"}) {
                ReplayEvent part = ev;
                part.kind = "scroll";
                part.value =
                    json{{"phase", phase},
                         {"inverted", ev.value.contains("inverted") && ev.value["inverted"].is_boolean() &&
                                          ev.value["inverted"].get<bool>()}};
                if (std::string(phase) == "changed") {
                    part.value["dx"] =
                        ev.value.contains("dx") && !ev.value["dx"].is_null() ? ev.value["dx"] : json(0);
                    part.value["dy"] =
                        ev.value.contains("dy") && !ev.value["dy"].is_null() ? ev.value["dy"] : json(0);
                }
                ordered.push_back({part, i * 2});
            }
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

// A message quotes keys and values from the script, which may hold line breaks; the error stays
// one line.
std::string oneLine(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '\n')
            out += "\\n";
        else if (c == '\r')
            out += "\\r";
        else if (static_cast<unsigned char>(c) < 0x20)
            out += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
        else
            out += c;
    }
    return out;
}

bool parseReplayScript(const std::string& text, ReplayScript& script, std::string& error) {
    ferrow::YamlError yamlError;
    auto value = ferrow::parseYaml(text, &yamlError);
    if (!value) {
        error = oneLine(yamlError.describe());
        return false;
    }
    return parseReplayScript(*value, script, error);
}

}  // namespace zelk::agent
