// The window filter and the scorer take shortcuts (character masks, matches scored against each other,
// ranks folded into one number); these check them against the plain table and a plain sort.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "search/FuzzyScore.h"
#include "search/Graphemes.h"
#include "search/WindowFilter.h"

using namespace zelk::search;

namespace {

// The alignment table filled cell by cell over keys, with no shortcut.
int tableScore(const MatchText& q, const MatchText& t) {
    const std::size_t m = q.size(), n = t.size();
    if (m == 0 || n == 0) return 0;
    std::vector<std::vector<int>> v(m + 1, std::vector<int>(n + 1, 0));
    int best = 0;
    for (std::size_t i = 1; i <= m; ++i)
        for (std::size_t j = 1; j <= n; ++j) {
            int s = -4;
            if (q.lowerKeys()[i - 1] == t.lowerKeys()[j - 1]) {
                s = t.matchBase()[j - 1] + (q.exactKeys()[i - 1] == t.exactKeys()[j - 1] ? 1 : 0);
                if (i > 1 && j > 1 && v[i - 1][j - 1] > 0 && q.lowerKeys()[i - 2] == t.lowerKeys()[j - 2])
                    s += 4;
            }
            v[i][j] = std::max({0, v[i - 1][j - 1] + s, v[i - 1][j] - 3, v[i][j - 1] - 3});
            best = std::max(best, v[i][j]);
        }
    return best;
}

std::string randomText(std::mt19937& rng, const std::vector<std::string>& alphabet, std::size_t maxLength) {
    std::uniform_int_distribution<std::size_t> length(0, maxLength), pick(0, alphabet.size() - 1);
    std::string s;
    for (std::size_t n = length(rng); n > 0; --n)
        s += alphabet[pick(rng)];
    return s;
}

const std::vector<std::string> kSmall = {"a", "b", "c", "A", "B", " ", "-", "é", "中", "\xF0\x9F\x91\x8D"};
const std::vector<std::string> kWide = {"a", "b", "c", "d", "e", "f", "g", "h", "i", "j",  "k", "l",
                                        "m", "n", "o", "p", "q", "r", "s", "t", "u", "v",  "w", "x",
                                        "y", "z", "S", "T", " ", ".", "—", "ü", "ß", "字", "1", "2"};

// The window filter spelled out: score or test each title, then sort stably by key match, prefix,
// score and title.
std::vector<WindowMatch> plainFilter(const std::vector<WindowCandidate>& windows, const std::string& query,
                                     bool fuzzy, bool useKeys) {
    const MatchText q(lowercased(query));
    struct Row {
        std::size_t index;
        int score;
        bool key, prefix;
    };
    std::vector<Row> rows;
    for (std::size_t i = 0; i < windows.size(); ++i) {
        const auto& w = windows[i];
        int score = 0;
        if (q.empty()) {
            rows.push_back({i, 0, false, false});
            continue;
        }
        if (fuzzy) {
            score = tableScore(q, w.lowercasedTitle);
            if (score < minScore(q)) continue;
        } else if (!w.lowercasedTitle.contains(q.lowerKeys())) {
            continue;
        }
        rows.push_back({i, score, useKeys && w.key == q.characters().front(),
                        w.lowercasedTitle.hasPrefix(q.lowerKeys())});
    }
    if (!q.empty())
        std::stable_sort(rows.begin(), rows.end(), [&](const Row& a, const Row& b) {
            if (a.key != b.key) return a.key;
            if (a.prefix != b.prefix) return a.prefix;
            if (a.score != b.score) return a.score > b.score;
            return windows[a.index].title < windows[b.index].title;
        });
    std::vector<WindowMatch> out;
    for (const Row& r : rows)
        out.push_back({r.index, r.score});
    return out;
}

}  // namespace

TEST(FilterShortcuts, ScorerAgreesWithTheTableOnDenseSparseAndLongTexts) {
    std::mt19937 rng(4242);
    for (int round = 0; round < 4000; ++round) {
        // Dense texts overflow the match budget, wide alphabets rarely share a character, long texts
        // pass 64 characters (and now and then the longest text scored match by match).
        const auto& alphabet = round % 2 ? kSmall : kWide;
        const std::size_t textLength = round % 500 == 0 ? 5000 : round % 3 == 0 ? 200 : 40;
        const MatchText q(randomText(rng, alphabet, 7)), t(randomText(rng, alphabet, textLength));
        ASSERT_EQ(fuzzyScore(q, t), tableScore(q, t))
            << "query '" << q.text() << "' text '" << t.text() << "'";
        ASSERT_EQ(fuzzyScore(t, q), tableScore(t, q));
    }
}

TEST(FilterShortcuts, CharacterMaskNeverHidesASharedCharacter) {
    std::mt19937 rng(99);
    for (int round = 0; round < 2000; ++round) {
        const MatchText a(lowercased(randomText(rng, kWide, 12))), b(lowercased(randomText(rng, kWide, 12)));
        bool shared = false;
        for (CharKey k : a.lowerKeys())
            shared |= std::find(b.lowerKeys().begin(), b.lowerKeys().end(), k) != b.lowerKeys().end();
        if (a.lowerKeyMask() & b.lowerKeyMask()) continue;
        EXPECT_FALSE(shared) << a.text() << " / " << b.text();
        EXPECT_EQ(fuzzyScore(a, b), 0);
    }
}

TEST(FilterShortcuts, FilteredWindowsMatchAPlainScoreAndSort) {
    std::mt19937 rng(31337);
    for (int round = 0; round < 60; ++round) {
        std::vector<WindowCandidate> rows;
        for (int w = 0; w < 80; ++w) {
            // Repeated titles and shared first bytes exercise every tie-break; some titles span
            // several 64-character words of positions.
            std::string title = w % 7 == 0 && !rows.empty() ? rows[static_cast<std::size_t>(w / 2)].title
                                                            : randomText(rng, kWide, w % 9 == 0 ? 200 : 30);
            if (w % 5 == 0) title = "Same prefix " + title;
            rows.push_back(WindowCandidate::make(title, w % 3 == 0 ? "a" : randomText(rng, kWide, 1)));
        }
        // One list serves every keystroke, as the candidate cache does.
        const WindowCandidateList windows(rows);
        for (int keystroke = 0; keystroke < 3; ++keystroke) {
            const std::string query = randomText(rng, (round + keystroke) % 2 ? kWide : kSmall, 4);
            for (bool fuzzy : {true, false})
                for (bool useKeys : {true, false}) {
                    const auto expected = plainFilter(rows, query, fuzzy, useKeys);
                    ASSERT_EQ(filterWindows(windows, query, fuzzy, useKeys), expected)
                        << "query '" << query << "' fuzzy " << fuzzy << " keys " << useKeys;
                    ASSERT_EQ(filterWindows(rows, query, fuzzy, useKeys), expected);
                }
        }
    }
}
