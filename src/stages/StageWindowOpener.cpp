#include "stages/StageWindowOpener.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cctype>

#include "stages/BundleTables.h"
#include "stages/WindowResolve.h"
#include "support/Log.h"

namespace zelk::stages {

using ferrow::Log;

std::optional<std::string> fileURLForPath(const std::string& path) {
    if (!path.starts_with("/")) return std::nullopt;
    std::string out = "file://";
    for (unsigned char c : path) {
        bool plain = std::isalnum(c) || c == '/' || c == '-' || c == '_' || c == '.' || c == '~';
        out += plain ? std::string(1, static_cast<char>(c)) : fmt::format("%{:02X}", c);
    }
    return out;
}

bool StageWindowOpener::isRunning(const std::string& bundleID) const {
    for (const auto& app : s_.platform.workspace->runningApplications())
        if (app.bundleID == bundleID && !app.terminated) return true;
    return false;
}

std::string StageWindowOpener::appPath(const StageItem& item) const {
    if (item.app && !item.app->path().empty()) return item.app->path();
    if (auto url = s_.platform.workspace->urlForApplication(item.bundleID())) return *url;
    return "";
}

void StageWindowOpener::openStageWindow(const StageItem& item, bool activates) {
    std::visit(
        [&](const auto& spec) {
            using T = std::decay_t<decltype(spec)>;
            if constexpr (std::is_same_v<T, DocumentPathSpec>)
                openDocument(item, spec.path, activates);
            else if constexpr (std::is_same_v<T, BrowserURLSpec>)
                openBrowserURL(item, spec.url, activates);
            else if constexpr (std::is_same_v<T, TerminalCWDSpec>)
                openTerminalInDirectory(item, spec.path, activates);
            else
                launch(item, activates);
        },
        item.windowSpec);
}

void StageWindowOpener::openDocument(const StageItem& item, const std::string& path, bool activates) {
    std::string app = appPath(item);
    Log::info("openStageWindow[.documentPath]: NSWorkspace.open file='{}' withApp={} bundle={} activates={}",
              path, app, item.bundleID(), activates);
    auto url = fileURLForPath(path).value_or(path);
    platform::OpenConfiguration config;
    config.activates = activates;
    s_.platform.workspace->open(url, app, config, [path](platform::LaunchResult r) {
        if (r.error.empty())
            Log::info("openStageWindow[.documentPath]: file='{}' completed ok", path);
        else
            Log::error("openStageWindow[.documentPath]: file='{}' failed: {}", path, r.error);
    });
}

void StageWindowOpener::openBrowserURL(const StageItem& item, const std::string& url, bool activates) {
    if (url.empty()) {
        openApplication(item, {}, activates, ".browserURL");
        return;
    }
    if (browserFamily(item.bundleID()) == BrowserFamily::firefox) {
        spawnFirefox(item, url, activates);
        return;
    }
    if (isRunning(item.bundleID()) && urlHost(url)) {
        std::string app = appPath(item);
        Log::info(
            "openStageWindow[.browserURL]: NSWorkspace.open URL into running app={} bundle={} url={} "
            "activates={}",
            app, item.bundleID(), url, activates);
        platform::OpenConfiguration config;
        config.activates = activates;
        s_.platform.workspace->open(url, app, config, [url](platform::LaunchResult r) {
            if (r.error.empty())
                Log::info("openStageWindow[.browserURL]: url={} completed ok", url);
            else
                Log::error("openStageWindow[.browserURL]: url={} failed: {}", url, r.error);
        });
        return;
    }
    openApplication(item, {url}, activates, ".browserURL");
}

void StageWindowOpener::spawnFirefox(const StageItem& item, const std::string& url, bool activates) {
    std::string bundle = appPath(item);
    std::string exec;
    if (auto info = s_.platform.workspace->bundleInfo(bundle); info && !info->executablePath.empty())
        exec = info->executablePath;
    if (exec.empty()) {
        Log::error("openStageWindow[.browserURL/firefox]: no executable under {}",
                   bundle + "/Contents/MacOS");
        return;
    }
    Log::info("openStageWindow[.browserURL/firefox]: spawn exec={} bundle={} url={} activates={}", exec,
              item.bundleID(), url, activates);
    platform::ProcessRequest request;
    request.program = exec;
    request.arguments = {url};
    request.wait = false;
    auto result = s_.platform.processes ? s_.platform.processes->run(request) : platform::ProcessResult{};
    if (!result.started) {
        Log::error("openStageWindow[.browserURL/firefox]: spawn failed exec={} url={}: {}", exec, url,
                   result.errorOutput.empty() ? "not started" : result.errorOutput);
        return;
    }
    if (activates)
        for (const auto& app : s_.platform.workspace->runningApplications())
            if (app.bundleID == item.bundleID()) s_.platform.workspace->activate(app.pid, false);
}

void StageWindowOpener::openTerminalInDirectory(const StageItem& item, const std::string& path,
                                                bool activates) {
    std::string app = appPath(item);
    auto url = fileURLForPath(path);
    if (!url) {
        Log::info(
            "openTerminalInDirectory: cwd not parseable as URL, falling back to openApplication app={} "
            "bundle={} activates={}",
            app, item.bundleID(), activates);
        openApplication(item, {}, activates, ".terminalCWD");
        return;
    }
    Log::info("openTerminalInDirectory: NSWorkspace.open url='{}' withApp={} bundle={} activates={}", *url,
              app, item.bundleID(), activates);
    platform::OpenConfiguration config;
    config.activates = activates;
    s_.platform.workspace->open(*url, app, config, [path](platform::LaunchResult r) {
        if (r.error.empty())
            Log::info("openStageWindow[.terminalCWD]: path='{}' completed ok", path);
        else
            Log::error("openStageWindow[.terminalCWD]: path='{}' failed: {}", path, r.error);
    });
}

void StageWindowOpener::openApplication(const StageItem& item, const std::vector<std::string>& arguments,
                                        bool activates, const std::string& label) {
    std::string app = appPath(item);
    Log::info("openStageWindow[{}]: NSWorkspace.openApplication app={} bundle={} args={} activates={}", label,
              app, item.bundleID(), fmt::format("{}", fmt::join(arguments, " ")), activates);
    platform::OpenConfiguration config;
    config.activates = activates;
    config.arguments = arguments;
    s_.platform.workspace->openApplication(app, config, [label, app](platform::LaunchResult r) {
        if (r.error.empty())
            Log::info("openStageWindow[{}]: app={} completed ok", label, app);
        else
            Log::error("openStageWindow[{}]: app={} failed: {}", label, app, r.error);
    });
}

void StageWindowOpener::launch(const StageItem& item, bool activates) {
    Log::info("openStageWindow[.app]: launching bundle={} appPath={} activates={}", item.bundleID(),
              appPath(item), activates);
    if (s_.launchApp && s_.launchApp(item.bundleID(), activates)) return;
    openApplication(item, {}, activates, ".app");
}

}  // namespace zelk::stages
