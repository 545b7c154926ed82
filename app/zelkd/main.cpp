// zelkd: the zelk agent. With no options it runs on the embedded simulated desktop; --replay runs a
// whole scripted session on a virtual clock and writes its trace.
#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "Agent.h"
#include "Demo.h"
#include "ReplayRunner.h"
#include "SingleInstance.h"
#include "TraceRecorder.h"
#include "config/ConfigFileManager.h"
#include "platform/HostProcesses.h"
#include "platform/JsonFileSettingsStore.h"
#include "platform/Platform.h"
#include "platform/SettingsFileWatch.h"
#include "platform/sim/WorldFile.h"
#include "support/FileRead.h"
#include "support/Log.h"
#include "support/MainQueue.h"
#include "support/Timing.h"
#include "support/Yaml.h"
#ifdef ZELK_HAVE_X11
#include "input/OSDController.h"
#include "platform/x11/X11Desktop.h"
#include "platform/x11/X11PanelWindow.h"
#endif

namespace {

// World files and scripts share the YAML reader's size bound, checked before anything is read.
std::optional<std::string> readFile(const std::string& path, std::string& error) {
    return ferrow::readFileCapped(path, ferrow::YamlLimits{}.maxBytes, error);
}

volatile std::sig_atomic_t gStop = 0;

// The live agent's configuration folder: the one given, else the user's (`$XDG_CONFIG_HOME/zelk`,
// `~/.config/zelk`). Without a home there is no user's folder, and the agent keeps no file.
std::optional<std::filesystem::path> configFolder(const std::string& given) {
    if (!given.empty()) return std::filesystem::path(given);
    const char* home = std::getenv("HOME");
    const char* config = std::getenv("XDG_CONFIG_HOME");
    if ((!home || !*home) && (!config || !*config)) return std::nullopt;
    return zelk::configfile::ConfigFileManager::defaultFolder();
}

void useConfigFolder(zelk::agent::Agent& agent, const std::string& given) {
    if (auto folder = configFolder(given)) {
        agent.useConfigFolder(*folder);
        std::cout << "Configuration: " << (*folder / "config.yaml").string() << "\n";
    }
}

// One agent per user: a running one is asked to quit before this one reads or writes any setting.
// The stop signals are caught first, so a newer agent's request to quit always ends this one in order.
std::optional<zelk::agent::InstanceLock> takeOverAsTheOnlyAgent() {
    std::signal(SIGINT, [](int) { gStop = 1; });
    std::signal(SIGTERM, [](int) { gStop = 1; });
    // The live agent's lines show as they happen, also through a pipe or a log file.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    std::string error;
    auto lock = zelk::agent::becomeTheOnlyInstance({}, std::cout, error);
    if (!lock) std::cerr << "zelkd: not starting: " << error << "\n";
    return lock;
}

// The live agent keeps a log file (beside its settings unless one is named), which its debug dump
// reads in place of a system log.
std::filesystem::path liveLogFile(const std::string& given, const std::filesystem::path& settingsFile) {
    if (!given.empty()) return given;
    namespace fs = std::filesystem;
    auto path = settingsFile.parent_path() / "zelkd.log";
    std::error_code ec;
    // Private like the settings beside it: the log names apps and window titles.
    if (fs::create_directories(path.parent_path(), ec))
        fs::permissions(path.parent_path(), fs::perms::owner_all, ec);
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0) return {};
    ::fchmod(fd, 0600);
    ::close(fd);
    if (!ferrow::Log::setFile(path.string())) return {};
    return path;
}

