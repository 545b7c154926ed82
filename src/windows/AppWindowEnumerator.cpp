#include "windows/AppWindowEnumerator.h"

#include <map>

#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "support/Format.h"
#include "support/Log.h"
#include "support/MainQueue.h"

namespace zelk::windows {

using ferrow::Log;
using platform::AXError;
using platform::AXRef;

std::optional<ManagedWindow> AppWindowEnumerator::parseWindow(AXRef window, const platform::RunningApp& app,
                                                              std::uint32_t focusedNumber) {
    const std::string& bundle = app.bundleID;
    std::uint32_t id = ax_.ax().windowNumber(window);
    auto roleText = ax_.string(window, "AXRole");
    auto subroleText = ax_.string(window, "AXSubrole");
    auto role = roleText ? roleFromAX(*roleText) : std::nullopt;
    auto subrole = subroleText ? subroleFromAX(*subroleText) : std::nullopt;
    if (!role || !subrole || !isAllowedSubrole(*subrole)) {
        Log::debug("parseWindow: drop {} wid={} role={} subrole={} (not in allowedRoles)", bundle, id,
                   roleText.value_or("nil"), subroleText.value_or("nil"));
        return std::nullopt;
    }
    auto title = ax_.string(window, "AXTitle");
    if (!title || title->empty()) {
        Log::debug("parseWindow: drop {} wid={} (empty title) subrole={}", bundle, id, subroleName(*subrole));
        return std::nullopt;
    }
    auto size = ax_.size(window);
    if (!size || size->width < 100 || size->height < 100) {
        Log::debug("parseWindow: drop {} wid={} title='{}' subrole={} (too small {}×{})", bundle, id, *title,
                   subroleName(*subrole), size ? fmt::format("{}", size->width) : "?",
                   size ? fmt::format("{}", size->height) : "?");
        return std::nullopt;
    }
    ManagedWindow w;
    w.id = id;
    w.title = *title;
    w.bundleIdentifier = app.bundleID;
    w.role = *role;
    w.subrole = *subrole;
    w.appName = app.name.empty() ? "Unknown" : app.name;
    w.appPid = app.pid;
    w.isMinimized = ax_.boolean(window, "AXMinimized").value_or(false);
    w.isFocused = focusedNumber != 0 && focusedNumber == id;
    Log::debug("parseWindow: accept {} wid={} title='{}' role={} subrole={} minimized={}", bundle, id,
               w.title, roleName(w.role), subroleName(w.subrole), w.isMinimized);
    return w;
}

std::optional<std::vector<ManagedWindow>> AppWindowEnumerator::getWindowsForApp(
    const platform::RunningApp& app, const std::optional<std::vector<CrossSpaceWindow>>& crossSpace) {
    const std::string& bundle = app.bundleID;
    if (isIgnored(bundle) || health_.isSessionIgnored(bundle)) return std::vector<ManagedWindow>{};
    auto live = workspace_.runningApp(app.pid);
    if (app.terminated || !live || live->terminated) {
        Log::debug("getWindowsForApp: no AXApplication for pid={} bundle={}", app.pid,
                   bundle.empty() ? "<nil>" : bundle);
        return std::nullopt;
    }
    AXRef appElement = ax_.application(app.pid);
    AXError error = AXError::success;
    auto axWindows = ax_.windows(appElement, error);
    if (!axWindows) {
        if (error == AXError::cannotComplete) {
            int n = health_.noteTimeout(app.pid, bundle, ferrow::now());
            if (health_.isSessionIgnored(bundle))
                Log::error(
                    "getWindowsForApp: {} AX timed out {}x this session; skipping its window enumeration "
                    "until zelk restarts",
                    bundle, n);
            else
                Log::error("getWindowsForApp: {} AX timed out (cannotComplete) [{}x]; cooling down for {}s",
                           bundle, n, ferrow::decimal(ferrow::toSeconds(AXHealth::kCooldown)));
        } else {
            Log::error("getWindowsForApp: error for {}: {}", bundle, errorText(error));
        }
        return std::nullopt;
    }
    for (auto w : *axWindows)
        ax_.ax().setMessagingTimeout(w, AXReader::kMessagingTimeout);
    std::uint32_t focusedNumber = 0;
    auto front = workspace_.frontmostApplication();
    if (front && front->pid == app.pid)
        if (auto f = ax_.focusedWindow(appElement)) focusedNumber = ax_.ax().windowNumber(*f);

    std::vector<CrossSpaceWindow> rows;
    if (crossSpace) {
        rows = *crossSpace;
    } else {
        for (auto& r : walk_.allWindowsAcrossSpaces(true, {}))
            if (r.pid == app.pid) rows.push_back(r);
    }
    std::map<std::uint32_t, const CrossSpaceWindow*> rowByID;
    for (auto& r : rows)
        rowByID[r.windowID] = &r;

    std::uint64_t active = server_.activeSpace();
    std::vector<ManagedWindow> out;
    for (auto axWindow : *axWindows) {
        auto w = parseWindow(axWindow, app, focusedNumber);
        if (!w) continue;
        if (auto r = rowByID.find(w->id); r != rowByID.end()) {
            w->spaceID = r->second->spaceID;
            if (r->second->spaceID != active)
                Log::debug("getWindowsForApp: {} AX wid={} is on inactive space={} (corrected from default)",
                           bundle, w->id, r->second->spaceID);
        }
        out.push_back(std::move(*w));
    }
    std::size_t axCount = out.size();
    int offSpace = 0, droppedActiveSLS = 0, droppedKnown = 0, droppedNoTitle = 0, droppedNonNormalLevel = 0;
    for (auto& r : rows) {
        std::string title = r.title.value_or("");
        if (r.isOnActiveSpace && axCount > 0) {
            Log::debug(
                "getWindowsForApp: {} skip active-space SLS wid={} title='{}' (AX is authoritative here)",
                bundle, r.windowID, title);
            ++droppedActiveSLS;
            continue;
        }
        bool known = false;
        for (auto& w : out)
            known = known || w.id == r.windowID;
        if (known) {
            ++droppedKnown;
            continue;
        }
        if (r.level != 0) {
            Log::debug("getWindowsForApp: {} skip off-space wid={} level={} title='{}' (non-normal level)",
                       bundle, r.windowID, r.level, title);
            ++droppedNonNormalLevel;
            continue;
        }
        if (title.empty()) {
            Log::debug("getWindowsForApp: {} skip off-space wid={} (empty title) space={}", bundle,
                       r.windowID, r.spaceID);
            ++droppedNoTitle;
            continue;
        }
        ManagedWindow w;
        w.id = r.windowID;
        w.title = title;
        w.bundleIdentifier = bundle;
        w.appName = app.name.empty() ? "Unknown" : app.name;
        w.appPid = app.pid;
        w.spaceID = r.spaceID;
        Log::debug("getWindowsForApp: {} add off-space wid={} title='{}' space={} level={}", bundle, w.id,
                   title, r.spaceID, r.level);
        out.push_back(std::move(w));
        ++offSpace;
    }
    Log::debug(
        "getWindowsForApp: {} ax={} offSpace={} crossSpaceSeen={} droppedActiveSLS={} droppedKnown={} "
        "droppedNoTitle={} droppedNonNormalLevel={}",
        bundle, axCount, offSpace, rows.size(), droppedActiveSLS, droppedKnown, droppedNoTitle,
        droppedNonNormalLevel);
    return out;
}

}  // namespace zelk::windows
