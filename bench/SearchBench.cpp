// One keystroke through the whole search, as a user types each query of the shared corpora one
// character at a time: 187 apps (a quarter running, letters assigned), 1,200 window titles spread
// over the apps. The world is prepared once, as the running program prepares it when apps or windows
// change.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "SharedCorpus.h"
#include "search/Graphemes.h"
#include "search/SearchEngine.h"

namespace {

using namespace zelk::search;

std::vector<std::string> lines(const std::string& name) {
    return zelk::bench::corpusLines(name);
}

struct Desk {
    std::vector<std::string> queries = lines("queries.txt");
    // Every query's prefixes, in typing order: "s", "sa", "saf".
    std::vector<std::vector<std::string>> typed;
    SearchEngine engine;
    SearchState state;

    Desk() {
        const auto names = lines("corpus-apps.txt");
        const auto titles = lines("corpus-titles.txt");
        SearchWorld w;
        for (std::size_t i = 0; i < names.size(); ++i) {
            SearchApp a{"app." + std::to_string(i),
                        "app." + std::to_string(i),
                        names[i],
                        lowercased(names[i]),
                        i % 4 == 0,
                        static_cast<double>(i % 17)};
            w.catalogue.push_back(a);
            w.candidates.push_back(a);
        }
        std::stable_partition(w.candidates.begin(), w.candidates.end(),
                              [](const SearchApp& a) { return a.running; });
        // The running apps hold the windows, twenty or so each.
        std::vector<const SearchApp*> running;
        for (const auto& a : w.candidates)
            if (a.running) running.push_back(&a);
        for (std::size_t i = 0; i < titles.size(); ++i) {
            const SearchApp& owner = *running[i % running.size()];
            w.windowsByBundle[owner.bundleID].push_back(
                {static_cast<std::uint32_t>(i + 1), titles[i], owner.bundleID, false, "", owner.name});
        }
        // Each letter reaches the first running app that begins with it; s is static.
        for (const auto* a : running) {
            const std::string letter = splitGraphemes(a->lowercasedName).front();
            w.dynamicByKey.emplace(letter, LetterBinding{letter, a->bundleID, true});
            w.relatedByKey[letter].push_back(a->bundleID);
        }
        if (auto s = w.dynamicByKey.find("s"); s != w.dynamicByKey.end()) {
            w.staticByKey["s"] = s->second;
            w.dynamicByKey.erase(s);
        }
        engine = SearchEngine(std::move(w));
        state.optionalPrefixes = {"google",      "microsoft", "adobe",     "apple",  "amazon",   "affinity",
                                  "jetbrains",   "nvidia",    "parallels", "elgato", "logitech", "synology",
                                  "wondershare", "the",       "4k",        "8k",     "3d"};
        state.now = 1'800'000'000;
        for (const auto& q : queries) {
            typed.emplace_back();
            const auto chars = splitGraphemes(q);
            std::string prefix;
            for (const auto& c : chars)
                typed.back().push_back(prefix += c);
        }
    }
};

const Desk& desk() {
    static const Desk d;
    return d;
}

// state.range(0): a query's line (its keystrokes averaged), or -1 for every query in turn.
void BM_SearchKeystroke(benchmark::State& state) {
    const auto& d = desk();
    const auto index = state.range(0);
    std::int64_t keystrokes = 0;
    for (auto _ : state) {
        for (std::size_t q = 0; q < d.typed.size(); ++q) {
            if (index >= 0 && q != static_cast<std::size_t>(index)) continue;
            for (const auto& text : d.typed[q]) {
                benchmark::DoNotOptimize(d.engine.search(text, d.state));
                ++keystrokes;
            }
        }
    }
    state.SetLabel(index >= 0 ? "'" + d.queries[static_cast<std::size_t>(index)] + "'"
                              : "average over queries");
    state.counters["us_per_keystroke"] = benchmark::Counter(
        static_cast<double>(keystrokes) * 1e-6, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// Preparing the world once (segmenting names and titles, indexing the windows).
void BM_SearchPrepareWorld(benchmark::State& state) {
    const auto& d = desk();
    for (auto _ : state)
        benchmark::DoNotOptimize(SearchEngine(d.engine.world()));
}

}  // namespace

BENCHMARK(BM_SearchKeystroke)->DenseRange(-1, 19)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SearchPrepareWorld)->Unit(benchmark::kMillisecond);
