#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "search/AppMatching.h"
#include "search/FuzzyScore.h"
#include "search/Graphemes.h"
#include "search/NameAnchors.h"
#include "search/SearchEngine.h"
#include "search/TextMatch.h"
#include "search/WindowFilter.h"

using namespace zelk::search;

namespace {

// The alignment written out plainly over strings, to check the keyed scorer against.
int referenceScore(std::string_view query, std::string_view text) {
    const auto q = splitGraphemes(query), t = splitGraphemes(text);
    if (q.empty() || t.empty()) return 0;
    std::vector<std::string> ql, tl;
    for (auto& c : q)
        ql.push_back(lowercased(c));
    for (auto& c : t)
        tl.push_back(lowercased(c));
    std::vector<bool> boundary(t.size());
    for (std::size_t j = 0; j < t.size(); ++j) {
        auto prev = j ? charClass(t[j - 1]) : 0;
        boundary[j] = j == 0 || !(prev & (kLetter | kNumber)) ||
                      ((prev & kLowercase) && (charClass(t[j]) & kUppercase));
    }
    std::vector<int> prev(t.size() + 1), cur(t.size() + 1);
    int best = 0;
    for (std::size_t i = 1; i <= q.size(); ++i) {
        for (std::size_t j = 1; j <= t.size(); ++j) {
            int s = -4;
            if (ql[i - 1] == tl[j - 1]) {
                s = (j == 1 ? 14 : 6) + (boundary[j - 1] ? 4 : 0) + (q[i - 1] == t[j - 1] ? 1 : 0);
                if (i > 1 && j > 1 && prev[j - 1] > 0 && ql[i - 2] == tl[j - 2]) s += 4;
            }
            cur[j] = std::max({0, prev[j - 1] + s, prev[j] - 3, cur[j - 1] - 3});
            best = std::max(best, cur[j]);
        }
        std::swap(prev, cur);
        std::fill(cur.begin(), cur.end(), 0);
    }
    return best;
}

std::string randomBytes(std::mt19937& rng, std::size_t maxLength) {
    std::uniform_int_distribution<std::size_t> length(0, maxLength);
    std::uniform_int_distribution<int> byte(0, 255);
    std::string s(length(rng), '\0');
    for (char& c : s)
        c = static_cast<char>(byte(rng));
    return s;
}

// Text drawn from a small alphabet of mixed scripts, so that matches and runs are frequent.
std::string randomText(std::mt19937& rng, std::size_t maxLength) {
    static const std::vector<std::string> alphabet = {"a",
                                                      "b",
                                                      "c",
                                                      "A",
                                                      "B",
                                                      "C",
                                                      " ",
                                                      "-",
                                                      "1",
                                                      "2",
                                                      "é",
                                                      "É",
                                                      "e\xCC\x81",
                                                      "ß",
                                                      "中",
                                                      "—",
                                                      "\xF0\x9F\x91\x8D",
                                                      "x",
                                                      "Z"};
    std::uniform_int_distribution<std::size_t> length(0, maxLength), pick(0, alphabet.size() - 1);
    std::string s;
    for (std::size_t n = length(rng); n > 0; --n)
        s += alphabet[pick(rng)];
    return s;
}

}  // namespace

TEST(MatchingProperties, KeyedScorerAgreesWithThePlainAlignment) {
    std::mt19937 rng(20261123);
    for (int round = 0; round < 3000; ++round) {
        const std::string q = randomText(rng, 6), t = randomText(rng, 30);
        ASSERT_EQ(fuzzyScore(q, t), referenceScore(q, t)) << "query '" << q << "' text '" << t << "'";
    }
}

