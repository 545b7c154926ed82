#include "input/AppDelegate.h"

#include <fmt/format.h>

#include <algorithm>

#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "config/SettingsMigrations.h"
#include "input/InputManager.h"
#include "platform/Platform.h"
#include "support/Format.h"
#include "support/Log.h"

namespace zelk {

using ferrow::Log;

namespace {
AppDelegate* gShared = nullptr;

constexpr const char* kPermissionTitle = "zelk app switching is now enabled";
constexpr ferrow::Nanos kChurnWindow = ferrow::seconds(15.0);
constexpr int kChurnLimit = 5;

platform::SettingsStore* store() {
    return platform::Platform::current().settings;
}

std::string describeBundles(const std::vector<std::string>& ids) {
    return "[" + ferrow::join(ids, ", ") + "]";
}
}  // namespace

AppDelegate::AppDelegate() : AppDelegate(Options{}) {}
AppDelegate::AppDelegate(Options options) : options_(options) {}

AppDelegate::~AppDelegate() {
    if (gShared == this) gShared = nullptr;
}

AppDelegate* AppDelegate::shared() {
    return gShared;
}

void AppDelegate::applicationWillFinishLaunching() {
    auto* s = store();
    if (!s) return;
    int from = Settings::shared().get(keys::migrationVersion);
    if (runSettingsMigrations(*s) > 0)
        Log::info("applicationWillFinishLaunching: settings migrated from version {} to {}", from,
                  kSettingsVersion);
}

void AppDelegate::applicationDidFinishLaunching() {
    auto& p = platform::Platform::current();
    // 1.
    gShared = this;
    launched_ = true;
    Log::info("applicationDidFinishLaunching: starting on the {}", p.name.empty() ? "platform" : p.name);
    // 2. One instance remains: the newest.
    singleInstanceRule();
    // 3. Key events come only through the tap; there is no hot key centre to switch off here.
    // 4. Saved window keys are normalised by the window-key store when it loads.
    // 5.
    if (options_.startCommandService && startCommandServiceHook) startCommandServiceHook();
    // 6.-8. The notification centre delegate, the settings window and its main-window observer belong
    // to the settings window, which this build doesn't have.
    // 9.
    auto& input = InputManager::shared();
    input.reloadSettings();
    recomputeKeyLists();
    // 10.
    setUpObservers();
    // 11.
    if (buildInstalledAppsHook) buildInstalledAppsHook();
    Settings::shared().set(keys::launchCount, Settings::shared().get(keys::launchCount) + 1);
    // 12.-13. The tutorial and onboarding are views of the settings window.
    // 14.
    startAccessibilityWait(false, kPermissionTitle);
    // 15.-16., 18.-19.
    if (preparePanelHook) preparePanelHook();
    if (startConfigSyncHook) startConfigSyncHook();
    if (startSpacesIndicatorHook) startSpacesIndicatorHook();
    // 20.
    input.updateWindowCycleHotkey();
    // 21.
    if (p.notifications) {
        observers_.push_back(p.notifications->observeDistributed(
            "com.ferrowlabs.zelk.osd", [this](const platform::UserInfo& info) { onOSDNotification(info); }));
    }
    Log::info("applicationDidFinishLaunching: ready, {} running apps, accessibility {}",
              lastRunningApps_.size(),
              p.accessibility && p.accessibility->isProcessTrusted() ? "granted" : "pending");
}

void AppDelegate::singleInstanceRule() {
    auto* ws = platform::Platform::current().workspace;
    if (!ws) return;
    std::string bundle = ws->ownBundleID();
    std::int32_t self = ws->ownPID();
    for (const auto& app : ws->runningApplications()) {
        if (app.bundleID != bundle || app.pid == self) continue;
        Log::info("applicationDidFinishLaunching: asking the older instance pid={} to quit", app.pid);
        ws->terminate(app.pid);
    }
}

void AppDelegate::recomputeKeyLists() {
    auto& input = InputManager::shared();
    const auto& ignored = input.settings().ignoredKeys;
    const auto& is = input.settings();
    Key hideKey = is.hideKey;
    Key actionKey = is.actionKey;
    Key windowMinimizeKey = is.windowMinimizeKey;
    Key windowAssignKey = is.windowAssignKey;
    bool hideAndAction = is.enableHideAndActionKeys;
    bool windowSpecial = is.enableWindowMinimizeAndAssignKeys;
    std::vector<Key> taken;
    if (hideAndAction) taken.insert(taken.end(), {hideKey, actionKey});
    if (windowSpecial) taken.insert(taken.end(), {windowMinimizeKey, windowAssignKey});
    appSwitchKeys_.clear();
    windowSwitchKeys_.clear();
    keys_.clear();
    for (char c : ferrow::ALPHANUMERICS) {
        std::string ch(1, c);
        auto key = keyFromCharacter(ch);
        if (!key) continue;
        if (*key != hideKey) keys_.push_back(ch);
        if (std::find(taken.begin(), taken.end(), *key) != taken.end() || ignored.count(ch)) continue;
        appSwitchKeys_.push_back(*key);
        windowSwitchKeys_.push_back(*key);
    }
    input.appSwitchKeys = appSwitchKeys_;
    input.windowSwitchKeys = windowKeysInUseHook ? windowKeysInUseHook(windowSwitchKeys_) : windowSwitchKeys_;
}

void AppDelegate::setUpObservers() {
    auto& p = platform::Platform::current();
    if (p.workspace) {
        lastRunningApps_ = p.workspace->runningApplications();
        observers_.push_back(p.workspace->observe([this](const platform::WorkspaceEvent& e) {
            using K = platform::WorkspaceEventKind;
            if (e.kind == K::runningApplicationsChanged) {
                auto newApps = e.newApps;
                runningAppsDebounce_.call([this, newApps] {
                    auto old = lastRunningApps_;
                    lastRunningApps_ = newApps;
                    runningAppsChanged(old, newApps);
                });
            } else if (e.kind == K::didActivate) {
                frontmostDebounce_.call([this] {
                    auto* ws = platform::Platform::current().workspace;
                    frontmostAppDidChange.emit(ws ? ws->frontmostApplication() : std::nullopt);
                });
            }
        }));
    }
    if (p.settings) {
        observers_.push_back(p.settings->observe([this](const std::string& key) {
            const auto& inputKeys = InputSettings::keys();
            if (std::find(inputKeys.begin(), inputKeys.end(), key) != inputKeys.end()) {
                auto& input = InputManager::shared();
                input.reloadSettings();  // trigger sets, paused apps: the tap filter follows at once
                if (key == "ignoredKeys") ignoredKeysDebounce_.call([this] { recomputeKeyLists(); });
                if (key == "hijackWindowCycleHotkey" || key == "enableWindowCycleKey" ||
                    key == "windowCycleKey" || key == "ignoredKeys")
                    input.updateWindowCycleHotkey();
            }
            // Saved window items change which keys the window trigger catches.
            if (key == "enableHideAndSettingsKeys" || key == "enableWindowSpecialKeys" ||
                key == "minimizeKey" || key == "specialKey" || key == "windowMinimizeKey" ||
                key == "windowSpecialKey" || key == "windowKeyAssignments")
                recomputeKeyLists();
        }));
    }
}

void AppDelegate::runningAppsChanged(const std::vector<platform::RunningApp>& oldApps,
                                     const std::vector<platform::RunningApp>& newApps) {
    Log::info("Different running apps: oldCount={} newCount={}", oldApps.size(), newApps.size());
    std::set<std::string> oldIDs, newIDs;
    for (auto& a : oldApps)
        oldIDs.insert(a.bundleID);
    for (auto& a : newApps)
        newIDs.insert(a.bundleID);
    std::vector<std::string> added, removed;
    std::set_difference(newIDs.begin(), newIDs.end(), oldIDs.begin(), oldIDs.end(),
                        std::back_inserter(added));
    std::set_difference(oldIDs.begin(), oldIDs.end(), newIDs.begin(), newIDs.end(),
                        std::back_inserter(removed));
    Log::info("Added apps: {}", describeBundles(added));
    Log::info("Removed apps: {}", describeBundles(removed));
    std::vector<std::string> dropped;
    auto drop = [&](std::vector<std::string>& list) {
        list.erase(std::remove_if(list.begin(), list.end(),
                                  [&](const std::string& id) {
                                      if (!problematicApps_.count(id)) return false;
                                      dropped.push_back(id);
                                      return true;
                                  }),
                   list.end());
    };
    drop(added);
    drop(removed);
    if (!dropped.empty()) Log::info("Ignoring problematic apps: {}", describeBundles(dropped));
    if (added.size() == 1 || removed.size() == 1) {
        const std::string& id = added.size() == 1 ? added.front() : removed.front();
        if (id.size() >= 2) {
            ferrow::Nanos now = ferrow::MainQueue::shared().now();
            auto last = possibleProblematicAppDates_.find(id);
            if (last != possibleProblematicAppDates_.end() && now - last->second < kChurnWindow)
                ++possibleProblematicAppCounts_[id];
            else
                possibleProblematicAppCounts_[id] = 0;
            possibleProblematicAppDates_[id] = now;
            if (possibleProblematicAppCounts_[id] > kChurnLimit) {
                Log::info("Problematic app keeps launching/quitting: {}", id);
                problematicApps_.insert(id);
                return;
            }
        }
    }
    if (added.empty() && removed.empty()) return;
    runningAppsDidChange.emit(newApps);
}

void AppDelegate::startAccessibilityWait(bool prompt, const std::string& title) {
    auto* ax = platform::Platform::current().accessibility;
    if (!ax) return;
    bool trusted = ax->isProcessTrustedWithPrompt(prompt);
    Settings::shared().set(keys::accessibilityPermissionsGranted, trusted);
    if (trusted) {
        permissionsGranted(title);
        return;
    }
    if (permissionsChecker_) return;  // already waiting
    Settings::shared().set(keys::accessibilityPermissionsNotified, false);
    permissionsChecker_ =
        std::make_unique<ferrow::Repeater>("AXPermissionsChecker", ferrow::seconds(2.0), -1, [this, title] {
            auto* a = platform::Platform::current().accessibility;
            if (!a || !a->isProcessTrusted()) return;
            permissionsChecker_->stop();
            // The repeater is released after this tick has finished.
            ferrow::mainAsync([this] { permissionsChecker_.reset(); });
            permissionsGranted(title);
        });
}

void AppDelegate::permissionsGranted(const std::string& title) {
    Settings::shared().set(keys::accessibilityPermissionsGranted, true);
    auto& input = InputManager::shared();
    input.startFlagsChangedMonitors();
    input.startKeyTap();
    if (Settings::shared().get(keys::accessibilityPermissionsNotified)) return;
    Settings::shared().set(keys::accessibilityPermissionsNotified, true);
    std::vector<std::string> names;
    for (auto k : input.settings().triggerKeys)
        names.emplace_back(shortReadableStr(k));
    std::string body =
        "You can now use " + ferrow::join(names, " + ") + " + letter keys to switch between apps.";
    if (auto* n = platform::Platform::current().notifications)
        n->postUserNotification("accessibilityPermissionsListener", title, body);
}

void AppDelegate::applicationDidBecomeActive() {
    if (!didBecomeActiveAtLeastOnce) {
        didBecomeActiveAtLeastOnce = true;
        Log::info("[reopen] applicationDidBecomeActive fired for the first time, skipping popover show");
    }
}

bool AppDelegate::applicationShouldHandleReopen(bool hasVisibleWindows) {
    Log::info("[reopen] applicationShouldHandleReopen fired (hasVisibleWindows={})", hasVisibleWindows);
    showPopoverFromReopen();
    return true;
}

void AppDelegate::applicationOpenURLs(const std::vector<std::string>& urls) {
    Log::info("[reopen] application(_:open:) fired with urls={}", describeBundles(urls));
    showPopoverFromReopen();
}

void AppDelegate::showPopoverFromReopen() {
    if (!popoverVisible && didBecomeActiveAtLeastOnce && osdHidden) {
        ferrow::mainAsyncAfter(50, [this] {
            ++popoverRequests;
            popoverVisible = true;
        });
        return;
    }
    Log::info("[reopen] showPopoverFromReopen skipped (something already visible)");
}

void AppDelegate::onOSDNotification(const std::map<std::string, std::string>& info) {
    auto it = info.find("surface");
    if (it == info.end()) return;
    std::string surface = ferrow::toLowerAscii(it->second);
    if (surface == "app" || surface == "window") {
        if (toggleLatchedSearchHook) toggleLatchedSearchHook(surface);
    } else if (surface == "hide") {
        InputManager::shared().unlatch();
    }
}

void AppDelegate::applicationWillTerminate() {
    if (terminated_) return;
    terminated_ = true;
    auto& input = InputManager::shared();
    if (input.didDisableWindowCycleHotkey) {
        if (auto* ws = platform::Platform::current().windowServer) ws->setSymbolicHotKeyEnabled(27, true);
        input.didDisableWindowCycleHotkey = false;
        Log::info("applicationWillTerminate: gave the system's window cycle shortcut back");
    }
    if (flushConfigHook) flushConfigHook();
    if (restoreStashedWindowsHook) restoreStashedWindowsHook();
    if (auto* s = store()) s->synchronize();
    input.stopKeyTap();
    Log::info("applicationWillTerminate: settings synchronised, goodbye");
}

nlohmann::ordered_json AppDelegate::handleCommand(const nlohmann::json& request) {
    if (commandHandlerHook) return commandHandlerHook(request);
    return {{"ok", false}, {"error", "not available yet"}};
}

}  // namespace zelk
