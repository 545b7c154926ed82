#include "search/FuzzyScore.h"

#include <algorithm>
#include <array>
#include <bit>
#include <memory>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace zelk::search {

namespace {

constexpr int kMismatch = kMismatchScore;
constexpr int kGap = kGapCost;
constexpr int kExactCase = kExactCaseBonus;
constexpr int kRun = kRunBonus;
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
constexpr std::array<std::uint64_t, kMaxSparseLength / 64> kNoPositions{};

// The matches scored so far: each match's row, column and value, in vectors of eight lanes.
constexpr std::size_t kMaxSparseMatches = 48;
struct SparseCells {
    alignas(16) std::array<std::int16_t, kMaxSparseMatches> i, j, value;
};

// The matches scored so far, and what they offer the row being scored. A match at (i, j) with match
// score s draws from a match (I, J, V) of an earlier row, with di = i - 1 - I and dj = j - 1 - J:
// - diagonally when J < j: V - cost + s, the path losing 4 per diagonal step and 3 per straight one,
//   cost = 3 max(di, dj) + min(di, dj) = max(3 di + dj, di + 3 dj) (paths going right or down first
//   cost more and gain nothing);
// - straight down when J == j: V - 3 (di + 1), adding nothing.
// For a fixed row di is fixed, so V - cost = min(P - (j - 1), Q - 3 (j - 1)) with P = V - 3 di + J and
// Q = V - di + 3 J, both known once the row starts: a match then costs a few vector steps over the
// earlier matches, eight at a time in 16-bit lanes (lengths stay within kMaxSparseLength so that every
// sum fits).
class Matches {
  public:
    explicit Matches(SparseCells& cells) : cells_(cells) {}

    void add(std::size_t at, int i, int j, int value) {
#if defined(__SSE2__)
        // A fresh vector starts zeroed, so that its unused lanes are read as numbers (then masked).
        if (at % 8 == 0) {
            for (auto* lanes : {cells_.i.data(), cells_.j.data(), cells_.value.data()})
                _mm_store_si128(reinterpret_cast<__m128i*>(lanes + at), _mm_setzero_si128());
        }
#endif
        cells_.i[at] = static_cast<std::int16_t>(i);
        cells_.j[at] = static_cast<std::int16_t>(j);
        cells_.value[at] = static_cast<std::int16_t>(value);
    }

    // Prepares the draws of row i from the matches [0, end).
    void beginRow(std::size_t end, int i);

    // The value of a match at column j of the row with match score s, before what it draws from its own
    // row: s alone, or more from an earlier row.
    int draw(int j, int s) const;

  private:
    static constexpr std::size_t kVectors = kMaxSparseMatches / 8;
    SparseCells& cells_;
#if defined(__SSE2__)
    std::size_t vectors_ = 0;
    __m128i p_[kVectors], q_[kVectors], down_[kVectors], column_[kVectors];
#else
    std::size_t end_ = 0;
    int row_ = 0;
#endif
};

#if defined(__SSE2__)
void Matches::beginRow(std::size_t end, int i) {
    vectors_ = (end + 7) / 8;
    const __m128i lane = _mm_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7);
    const __m128i rowAbove = _mm_set1_epi16(static_cast<std::int16_t>(i - 1));
    // Far enough below any real value that a lane past `end` never wins, yet every sum stays in range.
    const __m128i nothing = _mm_set1_epi16(-16000);
    for (std::size_t k = 0; k < vectors_; ++k) {
        const auto at = [&](const auto& column) {
            return _mm_load_si128(reinterpret_cast<const __m128i*>(column.data() + 8 * k));
        };
        const __m128i column = at(cells_.j), value = at(cells_.value);
        const __m128i di = _mm_sub_epi16(rowAbove, at(cells_.i));
        const __m128i di3 = _mm_add_epi16(di, _mm_add_epi16(di, di));
        const __m128i column3 = _mm_add_epi16(column, _mm_add_epi16(column, column));
        const __m128i live = _mm_cmpgt_epi16(
            _mm_set1_epi16(static_cast<std::int16_t>(static_cast<int>(end) - static_cast<int>(8 * k))), lane);
        const auto keep = [&](__m128i v) {
            return _mm_or_si128(_mm_and_si128(live, v), _mm_andnot_si128(live, nothing));
        };
        p_[k] = keep(_mm_add_epi16(_mm_sub_epi16(value, di3), column));
        q_[k] = keep(_mm_add_epi16(_mm_sub_epi16(value, di), column3));
        down_[k] = keep(_mm_sub_epi16(_mm_sub_epi16(value, di3), _mm_set1_epi16(kGap)));
        column_[k] = column;
    }
}

