// zelk: drives a running zelk agent through its command socket.
#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <thread>

#include "Completions.h"
#include "command/CLIClient.h"
#include "command/ResponseText.h"
#include "command/SocketPath.h"
#include "command/ZelkRequest.h"
#include "command/ZelkResponse.h"
#include "support/FileRead.h"

namespace {

using zelk::command::ClientStatus;
using zelk::command::ZelkCommand;
using zelk::command::ZelkRequest;

constexpr int kExitOk = 0, kExitFailed = 1, kExitUsage = 2, kExitNoAgent = 3;
// The reply wait; an hour is far past any command, and keeps the deadline arithmetic in range.
constexpr double kMinTimeout = 0.001, kMaxTimeout = 3600;

constexpr const char* kPositions =
    "Positions: left-half right-half top-half bottom-half top-left top-right bottom-left bottom-right\n"
    "  center maximized fullscreen vertical-third-1..3 horizontal-third-1..3 vertical-quarter-1..4\n"
    "  horizontal-quarter-1..4, or a pixel rectangle \"x,y,width,height\" relative to the screen's visible "
    "frame.";

// What the command line asks for, filled in as CLI11 parses.
struct Args {
    std::string query;
    std::vector<std::string> queryWords;
    std::string bundleID;
    std::int64_t windowID = -1;
    std::string appQuery;
    std::string stageKey;
    std::string position;
    std::string screen;
    double padding = -1;
    double seconds = -1;
    std::int64_t spaceIndex = -1;
    bool hideOthers = false, windowsOnly = false, includeWindows = false;
    bool focused = false, others = false, last = false, stale = false, all = false;
    std::string mode;
    std::string file;
    std::string raw;
};

// One leaf of the command tree and how it turns the parsed arguments into a request.
struct Leaf {
    CLI::App* app;
    std::function<std::optional<std::string>(const Args&)> build;  // the request's JSON text
};

std::optional<std::string> opt(const std::string& s) {
    return s.empty() ? std::nullopt : std::optional<std::string>(s);
}

ZelkRequest base(ZelkCommand command, const Args& a) {
    ZelkRequest r;
    r.command = command;
    std::string q = a.query;
    if (q.empty() && !a.queryWords.empty()) {
        for (auto& w : a.queryWords)
            q += (q.empty() ? "" : " ") + w;
    }
    r.query = opt(q);
    r.bundleID = opt(a.bundleID);
    if (a.windowID >= 0) r.windowID = static_cast<std::uint32_t>(a.windowID);
    r.appQuery = opt(a.appQuery);
    r.stageKey = opt(a.stageKey);
    r.position = opt(a.position);
    r.screen = opt(a.screen);
    if (a.padding >= 0) r.padding = a.padding;
    if (a.seconds >= 0) r.seconds = a.seconds;
    if (a.spaceIndex >= 0) r.spaceIndex = a.spaceIndex;
    r.hideOthers = a.hideOthers;
    r.windowsOnly = a.windowsOnly;
    r.includeWindows = a.includeWindows;
    r.mode = opt(a.mode);
    return r;
}

std::function<std::optional<std::string>(const Args&)> simple(ZelkCommand command) {
    return [command](const Args& a) -> std::optional<std::string> {
        return toJson(base(command, a)).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    };
}

// A number of seconds, points, ... within [lo, hi]: rejects nan, infinities and text, and says the
// bound in its shortest form.
CLI::Validator finiteRange(double lo, double hi, const char* unit) {
    return CLI::Validator(
        [=](std::string& text) -> std::string {
            char* end = nullptr;
            errno = 0;
            double v = std::strtod(text.c_str(), &end);
            bool whole = !text.empty() && end && *end == '\0';
            if (!whole || errno == ERANGE || !std::isfinite(v) || v < lo || v > hi)
                return fmt::format("expected {} from {} to {}, got '{}'", unit, lo, hi, text);
            return {};
        },
        fmt::format("{} {}..{}", unit, lo, hi), "finite range");
}

// `window move` takes its Space as `--space N` or as its first word, and the rest as the window's title.
std::function<std::optional<std::string>(const Args&)> moveToSpace() {
    return [](const Args& given) -> std::optional<std::string> {
        Args a = given;
        if (a.spaceIndex < 0 && !a.queryWords.empty()) {
            const std::string& first = a.queryWords.front();
            char* end = nullptr;
            long long n = std::strtoll(first.c_str(), &end, 10);
            if (!first.empty() && end && *end == '\0') {
                a.spaceIndex = n < 0 ? 0 : n;
                a.queryWords.erase(a.queryWords.begin());
            }
        }
        if (a.spaceIndex < 0) {
            std::cerr << "zelk window move: give the Space's number (--space N)\n";
            return std::nullopt;
        }
        return simple(ZelkCommand::moveWindowToSpace)(a);
    };
}

// The app commands name their app by query or bundle identifier; without either there is nothing
// to ask the agent.
std::function<std::optional<std::string>(const Args&)> needsApp(ZelkCommand command, std::string usage) {
    return [command, usage](const Args& a) -> std::optional<std::string> {
        if (a.queryWords.empty() && a.bundleID.empty()) {
            std::cerr << "zelk " << usage << ": name the app (part of its name) or give --bundle-id\n";
            return std::nullopt;
        }
        return simple(command)(a);
    };
}

// The words CLI11 couldn't place, deepest group first: what an unknown command looks like.
std::optional<std::string> unknownCommand(CLI::App& app, std::string& where) {
    CLI::App* group = &app;
    where = "zelk";
    for (bool deeper = true; deeper;) {
        deeper = false;
        for (auto* sub : group->get_subcommands())
            if (sub->parsed()) {
                group = sub;
                where += " " + sub->get_name();
                deeper = true;
                break;
            }
    }
    for (const auto& word : group->remaining())
        if (!word.empty() && word[0] != '-') return word;
    return std::nullopt;
}

// An import can't be larger than one message to the agent, so reading stops there.
std::optional<std::string> readAll(const std::string& file, std::string& error) {
    if (file == "-")
        return ferrow::readStreamCapped(std::cin, "standard input", zelk::command::kMaxMessageBytes, error);
    return ferrow::readFileCapped(file, zelk::command::kMaxMessageBytes, error);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{
        "zelk: drive the running zelk agent from the command line.\n"
        "Every command asks the agent over its local socket and prints the answer;\n"
        "the exit code is 0 on success, 1 when the agent refuses, 2 on a usage error,\n"
        "3 when no agent is running or it is busy.",
        "zelk"};
    app.require_subcommand(1);
    app.set_help_all_flag("--help-all", "Show help for every command");
    bool json = false;
    std::string socketPath;
    double timeoutSeconds = 30;
    app.add_flag("--json", json, "Print the agent's raw JSON reply");
    app.add_option("--socket", socketPath,
                   "The agent's socket (default: $ZELK_SOCKET, else the usual place)");
    app.add_option("--timeout", timeoutSeconds, "Seconds to wait for the reply (0.001 to 3600, default 30)")
        ->check(finiteRange(kMinTimeout, kMaxTimeout, "seconds"));

    Args a;
    std::vector<Leaf> leaves;
    auto leaf = [&](CLI::App* sub, std::function<std::optional<std::string>(const Args&)> build) {
        leaves.push_back({sub, std::move(build)});
        return sub;
    };
    auto group = [&](const char* name, const char* help) {
        auto* g = app.add_subcommand(name, help);
        g->require_subcommand(1);
        return g;
    };
    auto target = [&](CLI::App* s, bool idOption = true) {
        s->add_option("--bundle-id", a.bundleID, "The app's bundle identifier, exactly");
        if (idOption)
            s->add_option("--id", a.windowID, "The window's number, exactly")
                ->check(CLI::Range(0LL, 4294967295LL));
    };

    leaf(app.add_subcommand("status", "How the agent stands: version, triggers, frontmost app, Space"),
         simple(ZelkCommand::status));

    // Apps.
    auto* appGroup = group("app", "Running applications");
    leaf(appGroup->add_subcommand("list", "List the running apps"), simple(ZelkCommand::listApps));
    {
        auto* s = leaf(appGroup->add_subcommand("focus", "Bring an app to the front"),
                       needsApp(ZelkCommand::focusApp, "app focus"));
        s->add_option("query", a.queryWords, "The app's name (or part of it)");
        target(s, false);
        s->add_flag("--hide-others", a.hideOthers, "Also hide every other app");
    }
    for (auto [name, help, command] :
         {std::tuple{"hide", "Hide an app", ZelkCommand::hideApp},
          std::tuple{"unhide", "Show a hidden app again", ZelkCommand::unhideApp},
          std::tuple{"quit", "Ask an app to quit", ZelkCommand::quitApp}}) {
        auto* s = leaf(appGroup->add_subcommand(name, help), needsApp(command, std::string("app ") + name));
        s->add_option("query", a.queryWords, "The app's name (or part of it)");
        target(s, false);
    }

    // Windows.
    auto* windowGroup = group("window", "Windows of the running apps");
    {
        auto* s =
            leaf(windowGroup->add_subcommand("list", "List the windows"), simple(ZelkCommand::listWindows));
        s->add_option("--app", a.appQuery, "Only this app's windows");
    }
    {
        auto* s = leaf(
            windowGroup->add_subcommand("focus", "Focus a window (or the last one with --last)"),
            [](const Args& args) {
                return toJson(base(args.last ? ZelkCommand::focusLastWindow : ZelkCommand::focusWindow, args))
                    .dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
            });
        s->add_option("query", a.queryWords, "Words of the window's title or app");
        target(s);
        s->add_flag("--last", a.last, "Focus the window that had focus before this one");
    }
    {
        auto* s = leaf(windowGroup->add_subcommand("minimize", "Minimize windows"), [](const Args& args) {
            auto command = args.focused  ? ZelkCommand::minimizeFocused
                           : args.others ? ZelkCommand::minimizeOthers
                                         : ZelkCommand::minimizeWindow;
            return std::optional<std::string>(
                toJson(base(command, args)).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
        });
        s->add_option("query", a.queryWords, "Words of the window's title or app");
        target(s);
        auto* f = s->add_flag("--focused", a.focused, "Minimize the focused window");
        s->add_flag("--others", a.others, "Minimize the frontmost app's other windows")->excludes(f);
    }
    {
        auto* s = leaf(windowGroup->add_subcommand("unminimize", "Restore minimized windows"),
                       simple(ZelkCommand::unminimizeWindow));
        s->add_option("query", a.queryWords, "Words of the window's title or app");
        target(s);
    }
    {
        auto* s = leaf(windowGroup->add_subcommand("place", "Move and size a window to a region of a screen"),
                       simple(ZelkCommand::placeWindow));
        s->footer(kPositions);
        s->add_option("position", a.position, "Where: a named region or a pixel rectangle")->required();
        s->add_option("query", a.queryWords, "Words of the window's title (default: the focused window)");
        s->add_option("--screen", a.screen, "A screen by name (main, builtin, external, a number, ...)");
        s->add_option("--padding", a.padding, "Padding around the window, in points")
            ->check(finiteRange(0, 10000, "points"));
        s->add_option("--app", a.appQuery, "Place a window of this app");
        s->add_option("--id", a.windowID, "The window's number, exactly")
            ->check(CLI::Range(0LL, 4294967295LL));
    }
    {
        auto* s = leaf(windowGroup->add_subcommand("move", "Move a window to another Space"), moveToSpace());
        s->add_option("--space", a.spaceIndex, "The Space's number, 1-9");
        s->add_option("words", a.queryWords,
                      "Without --space: the Space's number first; then words of the window's title (default: "
                      "the focused window)");
        s->add_option("--id", a.windowID, "The window's number, exactly")
            ->check(CLI::Range(0LL, 4294967295LL));
    }

    // Spaces.
    auto* spaceGroup = group("space", "Spaces");
    leaf(spaceGroup->add_subcommand("list", "List the Spaces of the active display"),
         simple(ZelkCommand::listSpaces));
    leaf(spaceGroup->add_subcommand("switch", "Switch to a Space at once"), simple(ZelkCommand::switchSpace))
        ->add_option("index", a.spaceIndex, "The Space's number, 1-9; 0 for the previous Space")
        ->required();

    // Stages.
    auto* stageGroup = group("stage", "Stages: saved groups of windows");
    {
        auto* s = leaf(stageGroup->add_subcommand("list", "List the stages (or one)"),
                       simple(ZelkCommand::listStages));
        s->add_option("key", a.stageKey, "Only the stage under this key");
        s->add_flag("--windows", a.includeWindows, "Resolve each item's live window");
    }
    leaf(stageGroup->add_subcommand("activate", "Activate a stage"), simple(ZelkCommand::activateStage))
        ->add_option("key", a.stageKey, "The stage's key")
        ->required();
    leaf(stageGroup->add_subcommand("close", "Close a stage (default: the active one)"),
         simple(ZelkCommand::closeStage))
        ->add_option("key", a.stageKey, "The stage's key");

    // Search.
    auto* search = app.add_subcommand("search", "Search apps and windows, and manage what search learned");
    search->require_subcommand(0, 1);
    search->footer("A query that is also a subcommand's name goes after --: zelk search -- pin");
    leaves.push_back({search, simple(ZelkCommand::search)});
    search->add_option("query", a.queryWords, "What to search for");
    search->add_flag("--windows", a.windowsOnly, "Window rows only");
    {
        auto* s = leaf(search->add_subcommand("learned", "List learned queries and pins"),
                       simple(ZelkCommand::searchLearned));
        s->add_option("--app", a.appQuery, "Only those of this app");
    }
    {
        auto* s =
            leaf(search->add_subcommand("pin", "Pin a query to an app"), simple(ZelkCommand::searchPin));
        s->add_option("query", a.query, "The query")->required();
        s->add_option("--app", a.appQuery, "The app, by name");
        s->add_option("--bundle-id", a.bundleID, "The app, by bundle identifier");
    }
    leaf(search->add_subcommand("unpin", "Remove a pin"), simple(ZelkCommand::searchUnpin))
        ->add_option("query", a.query, "The pinned query")
        ->required();
    {
        auto* s = leaf(search->add_subcommand("learn", "Record a pick, as choosing it in the panel does"),
                       simple(ZelkCommand::searchLearn));
        s->add_option("query", a.query, "The query")->required();
        s->add_option("--app", a.appQuery, "The app, by name");
        s->add_option("--bundle-id", a.bundleID, "The app, by bundle identifier");
    }
    {
        auto* s = leaf(search->add_subcommand("unlearn", "Forget a learned query (pins stay)"),
                       [](const Args& args) {
                           ZelkRequest r = base(ZelkCommand::searchUnlearn, args);
                           if (args.stale) r.mode = "stale";
                           if (args.all) r.mode = "all";
                           return std::optional<std::string>(
                               toJson(r).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
                       });
        s->add_option("query", a.query, "The query to forget");
        auto* st = s->add_flag("--stale", a.stale, "Forget every stale query");
        s->add_flag("--all", a.all, "Forget every learned query")->excludes(st);
    }

    // Configuration.
    auto* configGroup = group("config", "The configuration: where it lives, export, import, reset, restore");
    leaf(configGroup->add_subcommand("path", "Show where the configuration file and its backup live"),
         simple(ZelkCommand::configPath));
    leaf(configGroup->add_subcommand("export", "Print the settings as JSON"),
         simple(ZelkCommand::configExport));
    leaf(configGroup->add_subcommand("import", "Import settings from JSON (a file, or - for standard input)"),
         [](const Args& args) -> std::optional<std::string> {
             std::string error;
             auto body = readAll(args.file, error);
             if (!body) {
                 std::cerr << "zelk: " << error << "\n";
                 return std::nullopt;
             }
             ZelkRequest r = base(ZelkCommand::configImport, args);
             r.body = *body;
             return toJson(r).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
         })
        ->add_option("file", a.file, "The JSON file, or - for standard input")
        ->required();
    leaf(configGroup->add_subcommand("reset", "Reset every setting (the current ones are saved first)"),
         simple(ZelkCommand::configReset));
    leaf(configGroup->add_subcommand("restore", "Restore the settings saved by the last reset"),
         simple(ZelkCommand::configRestore));
    auto* configHelp = configGroup->add_subcommand("help", "Explain the config commands");

    // Panels.
    auto* osdGroup = group("osd", "Show or hide the switcher panel");
    for (auto [name, help] :
         {std::pair{"app", "Show the app switcher, latched"},
          std::pair{"window", "Show the window switcher, latched"}, std::pair{"hide", "Hide the panel"}}) {
        std::string surface = name;
        leaf(osdGroup->add_subcommand(name, help), [surface](const Args& args) {
            ZelkRequest r = base(ZelkCommand::osd, args);
            r.surface = surface;
            return std::optional<std::string>(
                toJson(r).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
        });
    }
    {
        auto* s = leaf(app.add_subcommand("expose", "The overview of every window"), [](const Args& args) {
            // No action given: the overview toggles.
            ZelkRequest r = base(ZelkCommand::expose, args);
            if (!r.mode) r.mode = "toggle";
            return std::optional<std::string>(
                toJson(r).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
        });
        a.mode = "";
        s->add_option("action", a.mode, "toggle (default), show, hide or status")
            ->check(CLI::IsMember({"toggle", "show", "hide", "status", "debug", "letters"}));
    }

    // Diagnostics.
    auto* debugGroup = group("debug", "Diagnostics for development");
    for (auto [name, command] :
         {std::pair{"stage", ZelkCommand::debugStage}, std::pair{"capture", ZelkCommand::debugCapture},
          std::pair{"keys", ZelkCommand::debugKeys}, std::pair{"ax", ZelkCommand::debugAX},
          std::pair{"spaces-tree", ZelkCommand::debugSpacesTree}, std::pair{"place", ZelkCommand::debugPlace},
          std::pair{"live-windows", ZelkCommand::debugLiveWindows},
          std::pair{"watch-start", ZelkCommand::debugWatchStart},
          std::pair{"watch-fetch", ZelkCommand::debugWatchFetch},
          std::pair{"send-cmd-n", ZelkCommand::debugSendCmdN},
          std::pair{"tab-cycle", ZelkCommand::debugTabCycle},
          std::pair{"window-keys", ZelkCommand::debugWindowKeys}, std::pair{"tap", ZelkCommand::debugTap}}) {
        auto* s = leaf(debugGroup->add_subcommand(name, std::string("debug-") + name), simple(command));
        s->add_option("query", a.queryWords, "Words of an app or window");
        s->add_option("--app", a.appQuery, "An app");
        s->add_option("--stage", a.stageKey, "A stage's key");
        s->add_option("--position", a.position, "A placement position");
        s->add_option("--screen", a.screen, "A screen by name");
        s->add_option("--seconds", a.seconds, "How long")->check(finiteRange(0, 3600, "seconds"));
        s->add_option("--id", a.windowID, "A window's number")->check(CLI::Range(0LL, 4294967295LL));
        if (command == ZelkCommand::debugSendCmdN)
            s->add_option("--route", a.mode, "0 (the HID tap, default), 1 (to the process) or 2")
                ->check(CLI::IsMember({"0", "1", "2"}));
    }

    auto* dumpCommand = leaf(
        debugGroup->add_subcommand("dump",
                                   "Gather windows, apps, assignments, key tap health, configuration and "
                                   "logs into one zip archive, and say where it is"),
        simple(ZelkCommand::debugDump));
    dumpCommand->add_option("--seconds", a.seconds, "Seconds of live log to capture (default 30)")
        ->check(finiteRange(0, 600, "seconds"));

    leaf(app.add_subcommand("raw", "Send one request as written, e.g. zelk raw '{\"command\":\"status\"}'"),
         [](const Args& args) { return std::optional<std::string>(args.raw); })
        ->add_option("json", a.raw, "The request's JSON")
        ->required();

    std::string shell;
    auto* completions = app.add_subcommand("completions", "Print a completion script: bash or zsh");
    completions->add_option("shell", shell, "bash or zsh")->required()->check(CLI::IsMember({"bash", "zsh"}));

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        std::string where;
        if (auto word = unknownCommand(app, where); word && dynamic_cast<const CLI::RequiredError*>(&e)) {
            std::cerr << fmt::format("{}: unknown command '{}'; `{} --help` lists the commands\n", where,
                                     *word, where);
            return kExitUsage;
        }
        app.exit(e);
        return kExitUsage;
    }

    if (completions->parsed()) {
        std::cout << (shell == "bash" ? zelk::tool::bashCompletion(app) : zelk::tool::zshCompletion(app));
        return kExitOk;
    }
    if (configHelp->parsed()) {
        std::cout << configGroup->get_formatter()->make_help(configGroup, "zelk config",
                                                             CLI::AppFormatMode::Normal);
        return kExitOk;
    }

    // The deepest command that was given wins (`search pin` over `search`).
    const Leaf* chosen = nullptr;
    for (auto& l : leaves)
        if (l.app->parsed() && (!chosen || l.app->get_parent() == chosen->app)) chosen = &l;
    if (!chosen) {
        std::cerr << app.help();
        return kExitUsage;
    }
    if (chosen->app == search && a.queryWords.empty()) {
        std::cerr << "zelk search: missing query\n" << search->help();
        return kExitUsage;
    }
    auto payload = chosen->build(a);
    if (!payload) return kExitUsage;

    std::string path = socketPath.empty() ? zelk::command::resolveSocketLocation().path : socketPath;
    zelk::command::CLIClient client;
    if (client.connect(path) != ClientStatus::ok) {
        std::cerr << fmt::format(
            "zelk: no agent is running (nothing answers on {}: {}).\n"
            "Start it with `zelkd`, or point ZELK_SOCKET (or --socket) at the socket of a running agent.\n",
            path, client.lastError());
        return kExitNoAgent;
    }
    auto timeout = std::chrono::milliseconds(static_cast<long long>(timeoutSeconds * 1000));
    // One request and its reply, ordered so that --json prints the fields in the order the agent sent them.
    auto ask = [&](zelk::command::CLIClient& c,
                   const std::string& request) -> std::optional<nlohmann::ordered_json> {
        std::string reply;
        auto status = c.request(request, reply, std::chrono::milliseconds(5000), timeout);
        if (status != ClientStatus::ok) {
            std::cerr << "zelk: "
                      << (status == ClientStatus::timedOut ? "the agent did not answer in time"
                                                           : "the agent closed the connection")
                      << " (" << c.lastError() << ")\n";
            return std::nullopt;
        }
        auto parsed = nlohmann::ordered_json::parse(reply, nullptr, false);
        if (parsed.is_discarded() || !parsed.is_object()) {
            std::cerr << "zelk: the agent's reply isn't JSON\n";
            return std::nullopt;
        }
        return parsed;
    };
    auto first = ask(client, *payload);
    if (!first) return kExitFailed;
    auto parsed = std::move(*first);
    bool ok = parsed.value("ok", false);
    if (ok && chosen->app == dumpCommand) {
        // The dump goes on in the agent: follow its phases until it ends with the archive or an error.
        std::string lastPhase;
        const std::string statusRequest = R"({"command":"debug-dump","mode":"status"})";
        while (ok && !parsed.contains("body")) {
            std::this_thread::sleep_for(std::chrono::milliseconds(250));
            zelk::command::CLIClient again;
            if (again.connect(path) != ClientStatus::ok) {
                std::cerr << "zelk: the agent went away during the dump\n";
                return kExitFailed;
            }
            auto next = ask(again, statusRequest);
            if (!next) return kExitFailed;
            parsed = std::move(*next);
            ok = parsed.value("ok", false);
            std::string phase = parsed.value("message", "");
            if (ok && !json && !parsed.contains("body") && phase != lastPhase) std::cerr << phase << "\n";
            lastPhase = phase;
        }
    }
    if (!ok && parsed.value("error", "") == zelk::command::kAgentBusy) {
        if (json) std::cout << parsed.dump(2) << "\n";
        std::cerr << "zelk: the agent is busy: every connection it serves has a request under way.\n"
                     "Try again in a few seconds; a client that stalls mid-request is dropped after 5 s.\n";
        return kExitNoAgent;
    }
    if (json) {
        std::cout << parsed.dump(2) << "\n";
    } else if (ok) {
        std::cout << zelk::command::formatReply(parsed);
    }
    if (!ok) {
        auto error = parsed.find("error");
        std::string text =
            error != parsed.end() && error->is_string() ? error->get<std::string>() : "the command failed";
        std::cerr << "zelk: " << text << "\n";
        return kExitFailed;
    }
    return kExitOk;
}
