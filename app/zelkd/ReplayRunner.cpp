#include "ReplayRunner.h"

#include <fmt/format.h>

#include "Agent.h"
#include "FrameWriter.h"
#include "OverviewService.h"
#include "Subsystems.h"
#include "TraceRecorder.h"
#include "companions/LaunchMonitor.h"
#include "input/OSDController.h"
#include "platform/Platform.h"
#include "platform/draw/LaunchPillPainter.h"
#include "platform/draw/SpacesIndicatorPainter.h"
#include "platform/draw/StageToastPainter.h"
#include "spaces/SpacesIndicator.h"
#include "stages/StageService.h"
#include "support/Format.h"
#include "support/Log.h"
#include "support/MainQueue.h"

namespace zelk::agent {

using nlohmann::json;

namespace {

// A checked field of an event body, or the fallback when it is absent or null (the script check
// has already refused values of the wrong type).
template <typename T>
T valueOr(const json& body, const char* name, T fallback) {
    auto it = body.find(name);
    return it == body.end() || it->is_null() ? fallback : it->get<T>();
}

// Applies one script event to the world (or the program, for commands).
class EventApplier {
  public:
    EventApplier(sim::SimDesktop& desktop, Agent& agent, TraceRecorder& trace)
        : desktop_(desktop), world_(desktop.world()), agent_(agent), trace_(trace) {}

    void apply(const ReplayEvent& e) {
        const json& v = e.value;
        const std::string& k = e.kind;
        if (k == "flags") {
            std::vector<std::string> names;
            for (auto& n : v)
                names.push_back(n.get<std::string>());
            desktop_.eventTap().setHeldModifiers(names);
        } else if (k == "keyDown" || k == "keyUp") {
            auto key = keyFromName(v.get<std::string>());
            if (!desktop_.eventTap().key(*key, k == "keyDown", e.repeat))
                note(e, fmt::format("the {} layout has no key for '{}'", world_.keyboardLayout,
                                    v.get<std::string>()));
        } else if (k == "launch") {
            if (!world_.launch(v.get<std::string>(), true))
                note(e, "no installed app " + v.get<std::string>());
        } else if (k == "quit" || k == "crash") {
            withApp(e, [&](sim::SimApp& app) { world_.terminate(app.pid, k == "crash"); });
        } else if (k == "activate") {
            withApp(e, [&](sim::SimApp& app) { world_.activate(app.pid); });
        } else if (k == "hide") {
            withApp(e, [&](sim::SimApp& app) { world_.hide(app.pid); });
        } else if (k == "unhide") {
            withApp(e, [&](sim::SimApp& app) { world_.unhide(app.pid); });
        } else if (k == "openWindow") {
            sim::SimWindow w;
            w.id = valueOr<std::uint32_t>(v, "id", 0);
            w.title = valueOr<std::string>(v, "title", "");
            w.space = valueOr<std::uint64_t>(v, "space", 0);
            if (v.contains("frame") && v["frame"].is_array())
                w.frame = {v["frame"][0].get<double>(), v["frame"][1].get<double>(),
                           v["frame"][2].get<double>(), v["frame"][3].get<double>()};
            else
                w.frame = {100, 100, 1000, 700};
            sim::SimApp* app = world_.app(valueOr<std::string>(v, "bundleID", ""));
            if (!app || !app->running)
                note(e, "openWindow: app is not running");
            else if (w.space != 0 && !world_.displayIndexOfSpace(w.space))
                note(e, fmt::format("openWindow: no Space {}", w.space));
            else
                world_.openWindow(app->bundleID, w);
        } else if (k == "closeWindow") {
            if (!world_.closeWindow(v.get<std::uint32_t>())) note(e, "closeWindow: no such window");
        } else if (k == "minimize" || k == "unminimize") {
            if (!world_.setMinimized(v.get<std::uint32_t>(), k == "minimize"))
                note(e, k + ": no such window");
        } else if (k == "retitle") {
            if (!world_.retitle(valueOr<std::uint32_t>(v, "id", 0), valueOr<std::string>(v, "title", "")))
                note(e, "retitle: no such window");
        } else if (k == "switchSpace") {
            auto d = world_.displayIndexById(valueOr<std::uint32_t>(v, "display", 1));
            if (!d || !world_.switchSpace(*d, valueOr<std::uint64_t>(v, "space", 0)))
                note(e, "switchSpace: no such display or Space");
        } else if (k == "resizeDisplay") {
            const Rect frame{v["frame"][0].get<double>(), v["frame"][1].get<double>(),
                             v["frame"][2].get<double>(), v["frame"][3].get<double>()};
            if (!world_.resizeDisplay(valueOr<std::uint32_t>(v, "display", 0), frame))
                note(e, "resizeDisplay: no such display");
        } else if (k == "pointer") {
            // Over zelk's full-screen panels, a move they see.
            desktop_.pointer().panelEvent({platform::PanelEventKind::mouseMoved,
                                           {valueOr<double>(v, "x", 0.0), valueOr<double>(v, "y", 0.0)}});
        } else if (k == "mouseDown" || k == "mouseDrag" || k == "mouseUp") {
            mouse(k, {valueOr<double>(v, "x", 0.0), valueOr<double>(v, "y", 0.0)});
        } else if (k == "scroll") {
            scroll(v);
        } else if (k == "click") {
            desktop_.pointer().click({valueOr<double>(v, "x", 0.0), valueOr<double>(v, "y", 0.0)});
        } else if (k == "command") {
            trace_.recordReply(agent_.handleCommand(v));
        } else if (k == "setting") {
            auto* store = platform::Platform::current().settings;
            for (auto& [key, value] : v.items())
                store->write(key, value);
        } else if (k == "fault") {
            fault(e, v);
        }
    }

