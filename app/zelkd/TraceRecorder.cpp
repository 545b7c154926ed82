#include "TraceRecorder.h"

#include <fmt/format.h>

#include <cmath>
#include <optional>

#include "platform/sim/SimEventTap.h"
#include "support/Format.h"
#include "support/Log.h"
#include "support/MainQueue.h"

namespace zelk::agent {

using nlohmann::json;

std::string formatTraceTime(double ms) {
    auto total = static_cast<long long>(std::llround(ms));
    long long h = total / 3'600'000, m = (total / 60'000) % 60, s = (total / 1000) % 60, rest = total % 1000;
    if (h > 0) return fmt::format("{}:{:02}:{:02}.{:03}", h, m, s, rest);
    return fmt::format("{:02}:{:02}.{:03}", m, s, rest);
}

TraceRecorder::TraceRecorder(sim::SimDesktop& desktop, ferrow::Nanos start)
    : desktop_(desktop), start_(start) {
    worldSub_ = desktop_.world().changes.subscribe([this](const sim::WorldChange& c) { onChange(c); });
    keySub_ = desktop_.eventTap().events.subscribe([this](const sim::SimEventTap::Seen& s) { onKey(s); });
    logToken_ = ferrow::Log::addSink([this](ferrow::LogLevel level, std::string_view message) {
        if (level < minimumLog_) return;
        record(
            json{{"kind", "log"}, {"level", ferrow::logLevelName(level)}, {"message", std::string(message)}});
    });
}

TraceRecorder::~TraceRecorder() {
    ferrow::Log::removeSink(logToken_);
}

double TraceRecorder::elapsedMs() const {
    return static_cast<double>(ferrow::MainQueue::shared().now() - start_) / 1e6;
}

void TraceRecorder::record(json event) {
    double t = elapsedMs();
    json line = json::object();
    if (t == std::floor(t))
        line["t"] = static_cast<std::int64_t>(t);
    else
        line["t"] = t;
    for (auto& [k, v] : event.items())
        line[k] = v;
    bool isKey = line["kind"] == "key" || line["kind"] == "flags";
    if (!isKey && desktop_.eventTap().inCallback()) {
        heldBack_.push_back(std::move(line));
        return;
    }
    write(std::move(line));
    if (isKey) {
        auto held = std::move(heldBack_);
        heldBack_.clear();
        for (auto& h : held)
            write(std::move(h));
    }
}

namespace {
// Where a reply line carries its response in the protocol's order until it is written.
constexpr const char* kOrderedResponse = "\x01orderedResponse";
}  // namespace

void TraceRecorder::recordReply(const nlohmann::ordered_json& response) {
    record(json{{"kind", "reply"},
                {"response", json(response)},
                {kOrderedResponse, response.dump(-1, ' ', false, json::error_handler_t::replace)}});
}

void TraceRecorder::write(json line) {
    double t = line["t"].get<double>();
    // Trace lines list their fields by name; a reply's response keeps the order it was sent in.
    std::optional<std::string> ordered;
    if (auto it = line.find(kOrderedResponse); it != line.end()) {
        ordered = it->get<std::string>();
        line.erase(it);
    }
    if (json_) {
        if (ordered) {
            nlohmann::ordered_json out(line);
            out["response"] = nlohmann::ordered_json::parse(*ordered, nullptr, false);
            *json_ << out.dump(-1, ' ', false, json::error_handler_t::replace) << '\n';
        } else {
            *json_ << line.dump(-1, ' ', false, json::error_handler_t::replace) << '\n';
        }
    }
    if (text_) {
        std::string words = describe(line);
        if (!words.empty()) *text_ << formatTraceTime(t) << "  " << words << '\n';
    }
    if (keep_) kept_.push_back(std::move(line));
}

void TraceRecorder::onKey(const sim::SimEventTap::Seen& seen) {
    using platform::EventType;
    const auto& e = seen.event;
    const char* action = seen.decision == platform::TapDecision::swallow ? "swallowed" : "passed";
    if (e.type == EventType::flagsChanged) {
        json keys = json::array();
        for (auto& k : sim::modifierKeys())
            if (desktop_.eventTap().heldModifiers().count(k.name)) keys.push_back(k.name);
        record(json{{"kind", "flags"}, {"keys", keys}, {"action", action}});
        return;
    }
    if (e.type != EventType::keyDown && e.type != EventType::keyUp) return;
    json event{{"kind", "key"}, {"down", e.type == EventType::keyDown}, {"action", action}};
    if (auto k = desktop_.eventTap().key(e.keyCode))
        event["key"] = std::string(keyName(*k));
    else
        event["key"] = nullptr;
    event["keyCode"] = e.keyCode;
    if (e.autorepeat) event["repeat"] = true;
    record(std::move(event));
}

void TraceRecorder::onChange(const sim::WorldChange& c) {
    using K = sim::WorldChange::Kind;
    auto frame = [](const Rect& r) { return json::array({r.x, r.y, r.width, r.height}); };
    switch (c.kind) {
        case K::launch:
            record({{"kind", "launch"}, {"bundleID", c.bundleID}, {"activates", c.flag}});
            break;
        case K::hide:
            record({{"kind", "hide"}, {"bundleID", c.bundleID}});
            break;
        case K::unhide:
            record({{"kind", "unhide"}, {"bundleID", c.bundleID}});
            break;
        case K::terminate:
            record({{"kind", "terminate"}, {"bundleID", c.bundleID}});
            break;
        case K::focus: {
            json e{{"kind", "focus"}, {"bundleID", c.bundleID}, {"pid", c.pid}};
            if (c.window) e["windowID"] = c.window;
            record(std::move(e));
            break;
        }
        case K::windowCreated:
            record({{"kind", "window"},
                    {"id", c.window},
                    {"created", true},
                    {"bundleID", c.bundleID},
                    {"title", c.text1},
                    {"frame", frame(c.frame)},
                    {"space", c.space}});
            break;
        case K::windowClosed:
            record({{"kind", "window"}, {"id", c.window}, {"closed", true}});
            break;
        case K::windowTitle:
            record({{"kind", "window"}, {"id", c.window}, {"title", c.text1}});
            break;
        case K::windowFrame:
            record({{"kind", "window"}, {"id", c.window}, {"frame", frame(c.frame)}});
            break;
        case K::windowSpace:
            record({{"kind", "window"}, {"id", c.window}, {"space", c.space}});
            break;
        case K::windowMinimized:
            record({{"kind", "window"}, {"id", c.window}, {"minimized", c.flag}});
            break;
        case K::space:
            record({{"kind", "space"}, {"display", c.display}, {"space", c.space}});
            break;
        case K::pointer:
            record({{"kind", "pointer"}, {"x", c.point.x}, {"y", c.point.y}});
            break;
        case K::notification:
            record({{"kind", "notification"}, {"id", c.text1}, {"title", c.text2}, {"body", c.text3}});
            break;
        case K::overlay:
            record({{"kind", "overlay"}, {"state", c.text1}});
            break;
        case K::keyPosted: {
            static constexpr const char* kRoutes[] = {"hidTap", "toPid", "annotatedSessionTap"};
            json e{{"kind", "posted"},    {"route", kRoutes[c.display % 3]},
                   {"keyCode", c.window}, {"down", c.flag},
                   {"flags", c.text1},    {"userData", c.text2}};
            if (auto k = desktop_.eventTap().key(static_cast<std::uint16_t>(c.window)))
                e["key"] = std::string(keyName(*k));
            if (c.display == 1) e["pid"] = c.pid;
            record(std::move(e));
            break;
        }
        case K::screens:
            record({{"kind", "screens"}, {"display", c.display}, {"frame", frame(c.frame)}});
            break;
        case K::mouse:
            record({{"kind", "mouse"}, {"event", c.text1}, {"x", c.point.x}, {"y", c.point.y}});
            break;
        case K::menuExtra:
            record({{"kind", "menuExtra"}, {"bundleID", c.bundleID}, {"title", c.text1}});
            break;
        case K::activate:
        case K::appRunning:
            break;
    }
}

std::string TraceRecorder::appName(const std::string& bundleID) const {
    for (auto& a : desktop_.world().apps())
        if (a.bundleID == bundleID) return a.name;
    return bundleID;
}

std::string TraceRecorder::spaceLabel(std::uint64_t space) const {
    const auto& displays = desktop_.world().displays();
    auto d = desktop_.world().displayIndexOfSpace(space);
    if (!d) return fmt::format("Space id {}", space);
    std::size_t index = 0;
    for (std::size_t i = 0; i < displays[*d].spaces.size(); ++i)
        if (displays[*d].spaces[i].id == space) index = i;
    std::string label = fmt::format("Space {}", index + 1);
    if (displays.size() > 1) label += fmt::format(" of display {}", displays[*d].id);
    return label;
}

namespace {
std::string modifierSymbol(const std::string& name) {
    static const std::map<std::string, std::string> symbols{{"rightCommand", "right ⌘"},
                                                            {"lcmd", "left ⌘"},
                                                            {"ralt", "right ⌥"},
                                                            {"lalt", "left ⌥"},
                                                            {"rctrl", "right ⌃"},
                                                            {"lctrl", "left ⌃"},
                                                            {"rshift", "right ⇧"},
                                                            {"lshift", "left ⇧"},
                                                            {"fn", "fn"},
                                                            {"capsLock", "⇪"}};
    auto it = symbols.find(name);
    return it == symbols.end() ? name : it->second;
}
}  // namespace

std::string TraceRecorder::describe(const json& e) const {
    std::string kind = e.value("kind", "");
    if (kind == "key") {
        if (!e.value("down", false)) return "";  // the down says it all
        std::vector<std::string> parts;
        for (auto& m : sim::modifierKeys())
            if (desktop_.eventTap().heldModifiers().count(m.name)) parts.push_back(modifierSymbol(m.name));
        std::string key = e["key"].is_string() ? e["key"].get<std::string>()
                                               : fmt::format("code {}", e.value("keyCode", 0));
        if (key.size() == 1)
            key = ferrow::toLowerAscii(key), key[0] = static_cast<char>(std::toupper(key[0]));
        parts.push_back(key);
        std::string text = "key    " + ferrow::join(parts, " + ");
        if (e.value("repeat", false)) text += " (repeat)";
        return text + (e.value("action", "") == "swallowed" ? "  → taken by zelk" : "  → passed to the app");
    }
    if (kind == "flags") {
        std::vector<std::string> parts;
        for (auto& k : e["keys"])
            parts.push_back(modifierSymbol(k.get<std::string>()));
        return "keys   " + (parts.empty() ? std::string("all modifiers released")
                                          : "holding " + ferrow::join(parts, " + "));
    }
    if (kind == "focus") {
        if (e.value("bundleID", "").empty()) return "focus  nothing in front";
        std::string text = "focus  " + appName(e.value("bundleID", "")) + " focused";
        if (e.contains("windowID")) {
            if (auto* w = desktop_.world().window(e["windowID"].get<std::uint32_t>()))
                text += fmt::format(", window \"{}\" ({})", w->title, spaceLabel(w->space));
        } else {
            text += " (no window)";
        }
        return text;
    }
    if (kind == "launch")
        return "launch " + appName(e.value("bundleID", "")) +
               (e.value("activates", false) ? " starting" : " starting in the background");
    if (kind == "hide") return "hide   " + appName(e.value("bundleID", "")) + " hidden";
    if (kind == "unhide") return "unhide " + appName(e.value("bundleID", "")) + " shown again";
    if (kind == "terminate") return "quit   " + appName(e.value("bundleID", "")) + " quit";
    if (kind == "space") {
        std::string label = spaceLabel(e.value("space", std::uint64_t(0)));
        if (auto of = label.find(" of display"); of != std::string::npos) label.resize(of);
        return "space  display " + std::to_string(e.value("display", 0)) + " now shows " + label;
    }
    if (kind == "window") {
        std::string id = std::to_string(e.value("id", 0));
        if (e.value("created", false))
            return fmt::format("window \"{}\" opened ({})", e.value("title", ""), id);
        if (e.value("closed", false)) return "window " + id + " closed";
        if (e.contains("title")) return fmt::format("window {} renamed \"{}\"", id, e.value("title", ""));
        if (e.contains("minimized"))
            return "window " + id + (e["minimized"].get<bool>() ? " minimized" : " restored");
        if (e.contains("space"))
            return "window " + id + " moved to " + spaceLabel(e["space"].get<std::uint64_t>());
        if (e.contains("frame")) return "window " + id + " moved to " + e["frame"].dump();
        return "";
    }
    if (kind == "pointer")
        return fmt::format("pointer warped to {}, {}", e.value("x", 0.0), e.value("y", 0.0));
    if (kind == "notification")
        return fmt::format("banner \"{}\": {}", e.value("title", ""), e.value("body", ""));
    if (kind == "overlay") return "overlay " + e.value("state", "");
    if (kind == "mouse")
        return fmt::format("mouse {} at {}, {}", e.value("event", ""), e.value("x", 0.0), e.value("y", 0.0));
    if (kind == "panel") {
        if (e.contains("text")) return "panel  " + e.value("text", "");
        return e.value("visible", false) ? "panel  " + e.value("view", "") + " shown" : "panel  hidden";
    }
    if (kind == "spaces") {
        if (!e.value("enabled", false)) return "spaces strip off";
        std::string text = e.value("text", "");
        return "spaces " + (text.empty() ? std::string("no Spaces") : text);
    }
    if (kind == "pills") return e.value("visible", false) ? "pills  " + e.value("text", "") : "pills  hidden";
    if (kind == "reply") {
        const json& r = e["response"];
        if (r.value("ok", false)) {
            // Say what came back: the message, else which lists the reply carries.
            if (r.contains("message") && r["message"].is_string())
                return "reply  ok: " + r["message"].get<std::string>();
            std::vector<std::string> parts;
            for (auto& [k, v] : r.items()) {
                if (v.is_array())
                    parts.push_back(fmt::format("{} {}", v.size(), k));
                else if (v.is_object())
                    parts.push_back(k);
            }
            return parts.empty() ? "reply  ok" : "reply  ok: " + ferrow::join(parts, ", ");
        }
        return "reply  failed: " + r.value("error", "");
    }
    if (kind == "log") {
        std::string level = e.value("level", "");
        if (level == "debug") return "";
        return "log    " + e.value("message", "");
    }
    return "";
}

}  // namespace zelk::agent
