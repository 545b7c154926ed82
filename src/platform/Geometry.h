#pragma once
#include <cmath>

namespace zelk {

// Points are in global display coordinates with the origin at the top left of the main display.
struct Point {
    double x = 0, y = 0;
    bool operator==(const Point&) const = default;
};
struct Size {
    double width = 0, height = 0;
    bool operator==(const Size&) const = default;
};
struct Rect {
    double x = 0, y = 0, width = 0, height = 0;
    bool operator==(const Rect&) const = default;
    double minX() const { return x; }
    double minY() const { return y; }
    double maxX() const { return x + width; }
    double maxY() const { return y + height; }
    double midX() const { return x + width / 2; }
    double midY() const { return y + height / 2; }
    Point center() const { return {midX(), midY()}; }
    bool isEmpty() const { return !(width > 0 && height > 0); }
    bool contains(Point p) const { return p.x >= x && p.x < maxX() && p.y >= y && p.y < maxY(); }
    bool intersects(const Rect& o) const {
        return !isEmpty() && !o.isEmpty() && x < o.maxX() && o.x < maxX() && y < o.maxY() && o.y < maxY();
    }
};

}  // namespace zelk