int Matches::draw(int j, int s) const {
    if (vectors_ == 0) return s;
    const __m128i at = _mm_set1_epi16(static_cast<std::int16_t>(j));
    const __m128i left = _mm_sub_epi16(at, _mm_set1_epi16(1));
    const __m128i left3 = _mm_add_epi16(left, _mm_add_epi16(left, left));
    const __m128i score = _mm_set1_epi16(static_cast<std::int16_t>(s));
    // Lanes that don't reach this match stay at 0, which never wins: s is above 0.
    __m128i best = _mm_setzero_si128();
    for (std::size_t k = 0; k < vectors_; ++k) {
        const __m128i diagonal =
            _mm_add_epi16(_mm_min_epi16(_mm_sub_epi16(p_[k], left), _mm_sub_epi16(q_[k], left3)), score);
        const __m128i before = _mm_cmpgt_epi16(at, column_[k]);
        const __m128i same = _mm_cmpeq_epi16(at, column_[k]);
        best = _mm_max_epi16(best,
                             _mm_max_epi16(_mm_and_si128(before, diagonal), _mm_and_si128(same, down_[k])));
    }
    best = _mm_max_epi16(best, _mm_shuffle_epi32(best, 0x4E));
    best = _mm_max_epi16(best, _mm_shuffle_epi32(best, 0xB1));
    best = _mm_max_epi16(best, _mm_shufflelo_epi16(best, 0xB1));
    return std::max(s, static_cast<int>(static_cast<std::int16_t>(_mm_extract_epi16(best, 0))));
}
#else
void Matches::beginRow(std::size_t end, int i) {
    end_ = end;
    row_ = i;
}

int Matches::draw(int j, int s) const {
    int best = s;
    for (std::size_t p = 0; p < end_; ++p) {
        const int di = row_ - 1 - cells_.i[p], dj = j - 1 - cells_.j[p];
        if (dj >= 0)
            best = std::max(best, cells_.value[p] - (kGap * std::max(di, dj) + std::min(di, dj)) + s);
        else if (dj == -1)
            best = std::max(best, cells_.value[p] - kGap * (di + 1));
    }
    return best;
}
#endif

}  // namespace

const std::uint64_t* noPositions() {
    return kNoPositions.data();
}

// Matches are found and scored row by row (query character, then text position), so every cell a match
// can draw on is scored before it. The text is seen only through its position sets.
std::optional<int> fuzzyScoreSparse(std::span<const CharKey> query, const PositionSets& text) {
    if (query.size() > kMaxSparseRows || text.length > kMaxSparseLength) return std::nullopt;
    SparseCells storage;
    Matches cells(storage);
    std::size_t count = 0;
    // Matches against each other cost about count^2 / 2 cheap steps, the table about m * n dearer
    // ones: take matches while they stay the cheaper (the factor 3 measured best on titles).
    const std::size_t tableCost = 3 * query.size() * text.length;
    std::size_t limit = 8;
    int best = 0;
    const std::uint64_t* previous = kNoPositions.data();  // positions of the previous query character
    for (std::size_t row = 0; row < query.size(); ++row) {
        const std::uint64_t* positions = text.rows[row];
        const std::uint64_t* runFrom = previous;
        previous = positions;
        // A character the text lacks adds no match: its row has nothing to prepare.
        std::uint64_t any = 0;
        for (std::size_t w = 0; w < text.words; ++w)
            any |= positions[w];
        if (!any) continue;
        const int i = static_cast<int>(row);
        cells.beginRow(count, i);
        int rowBestLifted = 0;  // best of value + gap * column over the row's earlier matches
        for (std::size_t w = 0; w < text.words; ++w) {
            // A run: the previous query character matches just before (and every match holds a value).
            const std::uint64_t runs = positions[w] & (runFrom[w] << 1 | (w > 0 ? runFrom[w - 1] >> 63 : 0));
            const std::uint64_t boundary = text.boundary[w], lowercase = text.lowercase[w];
            for (std::uint64_t bits = positions[w]; bits; bits &= bits - 1) {
                if (count == limit) {
                    if (limit == kMaxSparseMatches || limit * limit >= tableCost) return std::nullopt;
                    ++limit;
                }
                const std::uint64_t bit = bits & (~bits + 1);
                const int j = static_cast<int>(w * 64) + std::countr_zero(bits);
                const int s = (j == 0 ? 14 : 6) + ((boundary & bit) ? 4 : 0) +
                              ((lowercase & bit) ? kExactCase : 0) + ((runs & bit) ? kRun : 0);
                // From the same row only going right: value - gap * distance.
                const int left = rowBestLifted - kGap * j;
                const int value = std::max(cells.draw(j, s), left);
                rowBestLifted = std::max(rowBestLifted, value + kGap * j);
                best = std::max(best, value);
                cells.add(count++, i, j, value);
            }
        }
    }
    return best;
}

namespace {

constexpr std::array<std::uint8_t, kMaxSparseLength> kZeroRow{};

}  // namespace

const std::uint8_t* zeroByteRow() {
    return kZeroRow.data();
}

namespace {

// The sparse way needs every query character to be its own lower case: the text's lower-case set then
// tells where a match has the same case.
std::optional<int> scoreByPositions(const MatchText& query, const MatchText& text) {
    auto q = query.lowerKeys();
    if (q.size() > kMaxSparseRows || !query.isLowercase()) return std::nullopt;
    std::array<const std::uint64_t*, kMaxSparseRows> rows;
    for (std::size_t i = 0; i < q.size(); ++i) {
        rows[i] = text.positionsOf(q[i]);
        if (!rows[i]) rows[i] = noPositions();
    }
    return fuzzyScoreSparse(
        q, {rows.data(), text.boundaryBits(), text.lowercaseBits(), text.words(), text.size()});
}

}  // namespace

int fuzzyScore(const MatchText& query, const MatchText& text) {
    const std::size_t n = text.size();
    if (query.empty() || n == 0) return 0;
    // Without a character in common nothing matches.
    if (!(query.lowerKeyMask() & text.lowerKeyMask())) return 0;
    if (auto sparse = scoreByPositions(query, text)) return *sparse;
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
