#pragma once
#include <functional>
#include <optional>
#include <string>

#include "apps/LaunchableApp.h"
#include "platform/Workspace.h"

namespace zelk::apps {

// Starts applications without ever starting a second instance of one that runs the binary on disk.
class AppLauncher {
  public:
    // The running process of an app, if any.
    std::function<std::optional<platform::RunningApp>(const LaunchableApp&)> runningApp;
    // Brings a running app forward (the focus pipeline).
    std::function<void(const platform::RunningApp&)> focus;
    // Told about a launch of an app that wasn't running (launch pills).
    std::function<void(const LaunchableApp&)> launchStarted;

    void launch(const AppRef& app, bool activates);

    // Whether the running process executes the binary that the bundle at `url` holds now: a bundle
    // updated on disk while its old binary runs doesn't match.
    static bool runningBinaryMatchesBundle(const std::string& url, const platform::RunningApp& running);
};

}  // namespace zelk::apps
