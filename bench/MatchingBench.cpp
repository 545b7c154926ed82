// Cost of matching per keystroke on the shared corpora: the scorer per call, and a whole keystroke of
// app matching and window filtering per query. Names and titles are segmented once, as the candidate
// caches do; building that cache is measured separately.
#include <benchmark/benchmark.h>

#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "SharedCorpus.h"
#include "search/AppMatching.h"
#include "search/FuzzyScore.h"
#include "search/Graphemes.h"
#include "search/WindowFilter.h"

namespace {

using namespace zelk::search;

std::vector<std::string> readLines(const std::string& name) {
    return zelk::bench::corpusLines(name);
}

struct Corpora {
    std::vector<std::string> appNames = readLines("corpus-apps.txt");
    std::vector<std::string> titles = readLines("corpus-titles.txt");
    std::vector<std::string> queries = readLines("queries.txt");
    std::vector<MatchText> lowerAppNames, lowerTitles, lowerQueries;
    std::vector<AppCandidate> apps;
    WindowCandidateList windows;
    std::vector<std::string> prefixes = {"google",   "microsoft", "adobe",       "apple",     "amazon",
                                         "affinity", "jetbrains", "nvidia",      "parallels", "elgato",
                                         "logitech", "synology",  "wondershare", "the",       "4k",
                                         "8k",       "3d"};
    Corpora() {
        for (std::size_t i = 0; i < appNames.size(); ++i) {
            lowerAppNames.emplace_back(lowercased(appNames[i]));
            apps.push_back(AppCandidate::make("app." + std::to_string(i), appNames[i], appNames[i],
                                              i % 4 == 0, static_cast<double>(i % 17)));
        }
        std::vector<WindowCandidate> rows;
        for (const auto& t : titles) {
            lowerTitles.emplace_back(lowercased(t));
            rows.push_back(WindowCandidate::make(t, ""));
        }
        windows = WindowCandidateList(std::move(rows));
        for (const auto& q : queries)
            lowerQueries.emplace_back(lowercased(q));
    }
};

const Corpora& corpora() {
    static const Corpora c;
    return c;
}

void scoreAll(benchmark::State& state, const std::vector<MatchText>& texts) {
    const auto& c = corpora();
    std::int64_t calls = 0;
    for (auto _ : state) {
        for (const auto& q : c.lowerQueries)
            for (const auto& t : texts)
                benchmark::DoNotOptimize(fuzzyScore(q, t));
        calls += static_cast<std::int64_t>(c.lowerQueries.size() * texts.size());
    }
    state.SetItemsProcessed(calls);
    state.counters["ns_per_call"] = benchmark::Counter(
        static_cast<double>(calls) * 1e-9, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_FuzzyScoreAppNames(benchmark::State& state) {
    scoreAll(state, corpora().lowerAppNames);
}
void BM_FuzzyScoreTitles(benchmark::State& state) {
    scoreAll(state, corpora().lowerTitles);
}

// One keystroke per query: state.range(0) is the query's line, or -1 for all queries in turn (the
// reported time is then per keystroke averaged over the queries).
template <typename Keystroke>
void keystrokes(benchmark::State& state, Keystroke keystroke) {
    const auto& c = corpora();
    const auto index = state.range(0);
    std::int64_t count = 0;
    for (auto _ : state) {
        if (index >= 0) {
            keystroke(c.queries[static_cast<std::size_t>(index)]);
            ++count;
        } else {
            for (const auto& q : c.queries)
                keystroke(q);
            count += static_cast<std::int64_t>(c.queries.size());
        }
    }
    if (index >= 0)
        state.SetLabel("'" + c.queries[static_cast<std::size_t>(index)] + "'");
    else
        state.SetLabel("average over queries");
    state.counters["us_per_keystroke"] = benchmark::Counter(
        static_cast<double>(count) * 1e-6, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_MatchAppsKeystroke(benchmark::State& state) {
    const auto& c = corpora();
    keystrokes(state, [&](const std::string& q) {
        benchmark::DoNotOptimize(matchApps(c.apps, q, zelk::SearchMatchMode::anchored, c.prefixes));
    });
}

void BM_MatchAppsContainsKeystroke(benchmark::State& state) {
    const auto& c = corpora();
    keystrokes(state, [&](const std::string& q) {
        benchmark::DoNotOptimize(matchApps(c.apps, q, zelk::SearchMatchMode::contains, c.prefixes));
    });
}

void BM_FilterWindowsFuzzyKeystroke(benchmark::State& state) {
    const auto& c = corpora();
    keystrokes(state, [&](const std::string& q) {
        benchmark::DoNotOptimize(filterWindows(c.windows, q, true, false));
    });
}

// The same keystroke as a user types it: the previous keystroke (the query without its last character)
// was scored, and this one reuses it. Each round first goes back to that previous query (a deletion's
// cost, counted in) and then types the last character.
void BM_FilterWindowsTypedKeystroke(benchmark::State& state) {
    const auto& c = corpora();
    std::map<std::string, MatchText> previous;  // each query without its last character
    for (const auto& q : c.queries) {
        auto chars = splitGraphemes(lowercased(q));
        chars.pop_back();
        std::string text;
        for (const auto& ch : chars)
            text += ch;
        previous.emplace(q, MatchText(text));
    }
    IncrementalWindowScores scores;
    keystrokes(state, [&](const std::string& q) {
        const MatchText& before = previous.at(q);
        if (!before.empty()) benchmark::DoNotOptimize(scores.scores(c.windows, before));
        benchmark::DoNotOptimize(filterWindows(c.windows, q, true, false, scores));
    });
}

void BM_FilterWindowsContainsKeystroke(benchmark::State& state) {
    const auto& c = corpora();
    keystrokes(state, [&](const std::string& q) {
        benchmark::DoNotOptimize(filterWindows(c.windows, q, false, true));
    });
}

// Building the cache once: segmenting every title, then ordering and indexing the list.
void BM_SegmentTitles(benchmark::State& state) {
    const auto& c = corpora();
    for (auto _ : state) {
        std::vector<WindowCandidate> rows;
        for (const auto& t : c.titles)
            rows.push_back(WindowCandidate::make(t, ""));
        benchmark::DoNotOptimize(WindowCandidateList(std::move(rows)));
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(c.titles.size()));
}

}  // namespace

BENCHMARK(BM_FuzzyScoreAppNames);
BENCHMARK(BM_FuzzyScoreTitles);
BENCHMARK(BM_MatchAppsKeystroke)->DenseRange(-1, 19)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MatchAppsContainsKeystroke)->Arg(-1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FilterWindowsFuzzyKeystroke)->DenseRange(-1, 19)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FilterWindowsTypedKeystroke)->DenseRange(-1, 19)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FilterWindowsContainsKeystroke)->Arg(-1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SegmentTitles)->Unit(benchmark::kMicrosecond);
