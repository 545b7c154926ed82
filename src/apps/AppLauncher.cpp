#include "apps/AppLauncher.h"

#include "platform/Platform.h"
#include "support/Log.h"

namespace zelk::apps {

using ferrow::Log;

namespace {
std::string describe(const std::optional<platform::FileIdentity>& id) {
    if (!id) return "nil";
    return fmt::format("{}:{}", id->device, id->inode);
}

std::string withoutLastComponents(std::string path, int count) {
    for (int i = 0; i < count; ++i) {
        while (path.size() > 1 && path.back() == '/')
            path.pop_back();
        auto slash = path.rfind('/');
        if (slash == std::string::npos) return {};
        path.erase(slash == 0 ? 1 : slash);
    }
    return path;
}

// Without identities: the binary on disk is the running one unless it changed after the launch.
bool binaryMatchesLaunchDate(const std::optional<platform::FileIdentity>& disk,
                             const platform::RunningApp& running) {
    if (!disk || disk->modified == 0 || running.launchDate == 0) return true;
    return static_cast<double>(disk->modified) <= running.launchDate;
}
}  // namespace

bool AppLauncher::runningBinaryMatchesBundle(const std::string& url, const platform::RunningApp& running) {
    auto* ws = platform::Platform::current().workspace;
    const std::string& bundle = running.bundleID;
    auto info = ws->bundleInfo(url);
    // A path inside a bundle ("…/Contents/MacOS/name") names the bundle three levels up.
    if (!info) info = ws->bundleInfo(withoutLastComponents(url, 3));
    if (!info || info->executablePath.empty()) {
        bool fallback = binaryMatchesLaunchDate(std::nullopt, running);
        Log::info("runningBinaryMatchesBundle: {} no executable URL, launch-date fallback={}", bundle,
                  fallback);
        return fallback;
    }
    auto disk = ws->fileIdentity(info->executablePath);
    const auto& runningIdentity = running.executableIdentity;
    if (disk && runningIdentity) {
        bool match = disk->device == runningIdentity->device && disk->inode == runningIdentity->inode;
        Log::info("runningBinaryMatchesBundle: {} running {} disk {} match={}", bundle,
                  describe(runningIdentity), describe(disk), match);
        return match;
    }
    bool fallback = binaryMatchesLaunchDate(disk, running);
    Log::info("runningBinaryMatchesBundle: {} disk={} running={} inode unavailable, launch-date fallback={}",
              bundle, describe(disk), describe(runningIdentity), fallback);
    return fallback;
}

void AppLauncher::launch(const AppRef& app, bool activates) {
    auto& platform = platform::Platform::current();
    auto* ws = platform.workspace;
    if (!app || !ws) return;
    const std::string bundle = app->bundleIdentifier();
    std::string target = app->path();
    auto running = runningApp ? runningApp(*app) : std::nullopt;
    // The process as it is now: the running views may be a moment old.
    if (running) running = ws->runningApp(running->pid);

    if (!running && !ws->fileExists(target)) {
        if (auto moved = ws->urlForApplication(bundle)) {
            Log::info("launch: stored path {} is gone for {}, launching from {} instead", target, bundle,
                      *moved);
            target = *moved;
        }
    }
    if (running) {
        if (!running->bundlePath.empty() && running->bundlePath != target) {
            Log::info("launch: {} is running from {}, targeting it instead of stored {}", bundle,
                      running->bundlePath, target);
            target = running->bundlePath;
        }
        bool matches = runningBinaryMatchesBundle(target, *running);
        Log::info("launch: {} already running (pid={}) runningBinaryMatchesDisk={} path={}", bundle,
                  running->pid, matches, target);
        if (matches) {
            Log::info(
                "launch: skipping openApplication for {} to avoid a duplicate instance, reactivating the "
                "running one",
                bundle);
            if (activates && focus) focus(*running);
            return;
        }
    }

    app->hider.cancel();
    platform::OpenConfiguration config;
    config.promptsUser = false;
    config.activates = activates;
    Log::info("LaunchableApp.launch: NSWorkspace.openApplication app={} bundle={} activates={}",
              app->description(), bundle, activates);
    if (!running && launchStarted) launchStarted(*app);
    std::string description = app->description();
    ws->openApplication(target, config, [bundle, target, description](platform::LaunchResult result) {
        if (!result.error.empty() || !result.app) {
            std::string error = result.error.empty() ? "no application" : result.error;
            Log::error("Failed to launch {}: {}", description, error);
            Log::error("LaunchableApp.launch: bundle={} failed: {}", bundle, error);
            return;
        }
        Log::info("LaunchableApp.launch: bundle={} completed pid={}", bundle, result.app->pid);
        if (result.app->pid == -1) {
            Log::info("LaunchableApp.launch: pid=-1, falling back to /usr/bin/open {}", target);
            if (auto* processes = platform::Platform::current().processes) {
                platform::ProcessRequest request;
                request.program = "/usr/bin/open";
                request.arguments = {"-a", target};
                request.wait = false;
                processes->run(request);
            }
        }
    });
}

}  // namespace zelk::apps
