#pragma once
#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "config/OSDLook.h"
#include "config/SwitcherOptions.h"
#include "platform/Geometry.h"

namespace zelk::osd {

// The one panel, as a plain value: everything a drawing of it reads, and everything tests assert on.
// Built from the input state and the content providers, never read back by the logic.

enum class OSDView { none, search, appSwitcher, tabCycle, stage, windowSwitcher };
std::string_view viewName(OSDView view);

// Which view fills the panel, and the row of the precedence table that chose it (1-8).
struct ViewChoice {
    OSDView view = OSDView::none;
    int row = 8;
    bool operator==(const ViewChoice&) const = default;
};

// What the precedence table reads.
struct ViewInputs {
    std::optional<std::string> latchedSearchSurface;  // "app" | "window"
    bool appSwitcherCycleLatched = false;
    bool tabCycling = false;
    bool stageTriggerKeysPressed = false;
    bool appTriggerKeysPressed = false;
    bool windowTriggerKeysPressed = false;
    bool searchActive = false;
    bool showAppSwitcher = false;
    bool showWindowSwitcher = true;
    // The search's own state (row 5).
    bool singleLetterQuery = false;
    std::size_t bufferLength = 0;
    bool forceSearchMode = false;
    bool lastSearchEditWasBackspace = false;
};
ViewChoice chooseView(const ViewInputs& in);

struct OSDRow {
    std::string id;     // what the row stands for: a bundle identifier, a window number, a stage key
    std::string key;    // the key cap, empty for none
    std::string title;  // app name or window title
    std::string app;    // the owning app of a window row
    std::string space;  // the Space a window stands on, when known
    bool highlighted = false;
    bool closed = false;
    bool running = false;
    bool minimised = false;
    bool isWindow = false;  // drawn indented under its app
    std::string detail;     // a short note drawn at the row's end ("Has open windows")
    bool operator==(const OSDRow&) const = default;
};

struct OSDSection {
    std::string title;  // empty: no heading
    std::vector<OSDRow> rows;
    bool operator==(const OSDSection&) const = default;
};

struct OSDChip {
    std::string label;
    bool operator==(const OSDChip&) const = default;
};

struct OSDHeader {
    bool shown = false;
    std::string buffer;
    std::string placeholder;
    std::string pinPickText;  // empty unless picking an app to pin
    std::string pinPickHint;
    std::vector<OSDChip> chips;
    bool operator==(const OSDHeader&) const = default;
};

struct OSDFooterHint {
    std::string key;
    std::string label;
    bool operator==(const OSDFooterHint&) const = default;
};

enum class PendingKind { show, retry, hide };
std::string_view pendingName(PendingKind kind);

struct OSDPending {
    PendingKind kind = PendingKind::show;
    std::int64_t dueMs = 0;  // milliseconds since the program started
    bool operator==(const OSDPending&) const = default;
};

struct OSDVisibility {
    bool hidden = true;  // logically hidden
    bool orderedIn = false;
    double alpha = 0;
    std::optional<OSDPending> pending;
    bool watchdogRunning = false;
    int watchdogStrikes = 0;
    bool visible() const { return !hidden && orderedIn && alpha >= 1.0; }
    bool operator==(const OSDVisibility&) const = default;
};

// Which settings group places the panel.
enum class PlacementGroup { app, window, stage };
std::string_view groupName(PlacementGroup group);

struct OSDPlacement {
    std::uint32_t displayID = 0;
    PlacementGroup group = PlacementGroup::app;
    ScreenCorner corner = ScreenCorner::bottomRight;
    double offsetX = 0;
    double offsetY = 0;  // after scaling by the screen's height
    Rect frame;
    bool operator==(const OSDPlacement&) const = default;
};

struct OSDLatches {
    std::optional<std::string> searchSurface;
    bool tabCycle = false;
    bool appCycle = false;
    bool any() const { return searchSurface || tabCycle || appCycle; }
    bool operator==(const OSDLatches&) const = default;
};

struct OSDFlash {
    std::string icon;
    std::string label;
    std::uint64_t seq = 0;
    bool operator==(const OSDFlash&) const = default;
};

struct OSDModel {
    ViewChoice view;
    OSDVisibility visibility;
    OSDPlacement placement;
    OSDLatches latches;
    OSDHeader header;
    std::vector<OSDSection> sections;
    std::string emptyText;  // shown when there are no rows
    std::vector<OSDFooterHint> footer;
    std::string sideHint;
    std::optional<OSDFlash> flash;
    OSDLook look;
    bool operator==(const OSDModel&) const = default;

    std::size_t rowCount() const;
    const OSDRow* highlightedRow() const;
};

// The panel's content for the current view, filled by the subsystems that own it.
struct SearchContent {
    std::vector<OSDRow> rows;  // the main list; the window list when searching windows only
    std::optional<std::size_t> selected;
    bool operator==(const SearchContent&) const = default;
};

// One saved stage as the stage panel lists it.
struct StageListing {
    std::string key;  // the key that recalls it
    std::string name;
    bool hasOpenWindows = false;
    bool operator==(const StageListing&) const = default;
};
// The stage panel's rows: each stage with its key, marked "Has open windows" when it has some.
std::vector<OSDSection> stageSections(const std::vector<StageListing>& stages);

// The inputs of the header, the footer and the empty texts.
struct PanelTexts {
    std::string buffer;
    std::optional<std::string> pinPickQuery;
    bool searchWindowsOnly = false;
    bool showMenubarAppsInSearch = true;
    bool searchRunningAndStaticOnly = false;
    bool enableSelectionActionHotkeys = true;
    bool hideOnlyFocusedAppOnMinus = false;
    bool actionSideIsLeft = true;  // which Command key arms the row actions
    bool appFooter = false;        // the app panel's bottom actions bit
    std::string hideKey = "-";     // labels of the keys the hints name
    std::string exposeKey = ".";
    std::string stageSaveKey = "=";
    std::string windowMinimizeKey = "-";
    std::string windowAssignKey = "=";
    std::string tabFilter;  // the tab cycle's filter
};

// The header, sections, empty text and footer of a view, from its rows.
void fillContent(OSDModel& model, const PanelTexts& texts, std::vector<OSDSection> sections);

// Everything the model is made of, apart from the rows.
struct ModelInputs {
    ViewInputs view;
    OSDVisibility visibility;
    OSDPlacement placement;
    OSDLatches latches;
    PanelTexts texts;
    std::optional<OSDFlash> flash;
    OSDLook look;
};
// The model: the view the table picks, and the rows of that view when the panel shows or is about to
// (a hidden panel with nothing pending lists nothing).
OSDModel buildModel(const ModelInputs& in, std::vector<OSDSection> sections);

// Where the panel stands on a screen.
struct PlacementInputs {
    ScreenCorner corner = ScreenCorner::bottomRight;
    double offsetX = 0;
    double offsetY = 0;
    double referenceHeight = 0;
    Size size;
    Rect screenFrame;
    Rect visibleFrame;
};
// The Y offset scaled by the screen's height over the reference height (when both are above 0).
double scaledOffsetY(const PlacementInputs& in);
// The panel's frame: anchored at the corner or edge, inset by a margin on anchored sides, moved
// inwards by the offsets, and kept inside the visible frame.
Rect panelFrame(const PlacementInputs& in);

// The readable line the trace shows, and the JSON it records: `view`, `visible`, `rows` (the row ids)
// and the rest of the model.
std::string describe(const OSDModel& model);
nlohmann::json toJson(const OSDModel& model);

}  // namespace zelk::osd