int runLive(const std::string& worldYaml, const std::string& worldName, const std::string& settingsPath,
            const std::string& configDir, const std::string& logFile) {
    using namespace zelk;
    auto instance = takeOverAsTheOnlyAgent();
    if (!instance) return 1;
    auto& queue = ferrow::MainQueue::install(std::make_shared<ferrow::RealClock>());
    sim::SimDesktop desktop;
    sim::WorldExtras extras;
    std::string error;
    if (!sim::loadWorldText(worldYaml, desktop, extras, error)) {
        std::cerr << "zelkd: world: " << error << "\n";
        return 2;
    }
    // The live agent keeps its settings in a file, so a restart keeps them; a world's own settings
    // are applied over them.
    platform::JsonFileSettingsStore store(settingsPath.empty()
                                              ? platform::JsonFileSettingsStore::defaultPath()
                                              : std::filesystem::path(settingsPath));
    for (auto& [key, value] : extras.settings.items())
        store.write(key, value);
    // An edit of the file while the agent runs is applied as it would be from the settings panes.
    platform::SettingsFileWatch settingsWatch(store);
    platform::Platform::install(desktop.platform(&store));
    std::cout << fmt::format(
        "zelkd: running on the simulated desktop ({}: {} displays, {} apps).\n"
        "Drive it from another terminal with the zelk tool, e.g. `zelk status`, `zelk app list`,\n"
        "`zelk app focus Mail`, `zelk space switch 2`. Stop it with Ctrl-C.\n"
        "Settings: {}\n\n",
        worldName, desktop.world().displays().size(), desktop.world().apps().size() - 1,
        store.path().string());
    ferrow::Log::setConsole(false);
    agent::TraceRecorder trace(desktop, queue.now());
    trace.setTextOutput(&std::cout);
    trace.setMinimumLogLevel(ferrow::LogLevel::info);
    platform::HostProcesses hostProcesses(liveLogFile(logFile, store.path()));
    agent::Agent agent(/*commandService=*/true);
    auto panelTrace = agent::recordPanel(agent, trace);
    useConfigFolder(agent, configDir);
    agent.useDebugDump({}, &hostProcesses);
    agent.start();
    // The queue serves until a signal asks to stop; a watcher turns the signal into a stop.
    ferrow::Repeater watcher("signal watch", ferrow::ms(100), -1, [&] {
        if (gStop) queue.stop();
    });
    queue.run();
    hostProcesses.interrupt();
    agent.terminate();
    std::cout << std::flush;
    platform::Platform::reset();
    return 0;
}