TEST(MatchingProperties, EmptyNeverScoresAndArbitraryBytesNeverCrash) {
    std::mt19937 rng(7);
    const std::vector<std::string> prefixes = {"the", "google"};
    std::vector<AppCandidate> apps;
    std::vector<WindowCandidate> windows;
    // Each text is segmented once and handed to every function as it stands: segmenting is where bytes
    // are read, and repeating it per call only made the test slow.
    const MatchText empty("");
    for (int round = 0; round < 2000; ++round) {
        const std::string a = randomBytes(rng, 40), b = randomBytes(rng, 8);
        const MatchText text(a), query(b);
        EXPECT_EQ(fuzzyScore(empty, text), 0);
        EXPECT_EQ(fuzzyScore(text, empty), 0);
        EXPECT_EQ(acronymBonus(empty, text), 0);
        const int score = fuzzyScore(query, text);
        EXPECT_GE(score, 0);
        EXPECT_EQ(score, referenceScore(b, a));
        (void)anchoredMatch(text, query, prefixes);
        (void)wordBoundaryMatch(text, query);
        (void)acronym(text);
        (void)nameLetters(a, prefixes);
        apps.push_back(AppCandidate::make(b, a, a, round % 2 == 0, round));
        windows.push_back(WindowCandidate::make(a, b));
    }
    // Prepared once, as the search does: the queries below then cost a filter each, not a rebuild.
    const WindowCandidateList list(std::move(windows));
    for (int round = 0; round < 50; ++round) {
        const std::string q = randomBytes(rng, 4);
        for (auto mode : {zelk::SearchMatchMode::anchored, zelk::SearchMatchMode::contains})
            for (const AppMatch& m : matchApps(apps, q, mode, prefixes))
                ASSERT_LT(m.index, apps.size());
        const auto hits = filterWindows(list, q, true, true);
        if (q.empty()) {
            EXPECT_EQ(hits.size(), list.size());
            continue;
        }
        for (const WindowMatch& m : hits)
            ASSERT_GE(m.score, minScore(MatchText(lowercased(q))));
    }
    EXPECT_TRUE(matchApps(apps, "", zelk::SearchMatchMode::anchored, prefixes).size() <= apps.size());
}

TEST(MatchingProperties, MatchedAppsAreUniqueAndAllAnchored) {
    std::mt19937 rng(99);
    std::vector<AppCandidate> apps;
    for (int i = 0; i < 300; ++i) {
        const std::string name = randomText(rng, 12);
        apps.push_back(AppCandidate::make("id" + std::to_string(i % 200), name, name, i % 3 == 0, i % 7));
    }
    for (const char* q : {"a", "b", "ab", "é", "1", "中", "c-"}) {
        const auto matches = matchApps(apps, q, zelk::SearchMatchMode::anchored, {});
        std::vector<std::string> ids;
        for (const AppMatch& m : matches) {
            EXPECT_TRUE(anchoredMatch(apps[m.index].originalName.text(), q, {}));
            ids.push_back(apps[m.index].identifier);
        }
        std::sort(ids.begin(), ids.end());
        EXPECT_EQ(std::adjacent_find(ids.begin(), ids.end()), ids.end()) << q;
    }
}

// A query typed a character at a time, with deletions and jumps to unrelated queries, filters exactly
// as a fresh filter of the same query does; long titles (several words, some past the sparse cells)
// and titles too long to index included.
TEST(MatchingProperties, AKeystrokeThatReusesThePreviousOneFiltersAsAFreshOne) {
    std::mt19937 rng(20261124);
    std::vector<WindowCandidate> rows;
    for (int i = 0; i < 150; ++i)
        rows.push_back(WindowCandidate::make(randomText(rng, i % 10 == 0 ? 180 : 40), ""));
    rows.push_back(WindowCandidate::make(std::string(5000, 'a') + "bc", ""));
    rows.push_back(WindowCandidate::make("", ""));
    const WindowCandidateList list(std::move(rows));
    IncrementalWindowScores scores;
    std::string typed;
    std::size_t reusedSomething = 0;
    std::uniform_int_distribution<int> action(0, 9);
    for (int step = 0; step < 600; ++step) {
        const int a = action(rng);
        if (a < 6 || typed.empty()) {
            typed += randomText(rng, 1);
        } else if (a < 9) {
            auto chars = splitGraphemes(typed);
            chars.pop_back();
            typed.clear();
            for (auto& c : chars)
                typed += c;
        } else {
            typed = randomText(rng, 4);
        }
        if (splitGraphemes(typed).size() > 12) typed = randomText(rng, 2);
        const auto fresh = filterWindows(list, typed, true, false);
        const auto kept = filterWindows(list, typed, true, false, scores);
        ASSERT_EQ(kept, fresh) << "step " << step << " query '" << typed << "'";
        reusedSomething += scores.reused() > 0;
    }
    EXPECT_GT(reusedSomething, 200u);
}

