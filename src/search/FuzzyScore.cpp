#include "search/FuzzyScore.h"

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

namespace zelk::search {

namespace {

constexpr int kMismatch = -4;
constexpr int kGap = 3;
constexpr int kExactCase = 1;
constexpr int kRun = 4;
constexpr std::size_t kStackColumns = 512;

struct Rows {
    int* prev;          // previous row, columns 0..n
    int* cur;           // current row, columns 0..n
    bool* matchedPrev;  // whether query row i-1 matched at each text position
    bool* matched;
};

// Row by row, a cell is max(0, diagonal + s, up - gap, left - gap). The first three terms depend on
// the previous row only, so they are computed in one branch-free pass; the left term is then a running
// maximum of (a[k] + gap*k) - gap*j. A match right after a match of the previous query character is a
// run: such a diagonal predecessor always holds a positive value, so the run test needs only the flags.
int align(const MatchText& query, const MatchText& text, Rows rows) {
    const std::size_t m = query.size(), n = text.size();
    const CharKey* q = query.lowerKeys().data();
    const CharKey* qExact = query.exactKeys().data();
    const CharKey* t = text.lowerKeys().data();
    const CharKey* tExact = text.exactKeys().data();
    const std::int8_t* base = text.matchBase().data();
    int* prev = rows.prev;
    int* cur = rows.cur;
    bool* matchedPrev = rows.matchedPrev;
    bool* matched = rows.matched;

    std::fill(prev, prev + n + 1, 0);
    std::fill(matchedPrev, matchedPrev + n, false);
    cur[0] = 0;
    int best = 0;
    for (std::size_t i = 0; i < m; ++i) {
        const CharKey qk = q[i];
        const CharKey qe = qExact[i];
        bool any = false;
        for (std::size_t j = 0; j < n; ++j) {
            matched[j] = t[j] == qk;
            any |= matched[j];
        }
        if (!any && best == 0) {
            // Nothing matched yet and nothing here: the row stays all zero.
            std::fill(matchedPrev, matchedPrev + n, false);
            continue;
        }
        int rowBest = 0;
        for (std::size_t j = 0; j < n; ++j) {
            const bool run = j > 0 && matchedPrev[j - 1];
            const int hit = base[j] + (tExact[j] == qe ? kExactCase : 0) + (run ? kRun : 0);
            const int s = matched[j] ? hit : kMismatch;
            const int a = std::max(std::max(0, prev[j] + s), prev[j + 1] - kGap);
            cur[j + 1] = a;
            rowBest = std::max(rowBest, a);
        }
        best = std::max(best, rowBest);
        int running = 0;
        for (std::size_t j = 1; j <= n; ++j) {
            const int lifted = cur[j] + kGap * static_cast<int>(j);
            running = std::max(running, lifted);
            cur[j] = running - kGap * static_cast<int>(j);
        }
        std::swap(prev, cur);
        std::swap(matchedPrev, matched);
    }
    return best;
}

// Every positive value starts at a match (a cell whose characters are equal) and only loses value
// along non-matching steps: 3 per step right or down, 4 per diagonal step. So a cell's value is the best
// of the matches up-left of it less the cheapest path, and the best cell is a match. With few matches
// (the usual case: a short query in a title) scoring just the matches against each other is far
// cheaper than filling the table; many matches fall back to the table.
constexpr std::size_t kMaxSparseMatches = 48;

struct Match {
    int i, j, value;
};

inline int pathCost(int di, int dj) {
    const int diagonal = std::min(di, dj);
    return 4 * diagonal + kGap * (std::max(di, dj) - diagonal);
}

// Returns -1 when there are too many matches for this way to pay. Matches are found and scored row by
// row (query character, then text position), so every cell a match can draw on is scored before it.
int alignMatches(const MatchText& query, const MatchText& text) {
    std::array<Match, kMaxSparseMatches> cells;
    std::size_t count = 0;
    auto q = query.lowerKeys();
    const CharKey* t = text.lowerKeys().data();
    const CharKey* qExact = query.exactKeys().data();
    const CharKey* tExact = text.exactKeys().data();
    const std::int8_t* base = text.matchBase().data();
    // Matches against each other cost about count^2 / 2 cheap steps, the table about m * n dearer
    // ones: pick the cheaper (the factor 3 measured best on window titles).
    std::size_t limit = 8;
    while (limit < kMaxSparseMatches && limit * limit < 3 * q.size() * text.size())
        ++limit;
    int best = 0;
    for (std::size_t row = 0; row < q.size(); ++row) {
        const CharKey key = q[row];
        const int i = static_cast<int>(row);
        const std::size_t rowStart = count;
        int rowBestLifted = 0;  // best of value + gap * column over the row's earlier matches
        // Only the positions of the key's class can match; the rest of the text is never looked at.
        for (std::uint32_t position : text.positionsOfClass(key)) {
            if (t[position] != key) continue;
            if (count == limit) return -1;
            const int j = static_cast<int>(position);
            int s = base[j] + (tExact[j] == qExact[i] ? kExactCase : 0);
            // A run: the previous query character matches just before, and every match holds a value.
            if (i > 0 && j > 0 && t[j - 1] == q[row - 1]) s += kRun;
            // From an earlier row, a match up-left reaches this one diagonally; its paths going right
            // or down first cost more and gain nothing. One right above reaches it only going down.
            int diagonal = 0, up = 0;
            for (std::size_t p = 0; p < rowStart; ++p) {
                const Match& from = cells[p];
                if (from.j < j)
                    diagonal = std::max(diagonal, from.value - pathCost(i - 1 - from.i, j - 1 - from.j));
                else if (from.j == j)
                    up = std::max(up, from.value - kGap * (i - from.i));
            }
            // From the same row only going right: value - gap * distance.
            const int left = rowBestLifted - kGap * j;
            const int value = std::max({diagonal + s, up, left});
            rowBestLifted = std::max(rowBestLifted, value + kGap * j);
            best = std::max(best, value);
            cells[count++] = {i, j, value};
        }
    }
    return best;
}

}  // namespace

int fuzzyScore(const MatchText& query, const MatchText& text) {
    const std::size_t n = text.size();
    if (query.empty() || n == 0) return 0;
    // Without a character in common nothing matches.
    if (!(query.lowerKeyMask() & text.lowerKeyMask())) return 0;
    if (int sparse = alignMatches(query, text); sparse >= 0) return sparse;
    if (n < kStackColumns) {
        std::array<int, kStackColumns + 1> a, b;
        std::array<bool, kStackColumns> c, d;
        return align(query, text, {a.data(), b.data(), c.data(), d.data()});
    }
    std::vector<int> a(n + 1), b(n + 1);
    std::unique_ptr<bool[]> c(new bool[n]), d(new bool[n]);
    return align(query, text, {a.data(), b.data(), c.get(), d.get()});
}

int fuzzyScore(std::string_view query, std::string_view text) {
    return fuzzyScore(MatchText(query), MatchText(text));
}

}  // namespace zelk::search
