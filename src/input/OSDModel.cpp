#include "input/OSDModel.h"

#include <fmt/format.h>

#include <algorithm>

namespace zelk::osd {

std::string_view viewName(OSDView view) {
    switch (view) {
        case OSDView::none:
            return "none";
        case OSDView::search:
            return "SearchOSDView";
        case OSDView::appSwitcher:
            return "AppSwitcherOSDView";
        case OSDView::tabCycle:
            return "TabCycleOSDView";
        case OSDView::stage:
            return "StageOSDView";
        case OSDView::windowSwitcher:
            return "WindowSwitcherOSDView";
    }
    return "none";
}

std::string_view pendingName(PendingKind kind) {
    switch (kind) {
        case PendingKind::show:
            return "show";
        case PendingKind::retry:
            return "retry";
        case PendingKind::hide:
            return "hide";
    }
    return "show";
}

std::string_view groupName(PlacementGroup group) {
    switch (group) {
        case PlacementGroup::app:
            return "app";
        case PlacementGroup::window:
            return "window";
        case PlacementGroup::stage:
            return "stage";
    }
    return "app";
}

// The precedence table --------------------------------------------------------------------------

namespace {

// Row 5: one typed letter keeps the app panel standing; the search panel arrives with the second.
OSDView searchingWithAppTrigger(const ViewInputs& in) {
    bool backspacedToOne = in.bufferLength == 1 && !in.forceSearchMode && in.lastSearchEditWasBackspace;
    if (!in.singleLetterQuery && !backspacedToOne) return OSDView::search;
    if (in.showAppSwitcher) return OSDView::appSwitcher;
    return in.lastSearchEditWasBackspace ? OSDView::search : OSDView::none;
}

}  // namespace

ViewChoice chooseView(const ViewInputs& in) {
    if (in.latchedSearchSurface) return {OSDView::search, 1};
    if (in.appSwitcherCycleLatched) return {OSDView::appSwitcher, 2};
    if (in.tabCycling) return {OSDView::tabCycle, 3};
    if (in.stageTriggerKeysPressed) return {OSDView::stage, 4};
    if (in.searchActive && in.appTriggerKeysPressed) return {searchingWithAppTrigger(in), 5};
    if (in.appTriggerKeysPressed && in.showAppSwitcher) return {OSDView::appSwitcher, 6};
    if (in.windowTriggerKeysPressed && in.showWindowSwitcher) return {OSDView::windowSwitcher, 7};
    return {OSDView::none, 8};
}

// Model helpers ------------------------------------------------------------------------------------

std::size_t OSDModel::rowCount() const {
    std::size_t n = 0;
    for (auto& s : sections)
        n += s.rows.size();
    return n;
}

const OSDRow* OSDModel::highlightedRow() const {
    for (auto& s : sections)
        for (auto& r : s.rows)
            if (r.highlighted) return &r;
    return nullptr;
}

// Content -----------------------------------------------------------------------------------------

namespace {

void searchHeader(OSDModel& m, const PanelTexts& t) {
    m.header.shown = true;
    m.header.buffer = t.buffer;
    m.header.placeholder = "Type to fuzzy search...";
    if (t.pinPickQuery) {
        m.header.pinPickText = "Pick an app to pin " + *t.pinPickQuery;
        m.header.pinPickHint = "type to find \xC2\xB7 \xE2\x8F\x8E pin \xC2\xB7 esc back";
    }
    m.header.chips = {{t.showMenubarAppsInSearch ? "Hide menu bar apps" : "Show menu bar apps"},
                      {t.searchRunningAndStaticOnly ? "Show non-running apps" : "Hide non-running apps"}};
}

// The hints of the search and app panels, as the state allows.
std::vector<OSDFooterHint> smartFooter(const PanelTexts& t, bool appSwitcherContext) {
    std::vector<OSDFooterHint> hints{{"Tab", "cycle"}, {"\xE2\x87\xA7", "reverse"}, {"Esc", "cancel"}};
    if (appSwitcherContext) {
        hints.push_back({"0", "last app"});
        hints.push_back({t.hideKey, t.hideOnlyFocusedAppOnMinus ? "hide app" : "show/hide all"});
        hints.push_back({t.exposeKey, "Expose"});
    }
    if (t.enableSelectionActionHotkeys) {
        hints.push_back({"\xE2\x8C\x98Q", "quit"});
        hints.push_back({"\xE2\x8C\x98H", "hide"});
        hints.push_back({"\xE2\x8C\x98W", "close"});
        hints.push_back({"\xE2\x8C\x98R", "refresh"});
    }
    return hints;
}

std::string sideHint(const PanelTexts& t) {
    if (!t.enableSelectionActionHotkeys) return "";
    return std::string(t.actionSideIsLeft ? "Left" : "Right") +
           "-side \xE2\x8C\x98 Command for \xE2\x8C\x98W / \xE2\x8C\x98Q / \xE2\x8C\x98H / \xE2\x8C\x98R "
           "actions";
}

bool noRows(const std::vector<OSDSection>& sections) {
    return std::all_of(sections.begin(), sections.end(), [](const OSDSection& s) { return s.rows.empty(); });
}

}  // namespace

void fillContent(OSDModel& m, const PanelTexts& t, std::vector<OSDSection> sections) {
    m.header = {};
    m.footer.clear();
    m.sideHint.clear();
    m.emptyText.clear();
    const bool empty = noRows(sections);
    switch (m.view.view) {
        case OSDView::none:
            sections.clear();
            break;
        case OSDView::search:
            searchHeader(m, t);
            if (empty) m.emptyText = "No results found";
            m.footer = smartFooter(t, false);
            m.sideHint = sideHint(t);
            break;
        case OSDView::appSwitcher:
            if (t.appFooter) {
                m.footer = smartFooter(t, true);
                m.sideHint = sideHint(t);
            }
            break;
        case OSDView::windowSwitcher:
            m.footer = {
                {t.windowMinimizeKey, "minimize"}, {t.windowAssignKey, "assign"}, {"0", "last window"}};
            break;
        case OSDView::stage:
            if (empty)
                m.emptyText = "No stages saved yet.\nPress " + t.stageSaveKey +
                              " to save the current windows as a stage.";
            break;
        case OSDView::tabCycle:
            // The filter shows once something is typed.
            if (!t.tabFilter.empty()) {
                m.header.shown = true;
                m.header.buffer = t.tabFilter;
            }
            if (empty)
                m.emptyText = t.tabFilter.empty() ? "No other windows to switch to."
                                                  : "No matches for \"" + t.tabFilter + "\"";
            break;
    }
    m.sections = std::move(sections);
}

OSDModel buildModel(const ModelInputs& in, std::vector<OSDSection> sections) {
    OSDModel m;
    m.view = chooseView(in.view);
    m.visibility = in.visibility;
    m.placement = in.placement;
    m.latches = in.latches;
    const bool showsContent = m.visibility.visible() || m.visibility.pending;
    if (!showsContent) sections.clear();
    fillContent(m, in.texts, std::move(sections));
    m.flash = in.flash;
    m.look = in.look;
    return m;
}

// Placement ---------------------------------------------------------------------------------------

namespace {
// Anchored sides keep this far from the screen's edge, so a panel never touches it.
constexpr double kEdgeMargin = 12;

enum class Align { start, middle, end };

Align horizontal(ScreenCorner c) {
    switch (c) {
        case ScreenCorner::bottomLeft:
        case ScreenCorner::topLeft:
        case ScreenCorner::left:
            return Align::start;
        case ScreenCorner::bottomRight:
        case ScreenCorner::topRight:
        case ScreenCorner::right:
            return Align::end;
        default:
            return Align::middle;
    }
}

Align vertical(ScreenCorner c) {
    switch (c) {
        case ScreenCorner::topLeft:
        case ScreenCorner::topRight:
        case ScreenCorner::top:
            return Align::start;
        case ScreenCorner::bottomLeft:
        case ScreenCorner::bottomRight:
        case ScreenCorner::bottom:
            return Align::end;
        default:
            return Align::middle;
    }
}

// One axis: an anchored side is inset and the offset moves inwards; a centred axis moves by it.
double place(Align a, double lo, double length, double size, double offset) {
    switch (a) {
        case Align::start:
            return lo + kEdgeMargin + offset;
        case Align::end:
            return lo + length - size - kEdgeMargin - offset;
        case Align::middle:
            return lo + (length - size) / 2 + offset;
    }
    return lo;
}

double clampInto(double v, double lo, double length, double size) {
    if (size >= length) return lo;
    return std::clamp(v, lo, lo + length - size);
}

}  // namespace

double scaledOffsetY(const PlacementInputs& in) {
    if (in.referenceHeight > 0 && in.screenFrame.height > 0)
        return in.offsetY * in.screenFrame.height / in.referenceHeight;
    return in.offsetY;
}

Rect panelFrame(const PlacementInputs& in) {
    const Rect& v = in.visibleFrame.isEmpty() ? in.screenFrame : in.visibleFrame;
    double w = std::min(in.size.width, v.width), h = std::min(in.size.height, v.height);
    double x = place(horizontal(in.corner), v.x, v.width, w, in.offsetX);
    double y = place(vertical(in.corner), v.y, v.height, h, scaledOffsetY(in));
    return {clampInto(x, v.x, v.width, w), clampInto(y, v.y, v.height, h), w, h};
}

std::vector<OSDSection> stageSections(const std::vector<StageListing>& stages) {
    if (stages.empty()) return {};
    OSDSection section;
    for (const auto& s : stages) {
        OSDRow row;
        row.id = "stage-" + s.key;
        row.key = s.key;
        row.title = s.name;
        if (s.hasOpenWindows) row.detail = "Has open windows";
        section.rows.push_back(std::move(row));
    }
    return {std::move(section)};
}

// Renderings ----------------------------------------------------------------------------------------

namespace {

std::string rowText(const OSDRow& r) {
    std::string s = r.highlighted ? ">" : " ";
    if (!r.key.empty()) s += "[" + r.key + "] ";
    s += r.title.empty() ? "(untitled)" : r.title;
    if (r.isWindow && !r.app.empty()) s += " \xE2\x80\x94 " + r.app;
    if (!r.space.empty()) s += " @" + r.space;
    if (r.minimised) s += " (minimised)";
    if (r.closed) s += " (closed)";
    if (!r.detail.empty()) s += " (" + r.detail + ")";
    return s;
}

std::string pendingText(const OSDVisibility& v) {
    if (!v.pending) return "";
    return fmt::format("{} due at {}ms", pendingName(v.pending->kind), v.pending->dueMs);
}

}  // namespace

std::string describe(const OSDModel& m) {
    const auto& v = m.visibility;
    if (!v.visible()) {
        std::string s = "hidden";
        if (v.pending) s += ", " + pendingText(v) + " (" + std::string(viewName(m.view.view)) + ")";
        return s;
    }
    std::string s = fmt::format("{} (row {}) on display {} at {},{} {}x{}", viewName(m.view.view), m.view.row,
                                m.placement.displayID, m.placement.frame.x, m.placement.frame.y,
                                m.placement.frame.width, m.placement.frame.height);
    if (m.latches.searchSurface) s += ", latched " + *m.latches.searchSurface;
    if (m.latches.tabCycle) s += ", latched tab cycle";
    if (v.pending) s += ", " + pendingText(v);
    if (m.header.shown) s += fmt::format(", query \"{}\"", m.header.buffer);
    if (!m.header.pinPickText.empty()) s += ", " + m.header.pinPickText;
    for (auto& section : m.sections) {
        if (!section.title.empty()) s += " | " + section.title + ":";
        for (auto& r : section.rows)
            s += " |" + rowText(r);
    }
    if (!m.emptyText.empty()) {
        std::string text = m.emptyText;
        std::replace(text.begin(), text.end(), '\n', ' ');
        s += " | " + text;
    }
    if (m.flash) s += " | flash " + m.flash->label;
    return s;
}

nlohmann::json toJson(const OSDModel& m) {
    using nlohmann::json;
    const auto& v = m.visibility;
    // A hidden panel says only what is pending, if anything: the view it would show and when.
    if (!v.visible()) {
        json out{{"visible", false},
                 {"view", v.pending ? viewName(m.view.view) : "none"},
                 {"rows", json::array()}};
        if (v.pending) out["pending"] = {{"kind", pendingName(v.pending->kind)}, {"due", v.pending->dueMs}};
        return out;
    }
    json out{{"view", viewName(m.view.view)}, {"row", m.view.row}, {"visible", true}};
    if (v.pending) out["pending"] = {{"kind", pendingName(v.pending->kind)}, {"due", v.pending->dueMs}};
    if (v.watchdogStrikes) out["strikes"] = v.watchdogStrikes;
    const auto& p = m.placement;
    out["display"] = p.displayID;
    out["group"] = groupName(p.group);
    out["frame"] = {p.frame.x, p.frame.y, p.frame.width, p.frame.height};
    if (m.latches.searchSurface) out["latched"] = *m.latches.searchSurface;
    if (m.latches.tabCycle) out["latched"] = "tabCycle";
    if (m.header.shown) out["query"] = m.header.buffer;
    if (!m.header.pinPickText.empty()) out["pinPick"] = m.header.pinPickText;
    json rows = json::array(), items = json::array();
    for (auto& section : m.sections)
        for (auto& r : section.rows) {
            rows.push_back(r.id);
            json row{{"key", r.key}, {"title", r.title}};
            if (!section.title.empty()) row["section"] = section.title;
            if (r.isWindow) row["app"] = r.app;
            if (!r.space.empty()) row["space"] = r.space;
            if (r.highlighted) row["highlighted"] = true;
            if (r.minimised) row["minimised"] = true;
            if (r.closed) row["closed"] = true;
            if (!r.detail.empty()) row["detail"] = r.detail;
            if (r.running) row["running"] = true;
            items.push_back(std::move(row));
        }
    out["rows"] = std::move(rows);
    out["items"] = std::move(items);
    if (!m.emptyText.empty()) out["empty"] = m.emptyText;
    if (m.flash) {
        out["flash"] = m.flash->label;
        out["flashIcon"] = m.flash->icon;
        out["flashSeq"] = m.flash->seq;
    }
    return out;
}

}  // namespace zelk::osd
