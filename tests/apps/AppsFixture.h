#pragma once
#include <nlohmann/json.hpp>

#include <memory>
#include <string>
#include <vector>

#include "apps/AppManager.h"
#include "config/Settings.h"
#include "platform/sim/SimFixture.h"
#include "support/Log.h"

namespace zelk::testing {

// One app of a test world.
struct AppSpec {
    std::string bundle;
    std::string name;
    std::int32_t pid = 0;  // 0: not running
    std::int64_t useCount = 0;
    std::string path;  // default /Applications/{name}.app
    std::string kind = "regular";
    bool installed = true;
};

// A simulated desktop with the given apps, the settings store behind it and the app manager.
struct AppsFixture : SimFixture {
    std::unique_ptr<ferrow::LogCapture> logs;

    void SetUp() override {
        ferrow::Log::setConsole(false);
        Settings::reset();
        apps::AppManager::reset();
        logs = std::make_unique<ferrow::LogCapture>();
    }
    void TearDown() override {
        runningFeed.cancel();
        apps::AppManager::reset();
        Settings::reset();
        logs.reset();
        SimFixture::TearDown();
    }

    void makeWorld(const std::vector<AppSpec>& specs, const std::string& frontmost = "",
                   const nlohmann::json& settings = nlohmann::json::object()) {
        nlohmann::json list = nlohmann::json::array();
        for (const auto& s : specs) {
            nlohmann::json a{
                {"bundleID", s.bundle}, {"name", s.name}, {"kind", s.kind}, {"installed", s.installed}};
            if (!s.path.empty()) a["path"] = s.path;
            if (s.pid) a["running"] = {{"pid", s.pid}, {"windows", nlohmann::json::array()}};
            list.push_back(a);
        }
        nlohmann::json w{{"apps", list}};
        if (!frontmost.empty()) w["frontmost"] = frontmost;
        load(w.dump());
        for (const auto& s : specs)
            if (s.useCount) desktop.workspace().bundleExtras[s.bundle].useCount = s.useCount;
        for (auto& [k, v] : settings.items())
            desktop.settings().write(k, v);
    }

    // Every line logged so far, for failure messages.
    std::string allLogs() const {
        std::string out;
        for (const auto& l : logs->lines())
            out += l.message + "\n";
        return out;
    }
    apps::AppManager& manager() { return apps::AppManager::shared(); }
    // Stands in for the program's running-apps watch: every change of the running list reaches the
    // manager at once.
    ferrow::Subscription runningFeed;
    void feedRunningApps() {
        runningFeed = desktop.workspace().observe([this](const platform::WorkspaceEvent& e) {
            if (e.kind == platform::WorkspaceEventKind::runningApplicationsChanged)
                manager().runningAppsDidChange();
        });
    }
    Settings& settings() { return Settings::shared(); }

    // Starts the manager with the catalogue delivered and its menu-bar pass done.
    void startWithCatalogue() {
        manager().start();
        manager().startInstalledAppsQuery();
        runFor(desktop.workspace().bundleReadDelayMs + 10);
        runFor(60);  // the refresh the install asked for
    }

    // The bundle the dynamic assignment of `key` reaches, or "" when the key is free.
    std::string dynamicBundle(const std::string& key) {
        auto* a = manager().dynamicAssignmentForKey(key);
        return a ? a->app->bundleIdentifier() : std::string();
    }
    std::string dynamicKeys() {
        std::string keys;
        for (const auto& a : manager().dynamicAppKeyAssignments())
            keys += a.key;
        return keys;
    }
    void activate(const std::string& bundle) {
        world().activate(pidOf(bundle));
        runFor(60);
    }
    apps::AppRef record(const std::string& bundle) {
        return manager().catalogue().byBundleIdentifier(bundle);
    }
};

}  // namespace zelk::testing
