#pragma once
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "expose/ExposeLayout.h"
#include "platform/Geometry.h"

// The overview's records: the windows it shows, their groups, the Spaces, and what one screen's
// layout holds. Plain values; the controller publishes them and the drawing reads them.
namespace zelk::expose {

struct ExposeWindow {
    std::uint32_t id = 0;
    std::string title;
    std::string appName;
    std::string bundleID;
    std::int32_t pid = 0;
    Rect bounds;
    bool isMinimized = false;
    bool appHidden = false;
    bool isFullscreen = false;  // on a full-screen Space
    std::optional<std::uint64_t> spaceID;
    bool isFocused = false;
    int number = 0;         // 1-based within its Space
    std::string letterKey;  // the app's letter, empty when it has none
    bool operator==(const ExposeWindow&) const = default;
};

// One application's windows.
struct ExposeGroup {
    std::string id;  // the bundle identifier, else "pid:{pid}"
    std::string appName;
    std::string bundleID;
    std::int32_t pid = 0;
    std::string letter;
    bool letterIsDerived = false;
    bool appHidden = false;
    std::vector<ExposeWindow> windows;
    bool operator==(const ExposeGroup&) const = default;
};

enum class ExposeGrouping { app, space, state };
std::string_view groupingName(ExposeGrouping grouping);
ExposeGrouping nextGrouping(ExposeGrouping grouping);
std::optional<ExposeGrouping> groupingFromName(std::string_view name);

struct ExposeSpaceInfo {
    std::uint64_t id = 0;
    int userIndex = 0;  // 1-based among its display's user Spaces; 0 for a full-screen Space
    bool isFullscreen = false;
    std::string displayUUID;
    std::string displayName;
    int displayIndex = 0;  // 0-based position of its display
    bool isActive = false;
    bool operator==(const ExposeSpaceInfo&) const = default;
};

struct ExposeSpacesBarCell {
    std::uint64_t id = 0;
    int userIndex = 0;
    std::string title;
    Rect frame;
    Rect headerFrame;
    std::vector<Placed> minis;
    bool operator==(const ExposeSpacesBarCell&) const = default;
};

struct ExposeSpaceRegion {
    std::string key;
    Rect frame;
    std::uint64_t spaceID = 0;
    int userIndex = 0;
    bool operator==(const ExposeSpaceRegion&) const = default;
};

struct ExposeSectionHeader {
    std::string id;
    std::string title;
    std::string subtitle;
    std::string keycap;
    Point badgeCenter;
    Rect frame;
    bool operator==(const ExposeSectionHeader&) const = default;
};

// One screen's overview, in the panel's own coordinates (its top left is the screen's top left).
struct ExposeLayoutSnapshot {
    std::vector<Placed> tiles;
    std::vector<std::uint32_t> visible;    // ids drawn at full size
    std::vector<std::uint32_t> captioned;  // ids whose title shows under the tile
    std::vector<CardPlacement> cards;
    std::vector<ExposeSectionHeader> sectionHeaders;
    std::vector<ExposeSpaceRegion> spaceRegions;
    std::vector<ExposeSpacesBarCell> spacesBar;
    std::vector<std::uint32_t> order;  // the navigation order of this screen's tiles
    Size containerSize;
    std::uint64_t version = 0;
    std::optional<Rect> tileFrame(std::uint32_t id) const;
    bool operator==(const ExposeLayoutSnapshot&) const = default;
};

struct ExposeDrag {
    std::uint32_t wid = 0;
    Rect sourceFrame;
    std::string sourceScreenKey;
    Point cursorGlobal;
    Point grabOffset;
    bool springBack = false;
};

enum class ExposeConfirmKind { close, quit };

struct ExposeConfirm {
    std::uint64_t id = 0;
    ExposeConfirmKind kind = ExposeConfirmKind::close;
    std::uint32_t wid = 0;
    std::string bundleID;
    std::string appName;
    std::string title;
    // "press ⌘W again to close this window"
    std::string text() const;
    bool operator==(const ExposeConfirm&) const = default;
};

struct ExposeToast {
    std::uint64_t id = 0;
    std::uint32_t wid = 0;
    std::string text;
    bool operator==(const ExposeToast&) const = default;
};

enum class ExposePlacementRole { halfPrimary, halfSecondary, third1, third2, third3, maximize, pad, center };

struct ExposePlacement {
    std::uint16_t key = 0;  // key code
    ExposePlacementRole role = ExposePlacementRole::halfPrimary;
};

enum class ExposePhase { hidden, entering, shown, exiting };
std::string_view phaseName(ExposePhase phase);

}  // namespace zelk::expose
