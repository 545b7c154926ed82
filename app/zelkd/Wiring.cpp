#include "Wiring.h"

#include "platform/Platform.h"
#include "support/Format.h"

namespace zelk::agent {

namespace {
platform::Workspace* workspace() {
    return platform::Platform::current().workspace;
}

std::optional<RoutedApp> runningByBundle(const std::string& bundleID) {
    if (auto* ws = workspace())
        for (auto& app : ws->runningApplications())
            if (app.bundleID == bundleID) return RoutedApp{app.bundleID, app.name, app.pid};
    return std::nullopt;
}
}  // namespace

RoutingServices makeRoutingServices() {
    RoutingServices s;
    // Until the catalogue's letters are wired in: a letter reaches the first running regular app whose
    // name begins with it, in the workspace's order.
    s.nearestRunningApp = [](const std::string& letter) -> std::optional<RoutedApp> {
        auto* ws = workspace();
        if (!ws) return std::nullopt;
        for (auto& app : ws->runningApplications()) {
            if (app.activationPolicy != platform::ActivationPolicy::regular || app.name.empty()) continue;
            if (ferrow::toLowerAscii(app.name.substr(0, 1)) == letter)
                return RoutedApp{app.bundleID, app.name, app.pid};
        }
        return std::nullopt;
    };
    s.focusApp = [](const RoutedApp& app, bool) {
        auto* ws = workspace();
        return ws && ws->activate(app.pid, true);
    };
    s.launchApp = [](const std::string& bundleID) {
        if (runningByBundle(bundleID)) return false;
        return false;
    };
    return s;
}

}  // namespace zelk::agent
