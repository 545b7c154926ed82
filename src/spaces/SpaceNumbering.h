#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Geometry.h"
#include "platform/WindowServer.h"

namespace zelk::spaces {

// One user Space with the number the tool, the digits and the indicator call it by: the user Spaces
// of every display counted from 1 across the displays in their order; full-screen Spaces have none.
struct NumberedSpace {
    std::uint64_t id = 0;
    std::string display;
    int indexOnDisplay = 0;  // 0-based among all of the display's Spaces
    int number = 0;
    bool operator==(const NumberedSpace&) const = default;
};

std::vector<NumberedSpace> numberUserSpaces(const std::vector<platform::DisplaySpaces>& all);
std::optional<NumberedSpace> numberedSpace(const std::vector<NumberedSpace>& list, int number);
std::optional<NumberedSpace> numberedSpaceByID(const std::vector<NumberedSpace>& list, std::uint64_t id);
// The user Spaces of one display, in order.
std::vector<std::uint64_t> userSpacesOf(const std::vector<platform::DisplaySpaces>& all,
                                        const std::string& display);

// From these releases on the window server refuses the direct move for other processes' windows.
bool directMoveBlocked(int major, int minor);

// A window's frame carried from one display's visible frame to another's: its centre keeps its
// relative place (each source dimension taken as at least 1), its size is kept but cut to the
// target's, and the result stays inside the target.
Rect teleportFrame(const Rect& window, const Rect& sourceVisible, const Rect& targetVisible);

// Where to hold a window by its title bar: right of its window buttons, else past where they sit.
Point titleBarGrabPoint(const Rect& frame, const std::vector<Rect>& buttonFrames);

}  // namespace zelk::spaces

namespace zelk::spaces {
// Points and rectangles as log lines write them: "(10.0, 20.0)", "(0.0, 25.0, 800.0, 600.0)".
std::string pointText(Point p);
std::string rectText(const Rect& r);
}  // namespace zelk::spaces
