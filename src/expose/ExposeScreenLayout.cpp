#include "expose/ExposeScreenLayout.h"

#include <fmt/format.h>
#include <algorithm>

#include "expose/ExposeArrange.h"
#include "expose/ExposeNavigation.h"

namespace zelk::expose {

namespace {

constexpr double kBarCellMaxWidth = 180;
constexpr double kBarCellGap = 12;
constexpr double kBarCaption = 14;
constexpr double kSpaceSectionCaption = 28, kSpaceSectionGap = 18;
constexpr double kStateSectionCaption = 0, kStateSectionGap = 16;

Item itemOf(const ExposeWindow& w) {
    Item item;
    item.id = w.id;
    item.aspect = w.bounds.height > 0 ? w.bounds.width / w.bounds.height : 0;
    item.frame = w.bounds;
    return item;
}

// The windows left after the app filter, in group order.
std::vector<const ExposeWindow*> shownWindows(const ScreenLayoutInput& in) {
    std::vector<const ExposeWindow*> out;
    for (const auto& g : in.groups) {
        if (in.filterBundleID && g.id != *in.filterBundleID) continue;
        for (const auto& w : g.windows)
            out.push_back(&w);
    }
    return out;
}

bool dimmed(const ExposeWindow& w) {
    return w.isMinimized || w.appHidden;
}

std::string spaceTitle(const ExposeSpaceInfo& s) {
    return s.isFullscreen ? std::string("Full Screen") : fmt::format("Space {}", s.userIndex);
}

// Sections give their own order (top to bottom); cards follow the apps' order.
void finishOrder(ExposeLayoutSnapshot& out, const std::vector<const ExposeWindow*>& windows) {
    const bool ordered = !out.order.empty();
    for (const auto* w : windows)
        if (out.tileFrame(w->id)) {
            if (!ordered) out.order.push_back(w->id);
            if (!dimmed(*w)) out.visible.push_back(w->id);
        }
}

void layoutApps(const ScreenLayoutInput& in, const Rect& container, ExposeLayoutSnapshot& out) {
    std::vector<CardSpec> cards;
    std::map<std::string, Point> normalized;
    std::map<std::uint32_t, const ExposeWindow*> byID;
    for (const auto& g : in.groups) {
        if (in.filterBundleID && g.id != *in.filterBundleID) continue;
        CardSpec card{g.id, {}};
        for (const auto& w : g.windows) {
            card.items.push_back(itemOf(w));
            byID[w.id] = &w;
        }
        if (card.items.empty()) continue;
        if (auto p = g.letter.empty() ? std::nullopt : keyboardPosition(g.letter)) normalized[g.id] = *p;
        cards.push_back(std::move(card));
    }
    std::map<std::string, Point> pinned;
    for (const auto& c : cards)
        if (auto it = in.pinnedCenters.find(c.key); it != in.pinnedCenters.end()) pinned.insert(*it);
    // Pins hold only while every card has one; a card that came or went lays them all out afresh.
    if (pinned.size() != cards.size()) pinned.clear();
    auto result = layoutCards(cards, pinned, normalized, container);
    for (auto& p : result.placed) {
        const auto* w = byID[p.id];
        if (w && dimmed(*w)) {
            const Point c = p.frame.center();
            p.frame = centredRect(c, {p.frame.width * kHiddenTileScale, p.frame.height * kHiddenTileScale});
        }
    }
    out.tiles = std::move(result.placed);
    out.cards = std::move(result.cards);
}

void addSections(const std::vector<SectionSpec>& specs,
                 const std::map<std::string, ExposeSectionHeader>& heads,
                 const std::map<std::string, ExposeSpaceInfo>& spaceOf, const Rect& container, double caption,
                 double gap, ExposeLayoutSnapshot& out) {
    auto result = layoutSections(specs, container, caption, gap, false);
    out.tiles = std::move(result.placed);
    for (const auto& spec : specs)
        for (const auto& item : spec.items)
            out.order.push_back(item.id);
    for (const auto& p : out.tiles)
        if (caption > 0) out.captioned.push_back(p.id);
    for (const auto& s : result.sections) {
        ExposeSectionHeader h = heads.at(s.key);
        h.frame = s.headerFrame;
        h.badgeCenter = {s.headerFrame.x + 13, s.headerFrame.midY()};
        out.sectionHeaders.push_back(std::move(h));
        if (auto it = spaceOf.find(s.key); it != spaceOf.end())
            out.spaceRegions.push_back({s.key, s.frame, it->second.id, it->second.userIndex});
    }
}

void layoutBySpace(const ScreenLayoutInput& in, const std::vector<const ExposeWindow*>& windows,
                   const Rect& container, ExposeLayoutSnapshot& out) {
    std::vector<SectionSpec> specs;
    std::map<std::string, ExposeSectionHeader> heads;
    std::map<std::string, ExposeSpaceInfo> spaceOf;
    for (const auto& s : in.spaces) {
        SectionSpec spec;
        spec.key = fmt::format("space:{}", s.id);
        spec.title = spaceTitle(s);
        spec.subtitle = s.displayName;
        spec.sourceBounds = in.screenFrame;
        for (const auto* w : windows)
            if (w->spaceID == s.id) spec.items.push_back(itemOf(*w));
        heads[spec.key] = {
            spec.key, spec.title, spec.subtitle, s.userIndex > 0 ? std::to_string(s.userIndex) : "", {}, {}};
        spaceOf[spec.key] = s;
        specs.push_back(std::move(spec));
    }
    addSections(specs, heads, spaceOf, container, kSpaceSectionCaption, kSpaceSectionGap, out);
}

void layoutByState(const std::vector<const ExposeWindow*>& windows, const Rect& container,
                   ExposeLayoutSnapshot& out) {
    SectionSpec onScreen{"state:visible", "On Screen", "", {}, std::nullopt};
    SectionSpec minimized{"state:minimized", "Minimized", "", {}, std::nullopt};
    SectionSpec hidden{"state:hidden", "Hidden", "", {}, std::nullopt};
    for (const auto* w : windows)
        (w->appHidden ? hidden : w->isMinimized ? minimized : onScreen).items.push_back(itemOf(*w));
    std::map<std::string, ExposeSectionHeader> heads;
    for (const auto* s : {&onScreen, &minimized, &hidden})
        heads[s->key] = {s->key, s->title, "", "", {}, {}};
    addSections({onScreen, minimized, hidden}, heads, {}, container, kStateSectionCaption, kStateSectionGap,
                out);
}

void layoutSpaceFilter(const ScreenLayoutInput& in, const std::vector<const ExposeWindow*>& windows,
                       const Rect& container, ExposeLayoutSnapshot& out) {
    auto space = std::find_if(in.spaces.begin(), in.spaces.end(),
                              [&](const ExposeSpaceInfo& s) { return s.id == *in.filterSpaceID; });
    if (space == in.spaces.end()) return;
    std::vector<Item> items;
    for (const auto* w : windows)
        if (w->spaceID == space->id) items.push_back(itemOf(*w));
    const Rect area{container.x + 8, container.y + 34 + 8, container.width - 16,
                    std::max(0.0, container.height - 34 - 16)};
    const Rect local{0, 0, in.screenFrame.width, in.screenFrame.height};
    // Window frames are global; the arrangement is read against the display's own frame.
    std::vector<Item> shifted = items;
    for (auto& item : shifted)
        item.frame = {item.frame.x - in.screenFrame.x, item.frame.y - in.screenFrame.y, item.frame.width,
                      item.frame.height};
    out.tiles = spatialArrange(shifted, local, area, kMinTileSide, 0.6);
    out.captioned.clear();
    for (const auto& p : out.tiles)
        out.captioned.push_back(p.id);
    const Rect header{container.x, container.y, container.width, kSpaceFilterHeader};
    out.sectionHeaders.push_back({"spacefilter",
                                  spaceTitle(*space),
                                  space->displayName,
                                  space->userIndex > 0 ? std::to_string(space->userIndex) : "",
                                  {header.x + 13, header.midY()},
                                  header});
    out.spaceRegions.push_back({"spacefilter", area, space->id, space->userIndex});
}

void layoutSpacesBar(const ScreenLayoutInput& in, const Rect& container, ExposeLayoutSnapshot& out) {
    const double n = static_cast<double>(in.spaces.size());
    if (n == 0) return;
    const double top = in.menuBarHeight + 8;
    const double height = std::max(0.0, container.y - top - 8);
    const double width = std::min(kBarCellMaxWidth, (container.width - (n - 1) * kBarCellGap) / n);
    double x = container.x + (container.width - (n * width + (n - 1) * kBarCellGap)) / 2;
    for (const auto& s : in.spaces) {
        ExposeSpacesBarCell cell;
        cell.id = s.id;
        cell.userIndex = s.userIndex;
        cell.title = spaceTitle(s);
        cell.frame = {x, top, width, height};
        cell.headerFrame = {x, top + height - kBarCaption, width, kBarCaption};
        std::vector<Item> items;
        for (const auto& g : in.groups)
            for (const auto& w : g.windows)
                if (w.spaceID == s.id && !dimmed(w)) items.push_back(itemOf(w));
        cell.minis = spacesBarMinis(items, cell.frame, in.screenFrame, kBarCaption);
        out.spacesBar.push_back(std::move(cell));
        x += width + kBarCellGap;
    }
}

}  // namespace

std::optional<Rect> ExposeLayoutSnapshot::tileFrame(std::uint32_t id) const {
    for (const auto& t : tiles)
        if (t.id == id) return t.frame;
    return std::nullopt;
}

Rect layoutContainer(const Rect& screen, double menuBarHeight, bool spacesBar) {
    const double top = std::max(menuBarHeight + (spacesBar ? 62.0 : 14.0), spacesBar ? 96.0 : 52.0);
    return {kContainerInsetX, top, std::max(0.0, screen.width - 2 * kContainerInsetX),
            std::max(0.0, screen.height - top - kContainerBottom)};
}

ExposeLayoutSnapshot layoutScreen(const ScreenLayoutInput& in) {
    ExposeLayoutSnapshot out;
    out.version = in.version;
    const Rect container = layoutContainer(in.screenFrame, in.menuBarHeight, in.spacesBar);
    out.containerSize = {container.width, container.height};
    const auto windows = shownWindows(in);
    if (in.filterSpaceID)
        layoutSpaceFilter(in, windows, container, out);
    else if (in.grouping == ExposeGrouping::app)
        layoutApps(in, container, out);
    else if (in.grouping == ExposeGrouping::space)
        layoutBySpace(in, windows, container, out);
    else
        layoutByState(windows, container, out);
    if (in.spacesBar) layoutSpacesBar(in, container, out);
    finishOrder(out, windows);
    return out;
}

std::map<std::string, Point> cardCenters(const ExposeLayoutSnapshot& layout) {
    std::map<std::string, Point> out;
    for (const auto& c : layout.cards)
        out[c.key] = c.frame.center();
    return out;
}

std::string_view groupingName(ExposeGrouping g) {
    switch (g) {
        case ExposeGrouping::app:
            return "app";
        case ExposeGrouping::space:
            return "space";
        case ExposeGrouping::state:
            return "state";
    }
    return "app";
}

ExposeGrouping nextGrouping(ExposeGrouping g) {
    switch (g) {
        case ExposeGrouping::app:
            return ExposeGrouping::space;
        case ExposeGrouping::space:
            return ExposeGrouping::state;
        case ExposeGrouping::state:
            return ExposeGrouping::app;
    }
    return ExposeGrouping::app;
}

std::optional<ExposeGrouping> groupingFromName(std::string_view name) {
    for (auto g : {ExposeGrouping::app, ExposeGrouping::space, ExposeGrouping::state})
        if (groupingName(g) == name) return g;
    return std::nullopt;
}

std::string_view phaseName(ExposePhase p) {
    switch (p) {
        case ExposePhase::hidden:
            return "hidden";
        case ExposePhase::entering:
            return "entering";
        case ExposePhase::shown:
            return "shown";
        case ExposePhase::exiting:
            return "exiting";
    }
    return "hidden";
}

std::string ExposeConfirm::text() const {
    const bool close = kind == ExposeConfirmKind::close;
    return fmt::format("press {} again to {} {}", close ? "⌘W" : "⌘Q", close ? "close" : "quit",
                       close ? std::string("this window") : appName);
}

}  // namespace zelk::expose