// The whole search typed a character at a time (with deletions) lists what a search that never saw
// the earlier keystrokes lists.
TEST(MatchingProperties, ATypedSearchListsWhatAFreshSearchLists) {
    std::mt19937 rng(20261125);
    SearchWorld world;
    for (int a = 0; a < 6; ++a) {
        const std::string bundle = "app." + std::to_string(a);
        SearchApp app{bundle, bundle, randomText(rng, 8), "", a % 2 == 0, static_cast<double>(a)};
        app.lowercasedName = lowercased(app.name);
        world.candidates.push_back(app);
        world.catalogue.push_back(app);
        for (int w = 0; w < 8; ++w)
            world.windowsByBundle[bundle].push_back({static_cast<std::uint32_t>(a * 100 + w + 1),
                                                     randomText(rng, 50), bundle, false, "", app.name});
    }
    const SearchEngine typedEngine(world);
    SearchState state;
    std::string typed;
    for (int step = 0; step < 100; ++step) {
        if (typed.empty() || step % 4 != 3) {
            typed += randomText(rng, 1);
        } else {
            auto chars = splitGraphemes(typed);
            chars.pop_back();
            typed.clear();
            for (auto& c : chars)
                typed += c;
        }
        if (splitGraphemes(typed).size() > 8) typed.clear();
        const SearchEngine fresh(world);
        ASSERT_EQ(typedEngine.search(typed, state), fresh.search(typed, state)) << "query '" << typed << "'";
    }
}

// Window titles are scored a byte row at a time, typed or fresh: every score equals the plain
// alignment's, including titles past 64 characters, titles whose values outgrow a byte (a long query
// that runs along a long title) and queries repeated from the title itself.
TEST(MatchingProperties, ByteRowScoresEqualThePlainAlignment) {
    std::mt19937 rng(20261125);
    std::vector<std::string> titles;
    for (int i = 0; i < 60; ++i)
        titles.push_back(randomText(rng, i % 6 == 0 ? 150 : 40));
    const std::string run = "abcabcabcabcabcabcabcabc";
    titles.push_back(run + " " + run);
    titles.push_back("x" + std::string(200, 'a'));
    titles.push_back(std::string(70, ' ') + "ab");
    std::vector<WindowCandidate> rows;
    for (const auto& t : titles)
        rows.push_back(WindowCandidate::make(t, ""));
    const WindowCandidateList list(std::move(rows));
    std::vector<std::string> queries = {run, std::string(20, 'a'), "ab", "b a"};
    for (int i = 0; i < 40; ++i)
        queries.push_back(lowercased(randomText(rng, 8)));
    IncrementalWindowScores typed;
    for (const auto& q : queries) {
        if (q.empty()) continue;
        std::vector<int> expected;
        for (const auto& t : titles)
            expected.push_back(referenceScore(q, lowercased(t)));
        const MatchText query(q);
        ASSERT_EQ(typed.scores(list, query), expected) << "query '" << q << "'";
        std::vector<int> fresh(titles.size(), -1);
        for (const WindowMatch& m : filterWindows(list, q, true, false))
            fresh[m.index] = m.score;
        for (std::size_t r = 0; r < titles.size(); ++r)
            ASSERT_EQ(fresh[r], expected[r] >= minScore(query) ? expected[r] : -1)
                << "query '" << q << "' title '" << titles[r] << "'";
    }
}

// Text of characters below U+0300 is split and lower-cased without the general segmenter: the same
// characters as the general path gives (a CJK character after the text sends it there).
TEST(MatchingProperties, SmallLatinTextSplitsAndLowersAsTheGeneralPath) {
    const std::string tail = "中";
    auto utf8 = [](char32_t c) {
        std::string s;
        if (c < 0x80) {
            s += static_cast<char>(c);
        } else {
            s += static_cast<char>(0xC0 | (c >> 6));
            s += static_cast<char>(0x80 | (c & 0x3F));
        }
        return s;
    };
    for (char32_t c = 1; c < 0x300; ++c) {
        for (char32_t other : {U'A', U'\r', U'\n', U'é', U'Ɛ', static_cast<char32_t>(0x2FF - c % 0x200)}) {
            const std::string text = utf8(c) + utf8(other) + "x";
            auto general = splitGraphemes(text + tail);
            general.pop_back();
            ASSERT_EQ(splitGraphemes(text), general) << static_cast<unsigned>(c);
            ASSERT_EQ(lowercased(text) + tail, lowercased(text + tail)) << static_cast<unsigned>(c);
        }
    }
    EXPECT_EQ(splitGraphemes("é\xCC\x81"), (std::vector<std::string>{"é\xCC\x81"}));
    EXPECT_EQ(lowercased("ÀÉÖ×ØÞßÿ"), "àéö×øþßÿ");
}
