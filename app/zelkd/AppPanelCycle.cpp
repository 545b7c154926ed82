#include "AppPanelCycle.h"

#include <charconv>

#include "input/InputManager.h"
#include "support/Log.h"
#include "tabcycle/AppPanelStep.h"

namespace zelk::agent {

using ferrow::Log;

namespace {

std::optional<std::uint32_t> windowNumber(const std::string& rowID) {
    if (rowID.rfind("win-", 0) != 0) return std::nullopt;
    std::uint32_t id = 0;
    const char* first = rowID.data() + 4;
    const char* last = rowID.data() + rowID.size();
    auto [end, ec] = std::from_chars(first, last, id);
    if (ec != std::errc() || end != last) return std::nullopt;
    return id;
}

std::optional<std::string> bundleOf(const std::string& rowID) {
    if (rowID.rfind("app-", 0) != 0 || rowID.size() == 4) return std::nullopt;
    return rowID.substr(4);
}

// A panel row with the app it belongs to: a window row names its app by name only, and the app row
// above it carries the bundle.
struct PanelRow {
    std::string id;
    std::string bundleID;
    std::string title;
};

std::vector<PanelRow> panelRows(const std::vector<osd::OSDSection>& sections) {
    std::vector<PanelRow> out;
    std::string bundle;
    for (const auto& section : sections)
        for (const auto& row : section.rows) {
            if (!row.isWindow) bundle = row.id;
            out.push_back({tabcycle::appPanelRowID(row), bundle, row.title});
        }
    return out;
}

std::optional<PanelRow> rowWithID(const std::vector<osd::OSDSection>& sections, const std::string& id) {
    for (auto& row : panelRows(sections))
        if (row.id == id) return row;
    return std::nullopt;
}

}  // namespace

AppPanelCycle::AppPanelCycle(InputManager& input, AppPanelCycleEnvironment env)
    : input_(input), env_(std::move(env)) {}

void AppPanelCycle::stepAppPanel(bool reverse, bool isRepeat) {
    // A held key steps no faster than the system's repeat allows, as the tab cycle does.
    if (isRepeat) {
        const ferrow::Nanos least = env_.keyRepeatInterval() * 9 / 10;
        if (env_.now() - lastRepeatStepAt_ < least) return;
        lastRepeatStepAt_ = env_.now();
    }
    const auto ids = tabcycle::appPanelRowIDs(env_.sections());
    auto next =
        tabcycle::nextAppPanelRow(ids, input_.appSwitcherCycleSelectedID, env_.focusedRows(), reverse);
    if (!next) return;
    input_.appSwitcherCycleSelectedID = ids[*next];
    Log::debug("stepAppPanel: reverse={} selected={}", reverse, ids[*next]);
    env_.refreshPanel();
}

bool AppPanelCycle::activateSelection(const std::string& rowID) {
    if (!rowWithID(env_.sections(), rowID)) {
        Log::info("app cycle: {} is no longer on the panel", rowID);
        return false;
    }
    if (auto window = windowNumber(rowID)) return env_.focusWindow(*window);
    if (auto bundle = bundleOf(rowID)) return env_.activateApp(*bundle);
    return false;
}

HighlightedRows AppPanelCycle::highlightedRows() {
    HighlightedRows rows;
    rows.highlighted = [this]() -> std::optional<SelectionActionTarget> {
        const auto& id = input_.appSwitcherCycleSelectedID;
        auto row = id ? rowWithID(env_.sections(), *id) : std::nullopt;
        if (!row) return std::nullopt;
        auto window = windowNumber(row->id);
        auto target = window ? SelectionActionTarget::window(*window, row->bundleID)
                             : SelectionActionTarget::app(row->bundleID);
        target.title = row->title;
        return target;
    };
    // The pick leaves with the rows an action made stale and moves to the row that took its place,
    // or the last one left.
    rows.prune = [this](const RowMatch& match) {
        const auto& id = input_.appSwitcherCycleSelectedID;
        if (!id) return false;
        auto isStale = [&match](const PanelRow& row) {
            auto window = windowNumber(row.id);
            return (window && match.matchesWindow(*window)) || match.matchesApp(row.bundleID);
        };
        const auto rows = panelRows(env_.sections());
        std::vector<std::string> left;
        std::optional<std::size_t> at;
        bool pickStale = false;
        for (const auto& row : rows) {
            if (row.id == *id) {
                at = left.size();
                pickStale = isStale(row);
            }
            if (!isStale(row)) left.push_back(row.id);
        }
        if (!at || !pickStale) return false;
        if (left.empty())
            input_.appSwitcherCycleSelectedID.reset();
        else
            input_.appSwitcherCycleSelectedID = left[std::min(*at, left.size() - 1)];
        env_.refreshPanel();
        return true;
    };
    return rows;
}

}  // namespace zelk::agent