  private:
    // The left button: on zelk's full-screen panels while they are up; else a press is a click
    // elsewhere, and moves with the button down only move the pointer.
    void mouse(const std::string& k, Point at) {
        const auto kind = k == "mouseDown"   ? platform::PanelEventKind::mouseDown
                          : k == "mouseDrag" ? platform::PanelEventKind::mouseDragged
                                             : platform::PanelEventKind::mouseUp;
        if (!desktop_.pointer().panelEvent({kind, at}) && kind == platform::PanelEventKind::mouseDown)
            desktop_.pointer().click(at);
    }

    // A trackpad scroll where the pointer is.
    void scroll(const json& v) {
        platform::PanelEvent e;
        e.kind = platform::PanelEventKind::scroll;
        e.at = world_.pointer();
        e.deltaX = valueOr<double>(v, "dx", 0.0);
        e.deltaY = valueOr<double>(v, "dy", 0.0);
        e.invertedFromDevice = valueOr<bool>(v, "inverted", false);
        const std::string phase = valueOr<std::string>(v, "phase", "changed");
        e.phase = phase == "began"       ? platform::PanelScrollPhase::began
                  : phase == "ended"     ? platform::PanelScrollPhase::ended
                  : phase == "cancelled" ? platform::PanelScrollPhase::cancelled
                                         : platform::PanelScrollPhase::changed;
        desktop_.pointer().panelEvent(e);
    }

    template <typename F>
    void withApp(const ReplayEvent& e, F&& f) {
        sim::SimApp* app = world_.app(e.value.get<std::string>());
        if (!app || !app->running) {
            note(e, e.kind + ": " + e.value.get<std::string>() + " is not running");
            return;
        }
        f(*app);
    }

    void fault(const ReplayEvent& e, const json& v) {
        for (auto& [name, value] : v.items()) {
            if (name == "axTimeout" && value.is_string())
                world_.faults.axTimeout.insert(value.get<std::string>());
            else if (name == "axRecover" && value.is_string())
                world_.faults.axTimeout.erase(value.get<std::string>());
            else if (name == "launchFails" && value.is_string())
                world_.faults.launchFails.insert(value.get<std::string>());
            else if (name == "launchNoticeLost" && value.is_string())
                world_.faults.launchNoticeLost.insert(value.get<std::string>());
            else if (name == "launchLatencyMs" && value.is_number())
                world_.launchLatencyMs = static_cast<int>(value.get<double>());
            else if (name == "spaceNoticesLost" && value.is_boolean())
                world_.faults.spaceNoticesLost = value.get<bool>();
            else if (name == "tapDisabled" && value.is_boolean()) {
                if (value.get<bool>()) desktop_.eventTap().disableBySystem(false);
            } else if (name == "tapDisabledByUserInput" && value.is_boolean()) {
                if (value.get<bool>()) desktop_.eventTap().disableBySystem(true);
            } else if (name == "tapDead" && value.is_boolean())
                world_.faults.tapDead = value.get<bool>();
            else if (name == "permission" && value.is_object()) {
                world_.permissions.accessibility =
                    value.value("accessibility", world_.permissions.accessibility);
                world_.permissions.screenRecording =
                    value.value("screenRecording", world_.permissions.screenRecording);
            } else if (name == "secureInput") {
                // true: the app in front turns on Secure Keyboard Entry; a number names the app's pid.
                if (value.is_number_integer())
                    world_.faults.secureInputPID = value.get<std::int32_t>();
                else if (value.is_boolean() && value.get<bool>())
                    world_.faults.secureInputPID = world_.frontPid();
                else
                    world_.faults.secureInputPID.reset();
            } else if ((name == "missionControl" || name == "appExpose") && value.is_boolean()) {
                auto overlay =
                    name == "missionControl" ? sim::Overlay::missionControl : sim::Overlay::appExpose;
                if (value.get<bool>())
                    world_.setOverlay(overlay);
                else if (world_.overlay() == overlay)
                    world_.setOverlay(sim::Overlay::none);
            } else if (name == "screenLocked" && value.is_boolean())
                world_.faults.screenLocked = value.get<bool>();
            else if (name == "noWindowServer" && value.is_boolean())
                world_.faults.noWindowServer = value.get<bool>();
            else if (name == "overlay" && value.is_string()) {
                std::string s = value.get<std::string>();
                world_.setOverlay(s == "missionControl" ? sim::Overlay::missionControl
                                  : s == "appExpose"    ? sim::Overlay::appExpose
                                                        : sim::Overlay::none);
            } else
                note(e, "fault: unknown fault '" + name + "'");
        }
    }

