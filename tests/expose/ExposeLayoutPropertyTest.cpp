#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <set>

#include "expose/ExposeLayout.h"
#include "expose/ExposeNavigation.h"

using namespace zelk;
using namespace zelk::expose;

namespace {

Rect randomFrame(std::mt19937& rng) {
    std::uniform_real_distribution<double> pos(-500, 3000), side(0, 2000);
    switch (std::uniform_int_distribution<int>(0, 9)(rng)) {
        case 0:
            return {};
        case 1:
            return {NAN, 0, 800, 600};
        case 2:
            return {0, 0, INFINITY, 600};
        case 3:
            return {pos(rng), pos(rng), 20, 20};
        default:
            return {pos(rng), pos(rng), side(rng), side(rng)};
    }
}

double randomAspect(std::mt19937& rng) {
    switch (std::uniform_int_distribution<int>(0, 7)(rng)) {
        case 0:
            return 0;
        case 1:
            return NAN;
        case 2:
            return -2;
        case 3:
            return 0.05;
        default:
            return std::uniform_real_distribution<double>(0.2, 5)(rng);
    }
}

std::vector<CardSpec> randomCards(std::mt19937& rng, std::uint32_t& nextId) {
    std::vector<CardSpec> cards(std::uniform_int_distribution<std::size_t>(1, 9)(rng));
    for (std::size_t c = 0; c < cards.size(); ++c) {
        cards[c].key = "app" + std::to_string(c);
        const auto n = std::uniform_int_distribution<std::size_t>(0, 7)(rng);
        for (std::size_t i = 0; i < n; ++i)
            cards[c].items.push_back({nextId++, randomAspect(rng), randomFrame(rng)});
    }
    return cards;
}

bool finite(const Rect& r) {
    return std::isfinite(r.x) && std::isfinite(r.y) && std::isfinite(r.width) && std::isfinite(r.height);
}

bool sameBits(const Rect& a, const Rect& b) {
    return std::memcmp(&a, &b, sizeof(Rect)) == 0;
}

bool inside(const Rect& inner, const Rect& outer) {
    const double e = 1e-6;
    return inner.minX() >= outer.minX() - e && inner.maxX() <= outer.maxX() + e &&
           inner.minY() >= outer.minY() - e && inner.maxY() <= outer.maxY() + e;
}

}  // namespace

TEST(ExposeLayoutProperties, CardsAreDeterministicFiniteCompleteAndHoldTheirTiles) {
    std::mt19937 rng(424242);
    for (int round = 0; round < 300; ++round) {
        std::uint32_t nextId = 1;
        const auto cards = randomCards(rng, nextId);
        const Rect container{std::uniform_real_distribution<double>(-100, 100)(rng), 0,
                             std::uniform_real_distribution<double>(200, 3000)(rng),
                             std::uniform_real_distribution<double>(200, 2000)(rng)};
        std::map<std::string, Point> pinned, normalised;
        for (const auto& c : cards) {
            const int kind = std::uniform_int_distribution<int>(0, 3)(rng);
            if (kind == 0 && round % 3 == 0) pinned[c.key] = {container.midX() + 100, container.midY() - 50};
            if (kind == 1)
                normalised[c.key] = *keyboardPosition(std::string(1, static_cast<char>('a' + round % 26)));
        }
        const CardsLayout a = layoutCards(cards, pinned, normalised, container);
        const CardsLayout b = layoutCards(cards, pinned, normalised, container);
        ASSERT_EQ(a.placed.size(), nextId - 1);
        ASSERT_EQ(a.cards.size(), cards.size());
        std::set<std::uint32_t> ids;
        for (std::size_t i = 0; i < a.placed.size(); ++i) {
            ASSERT_TRUE(finite(a.placed[i].frame)) << round;
            ASSERT_TRUE(sameBits(a.placed[i].frame, b.placed[i].frame)) << round;
            ids.insert(a.placed[i].id);
        }
        EXPECT_EQ(ids.size(), a.placed.size());
        std::size_t tile = 0;
        for (std::size_t c = 0; c < cards.size(); ++c) {
            ASSERT_TRUE(finite(a.cards[c].frame));
            ASSERT_TRUE(sameBits(a.cards[c].frame, b.cards[c].frame));
            for (std::size_t i = 0; i < cards[c].items.size(); ++i, ++tile)
                EXPECT_TRUE(inside(a.placed[tile].frame, a.cards[c].frame)) << round << " card " << c;
        }
        EXPECT_LE(a.passes.fitRounds, 14);
        EXPECT_LE(a.passes.relaxPasses, 40);
        EXPECT_LE(a.passes.settlePasses, 20);
        EXPECT_LE(a.passes.pushRounds, 12);
        EXPECT_LE(a.passes.separatePasses, 26);
    }
}

TEST(ExposeLayoutProperties, SectionsAreDeterministicFiniteCompleteAndHoldTheirTiles) {
    std::mt19937 rng(1234);
    for (int round = 0; round < 200; ++round) {
        std::uint32_t nextId = 1;
        const auto cards = randomCards(rng, nextId);
        std::vector<SectionSpec> sections;
        for (const auto& c : cards)
            sections.push_back({c.key, round % 2 ? "Display" : "", "", c.items, std::nullopt});
        const Rect container{0, 50, std::uniform_real_distribution<double>(300, 3000)(rng),
                             std::uniform_real_distribution<double>(300, 2000)(rng)};
        const bool preserve = round % 3 != 0;
        const SectionsLayout a = layoutSections(sections, container, 18, 16, preserve);
        const SectionsLayout b = layoutSections(sections, container, 18, 16, preserve);
        ASSERT_EQ(a.placed.size(), nextId - 1);
        std::set<std::uint32_t> ids;
        for (std::size_t i = 0; i < a.placed.size(); ++i) {
            ASSERT_TRUE(finite(a.placed[i].frame)) << round;
            ASSERT_TRUE(sameBits(a.placed[i].frame, b.placed[i].frame)) << round;
            ids.insert(a.placed[i].id);
        }
        EXPECT_EQ(ids.size(), a.placed.size());
        std::size_t tile = 0, s = 0;
        for (const auto& spec : sections) {
            if (spec.items.empty()) continue;
            const Rect& content = a.sections[s++].frame;
            ASSERT_TRUE(finite(content));
            for (std::size_t i = 0; i < spec.items.size(); ++i, ++tile)
                EXPECT_TRUE(inside(a.placed[tile].frame, content)) << round;
        }
        EXPECT_EQ(s, a.sections.size());
        EXPECT_LE(a.passes.fitRounds, 14);
        EXPECT_LE(a.passes.relaxPasses, 30);
    }
}
