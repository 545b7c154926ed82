#include "windows/WindowEnvironment.h"

namespace zelk::windows {

WindowEnvironment WindowEnvironment::fromPlatform(const platform::Platform& platform) {
    WindowEnvironment env;
    env.accessibility = platform.accessibility;
    env.windowServer = platform.windowServer;
    env.workspace = platform.workspace;
    env.screens = platform.screens;
    env.fillDefaults();
    return env;
}

void WindowEnvironment::fillDefaults() {
    auto* ws = workspace;
    if (!trackedRunningApps)
        trackedRunningApps = [ws]() {
            std::vector<platform::RunningApp> out;
            if (!ws) return out;
            for (auto& app : ws->runningApplications())
                if (app.activationPolicy == platform::ActivationPolicy::regular && !app.terminated &&
                    app.pid != ws->ownPID())
                    out.push_back(app);
            return out;
        };
    if (!adoptable)
        adoptable = [ws](const platform::RunningApp& app) {
            return ws && app.pid != ws->ownPID() && !app.terminated &&
                   app.activationPolicy == platform::ActivationPolicy::regular && !app.executablePath.empty();
        };
    if (!triggerHeld) triggerHeld = [] { return false; };
    if (!isProblematic) isProblematic = [](const std::string&) { return false; };
}

}  // namespace zelk::windows