// The agent on a real X11 desktop: the same start-up, with the X11 backend behind the interfaces.
int runX11(const std::string& display, const std::string& settingsPath, const std::string& configDir,
           const std::string& logFile) {
#ifdef ZELK_HAVE_X11
    using namespace zelk;
    auto& queue = ferrow::MainQueue::install(std::make_shared<ferrow::RealClock>());
    std::string error;
    auto desktop = x11::X11Desktop::open(display, error);
    if (!desktop) {
        std::cerr << "zelkd: x11: " << error << "\n";
        return 2;
    }
    platform::JsonFileSettingsStore store(settingsPath.empty()
                                              ? platform::JsonFileSettingsStore::defaultPath()
                                              : std::filesystem::path(settingsPath));
    platform::Platform::install(desktop->platform(&store));
    std::cout << fmt::format(
        "zelkd: running on the X11 desktop{}{}.\n"
        "Hold the right Super key and press an app's letter; drive it with the zelk tool, e.g. `zelk "
        "status`.\n"
        "Stop it with Ctrl-C or `kill {}`.\nSettings: {}\n\n",
        display.empty() ? "" : " ", display, ::getpid(), store.path().string());
    std::cout << std::flush;
    platform::HostProcesses hostProcesses(liveLogFile(logFile, store.path()));
    agent::Agent agent(/*commandService=*/true);
    useConfigFolder(agent, configDir);
    agent.useDebugDump({}, &hostProcesses);
    auto panelWindow = x11::PanelWindow::open(display, error);
    if (!panelWindow) std::cerr << "zelkd: x11: the panel won't show: " << error << "\n";
    auto panelShown = agent.panel().changed.subscribe([&](const osd::OSDModel& model) {
        if (panelWindow) panelWindow->show(model);
    });
    agent.start();
    std::signal(SIGINT, [](int) { gStop = 1; });
    std::signal(SIGTERM, [](int) { gStop = 1; });
    // The agent ends with its X server, as any client does.
    bool serverGone = false;
    ferrow::Repeater watcher("signal watch", ferrow::ms(100), -1, [&] {
        if (!gStop && desktop->conn().broken()) {
            std::cerr << "zelkd: the X server went away\n";
            serverGone = true;
            gStop = 1;
        }
        if (gStop) queue.stop();
    });
    queue.run();
    hostProcesses.interrupt();
    agent.terminate();
    platform::Platform::reset();
    return serverGone ? 1 : 0;
#else
    (void)display;
    (void)settingsPath;
    (void)configDir;
    (void)logFile;
    std::cerr << "zelkd: this build has no X11 backend (install xcb with scripts/deps.sh and rebuild)\n";
    return 2;
#endif
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"zelkd: the zelk agent, on the simulated desktop"};
    std::string worldPath, replayPath, tracePath, traceFormat = "json", logFile, settingsPath, framesDir,
                                                  configDir;
    bool demo = false, verbose = false;
    std::string backend = "sim", display;
    app.add_option("--backend", backend, "Desktop to run on: sim (the simulated desktop) or x11")
        ->check(CLI::IsMember({"sim", "x11"}));
    app.add_option("--display", display, "X11 display to use with --backend x11 (default: $DISPLAY)");
    app.add_option("--world", worldPath,
                   "World file (YAML) to run on instead of the embedded default desktop");
    app.add_option("--replay", replayPath, "Replay this script (YAML) on a virtual clock, then exit");
    app.add_option("--trace", tracePath,
                   "Write the replay's trace here (default: readable lines on the terminal)");
    app.add_option("--trace-format", traceFormat,
                   "Trace format: json (JSON lines) or text (one readable line per event)")
        ->check(CLI::IsMember({"json", "text"}));
    app.add_flag("--demo", demo,
                 "Replay the built-in guided tour on the default desktop and show what happens; its panel "
                 "pictures go to ./zelk-demo-frames unless --frames names a folder");
    app.add_option("--frames", framesDir,
                   "With --replay or --demo: write a PNG of the desktop each time the panel changes, and "
                   "an index.html filmstrip, into this folder");
    app.add_option(
        "--settings", settingsPath,
        "Settings file of the live agent (default: $XDG_STATE_HOME/zelk/com.ferrowlabs.zelk.json)");
    app.add_option("--config-dir", configDir,
                   "Folder of config.yaml and search-cache.yaml for the live agent (default: "
                   "$XDG_CONFIG_HOME/zelk or ~/.config/zelk)");
    app.add_option("--log-file", logFile, "Also write every log line to this file");
    app.add_flag("-v,--verbose", verbose, "Show debug log lines in readable traces");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        // Help and version print and exit 0; every other parse failure is a usage error.
        return app.exit(e) == 0 ? 0 : 2;
    }

    if (!logFile.empty() && !ferrow::Log::setFile(logFile)) {
        std::cerr << "zelkd: can't write the log file " << logFile << "\n";
        return 2;
    }
    if (backend == "x11") return runX11(display, settingsPath, configDir, logFile);
    std::string error;
    std::string worldYaml = zelk::sim::defaultWorldYaml();
    std::string worldName = "the default desktop";
    if (!worldPath.empty()) {
        auto text = readFile(worldPath, error);
        if (!text) {
            std::cerr << "zelkd: world: " << error << "\n";
            return 2;
        }
        worldYaml = *text;
        worldName = worldPath;
    }

    if (replayPath.empty() && !demo) return runLive(worldYaml, worldName, settingsPath, configDir, logFile);

    std::string scriptYaml;
    if (demo) {
        scriptYaml = zelk::agent::demoScript();
        std::cout << "zelkd --demo: a scripted session on the simulated desktop (virtual time).\n\n";
    } else {
        auto text = readFile(replayPath, error);
        if (!text) {
            std::cerr << "zelkd: script: " << error << "\n";
            return 2;
        }
        scriptYaml = *text;
    }
    ferrow::Log::setConsole(false);
    zelk::agent::ReplayOptions options;
    options.textShowsDebugLogs = verbose;
    if (demo && framesDir.empty()) framesDir = "zelk-demo-frames";
    options.framesDir = framesDir;
    std::ofstream traceFile;
    if (!tracePath.empty()) {
        traceFile.open(tracePath, std::ios::binary | std::ios::trunc);
        if (!traceFile) {
            std::cerr << "zelkd: cannot write trace " << tracePath << "\n";
            return 2;
        }
        (traceFormat == "text" ? options.textTrace : options.jsonTrace) = &traceFile;
    } else {
        options.textTrace = &std::cout;
    }
    int rc = zelk::agent::ReplayRunner().run(worldYaml, scriptYaml, options, error);
    if (rc != 0) {
        std::cerr << "zelkd: " << error << "\n";
        return rc;
    }
    // A trace that didn't reach its file (a full disk, /dev/full) is a failed run, not a quiet one.
    if (traceFile.is_open()) {
        traceFile.flush();
        traceFile.close();
        if (traceFile.fail()) {
            std::cerr << "zelkd: can't write the trace to " << tracePath << "\n";
            return 1;
        }
    }
    if (!framesDir.empty())
        std::cout << "\nPanel frames: " << (std::filesystem::path(framesDir) / "index.html").string() << "\n";
    std::cout.flush();
    if (!std::cout) {
        std::cerr << "zelkd: can't write the trace to standard output\n";
        return 1;
    }
    return 0;
}
