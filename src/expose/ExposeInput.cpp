#include "expose/ExposeInput.h"

#include <algorithm>
#include <cmath>

#include "platform/EventTap.h"

namespace zelk::expose {

ExposeModifiers modifiersFrom(std::uint64_t flags) {
    namespace f = platform::flag;
    return {(flags & f::command) != 0, (flags & f::option) != 0, (flags & f::shift) != 0,
            (flags & f::control) != 0};
}

namespace {

bool isDigit1to9(Key key) {
    return key >= Key::one && key <= Key::nine;
}

bool commandKeepsIt(Key key) {
    return key == Key::w || key == Key::m || key == Key::h || key == Key::q || key == Key::equal ||
           key == Key::minus || isDigit1to9(key);
}

}  // namespace

bool passesThrough(Key key, const ExposeModifiers& m) {
    if (m.control) return true;
    if (m.command) return m.option || m.shift || !commandKeepsIt(key);
    if (m.option && m.shift) return true;
    if (m.option) return !isDigit1to9(key);
    return false;
}

bool usesISOCluster(std::string_view setting, bool keyboardIsISO) {
    if (setting == "iso") return true;
    if (setting == "ansi") return false;
    return keyboardIsISO;
}

std::optional<ExposePlacementRole> clusterRole(std::uint16_t code, bool iso) {
    using R = ExposePlacementRole;
    switch (code) {
        case 33:
            return iso ? R::halfPrimary : R::third1;
        case 30:
            return iso ? R::halfSecondary : R::third2;
        case 41:
            return iso ? R::third1 : R::halfPrimary;
        case 39:
            return iso ? R::third2 : R::halfSecondary;
        case 42:
            return R::third3;
        case 24:
            return R::maximize;
        case 27:
            return R::pad;
        case 47:
            return R::center;
        default:
            return std::nullopt;
    }
}

std::optional<stages::SemanticPosition> positionFor(ExposePlacementRole role, bool portrait) {
    using P = stages::SemanticPosition;
    using R = ExposePlacementRole;
    switch (role) {
        case R::halfPrimary:
            return portrait ? P::topHalf : P::leftHalf;
        case R::halfSecondary:
            return portrait ? P::bottomHalf : P::rightHalf;
        case R::third1:
            return portrait ? P::horizontalThird1 : P::verticalThird1;
        case R::third2:
            return portrait ? P::horizontalThird2 : P::verticalThird2;
        case R::third3:
            return portrait ? P::horizontalThird3 : P::verticalThird3;
        case R::maximize:
            return P::maximized;
        case R::center:
            return P::center;
        case R::pad:
            return std::nullopt;
    }
    return std::nullopt;
}

std::string positionLabel(stages::SemanticPosition position) {
    // "left-half" → "left half".
    std::string out(stages::rawValue(position));
    std::replace(out.begin(), out.end(), '-', ' ');
    return out;
}

int paddingPercent(double windowWidth, double screenWidth) {
    if (!(screenWidth > 0)) return 0;
    return static_cast<int>(std::lround((1 - windowWidth / screenWidth) * 0.5 * 100 / 5) * 5);
}

Fling evaluateFling(double x, double y) {
    const double ax = std::abs(x), ay = std::abs(y);
    if (ay > kFlingThreshold && ax * kFlingDominance < ay) return y < 0 ? Fling::up : Fling::down;
    if (ax > kFlingThreshold && ay * kFlingDominance < ax) return x < 0 ? Fling::left : Fling::right;
    return Fling::none;
}

std::optional<HotCorner> hotCornerFromName(std::string_view name) {
    if (name == "off") return HotCorner::off;
    if (name == "topLeft") return HotCorner::topLeft;
    if (name == "topRight") return HotCorner::topRight;
    if (name == "bottomLeft") return HotCorner::bottomLeft;
    if (name == "bottomRight") return HotCorner::bottomRight;
    return std::nullopt;
}

Point cornerPoint(HotCorner corner, const Rect& s) {
    switch (corner) {
        case HotCorner::topLeft:
            return {s.minX(), s.minY()};
        case HotCorner::topRight:
            return {s.maxX(), s.minY()};
        case HotCorner::bottomLeft:
            return {s.minX(), s.maxY()};
        case HotCorner::bottomRight:
        case HotCorner::off:
            return {s.maxX(), s.maxY()};
    }
    return {s.maxX(), s.maxY()};
}

bool HotCornerTracker::move(Point p, Point corner) {
    const double d = std::hypot(p.x - corner.x, p.y - corner.y);
    if (!armed_) {
        if (d > kArmDistance) armed_ = true;
        return false;
    }
    if (d > kFireDistance) return false;
    armed_ = false;
    return true;
}

}  // namespace zelk::expose
