// What the panel lists, from the managers of this build.
#include <algorithm>
#include <map>
#include <set>

#include "SearchService.h"
#include "Subsystems.h"
#include "apps/AppManager.h"
#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "input/InputManager.h"
#include "platform/Platform.h"
#include "stages/StageService.h"
#include "windows/AppWindowKeys.h"
#include "windows/WindowKeyAssignments.h"
#include "windows/WindowManager.h"

namespace zelk::agent {

using osd::OSDRow;
using osd::OSDSection;
using osd::PanelSettings;

namespace {

// Space labels, "2" for the second Space of its display, read once per panel.
class SpaceLabels {
  public:
    SpaceLabels() {
        auto* server = platform::Platform::current().windowServer;
        auto all = server ? server->managedDisplaySpaces() : std::nullopt;
        if (!all) return;
        for (auto& display : *all)
            for (std::size_t i = 0; i < display.spaces.size(); ++i)
                labels_[display.spaces[i].id64] = std::to_string(i + 1);
    }
    std::string operator()(const std::optional<std::uint64_t>& space) const {
        if (!space) return "";
        auto it = labels_.find(*space);
        return it == labels_.end() ? "" : it->second;
    }

  private:
    std::map<std::uint64_t, std::string> labels_;
};

}  // namespace

std::vector<OSDSection> Subsystems::appPanelSections(const PanelSettings& s) {
    auto& m = apps();
    const SpaceLabels spaceLabel;
    const auto& front = m.focusedApp();
    const std::string frontBundle = front ? front->bundleID : "";
    const bool currentSpaceOnly = s.osdCurrentSpaceOnly;
    const std::uint64_t currentSpace = currentSpaceOnly ? windows_->currentSpaceID() : 0;
    auto onCurrentSpace = [&](const std::string& bundle) {
        if (!currentSpaceOnly) return true;
        for (auto& w : windows_->windowsOfApp(bundle))
            if (!w.spaceID || *w.spaceID == currentSpace) return true;
        return false;
    };
    // The app cycle's pick is the highlight while there is one; otherwise the app in front.
    const auto& pick = InputManager::shared().appSwitcherCycleSelectedID;
    std::vector<OSDRow> rows;
    auto addApp = [&](const std::string& key, const std::string& name, const std::string& bundle) {
        const bool highlighted = pick ? *pick == "app-" + bundle : bundle == frontBundle;
        OSDRow row{bundle, key,         name,  "",
                   "",     highlighted, false, m.runningAppByBundleIdentifier(bundle).has_value()};
        rows.push_back(std::move(row));
        if (s.switcherAppsOnly) return;
        for (auto& w : windows_->windowsOfApp(bundle)) {
            const std::string id = std::to_string(w.id);
            const bool picked = pick && *pick == "win-" + id;
            OSDRow wr{id, "", w.title, name, spaceLabel(w.spaceID), picked, false, true, w.isMinimized, true};
            rows.push_back(std::move(wr));
        }
    };
    std::set<std::string> assigned;
    if (s.appFeatures & osd::kAssignedAppsBit) {
        std::vector<const apps::AppKeyAssignment*> list;
        for (auto& a : m.appKeyAssignments())
            list.push_back(&a);
        for (auto& a : m.dynamicAppKeyAssignments())
            list.push_back(&a);
        std::stable_sort(list.begin(), list.end(), [](auto* a, auto* b) { return a->key < b->key; });
        for (auto* a : list) {
            if (!a->app || assigned.count(a->app->bundleIdentifier())) continue;
            if (!onCurrentSpace(a->app->bundleIdentifier())) continue;
            assigned.insert(a->app->bundleIdentifier());
            addApp(a->key, a->app->name(), a->app->bundleIdentifier());
        }
    }
    if (s.appFeatures & osd::kRunningAppsBit) {
        for (auto& entry : m.runningApps()) {
            const auto& p = entry.process;
            const bool lettered =
                m.assignmentForBundleIdentifier(p.bundleID) || m.dynamicAssignmentForIdentifier(p.bundleID);
            if (lettered || assigned.count(p.bundleID) || !onCurrentSpace(p.bundleID)) continue;
            addApp("", p.name, p.bundleID);
        }
    }
    if (rows.empty()) return {};
    return {OSDSection{"", std::move(rows)}};
}

std::vector<OSDSection> Subsystems::windowPanelSections(const PanelSettings& s) {
    std::vector<OSDSection> out;
    const auto& front = apps().focusedApp();
    if (!front) return out;
    if (s.windowFeatures & osd::kOpenWindowsBit) {
        const SpaceLabels spaceLabel;
        std::map<std::uint32_t, const windows::ManagedWindow*> tracked;
        auto list = windows_->windowsOfApp(front->bundleID);
        for (auto& w : list)
            tracked[w.id] = &w;
        const bool currentSpaceOnly = s.osdCurrentSpaceOnly;
        const std::uint64_t currentSpace = currentSpaceOnly ? windows_->currentSpaceID() : 0;
        OSDSection open{"Open windows", {}};
        auto it = apps().appWindowsByBundleIdentifier().find(front->bundleID);
        if (it != apps().appWindowsByBundleIdentifier().end())
            for (auto& w : it->second) {
                auto t = tracked.find(w.id);
                const windows::ManagedWindow* mw = t == tracked.end() ? nullptr : t->second;
                if (currentSpaceOnly && mw && mw->spaceID && *mw->spaceID != currentSpace) continue;
                open.rows.push_back(OSDRow{std::to_string(w.id), w.key, w.title, front->name,
                                           mw ? spaceLabel(mw->spaceID) : "", w.focused, false, true,
                                           mw && mw->isMinimized, true});
            }
        if (!open.rows.empty()) out.push_back(std::move(open));
    }
    if ((s.windowFeatures & osd::kSavedWindowsBit) && keyRunner_) {
        OSDSection saved{"Saved Windows", {}};
        if (auto app = focusedKeyedApp())
            for (auto& record : savedWindowKeys())
                if (keyRunner_->belongsTo(record, *app))
                    saved.rows.push_back(OSDRow{record.targetURL(), record.key,
                                                record.name.value_or(record.targetURL()), front->name});
        if (!saved.rows.empty()) out.push_back(std::move(saved));
    }
    return out;
}

// The search's rows as the panel lists them: digits 1 to 9 pick the first nine.
osd::SearchContent Subsystems::searchPanelContent() {
    osd::SearchContent content;
    const auto& session = search().session();
    const auto& results = session.searchResults.get();
    for (std::size_t i = 0; i < results.size(); ++i) {
        const auto& r = results[i];
        OSDRow row;
        row.key = i < 9 ? std::to_string(i + 1) : "";
        row.id = r.bundleID();
        switch (r.kind) {
            case search::SearchResultKind::app:
                row.title = r.app().name;
                row.running = r.app().running;
                break;
            case search::SearchResultKind::window:
                row.id = std::to_string(r.window().id);
                row.title = r.window().title;
                row.app = r.window().appName;
                row.isWindow = true;
                break;
            case search::SearchResultKind::closedWindow:
                row.title = r.closed().title;
                row.app = r.closed().appName;
                row.closed = true;
                row.isWindow = true;
                break;
        }
        content.rows.push_back(std::move(row));
    }
    if (!results.empty()) content.selected = session.selectedSearchIndex.get();
    return content;
}

// The search's highlighted row as an action target (a closed window's row has none: nothing lives
// behind it), and the removal of the rows an action made stale, keeping the highlighted index.
HighlightedRows Subsystems::searchHighlightedRows() {
    HighlightedRows rows;
    rows.highlighted = [this]() -> std::optional<SelectionActionTarget> {
        auto row = search().session().selected();
        if (!row) return std::nullopt;
        switch (row->kind) {
            case search::SearchResultKind::app:
                return SelectionActionTarget::app(row->app().bundleID);
            case search::SearchResultKind::window: {
                auto t = SelectionActionTarget::window(row->window().id, row->window().bundleIdentifier);
                t.title = row->window().title;
                return t;
            }
            case search::SearchResultKind::closedWindow:
                break;
        }
        return std::nullopt;
    };
    rows.prune = [this](const RowMatch& match) {
        auto& session = search().session();
        auto results = session.searchResults.get();
        const auto before = results.size();
        std::erase_if(results, [&](const search::SearchResult& r) {
            if (r.kind == search::SearchResultKind::closedWindow) return false;
            if (r.isWindow() && match.matchesWindow(r.window().id)) return true;
            return match.matchesApp(r.bundleID());
        });
        if (results.size() == before) return false;
        const std::size_t index = session.selectedSearchIndex.get();
        const std::size_t kept = results.empty() ? 0 : std::min(index, results.size() - 1);
        session.searchResults = std::move(results);
        session.selectedSearchIndex = kept;
        return true;
    };
    return rows;
}

SelectionEnvironment Subsystems::selectionEnvironment() {
    SelectionEnvironment env;
    auto toAction = [](const windows::ManagedWindow& w) {
        return ActionWindow{w.id, w.appPid, w.bundleIdentifier, w.title};
    };
    env.trackedWindow = [this, toAction](std::uint32_t id) -> std::optional<ActionWindow> {
        for (auto& w : windows_->windows())
            if (w.id == id) return toAction(w);
        return std::nullopt;
    };
    env.windowsOfPid = [this, toAction](std::int32_t pid) {
        std::vector<ActionWindow> out;
        for (auto& w : windows_->windows())
            if (w.appPid == pid) out.push_back(toAction(w));
        return out;
    };
    env.forceActivate = [this](const platform::RunningApp& app) { return windows_->forceActivate(app); };
    env.search = searchHighlightedRows();
    return env;
}

osd::OSDEnvironment Subsystems::panelEnvironment() {
    osd::OSDEnvironment env;
    env.appPanel = [this](const PanelSettings& s) { return appPanelSections(s); };
    env.windowPanel = [this](const PanelSettings& s) { return windowPanelSections(s); };
    env.clearReorderedAppWindows = [this] { keepWindowKeyWalkOrder(); };
    env.searchResults = [this] { return searchPanelContent(); };
    // A search the panel latches (the `osd` command, the notification) lists the rows of its query.
    env.runSearch = [this](const std::string& query) { search().session().rerunSearch(query); };
    env.stages = [this] {
        std::vector<osd::StageListing> out;
        for (const auto& stage : stages().directory().stages()) {
            bool open = false;
            for (const auto& item : stage.items)
                if ((open = stages().resolve(item).has_value())) break;
            out.push_back({stage.key, stage.name, open});
        }
        return out;
    };
    env.hasAnyAssignment = [this] {
        return !apps().appKeyAssignments().empty() || !apps().dynamicAppKeyAssignments().empty();
    };
    env.isAssignedKey = [this](const std::string& key) {
        return apps().assignmentForKey(key) || apps().dynamicAssignmentForKey(key);
    };
    return env;
}

}  // namespace zelk::agent
