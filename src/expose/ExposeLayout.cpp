#include "expose/ExposeLayout.h"

#include <algorithm>
#include <cmath>

#include "expose/ExposeArrange.h"
#include "expose/ExposeRelax.h"

namespace zelk::expose {

namespace {

constexpr double kCardFill = 0.5;
constexpr double kCardSpreadFactor = 1.55;
constexpr double kCardStagger = 0.05;
constexpr double kCardOverlap = 0.34;
constexpr int kCardSeparatePasses = 26;
constexpr int kFitRounds = 14;
constexpr double kCenterInset = 0.06;
constexpr int kCardRelaxPasses = 40;
constexpr double kCardPull = 0.015;
constexpr double kMaxExpansion = 1.3;
constexpr double kExpansionThreshold = 1.05;
constexpr int kPushRounds = 12;
constexpr double kTilesTop = 12;

constexpr double kSectionFill = 0.5;
constexpr double kPreservedFill = 0.34;
constexpr double kSectionSpacing = 30;
constexpr double kSectionTitleHeight = 60;
constexpr double kSectionHeaderHeight = 26;
constexpr double kMinAvailable = 120;
constexpr double kMaxSlack = 75;
constexpr int kSectionRelaxPasses = 30;
constexpr double kSectionPull = 0.01;

Size cardSize(const Card& c) {
    return {std::max(c.width, kCardMinInnerWidth) + kCardChromeWidth,
            c.height + kCardHeaderHeight + kCardChromeHeight};
}

std::vector<Card> buildCards(const std::vector<CardSpec>& cards, double s, const Rect& container) {
    std::vector<Card> built;
    built.reserve(cards.size());
    for (const CardSpec& spec : cards)
        built.push_back(layoutCard(spec.items, s, container));
    return built;
}

Rect unionOfAll(const std::vector<Rect>& frames) {
    Rect u = frames.front();
    for (const Rect& f : frames)
        u = unionOf(u, f);
    return u;
}

// Pushes cards that come closer than the gap apart along the axis of smaller overlap.
int pushApart(std::vector<Rect>& frames, const Rect& container) {
    int rounds = 0;
    for (int round = 0; round < kPushRounds; ++round) {
        ++rounds;
        bool pushed = false;
        for (std::size_t i = 0; i < frames.size(); ++i) {
            for (std::size_t j = i + 1; j < frames.size(); ++j) {
                Rect& a = frames[i];
                Rect& b = frames[j];
                const double ox = kCardGap + (a.width + b.width) / 2 - std::abs(b.midX() - a.midX());
                const double oy = kCardGap + (a.height + b.height) / 2 - std::abs(b.midY() - a.midY());
                if (!(ox > 0 && oy > 0)) continue;
                if (ox <= oy) {
                    const double d = ox / 2 + 0.5;
                    Rect& left = a.midX() <= b.midX() ? a : b;
                    Rect& right = &left == &a ? b : a;
                    left.x -= d;
                    right.x += d;
                } else {
                    const double d = oy / 2 + 0.5;
                    Rect& top = a.midY() <= b.midY() ? a : b;
                    Rect& bottom = &top == &a ? b : a;
                    top.y -= d;
                    bottom.y += d;
                }
                pushed = true;
            }
        }
        for (Rect& f : frames)
            clampInto(f, container);
        if (!pushed) break;
    }
    return rounds;
}

}  // namespace

double expansionScale(double available, double extent) {
    return std::min(extent <= 1 ? available : available / extent, kMaxExpansion);
}

Card layoutCard(const std::vector<Item>& items, double s, const Rect& rect) {
    Card card;
    if (items.empty()) return card;
    if (items.size() == 1) {
        const Size t = tileSize(items[0], s, rect);
        card.placed.push_back({items[0].id, {0, 0, t.width, t.height}});
        card.width = t.width;
        card.height = t.height;
        return card;
    }
    std::vector<Size> sizes;
    double maxW = 0, maxH = 0;
    std::optional<Rect> bounds;
    for (const Item& item : items) {
        sizes.push_back(tileSize(item, s, rect));
        maxW = std::max(maxW, sizes.back().width);
        maxH = std::max(maxH, sizes.back().height);
        if (isUsable(item.frame)) bounds = bounds ? unionOf(*bounds, item.frame) : item.frame;
    }
    const Rect b = bounds.value_or(Rect{0, 0, 1, 1});
    const double n = static_cast<double>(items.size());
    std::vector<Rect> frames;
    frames.reserve(items.size());
    for (std::size_t i = 0; i < items.size(); ++i) {
        // A window without a usable frame has no place of its own: it starts at the card's centre.
        double nx = 0, ny = 0;
        if (isUsable(items[i].frame)) {
            if (b.width > 1) nx = (items[i].frame.midX() - b.midX()) / b.width;
            if (b.height > 1) ny = (items[i].frame.midY() - b.midY()) / b.height;
        }
        const double t = static_cast<double>(i) - (n - 1) / 2;
        const double w = sizes[i].width, h = sizes[i].height;
        frames.push_back({maxW * kCardSpreadFactor * nx + w * t * kCardStagger - w * 0.5,
                          maxH * kCardSpreadFactor * ny + h * t * kCardStagger - h * 0.5, w, h});
    }
    card.separatePasses = separate(frames, kCardSeparatePasses, kCardOverlap);
    const Rect u = unionOfAll(frames);
    for (std::size_t i = 0; i < items.size(); ++i)
        card.placed.push_back(
            {items[i].id, {frames[i].x - u.x, frames[i].y - u.y, frames[i].width, frames[i].height}});
    card.width = u.width;
    card.height = u.height;
    return card;
}

CardsLayout layoutCards(const std::vector<CardSpec>& cards, const std::map<std::string, Point>& pinnedCenters,
                        const std::map<std::string, Point>& normalizedCenters, const Rect& container) {
    CardsLayout out;
    if (cards.empty()) return out;
    const double W = container.width, H = container.height;

    std::vector<Item> all;
    for (const CardSpec& c : cards)
        all.insert(all.end(), c.items.begin(), c.items.end());
    double s = fillScale(all, container, kCardFill);
    std::vector<Card> built = buildCards(cards, s, container);

    double previousArea = -1;
    for (int round = 0; round < kFitRounds; ++round) {
        ++out.passes.fitRounds;
        double area = 0, widest = 0, tallest = 0;
        for (const Card& c : built) {
            const Size size = cardSize(c);
            area += (size.width + kCardGap) * (size.height + kCardGap);
            widest = std::max(widest, size.width);
            tallest = std::max(tallest, size.height);
        }
        const double fit =
            std::min({std::sqrt(W * H * 0.8 / std::max(area, 1.0)), W * 0.96 / widest, H * 0.96 / tallest});
        if ((fit > 0.97 && fit < 1.06) ||
            (previousArea > 0 && std::abs(area - previousArea) < previousArea * 0.01))
            break;
        s *= std::clamp(fit, 0.7, 1.3);
        built = buildCards(cards, s, container);
        previousArea = area;
    }

    bool anyPinned = false;
    std::vector<Point> centres;
    for (const CardSpec& c : cards) {
        if (auto p = pinnedCenters.find(c.key); p != pinnedCenters.end()) {
            anyPinned = true;
            centres.push_back(p->second);
        } else if (auto n = normalizedCenters.find(c.key); n != normalizedCenters.end()) {
            centres.push_back(
                {container.minX() + W * kCenterInset + n->second.x * W * (1 - 2 * kCenterInset),
                 container.minY() + H * kCenterInset + n->second.y * H * (1 - 2 * kCenterInset)});
        } else {
            centres.push_back(container.center());
        }
    }
    std::vector<Rect> frames;
    for (std::size_t i = 0; i < cards.size(); ++i)
        frames.push_back(centredRect(centres[i], cardSize(built[i])));
    const RelaxPasses relaxed = relax(frames, centres, kCardRelaxPasses, container, kCardGap, kCardPull);
    out.passes.relaxPasses = relaxed.passes;
    out.passes.settlePasses = relaxed.settle;

    if (!anyPinned) {
        const Rect u = unionOfAll(frames);
        const double sx = expansionScale(W, u.width), sy = expansionScale(H, u.height);
        if (sx > kExpansionThreshold || sy > kExpansionThreshold) {
            if (std::min(sx, sy) > kExpansionThreshold) {
                s *= std::min(sx, sy);
                built = buildCards(cards, s, container);
            }
            for (std::size_t i = 0; i < cards.size(); ++i) {
                const Point c{container.midX() + sx * (frames[i].midX() - u.midX()),
                              container.midY() + sy * (frames[i].midY() - u.midY())};
                frames[i] = centredRect(c, cardSize(built[i]));
            }
            out.passes.pushRounds = pushApart(frames, container);
        }
    }

    for (std::size_t i = 0; i < cards.size(); ++i) {
        const Rect& card = frames[i];
        const double dx = card.midX() - built[i].width * 0.5, dy = card.minY() + kTilesTop;
        for (const Placed& p : built[i].placed)
            out.placed.push_back({p.id, {p.frame.x + dx, p.frame.y + dy, p.frame.width, p.frame.height}});
        out.cards.push_back({cards[i].key,
                             card,
                             {card.minX(), card.maxY() - kCardHeaderHeight, card.width, kCardHeaderHeight}});
        out.passes.separatePasses = std::max(out.passes.separatePasses, built[i].separatePasses);
    }
    return out;
}

namespace {

struct SectionTiles {
    std::vector<Placed> placed;  // relative to the content's top left
    double width = 0, height = 0;
    int relaxPasses = 0;
};

SectionTiles preservedTiles(const std::vector<Item>& items, double s, const Rect& container,
                            double captionHeight, double gap) {
    std::optional<Rect> bounds;
    for (const Item& item : items)
        if (isUsable(item.frame)) bounds = bounds ? unionOf(*bounds, item.frame) : item.frame;
    const Rect u = *bounds;
    const double W = container.width;
    const double d = std::min(s, (W - 24) / u.width);
    std::vector<Rect> frames;
    std::vector<Point> anchors;
    std::vector<Size> sizes;
    for (const Item& item : items) {
        const Size t = tileSize(item, d, container);
        const Point c = isUsable(item.frame)
                            ? Point{d * (item.frame.midX() - u.midX()), d * (item.frame.midY() - u.midY())}
                            : Point{0, 0};
        sizes.push_back(t);
        anchors.push_back(c);
        frames.push_back(centredRect(c, {t.width + gap, t.height + captionHeight + gap}));
    }
    const Rect open{-W / 2, -100000, W, 300000};
    SectionTiles out;
    out.relaxPasses = relax(frames, anchors, kSectionRelaxPasses, open, gap, kSectionPull).passes;
    const Rect all = unionOfAll(frames);
    for (std::size_t i = 0; i < items.size(); ++i)
        out.placed.push_back({items[i].id,
                              {frames[i].x + gap / 2 - all.x, frames[i].y + gap / 2 - all.y, sizes[i].width,
                               sizes[i].height}});
    out.width = all.width;
    out.height = all.height + captionHeight;
    return out;
}

}  // namespace

SectionsLayout layoutSections(const std::vector<SectionSpec>& allSections, const Rect& container,
                              double captionHeight, double gap, bool preserveArrangement) {
    SectionsLayout out;
    std::vector<const SectionSpec*> sections;
    for (const SectionSpec& s : allSections)
        if (!s.items.empty()) sections.push_back(&s);
    if (sections.empty()) return out;
    const double W = container.width, H = container.height;
    const double n = static_cast<double>(sections.size());
    double titled = 0;
    std::vector<Item> all;
    for (const SectionSpec* s : sections) {
        if (!s->title.empty()) titled += 1;
        all.insert(all.end(), s->items.begin(), s->items.end());
    }
    const double available =
        std::max(kMinAvailable, H - (n - 1) * kSectionSpacing - titled * kSectionTitleHeight);
    double s = fillScale(all, container, preserveArrangement ? kPreservedFill : kSectionFill);

    std::vector<SectionTiles> tiles;
    double total = 0;
    double previousTotal = -1;
    for (int round = 0; round < kFitRounds; ++round) {
        ++out.passes.fitRounds;
        tiles.clear();
        total = 0;
        double widest = 0;
        for (const SectionSpec* section : sections) {
            const bool anyUsable = std::any_of(section->items.begin(), section->items.end(),
                                               [](const Item& i) { return isUsable(i.frame); });
            if (preserveArrangement && anyUsable) {
                tiles.push_back(preservedTiles(section->items, s, container, captionHeight, gap));
                out.passes.relaxPasses = std::max(out.passes.relaxPasses, tiles.back().relaxPasses);
            } else {
                RowPacking rows = rowPack(section->items, s, container, W, gap, captionHeight);
                tiles.push_back({std::move(rows.placed), rows.width, rows.height, 0});
            }
            total += tiles.back().height;
            widest = std::max(widest, tiles.back().width);
        }
        double fit = available / std::max(total, 1.0);
        if (fit > 1 && widest > 0) fit = std::min(fit, W / widest);
        if ((fit > 0.995 && fit < 1.08) ||
            (previousTotal > 0 && std::abs(total - previousTotal) < previousTotal * 0.01))
            break;
        s *= std::clamp(std::pow(fit, 0.65), 0.72, 1.3);
        previousTotal = total;
    }

    const double slack = std::min(kMaxSlack, std::max(0.0, available - total) / (n + 1));
    double y = container.minY() + slack;
    for (std::size_t i = 0; i < sections.size(); ++i) {
        const SectionSpec& spec = *sections[i];
        const SectionTiles& t = tiles[i];
        Rect header;
        double top = y;
        if (!spec.title.empty()) {
            header = {container.minX(), y, W, kSectionHeaderHeight};
            top = y + kSectionTitleHeight;
        }
        const double left = container.minX() + (W - t.width) * 0.5;
        for (const Placed& p : t.placed)
            out.placed.push_back({p.id, {p.frame.x + left, p.frame.y + top, p.frame.width, p.frame.height}});
        out.sections.push_back({spec.key, header, {left, top, t.width, t.height}});
        y = top + t.height + (i + 1 < sections.size() ? slack + kSectionSpacing : 0);
    }
    return out;
}

}  // namespace zelk::expose
