#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "expose/ExposeModel.h"
#include "platform/Key.h"
#include "stages/SemanticPosition.h"

// The overview's input rules that need no state: which keys reach the app in front, the placement
// cluster of either keyboard, trackpad flings and the hot corner.
namespace zelk::expose {

// The four modifiers the overview reads from a key event's flags.
struct ExposeModifiers {
    bool command = false, option = false, shift = false, control = false;
    bool none() const { return !command && !option && !shift && !control; }
};
ExposeModifiers modifiersFrom(std::uint64_t eventFlags);

// Keys the overview leaves to the app in front (Escape and the overview key never are): anything
// with Control; with Command, anything but W, M, H, Q, "=", "-" and 1 to 9 and anything with Option or
// Shift as well; with Option alone, anything but 1 to 9; with Option and Shift, everything.
bool passesThrough(Key key, const ExposeModifiers& m);

// The ISO table when the setting says "iso", or when it says anything but "ansi" and the keyboard is
// ISO.
bool usesISOCluster(std::string_view keyboardLayoutSetting, bool keyboardIsISO);
// The role of a placement-cluster key code, nothing for other codes.
std::optional<ExposePlacementRole> clusterRole(std::uint16_t keyCode, bool iso);
// Where a role puts a window on a landscape or a portrait screen; nothing for pad.
std::optional<stages::SemanticPosition> positionFor(ExposePlacementRole role, bool portrait);
// The toast's name of a position: "left half", "maximized", "vertical third 1".
std::string positionLabel(stages::SemanticPosition position);
// The padding a pad step leaves, in percent rounded to a multiple of 5.
int paddingPercent(double windowWidth, double screenWidth);

// A trackpad fling, from the accumulated scroll.
enum class Fling { none, up, down, left, right };
inline constexpr double kFlingThreshold = 85;
inline constexpr double kFlingDominance = 1.3;
Fling evaluateFling(double x, double y);

// The scroll phases a fling is read from.
enum class ScrollPhase { began = 1, changed = 4, ended = 8, cancelled = 16 };
struct ScrollEvent {
    ScrollPhase phase = ScrollPhase::changed;
    double deltaX = 0, deltaY = 0;
    bool invertedFromDevice = false;
};

// The hot corner: the pointer must first go farther than 40 points from the corner (arming it), then
// come within 3 points to fire once.
enum class HotCorner { off, topLeft, topRight, bottomLeft, bottomRight };
std::optional<HotCorner> hotCornerFromName(std::string_view name);
class HotCornerTracker {
  public:
    static constexpr double kArmDistance = 40;
    static constexpr double kFireDistance = 3;
    // True when this move fires the corner.
    bool move(Point pointer, Point corner);
    bool armed() const { return armed_; }
    void disarm() { armed_ = false; }

  private:
    bool armed_ = false;
};
// The corner's point on a screen.
Point cornerPoint(HotCorner corner, const Rect& screen);

}  // namespace zelk::expose
