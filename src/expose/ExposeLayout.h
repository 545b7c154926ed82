#pragma once
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "expose/ExposeTiles.h"

// The overview's two views: cards of applications, and sections (one per display or Space). Pure:
// the same input gives the same output, bit for bit, and every loop has a fixed pass limit.
namespace zelk::expose {

struct CardSpec {
    std::string key;  // group key
    std::vector<Item> items;
};

struct CardPlacement {
    std::string key;
    Rect frame;        // card
    Rect headerFrame;  // the 50-point strip under the tiles that holds the card's label
    bool operator==(const CardPlacement&) const = default;
};

struct SectionSpec {
    std::string key;
    std::string title;
    std::string subtitle;
    std::vector<Item> items;
    std::optional<Rect> sourceBounds;  // the display's frame, when the section maps a real screen
};

struct SectionPlacement {
    std::string key;
    Rect headerFrame;  // empty without a title
    Rect frame;        // content
    bool operator==(const SectionPlacement&) const = default;
};

// How many rounds and passes a layout used, so that benchmarks can show the limits hold.
struct LayoutPasses {
    int fitRounds = 0;
    int relaxPasses = 0;
    int settlePasses = 0;
    int pushRounds = 0;
    int separatePasses = 0;  // the most any one card used
};

struct CardsLayout {
    std::vector<Placed> placed;
    std::vector<CardPlacement> cards;
    LayoutPasses passes;
};

struct SectionsLayout {
    std::vector<Placed> placed;
    std::vector<SectionPlacement> sections;
    LayoutPasses passes;
};

struct Card {
    std::vector<Placed> placed;  // relative to the card's inner top left
    double width = 0, height = 0;
    int separatePasses = 0;
};

inline constexpr double kCardChromeWidth = 24;
inline constexpr double kCardChromeHeight = 24;
inline constexpr double kCardHeaderHeight = 50;
inline constexpr double kCardMinInnerWidth = 138;
inline constexpr double kCardGap = 18;

// The tiles of one application's card at scale `s`: one window alone, several kept near their real
// arrangement and separated so that each stays recognisable.
Card layoutCard(const std::vector<Item>& items, double s, const Rect& rect);

// How far the grouped view may stretch card positions to fill `available` on one axis where the cards
// span `extent`: available / extent, never above 1.3, not even when the extent is degenerate.
double expansionScale(double available, double extent);

// Grouped view. A card sits at its pinned centre, else at its normalised centre (0..1 on each axis)
// mapped into the container, else at the container's centre.
CardsLayout layoutCards(const std::vector<CardSpec>& cards, const std::map<std::string, Point>& pinnedCenters,
                        const std::map<std::string, Point>& normalizedCenters, const Rect& container);

// Sectioned view: sections stacked top to bottom, each packed in rows or, with `preserveArrangement`,
// in its windows' real arrangement.
SectionsLayout layoutSections(const std::vector<SectionSpec>& sections, const Rect& container,
                              double captionHeight, double gap, bool preserveArrangement);

}  // namespace zelk::expose
