// Cost of one overview relayout: the grouped view for 10 to 1,000 windows, and every screen of a
// three-display desktop holding 500 windows. Counters report the rounds and passes used, which must
// stay within their fixed limits (fit 14, relax 40, settle 20, push 12, separate 26).
#include <benchmark/benchmark.h>

#include <random>

#include "expose/ExposeLayout.h"
#include "expose/ExposeNavigation.h"

namespace {

using namespace zelk;
using namespace zelk::expose;

struct Desktop {
    std::vector<CardSpec> cards;
    std::map<std::string, Point> normalised;
};

// Windows spread over apps of 1 to 6 windows, with real frames on a 1440x900 display, keyed by letter.
Desktop makeDesktop(int windows, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> x(0, 900), y(25, 500), w(300, 1440), h(200, 875), aspect(0.5, 2.5);
    Desktop d;
    std::uint32_t id = 1;
    while (static_cast<int>(id) <= windows) {
        CardSpec card{"app" + std::to_string(d.cards.size()), {}};
        const int n =
            std::min(std::uniform_int_distribution<int>(1, 6)(rng), windows - static_cast<int>(id) + 1);
        for (int i = 0; i < n; ++i)
            card.items.push_back({id++, aspect(rng), {x(rng), y(rng), w(rng), h(rng)}});
        const char letter = static_cast<char>('a' + d.cards.size() % 26);
        if (auto p = keyboardPosition(std::string(1, letter))) d.normalised[card.key] = *p;
        d.cards.push_back(std::move(card));
    }
    return d;
}

void report(benchmark::State& state, const LayoutPasses& most) {
    state.counters["fitRounds"] = most.fitRounds;
    state.counters["relaxPasses"] = most.relaxPasses;
    state.counters["settlePasses"] = most.settlePasses;
    state.counters["pushRounds"] = most.pushRounds;
    state.counters["separatePasses"] = most.separatePasses;
}

LayoutPasses most(LayoutPasses a, const LayoutPasses& b) {
    a.fitRounds = std::max(a.fitRounds, b.fitRounds);
    a.relaxPasses = std::max(a.relaxPasses, b.relaxPasses);
    a.settlePasses = std::max(a.settlePasses, b.settlePasses);
    a.pushRounds = std::max(a.pushRounds, b.pushRounds);
    a.separatePasses = std::max(a.separatePasses, b.separatePasses);
    return a;
}

void BM_LayoutCards(benchmark::State& state) {
    const Desktop d = makeDesktop(static_cast<int>(state.range(0)), 17);
    const Rect container{0, 0, 1440, 900};
    LayoutPasses passes;
    for (auto _ : state) {
        CardsLayout out = layoutCards(d.cards, {}, d.normalised, container);
        passes = most(passes, out.passes);
        benchmark::DoNotOptimize(out);
    }
    state.counters["cards"] = static_cast<double>(d.cards.size());
    report(state, passes);
}

// Three displays side by side, the 500 windows dealt over them, each screen laid out on its own.
void BM_LayoutCardsThreeDisplays(benchmark::State& state) {
    const std::vector<Rect> screens = {{0, 0, 1440, 900}, {1440, 0, 2560, 1440}, {-1920, 0, 1920, 1080}};
    std::vector<Desktop> perScreen;
    for (unsigned s = 0; s < screens.size(); ++s)
        perScreen.push_back(makeDesktop(s == 0 ? 166 : 167, 100 + s));
    LayoutPasses passes;
    for (auto _ : state) {
        for (std::size_t s = 0; s < screens.size(); ++s) {
            CardsLayout out = layoutCards(perScreen[s].cards, {}, perScreen[s].normalised, screens[s]);
            passes = most(passes, out.passes);
            benchmark::DoNotOptimize(out);
        }
    }
    report(state, passes);
}

void BM_LayoutSections(benchmark::State& state) {
    const Desktop d = makeDesktop(static_cast<int>(state.range(0)), 5);
    std::vector<SectionSpec> sections;
    for (std::size_t i = 0; i < 3; ++i)
        sections.push_back({"screen" + std::to_string(i), "Display", "", {}, Rect{0, 0, 1440, 900}});
    for (std::size_t c = 0; c < d.cards.size(); ++c)
        for (const Item& item : d.cards[c].items)
            sections[c % 3].items.push_back(item);
    const bool preserve = state.range(1) != 0;
    LayoutPasses passes;
    for (auto _ : state) {
        SectionsLayout out = layoutSections(sections, {0, 0, 1440, 900}, 18, 16, preserve);
        passes = most(passes, out.passes);
        benchmark::DoNotOptimize(out);
    }
    report(state, passes);
}

}  // namespace

BENCHMARK(BM_LayoutCards)->Arg(10)->Arg(30)->Arg(100)->Arg(300)->Arg(1000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LayoutCardsThreeDisplays)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LayoutSections)->Args({30, 0})->Args({30, 1})->Args({100, 1})->Unit(benchmark::kMicrosecond);
