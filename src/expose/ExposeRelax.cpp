#include "expose/ExposeRelax.h"

#include <algorithm>
#include <cmath>

namespace zelk::expose {

namespace {
constexpr double kVisibleShift = 0.5;
constexpr int kSettlePasses = 20;

void moveBy(Rect& r, double dx, double dy) {
    r.x += dx;
    r.y += dy;
}
}  // namespace

int separate(std::vector<Rect>& frames, int passes, double allowed) {
    const std::size_t n = frames.size();
    if (n < 2) return 0;
    const double keep = 1 - allowed;
    int run = 0;
    for (int pass = 0; pass < passes; ++pass) {
        ++run;
        bool pushed = false;
        for (std::size_t i = 0; i < n; ++i) {
            for (std::size_t j = i + 1; j < n; ++j) {
                Rect& a = frames[i];
                Rect& b = frames[j];
                const double ox = (a.width + b.width) / 2 - std::abs(b.midX() - a.midX());
                const double oy = (a.height + b.height) / 2 - std::abs(b.midY() - a.midY());
                if (!(ox > 0 && oy > 0)) continue;
                const double kx = keep * std::min(a.width, b.width);
                const double ky = keep * std::min(a.height, b.height);
                if (!(ox > kx && oy > ky)) continue;
                const double ex = ox - kx, ey = oy - ky;
                if (ex <= ey) {
                    const double d = ex * 0.5 + 0.5;
                    // Equal centres count as the first on the left (or on top).
                    Rect& left = a.midX() <= b.midX() ? a : b;
                    Rect& right = &left == &a ? b : a;
                    left.x -= d;
                    right.x += d;
                } else {
                    const double d = ey * 0.5 + 0.5;
                    Rect& top = a.midY() <= b.midY() ? a : b;
                    Rect& bottom = &top == &a ? b : a;
                    top.y -= d;
                    bottom.y += d;
                }
                pushed = true;
            }
        }
        if (!pushed) break;
    }
    return run;
}

bool spread(std::vector<Rect>& frames, double margin) {
    bool moved = false;
    const std::size_t n = frames.size();
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = i + 1; j < n; ++j) {
            Rect& a = frames[i];
            Rect& b = frames[j];
            const double dx = b.midX() - a.midX(), dy = b.midY() - a.midY();
            const double ox = margin + (a.width + b.width) / 2 - std::abs(dx);
            const double oy = margin + (a.height + b.height) / 2 - std::abs(dy);
            if (!(ox > 0.5 && oy > 0.5)) continue;
            const double d = std::hypot(dx, dy);
            double ux, uy;
            if (d < 0.5) {
                ux = ox < oy ? 1 : 0;
                uy = ox < oy ? 0 : 1;
            } else {
                ux = dx / d;
                uy = dy / d;
            }
            const double step = std::min(ox, oy) * 0.52 + 1;
            moveBy(a, -step * ux, -step * uy);
            moveBy(b, step * ux, step * uy);
            moved = true;
        }
    }
    return moved;
}

bool clampInto(Rect& frame, const Rect& rect) {
    const Rect before = frame;
    if (frame.width > rect.width)
        frame.x = rect.midX() - frame.width / 2;
    else
        frame.x = std::clamp(frame.x, rect.minX(), rect.maxX() - frame.width);
    if (frame.height > rect.height)
        frame.y = rect.midY() - frame.height / 2;
    else
        frame.y = std::clamp(frame.y, rect.minY(), rect.maxY() - frame.height);
    return std::abs(frame.x - before.x) > kVisibleShift || std::abs(frame.y - before.y) > kVisibleShift;
}

RelaxPasses relax(std::vector<Rect>& frames, const std::optional<std::vector<Point>>& anchors, int passes,
                  const Rect& rect, double margin, double pull) {
    RelaxPasses run;
    const bool pulled = anchors && anchors->size() == frames.size();
    for (int pass = 0; pass < passes; ++pass) {
        ++run.passes;
        bool moved = spread(frames, margin);
        if (pulled) {
            for (std::size_t i = 0; i < frames.size(); ++i) {
                const double dx = pull * ((*anchors)[i].x - frames[i].midX());
                const double dy = pull * ((*anchors)[i].y - frames[i].midY());
                moveBy(frames[i], dx, dy);
                moved |= std::abs(dx) > kVisibleShift || std::abs(dy) > kVisibleShift;
            }
        }
        for (Rect& f : frames)
            moved |= clampInto(f, rect);
        if (pass > 0 && !moved) break;
    }
    if (pulled) {
        for (int pass = 0; pass < kSettlePasses; ++pass) {
            ++run.settle;
            bool moved = spread(frames, margin);
            for (Rect& f : frames)
                moved |= clampInto(f, rect);
            if (!moved) break;
        }
    }
    return run;
}

}  // namespace zelk::expose