    // Something in the script could not apply: said in the trace, the run goes on.
    void note(const ReplayEvent& e, const std::string& what) {
        trace_.record(json{{"kind", "script"}, {"line", e.line}, {"message", what}});
    }

    sim::SimDesktop& desktop_;
    sim::SimWorld& world_;
    Agent& agent_;
    TraceRecorder& trace_;
};

}  // namespace

ferrow::Subscription recordPanel(Agent& agent, TraceRecorder& trace) {
    // Changes the trace can't show (the watchdog's running state) don't make a line of their own.
    auto last = std::make_shared<json>();
    return agent.panel().changed.subscribe([&trace, last](const osd::OSDModel& m) {
        json event = osd::toJson(m);
        if (event == *last) return;
        *last = event;
        event["kind"] = "panel";
        event["text"] = osd::describe(m);
        trace.record(std::move(event));
    });
}

// The overview writes a `panel` event of its own view each time what it shows changes.
static ferrow::Subscription recordOverview(Agent& agent, TraceRecorder& trace) {
    auto last = std::make_shared<json>();
    auto& manager = agent.subsystems().overview().manager();
    return manager.changed.subscribe([&trace, &manager, last] {
        json event = overviewEvent(manager);
        if (event == *last) return;
        *last = event;
        event["kind"] = "panel";
        trace.record(std::move(event));
    });
}

ferrow::Subscription recordSpacesIndicator(Agent& agent, TraceRecorder& trace) {
    return agent.subsystems().spacesIndicator().model().subscribe(
        [&trace](const spaces::SpacesIndicatorModel& m) {
            json cells = json::array();
            for (const auto& c : m.cells) {
                json cell{{"text", c.text()}, {"filled", c.isCurrent}, {"display", c.display}};
                if (c.isStage) cell["stage"] = true;
                cells.push_back(std::move(cell));
            }
            trace.record({{"kind", "spaces"},
                          {"enabled", m.enabled},
                          {"cells", std::move(cells)},
                          {"text", spaces::describeIndicator(m.cells)}});
        });
}

ferrow::Subscription recordLaunchPills(Agent& agent, TraceRecorder& trace) {
    return agent.subsystems().launchMonitor().model().subscribe([&trace](
                                                                    const companions::LaunchPillsModel& m) {
        json pills = json::array();
        std::vector<std::string> texts;
        for (const auto& p : m.pills) {
            pills.push_back(
                {{"id", p.id}, {"phase", companions::phaseName(p.phase)}, {"text", companions::pillText(p)}});
            texts.push_back(companions::pillText(p));
        }
        json event{{"kind", "pills"}, {"visible", m.visible}, {"pills", std::move(pills)}};
        if (m.visible) event["frame"] = {m.frame.x, m.frame.y, m.frame.width, m.frame.height};
        event["text"] = ferrow::join(texts, "; ");
        trace.record(std::move(event));
    });
}

// The stage toast: one line each time it shows or leaves.
ferrow::Subscription recordStageToast(Agent& agent, TraceRecorder& trace) {
    return agent.subsystems().stages().toast().model().subscribe([&trace](const stages::StageToastModel& m) {
        json event{{"kind", "toast"}, {"visible", m.visible}};
        if (m.visible) {
            event["title"] = m.title;
            event["body"] = m.line;
            event["frame"] = {m.frame.x, m.frame.y, m.frame.width, m.frame.height};
        }
        event["text"] = m.visible ? stages::plainToastTitle(m.title) + " " + m.line : "toast hidden";
        trace.record(std::move(event));
    });
}

// The strip in the first display's menu bar and the launch pills, over the desktop in the frames.
void drawSurfacesBesidePanel(FrameWriter& frames, Agent& agent, const sim::SimWorld& world) {
    auto& indicator = agent.subsystems().spacesIndicator().model();
    auto& pills = agent.subsystems().launchMonitor().model();
    auto& toast = agent.subsystems().stages().toast().model();
    frames.setOverlay([&indicator, &pills, &toast, &world](draw::Surface& surface) {
        if (!world.displays().empty()) {
            const auto& d = world.displays().front();
            draw::drawSpacesIndicator(surface, indicator.get(),
                                      draw::spacesIndicatorOrigin(indicator.get(), d.frame, d.menuBarHeight));
        }
        draw::drawLaunchPills(surface, pills.get());
        draw::drawStageToast(surface, toast.get());
    });
}

int ReplayRunner::run(const std::string& worldYaml, const std::string& scriptYaml,
                      const ReplayOptions& options, std::string& error) {
    ReplayScript script;
    if (!parseReplayScript(scriptYaml, script, error)) {
        error = "script: " + error;
        return 2;
    }
    auto clock = std::make_shared<ferrow::VirtualClock>();
    auto& queue = ferrow::MainQueue::install(clock);
    sim::SimDesktop desktop;
    sim::WorldExtras extras;
    if (!sim::loadWorldText(worldYaml, desktop, extras, error)) {
        error = "world: " + error;
        ferrow::MainQueue::reset();
        return 2;
    }
    for (auto& [key, value] : extras.settings.items())
        desktop.settings().write(key, value);
    platform::Platform::install(desktop.platform());

    const ferrow::Nanos start = clock->now();
    int result = 0;
    std::unique_ptr<FrameWriter> frames;
    if (!options.framesDir.empty()) {
        frames = std::make_unique<FrameWriter>(options.framesDir);
        if (!frames->open(error)) {
            error = "frames: " + error;
            platform::Platform::reset();
            ferrow::MainQueue::reset();
            return 2;
        }
    }
    {
        TraceRecorder trace(desktop, start);
        trace.setJsonOutput(options.jsonTrace);
        trace.setTextOutput(options.textTrace);
        if (!options.textShowsDebugLogs && !options.jsonTrace)
            trace.setMinimumLogLevel(ferrow::LogLevel::info);
        Agent agent;
        auto panelTrace = recordPanel(agent, trace);
        auto overviewTrace = recordOverview(agent, trace);
        auto spacesTrace = recordSpacesIndicator(agent, trace);
        auto pillsTrace = recordLaunchPills(agent, trace);
        auto toastTrace = recordStageToast(agent, trace);
        ferrow::Subscription panelFrames, overviewFrames, spacesFrames, pillsFrames, toastFrames;
        if (frames) {
            panelFrames = agent.panel().changed.subscribe(
                [&](const osd::OSDModel& m) { frames->add(desktop.world(), m, trace.elapsedMs()); });
            overviewFrames = agent.subsystems().overview().manager().changed.subscribe([&] {
                auto& m = agent.subsystems().overview().manager();
                if (m.isVisible())
                    frames->addOverview(desktop.world(), overviewPicture(m), overviewEvent(m)["text"],
                                        trace.elapsedMs());
            });
            drawSurfacesBesidePanel(*frames, agent, desktop.world());
            auto redraw = [&](const std::string& caption) {
                frames->addOverlayChange(desktop.world(), caption, trace.elapsedMs());
            };
            spacesFrames = agent.subsystems().spacesIndicator().model().subscribe(
                [redraw](const spaces::SpacesIndicatorModel& m) {
                    redraw("spaces " + spaces::describeIndicator(m.cells));
                });
            pillsFrames = agent.subsystems().launchMonitor().model().subscribe(
                [redraw](const companions::LaunchPillsModel& m) {
                    std::vector<std::string> texts;
                    for (const auto& p : m.pills)
                        texts.push_back(companions::pillText(p));
                    redraw("pills " + (texts.empty() ? std::string("hidden") : ferrow::join(texts, "; ")));
                });
            toastFrames = agent.subsystems().stages().toast().model().subscribe(
                [redraw](const stages::StageToastModel& m) {
                    redraw(m.visible ? "toast " + stages::plainToastTitle(m.title)
                                     : std::string("toast hidden"));
                });
        }
        agent.start();
        EventApplier applier(desktop, agent, trace);
        for (const auto& event : script.events) {
            queue.runUntil(start + ferrow::ms(event.atMs));
            if (event.kind == "end") break;
            applier.apply(event);
        }
        queue.runUntil(start + ferrow::ms(script.endMs));
        agent.terminate();
        queue.runDue();
        if (options.atEnd) options.atEnd(desktop);
    }
    if (frames && !frames->finish(error)) {
        error = "frames: " + error;
        result = 2;
    }
    platform::Platform::reset();
    ferrow::MainQueue::reset();
    return result;
}

}  // namespace zelk::agent
