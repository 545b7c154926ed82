#include "expose/ExposeArrange.h"

#include <algorithm>
#include <cmath>

#include "expose/ExposeRelax.h"

namespace zelk::expose {

namespace {

constexpr double kGridInset = 5;
constexpr double kGridDefaultAspect = 1.5;
constexpr int kSpatialPasses = 24;
constexpr double kSpatialOverlap = 0.32;

Rect inset(const Rect& r, double dx, double dy) {
    return {r.x + dx, r.y + dy, r.width - 2 * dx, r.height - 2 * dy};
}

Rect fitAspect(const Rect& cell, double aspect) {
    double w = cell.width, h = w / aspect;
    if (h > cell.height) {
        h = cell.height;
        w = h * aspect;
    }
    return {cell.midX() - w / 2, cell.midY() - h / 2, w, h};
}

}  // namespace

std::vector<Placed> gridArrange(const std::vector<Item>& items, const Rect& target) {
    std::vector<Placed> out;
    const std::size_t n = items.size();
    if (n == 0) return out;
    const auto cols =
        std::max<std::size_t>(static_cast<std::size_t>(std::ceil(std::sqrt(static_cast<double>(n)))), 1);
    const std::size_t rows = (n + cols - 1) / cols;
    const double cw = target.width / static_cast<double>(cols),
                 ch = target.height / static_cast<double>(rows);
    out.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        const Rect cell = inset({target.x + cw * static_cast<double>(i % cols),
                                 target.y + ch * static_cast<double>(i / cols), cw, ch},
                                kGridInset, kGridInset);
        const double a = items[i].aspect;
        const double aspect =
            std::isfinite(a) && a > 0 ? std::clamp(a, kMinAspect, kMaxAspect) : kGridDefaultAspect;
        Rect tile = cell.width > 0 && cell.height > 0 ? fitAspect(cell, aspect)
                                                      : Rect{cell.midX(), cell.midY(), 0, 0};
        out.push_back({items[i].id, tile});
    }
    return out;
}

std::vector<Placed> spatialArrange(const std::vector<Item>& items, const Rect& source, const Rect& target,
                                   double minSide, double maxFraction) {
    if (!isFinite(source) || !(source.width > 1 && source.height > 1)) return gridArrange(items, target);
    const double k = std::min(target.width / source.width, target.height / source.height);
    std::vector<Rect> frames;
    frames.reserve(items.size());
    for (const Item& item : items) {
        Point centre;
        Size size;
        const Rect& f = item.frame;
        if (isUsable(f)) {
            centre = f.center();
            size = {f.width, f.height};
        } else {
            size = baseSize(item);
            // Around what is known of the frame: half the reference height down from its top when its
            // own height can't be used, the source's centre when nothing is known.
            const bool placedX = std::isfinite(f.x) && std::isfinite(f.width);
            const bool placedY = std::isfinite(f.y);
            const bool tallEnough = std::isfinite(f.height) && f.height >= kSmallestUsableSide;
            centre.x = placedX ? f.midX() : source.midX();
            centre.y = placedY ? (tallEnough ? f.midY() : f.y + kReferenceHeight / 2) : source.midY();
        }
        double w = k * size.width, h = k * size.height;
        if (std::max(w, h) < minSide && std::max(w, h) > 0) {
            const double up = minSide / std::max(w, h);
            w *= up;
            h *= up;
        }
        if (w > target.width * maxFraction || h > target.height * maxFraction) {
            const double down = std::min(target.width * maxFraction / w, target.height * maxFraction / h);
            w *= down;
            h *= down;
        }
        const Point c{target.midX() + k * (centre.x - source.midX()),
                      target.midY() + k * (centre.y - source.midY())};
        frames.push_back(centredRect(c, {w, h}));
    }
    separate(frames, kSpatialPasses, kSpatialOverlap);
    std::vector<Placed> out;
    out.reserve(items.size());
    for (std::size_t i = 0; i < items.size(); ++i) {
        Rect f = frames[i];
        f.width = std::min(f.width, target.width);
        f.height = std::min(f.height, target.height);
        f.x = std::clamp(f.x, target.minX(), target.maxX() - f.width);
        f.y = std::clamp(f.y, target.minY(), target.maxY() - f.height);
        out.push_back({items[i].id, f});
    }
    return out;
}

RowPacking rowPack(const std::vector<Item>& items, double s, const Rect& rect, double maxRowWidth, double gap,
                   double captionHeight) {
    struct Row {
        std::vector<std::size_t> members;
        double width = 0, height = 0;
    };
    std::vector<Size> sizes;
    sizes.reserve(items.size());
    for (const Item& item : items)
        sizes.push_back(tileSize(item, s, rect));

    std::vector<Row> rows;
    for (std::size_t i = 0; i < items.size(); ++i) {
        const Size t = sizes[i];
        // An empty row always takes its first tile, however wide.
        if (rows.empty() || rows.back().width + gap + t.width > maxRowWidth) rows.emplace_back();
        Row& row = rows.back();
        row.width += (row.members.empty() ? 0 : gap) + t.width;
        row.height = std::max(row.height, t.height);
        row.members.push_back(i);
    }

    RowPacking out;
    for (const Row& row : rows)
        out.width = std::max(out.width, row.width);
    double y = 0;
    for (std::size_t r = 0; r < rows.size(); ++r) {
        const Row& row = rows[r];
        double x = (out.width - row.width) * 0.5;
        for (std::size_t i : row.members) {
            out.placed.push_back(
                {items[i].id, {x, y + (row.height - sizes[i].height), sizes[i].width, sizes[i].height}});
            x += sizes[i].width + gap;
        }
        y += row.height + captionHeight + (r + 1 < rows.size() ? gap : 0);
    }
    out.height = y;
    return out;
}

std::vector<Placed> spacesBarMinis(const std::vector<Item>& items, const Rect& cell,
                                   const std::optional<Rect>& sourceBounds, double captionHeight) {
    constexpr double kSideInset = 2;
    constexpr double kCaptionPadding = 4;
    constexpr double kContentFloor = 20;
    const double contentHeight = std::max(kContentFloor, cell.height - (captionHeight + kCaptionPadding));
    const Rect inner{cell.x + kSideInset, cell.y + kSideInset, cell.width - 2 * kSideInset,
                     contentHeight - kSideInset};
    if (!(inner.width > 8 && inner.height > 8)) return {};
    const double minSide = std::min(0.4 * std::min(inner.width, inner.height), 22.0);
    if (sourceBounds && isFinite(*sourceBounds) && sourceBounds->width > 1 && sourceBounds->height > 1)
        return spatialArrange(items, *sourceBounds, inner, minSide, 1.0);
    std::optional<Rect> bounds;
    for (const Item& item : items)
        if (isUsable(item.frame)) bounds = bounds ? unionOf(*bounds, item.frame) : item.frame;
    if (!bounds) return gridArrange(items, inner);
    const Rect grown{bounds->x - bounds->width * 0.05, bounds->y - bounds->height * 0.05, bounds->width * 1.1,
                     bounds->height * 1.1};
    return spatialArrange(items, grown, inner, minSide, 1.0);
}

}  // namespace zelk::expose
