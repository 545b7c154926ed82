#include "expose/ExposeTiles.h"

#include <algorithm>
#include <cmath>

namespace zelk::expose {

bool isFinite(const Rect& r) {
    return std::isfinite(r.x) && std::isfinite(r.y) && std::isfinite(r.width) && std::isfinite(r.height);
}

bool isUsable(const Rect& frame) {
    return isFinite(frame) && frame.width >= kSmallestUsableSide && frame.height >= kSmallestUsableSide;
}

Size baseSize(const Item& item) {
    if (isUsable(item.frame)) return {item.frame.width, item.frame.height};
    const double a = item.aspect;
    if (!std::isfinite(a) || a <= 0) return {kUnknownWidth, kReferenceHeight};
    if (a <= kMinAspect) return {kMinAspect * kReferenceHeight, kReferenceHeight};
    return {std::min(a, kMaxAspect) * kReferenceHeight, kReferenceHeight};
}

double fillScale(const std::vector<Item>& items, const Rect& rect, double fill) {
    double sum = 0;
    for (const Item& item : items) {
        const Size b = baseSize(item);
        sum += b.width * b.height;
    }
    if (items.empty() || !(sum > 0)) return 0.2;
    return std::sqrt(fill * rect.width * rect.height / sum);
}

Size tileSize(const Item& item, double s, const Rect& rect) {
    const Size b = baseSize(item);
    double w = b.width * s, h = b.height * s;
    if (std::max(w, h) < kMinTileSide) {
        const double up = kMinTileSide / std::max(std::max(w, h), 1.0);
        w *= up;
        h *= up;
    }
    const double r1 = (std::min(rect.width, rect.height) * 0.46) / std::max(std::min(w, h), 1.0);
    const double r2 = (rect.width * 0.86) / std::max(w, 1.0);
    const double r3 = (rect.height * 0.86) / std::max(h, 1.0);
    double factor = r1 < 1 ? std::min(r1, r2) : std::min(r2, 1.0);
    factor = std::min(factor, r3);
    return {w * factor, h * factor};
}

Rect unionOf(const Rect& a, const Rect& b) {
    const double x0 = std::min(a.minX(), b.minX()), y0 = std::min(a.minY(), b.minY());
    const double x1 = std::max(a.maxX(), b.maxX()), y1 = std::max(a.maxY(), b.maxY());
    return {x0, y0, x1 - x0, y1 - y0};
}

Rect centredRect(Point centre, Size size) {
    return {centre.x - size.width / 2, centre.y - size.height / 2, size.width, size.height};
}

}  // namespace zelk::expose
