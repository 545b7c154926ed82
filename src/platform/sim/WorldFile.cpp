#include "platform/sim/WorldFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>

#include "platform/sim/SimKeyboardLayout.h"
#include "support/Yaml.h"

namespace zelk::sim {

using nlohmann::json;

namespace {

constexpr double kMaxCoordinate = 1e7;  // points; far beyond any arrangement of displays

struct Reader {
    std::string& error;
    bool fail(const std::string& path, const std::string& what) {
        if (error.empty()) error = path + ": " + what;
        return false;
    }
    // Positions and sizes are finite and within ±kMaxCoordinate points; sizes can't be negative, and a
    // display must have an area (`minSize` 1).
    bool rect(const json& v, const std::string& path, Rect& out, double minSize = 0) {
        if (!v.is_array() || v.size() != 4) return fail(path, "expected [x, y, w, h]");
        for (auto& n : v)
            if (!n.is_number() || !std::isfinite(n.get<double>()) ||
                std::fabs(n.get<double>()) > kMaxCoordinate)
                return fail(path, fmt::format("expected [x, y, w, h] of finite numbers within ±{:.0f}",
                                              kMaxCoordinate));
        out = {v[0].get<double>(), v[1].get<double>(), v[2].get<double>(), v[3].get<double>()};
        if (out.width < minSize || out.height < minSize)
            return fail(path, minSize > 0 ? "expected a width and height of at least 1"
                                          : "expected a width and height of at least 0");
        return true;
    }
    // A number that fits `T` exactly: whole for integer fields, and never below `minimum` (ids, pids,
    // counts and delays can't be negative; a wrapped -1 or 1e20 would name something nobody has).
    template <typename T>
    bool number(const json& obj, const char* key, const std::string& path, T& out,
                T minimum = std::is_floating_point_v<T> ? T(-kMaxCoordinate) : T(0)) {
        if (!obj.contains(key) || obj[key].is_null()) return true;
        const json& v = obj[key];
        const std::string where = path + "." + key;
        if (!v.is_number()) return fail(where, "expected a number");
        const double d = v.get<double>();
        if (!std::isfinite(d)) return fail(where, "expected a finite number");
        if (d < 0 && minimum >= 0) return fail(where, "expected a number of at least 0");
        if constexpr (std::is_floating_point_v<T>) {
            if (d < minimum || d > kMaxCoordinate)
                return fail(where,
                            fmt::format("expected a number from {} to {:.0f}", minimum, kMaxCoordinate));
            out = static_cast<T>(d);
        } else {
            const bool whole = v.is_number_integer() || v.is_number_unsigned() || d == std::floor(d);
            if (!whole) return fail(where, "expected a whole number");
            const auto maximum = std::numeric_limits<T>::max();
            bool inRange;
            if (v.is_number_unsigned())
                inRange = v.get<std::uint64_t>() <= static_cast<std::uint64_t>(maximum);
            else if (v.is_number_integer())
                inRange = v.get<std::int64_t>() >= static_cast<std::int64_t>(minimum) &&
                          (v.get<std::int64_t>() < 0 || static_cast<std::uint64_t>(v.get<std::int64_t>()) <=
                                                            static_cast<std::uint64_t>(maximum));
            else
                inRange = d >= static_cast<double>(minimum) && d <= static_cast<double>(maximum);
            if (!inRange)
                return fail(where, fmt::format("expected a number from {} to {}", minimum, maximum));
            out = v.is_number_unsigned()  ? static_cast<T>(v.get<std::uint64_t>())
                  : v.is_number_integer() ? static_cast<T>(v.get<std::int64_t>())
                                          : static_cast<T>(d);
        }
        return true;
    }
    bool boolean(const json& obj, const char* key, const std::string& path, bool& out) {
        if (!obj.contains(key) || obj[key].is_null()) return true;
        if (!obj[key].is_boolean()) return fail(path + "." + key, "expected true or false");
        out = obj[key].get<bool>();
        return true;
    }
    bool string(const json& obj, const char* key, const std::string& path, std::string& out,
                bool required = false) {
        if (!obj.contains(key) || obj[key].is_null())
            return required ? fail(path + "." + key, "missing") : true;
        if (!obj[key].is_string()) return fail(path + "." + key, "expected a string");
        out = obj[key].get<std::string>();
        return true;
    }
};

bool readWindow(Reader& r, const json& w, const std::string& path, SimWindow& out) {
    if (!w.is_object()) return r.fail(path, "expected a mapping");
    if (!r.number(w, "id", path, out.id)) return false;
    if (!r.string(w, "title", path, out.title)) return false;
    if (w.contains("frame") && !r.rect(w["frame"], path + ".frame", out.frame)) return false;
    if (!r.number(w, "space", path, out.space)) return false;
    if (!r.boolean(w, "minimized", path, out.minimized)) return false;
    if (!r.number(w, "level", path, out.level, std::numeric_limits<std::int32_t>::min())) return false;
    if (!r.string(w, "subrole", path, out.subrole)) return false;
    if (!r.string(w, "role", path, out.role)) return false;
    if (!r.string(w, "document", path, out.document)) return false;
    if (!r.string(w, "webArea", path, out.webArea)) return false;
    if (!r.boolean(w, "fullscreen", path, out.fullscreen)) return false;
    return true;
}

bool readIdList(Reader& r, const json& obj, const char* key, const std::string& path,
                std::set<std::uint32_t>& out) {
    if (!obj.contains(key) || obj[key].is_null()) return true;
    const json& list = obj[key];
    const std::string where = path + "." + key;
    if (!list.is_array()) return r.fail(where, "expected a list of window ids");
    for (std::size_t i = 0; i < list.size(); ++i) {
        const json& v = list[i];
        const bool isId =
            (v.is_number_unsigned() && v.get<std::uint64_t>() <= 0xFFFFFFFFu) ||
            (v.is_number_integer() && v.get<std::int64_t>() >= 0 && v.get<std::int64_t>() <= 0xFFFFFFFFLL);
        if (!isId) return r.fail(fmt::format("{}[{}]", where, i), "expected a window id");
        out.insert(static_cast<std::uint32_t>(v.get<std::uint64_t>()));
    }
    return true;
}

// How the window server pictures windows: `pictures: {none, tiny, latencyMs, fallbackFails,
// pixelScale, wallpapers}`.
bool readPictures(Reader& r, const json& p, PictureKnobs& out) {
    if (!p.is_object()) return r.fail("pictures", "expected a mapping");
    if (!readIdList(r, p, "none", "pictures", out.none)) return false;
    if (!readIdList(r, p, "tiny", "pictures", out.tiny)) return false;
    if (!r.number(p, "latencyMs", "pictures", out.latencyMs)) return false;
    if (!r.boolean(p, "fallbackFails", "pictures", out.fallbackFails)) return false;
    if (!r.number(p, "pixelScale", "pictures", out.pixelScale, 0.0)) return false;
    if (out.pixelScale <= 0 || out.pixelScale > 4)
        return r.fail("pictures.pixelScale", "expected a number above 0 and at most 4");
    if (p.contains("wallpapers") && !p["wallpapers"].is_null()) {
        const json& wp = p["wallpapers"];
        if (!wp.is_object())
            return r.fail("pictures.wallpapers", "expected a mapping of display uuid to path");
        for (auto it = wp.begin(); it != wp.end(); ++it) {
            if (!it.value().is_string() && !it.value().is_null())
                return r.fail("pictures.wallpapers." + it.key(), "expected a path or null");
            out.wallpapers[it.key()] = it.value().is_string() ? it.value().get<std::string>() : "";
        }
    }
    return true;
}

// Scripts the desktop's scriptable apps answer, by their exact text (the time-out wrapped round
// included): `scripts: [{source, answer}]`. Any other script fails.
bool readScripts(Reader& r, const json& world, SimProcesses& processes) {
    if (!world.contains("scripts") || world["scripts"].is_null()) return true;
    const json& list = world["scripts"];
    if (!list.is_array()) return r.fail("scripts", "expected a list");
    for (std::size_t i = 0; i < list.size(); ++i) {
        const std::string path = fmt::format("scripts[{}]", i);
        const json& entry = list[i];
        if (!entry.is_object()) return r.fail(path, "expected a mapping");
        std::string source, answer;
        if (!r.string(entry, "source", path, source, true)) return false;
        if (!r.string(entry, "answer", path, answer, true)) return false;
        processes.scriptAnswers[source] = answer;
    }
    return true;
}

// Child processes with scripted answers: `processes: [{command, output, exitCode, timesOut}]`, the
// command being the program and its arguments joined by single spaces. Any other program is missing.
bool readProcesses(Reader& r, const json& world, SimWorld& w) {
    if (!world.contains("processes") || world["processes"].is_null()) return true;
    const json& list = world["processes"];
    if (!list.is_array()) return r.fail("processes", "expected a list");
    for (std::size_t i = 0; i < list.size(); ++i) {
        const std::string path = fmt::format("processes[{}]", i);
        const json& entry = list[i];
        if (!entry.is_object()) return r.fail(path, "expected a mapping");
        std::string command;
        ScriptedProcess answer;
        if (!r.string(entry, "command", path, command, true)) return false;
        if (!r.string(entry, "output", path, answer.output)) return false;
        if (!r.number(entry, "exitCode", path, answer.exitCode, std::numeric_limits<int>::min()))
            return false;
        if (!r.boolean(entry, "timesOut", path, answer.timesOut)) return false;
        w.processes[command] = answer;
    }
    return true;
}

}  // namespace

bool loadWorld(const json& world, SimDesktop& desktop, WorldExtras& extras, std::string& error) {
    error.clear();
    Reader r{error};
    if (!world.is_object()) return r.fail("world", "expected a mapping");
    SimWorld& w = desktop.world();

    if (world.contains("permissions") && !world["permissions"].is_null()) {
        const json& p = world["permissions"];
        if (!p.is_object()) return r.fail("permissions", "expected a mapping");
        if (!r.boolean(p, "accessibility", "permissions", w.permissions.accessibility)) return false;
        if (!r.boolean(p, "screenRecording", "permissions", w.permissions.screenRecording)) return false;
    }
    if (!r.string(world, "keyboardLayout", "world", w.keyboardLayout)) return false;
    if (!SimKeyboardLayout::isKnown(w.keyboardLayout))
        return r.fail("keyboardLayout",
                      "unknown layout '" + w.keyboardLayout + "' (qwerty, dvorak or azerty)");
    if (!r.number(world, "osMajorVersion", "world", w.osMajorVersion)) return false;
    if (!r.number(world, "spaceSwitchLatencyMs", "world", w.spaceSwitchLatencyMs)) return false;
    if (!r.number(world, "osMinorVersion", "world", w.osMinorVersion)) return false;
    if (!r.number(world, "moveLatencyMs", "world", w.moveLatencyMs)) return false;
    if (!r.boolean(world, "bridgedMoveAvailable", "world", w.bridgedMoveAvailable)) return false;
    if (world.contains("unboundSymbolicHotKeys") && !world["unboundSymbolicHotKeys"].is_null()) {
        const json& list = world["unboundSymbolicHotKeys"];
        if (!list.is_array()) return r.fail("unboundSymbolicHotKeys", "expected a list of hot key numbers");
        for (auto& n : list) {
            if (!n.is_number_integer())
                return r.fail("unboundSymbolicHotKeys", "expected a list of hot key numbers");
            desktop.windowServer().hotKeys().erase(n.get<int>());
        }
    }
    if (world.contains("missionControl") && !world["missionControl"].is_null()) {
        const json& mc = world["missionControl"];
        if (!mc.is_object()) return r.fail("missionControl", "expected a mapping");
        auto& options = desktop.missionControl().options;
        if (!r.boolean(mc, "spacesBar", "missionControl", options.spacesBar)) return false;
        if (!r.boolean(mc, "addButton", "missionControl", options.addButton)) return false;
        if (!r.boolean(mc, "thumbnails", "missionControl", options.thumbnails)) return false;
    }
    if (!r.number(world, "launchLatencyMs", "world", w.launchLatencyMs)) return false;
    if (!readScripts(r, world, desktop.processes())) return false;
    if (!readProcesses(r, world, w)) return false;
    bool dock = false;
    if (!r.boolean(world, "dock", "world", dock)) return false;
    if (dock) w.addDock();

    // Displays.
    json displays = world.value("displays", json());
    if (displays.is_null()) displays = json::array({json{{"id", 1}}});
    if (!displays.is_array() || displays.empty()) return r.fail("displays", "expected a non-empty list");
    std::set<std::uint64_t> spaceIDs;
    std::set<std::uint32_t> displayIDs;
    double nextX = 0;
    for (std::size_t i = 0; i < displays.size(); ++i) {
        const json& d = displays[i];
        std::string path = fmt::format("displays[{}]", i);
        if (!d.is_object()) return r.fail(path, "expected a mapping");
        SimDisplay display;
        display.id = static_cast<std::uint32_t>(i + 1);
        if (!r.number(d, "id", path, display.id)) return false;
        if (!displayIDs.insert(display.id).second)
            return r.fail(path + ".id", fmt::format("display {} listed twice", display.id));
        display.name = i == 0 ? "Built-in Retina Display" : fmt::format("Display {}", display.id);
        if (!r.string(d, "name", path, display.name)) return false;
        if (!r.string(d, "uuid", path, display.uuid)) return false;
        display.builtin = display.name.find("Built-in") != std::string::npos;
        if (!r.boolean(d, "builtin", path, display.builtin)) return false;
        display.frame = {nextX, 0, 1440, 900};
        if (d.contains("frame") && !r.rect(d["frame"], path + ".frame", display.frame, 1)) return false;
        nextX = display.frame.maxX();
        if (!r.number(d, "menuBarHeight", path, display.menuBarHeight, 0.0)) return false;
        json spaces = d.value("spaces", json());
        if (spaces.is_null()) spaces = json::array({json{{"id", 1 + 100 * i}}});
        if (!spaces.is_array() || spaces.empty())
            return r.fail(path + ".spaces", "expected a non-empty list");
        for (std::size_t s = 0; s < spaces.size(); ++s) {
            std::string spath = fmt::format("{}.spaces[{}]", path, s);
            SimSpace space;
            if (spaces[s].is_number_unsigned() || spaces[s].is_number_integer()) {
                if (!spaces[s].is_number_unsigned() && spaces[s].get<std::int64_t>() < 0)
                    return r.fail(spath, "expected a number of at least 0");
                space.id = spaces[s].get<std::uint64_t>();
            } else {
                if (!spaces[s].is_object() || !spaces[s].contains("id"))
                    return r.fail(spath, "expected {id: N}");
                if (!r.number(spaces[s], "id", spath, space.id)) return false;
                if (!r.boolean(spaces[s], "fullscreen", spath, space.fullscreen)) return false;
            }
            if (!spaceIDs.insert(space.id).second)
                return r.fail(spath, fmt::format("Space {} listed twice", space.id));
            display.spaces.push_back(space);
        }
        if (!r.number(d, "currentSpace", path, display.currentSpace)) return false;
        if (display.currentSpace &&
            std::none_of(display.spaces.begin(), display.spaces.end(),
                         [&](const SimSpace& s) { return s.id == display.currentSpace; }))
            return r.fail(path + ".currentSpace",
                          fmt::format("no Space {} on this display", display.currentSpace));
        w.addDisplay(display);
    }

    // Apps.
    if (!world.contains("apps")) return r.fail("apps", "missing");
    const json& apps = world["apps"];
    if (!apps.is_array() && !apps.is_null()) return r.fail("apps", "expected a list");
    std::set<std::uint32_t> windowIDs;
    struct Running {
        std::string bundle;
        std::int32_t pid;
        bool hidden;
        std::vector<SimWindow> windows;
    };
    std::vector<Running> running;
    std::set<std::int32_t> pids;
    std::set<std::string> bundles;
    for (std::size_t i = 0; apps.is_array() && i < apps.size(); ++i) {
        const json& a = apps[i];
        std::string path = fmt::format("apps[{}]", i);
        if (!a.is_object()) return r.fail(path, "expected a mapping");
        SimApp app;
        if (!r.string(a, "bundleID", path, app.bundleID, true)) return false;
        if (!bundles.insert(app.bundleID).second) return r.fail(path + ".bundleID", "listed twice");
        app.name = app.bundleID;
        if (!r.string(a, "name", path, app.name)) return false;
        app.path = "/Applications/" + app.name + ".app";
        if (!r.string(a, "path", path, app.path)) return false;
        std::string kind = "regular";
        if (!r.string(a, "kind", path, kind)) return false;
        if (kind == "regular")
            app.kind = AppKind::regular;
        else if (kind == "accessory")
            app.kind = AppKind::accessory;
        else if (kind == "background")
            app.kind = AppKind::background;
        else
            return r.fail(path + ".kind", "expected regular, accessory or background");
        if (!r.number(a, "launchDelayMs", path, app.launchDelayMs)) return false;
        if (!r.number(a, "openDelayMs", path, app.openDelayMs)) return false;
        if (!r.boolean(a, "installed", path, app.installed)) return false;
        if (!r.boolean(a, "finder", path, app.finder)) return false;
        if (!r.string(a, "menuExtra", path, app.menuExtra)) return false;
        if (app.finder && app.kind != AppKind::regular)
            return r.fail(path + ".finder", "the Finder is a regular app");
        if (app.finder &&
            std::any_of(w.apps().begin(), w.apps().end(), [](const SimApp& o) { return o.finder; }))
            return r.fail(path + ".finder", "a world has one Finder");
        if (a.contains("windowsOnLaunch") && !a["windowsOnLaunch"].is_null() &&
            !a["windowsOnLaunch"].is_array())
            return r.fail(path + ".windowsOnLaunch", "expected a list");
        if (a.contains("windowsOnLaunch") && a["windowsOnLaunch"].is_array()) {
            for (std::size_t k = 0; k < a["windowsOnLaunch"].size(); ++k) {
                SimWindow tw;
                if (!readWindow(r, a["windowsOnLaunch"][k], fmt::format("{}.windowsOnLaunch[{}]", path, k),
                                tw))
                    return false;
                if (tw.space && !spaceIDs.count(tw.space))
                    return r.fail(fmt::format("{}.windowsOnLaunch[{}].space", path, k),
                                  fmt::format("no Space {}", tw.space));
                WindowTemplate t{tw.id, tw.title, tw.frame, tw.space};
                if (t.title.empty()) t.title = app.name;
                app.windowsOnLaunch.push_back(t);
            }
        }
        if (a.contains("running") && !a["running"].is_null()) {
            const json& run = a["running"];
            std::string rpath = path + ".running";
            if (!run.is_object()) return r.fail(rpath, "expected a mapping");
            Running rec{app.bundleID, 0, false, {}};
            if (!r.number(run, "pid", rpath, rec.pid)) return false;
            if (rec.pid == SimWorld::kOwnPID || (dock && rec.pid == SimWorld::kDockPID))
                return r.fail(rpath + ".pid", fmt::format("pid {} is taken by the system", rec.pid));
            if (rec.pid > 0 && !pids.insert(rec.pid).second)
                return r.fail(rpath + ".pid", fmt::format("pid {} listed twice", rec.pid));
            if (!r.boolean(run, "hidden", rpath, rec.hidden)) return false;
            const json wins = run.value("windows", json::array());
            if (!wins.is_array()) return r.fail(rpath + ".windows", "expected a list");
            for (std::size_t k = 0; k < wins.size(); ++k) {
                std::string wpath = fmt::format("{}.windows[{}]", rpath, k);
                SimWindow win;
                win.frame = {0, 25, 1000, 700};
                if (!readWindow(r, wins[k], wpath, win)) return false;
                if (win.title.empty() && !wins[k].contains("title")) win.title = app.name;
                if (win.id && !windowIDs.insert(win.id).second)
                    return r.fail(wpath + ".id", fmt::format("window {} listed twice", win.id));
                if (win.space && !spaceIDs.count(win.space))
                    return r.fail(wpath + ".space", fmt::format("no Space {}", win.space));
                rec.windows.push_back(win);
            }
            running.push_back(rec);
        }
        w.addApp(app);
    }
    for (auto& rec : running)
        w.startRunning(rec.bundle, rec.pid, rec.hidden, rec.windows);

    std::string frontmost;
    if (!r.string(world, "frontmost", "world", frontmost)) return false;
    std::uint32_t focused = 0;
    if (!r.number(world, "focusedWindow", "world", focused)) return false;
    // A focused window alone names its app as the frontmost one.
    if (frontmost.empty() && focused) {
        const SimWindow* win = w.window(focused);
        const SimApp* owner = win ? w.appByPid(win->pid) : nullptr;
        if (!owner) return r.fail("focusedWindow", fmt::format("no window {}", focused));
        frontmost = owner->bundleID;
    }
    if (!frontmost.empty()) {
        SimApp* app = w.app(frontmost);
        if (!app || !app->running) return r.fail("frontmost", "'" + frontmost + "' is not a running app");
        if (focused && (!w.window(focused) || w.window(focused)->pid != app->pid))
            return r.fail("focusedWindow",
                          fmt::format("window {} is not a window of {}", focused, frontmost));
        w.setFrontmost(frontmost, focused);
    } else {
        for (auto& app : w.apps())
            if (app.running && app.kind == AppKind::regular) {
                w.setFrontmost(app.bundleID, 0);
                break;
            }
    }

    if (world.contains("settings") && !world["settings"].is_null()) {
        if (!world["settings"].is_object()) return r.fail("settings", "expected a mapping");
        extras.settings = world["settings"];
    }
    if (world.contains("configFile") && !world["configFile"].is_null()) {
        if (!world["configFile"].is_string()) return r.fail("configFile", "expected YAML text");
        extras.configFile = world["configFile"].get<std::string>();
    }
    if (world.contains("pictures") && !world["pictures"].is_null() &&
        !readPictures(r, world["pictures"], w.pictures))
        return false;
    if (world.contains("faults") && !world["faults"].is_null()) {
        const json& faults = world["faults"];
        if (!faults.is_object()) return r.fail("faults", "expected a mapping");
        for (const char* name : {"axTimeout", "launchFails", "launchNoticeLost"}) {
            json list = faults.value(name, json::array());
            if (list.is_null()) continue;
            if (!list.is_array())
                return r.fail(fmt::format("faults.{}", name), "expected a list of bundle ids");
            for (std::size_t i = 0; i < list.size(); ++i) {
                if (!list[i].is_string())
                    return r.fail(fmt::format("faults.{}[{}]", name, i), "expected a bundle id");
                const std::string n = name;
                (n == "axTimeout"     ? w.faults.axTimeout
                 : n == "launchFails" ? w.faults.launchFails
                                      : w.faults.launchNoticeLost)
                    .insert(list[i].get<std::string>());
            }
        }
    }
    return true;
}

bool loadWorldText(const std::string& text, SimDesktop& desktop, WorldExtras& extras, std::string& error) {
    ferrow::YamlError yamlError;
    auto value = ferrow::parseYaml(text, &yamlError);
    if (!value) {
        error = yamlError.describe();
        return false;
    }
    return loadWorld(*value, desktop, extras, error);
}

}  // namespace zelk::sim
