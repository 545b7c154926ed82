#include "search/WindowFilter.h"

#include <algorithm>
#include <limits>

#include "search/ByteRows.h"
#include "search/FuzzyScore.h"
#include "search/Graphemes.h"

namespace zelk::search {

WindowCandidate WindowCandidate::make(std::string_view title, std::string_view key) {
    return WindowCandidate{std::string(title), MatchText(lowercased(title)), lowercased(key)};
}

WindowCandidateList::WindowCandidateList(std::vector<WindowCandidate> rows) : rows_(std::move(rows)) {
    byTitle_.resize(rows_.size());
    for (std::uint32_t i = 0; i < byTitle_.size(); ++i)
        byTitle_[i] = i;
    std::stable_sort(byTitle_.begin(), byTitle_.end(),
                     [&](std::uint32_t a, std::uint32_t b) { return rows_[a].title < rows_[b].title; });
    wordStart_.reserve(rows_.size() + 1);
    vectorStart_.reserve(rows_.size() + 1);
    firstKeys_.reserve(rows_.size());
    for (std::uint32_t row = 0; row < rows_.size(); ++row) {
        const MatchText& t = rows_[row].lowercasedTitle;
        firstKeys_.push_back(t.empty() ? 0 : t.lowerKeys().front());
        const bool indexed = !t.empty() && t.size() <= kMaxSparseLength;
        const std::size_t words = indexed ? t.words() : 0;
        wordStart_.push_back(static_cast<std::uint32_t>(wordStart_.back() + words));
        const std::size_t vectors = indexed ? byteRowVectors(t.size()) : 0;
        vectorStart_.push_back(static_cast<std::uint32_t>(vectorStart_.back() + vectors));
        if (!indexed) continue;
        // A match's score before the run bonus: position and boundary, and 1 where the title's
        // character is its own lower case (the case of a lower-case query then agrees).
        const std::size_t from = hitBase_.size();
        hitBase_.resize(from + 16 * vectors, 0);
        for (std::size_t j = 0; j < t.size(); ++j)
            hitBase_[from + j] = static_cast<std::uint8_t>(
                t.matchBase()[j] + ((t.lowercaseBits()[j / 64] >> (j % 64)) & 1 ? 1 : 0));
        boundary_.insert(boundary_.end(), t.boundaryBits(), t.boundaryBits() + words);
        lowercase_.insert(lowercase_.end(), t.lowercaseBits(), t.lowercaseBits() + words);
        std::vector<CharKey> keys(t.lowerKeys().begin(), t.lowerKeys().end());
        std::sort(keys.begin(), keys.end());
        keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
        for (CharKey key : keys) {
            const std::uint64_t* positions = t.positionsOf(key);
            auto& list = postings_[key];
            for (std::uint32_t w = 0; w < words; ++w)
                if (positions[w]) list.push_back({row, w, positions[w]});
        }
    }
}

std::span<const WindowCandidateList::Posting> WindowCandidateList::postings(CharKey key) const {
    auto it = postings_.find(key);
    if (it == postings_.end()) return {};
    return it->second;
}

namespace {

// Each row's fuzzy score. Titles the postings cover are scored a byte row at a time from the positions
// of the query's characters, gathered across all titles in one pass over each character's postings;
// a row that stays zero (nothing above it, nothing matching in it) is skipped. The others, and titles
// whose values outgrow a byte, are scored in full.
std::vector<int> fuzzyScores(const WindowCandidateList& windows, const MatchText& query) {
    const std::size_t n = windows.size(), m = query.size();
    auto q = query.lowerKeys();
    const bool indexed = m <= kMaxSparseRows && query.isLowercase();
    std::vector<int> scores(n, 0);
    // Row r's sets: query character i's words from (wordStart(r) * m + i * words).
    std::vector<std::uint64_t> positions;
    std::vector<std::uint8_t> rows;
    if (indexed) {
        positions.assign(windows.totalWords() * m, 0);
        for (std::size_t i = 0; i < m; ++i)
            for (const auto& p : windows.postings(q[i])) {
                const std::size_t start = windows.wordStart(p.row);
                const std::size_t words = windows.wordStart(p.row + 1) - start;
                positions[start * m + i * words + p.word] = p.positions;
            }
        rows.resize(2 * 16 * byteRowVectors(kMaxSparseLength));
    }
    std::uint8_t* rowA = rows.data();
    std::uint8_t* rowB = rowA + rows.size() / 2;
    for (std::size_t r = 0; r < n; ++r) {
        const std::size_t start = windows.wordStart(r), words = windows.wordStart(r + 1) - start;
        const MatchText& title = windows.rows()[r].lowercasedTitle;
        if (!indexed || words == 0) {
            scores[r] = fuzzyScore(query, title);
            continue;
        }
        const std::size_t vectors = windows.vectorStart(r + 1) - windows.vectorStart(r);
        const std::uint64_t* own = positions.data() + start * m;
        const std::uint8_t* above = zeroByteRow();
        const std::uint64_t* previous = noPositions();
        unsigned aboveMax = 0;
        int best = 0;
        bool whole = false;
        for (std::size_t i = 0; i < m; ++i) {
            const std::uint64_t* at = own + i * words;
            std::uint64_t any = 0;
            for (std::size_t w = 0; w < words; ++w)
                any |= at[w];
            if (!any && aboveMax <= kFadingRowValue) {
                // Nothing to carry down and nothing to start: the row is zero.
                above = zeroByteRow();
                aboveMax = 0;
            } else if (aboveMax > kMaxByteRowValue) {
                whole = true;
                break;
            } else {
                aboveMax = alignByteRow(windows.hitBase(r), at, previous, vectors, above, rowA);
                best = std::max(best, static_cast<int>(aboveMax));
                above = rowA;
                std::swap(rowA, rowB);
            }
            previous = at;
        }
        scores[r] = whole ? fuzzyScore(query, title) : best;
    }
    return scores;
}

std::vector<WindowMatch> filterScored(const WindowCandidateList& windows, const MatchText& query, bool fuzzy,
                                      bool useKeys, const std::vector<int>* fuzzy_scores);

}  // namespace

void IncrementalWindowScores::reset(const WindowCandidateList& windows) {
    list_ = &windows;
    listSize_ = windows.size();
    keys_.clear();
    const std::size_t n = windows.size();
    rowsAt_.assign(1, std::vector<std::uint8_t>(16 * windows.totalVectors(), 0));
    rowMaxAt_.assign(1, std::vector<std::uint8_t>(n, 0));
    bestAt_.assign(1, std::vector<int>(n, 0));
    positionsAt_.assign(1, std::vector<std::uint64_t>(windows.totalWords(), 0));
    wholeFrom_.assign(n, std::numeric_limits<std::uint32_t>::max());
    wholeTitles_.clear();
    for (std::size_t r = 0; r < n; ++r)
        if (windows.wordStart(r + 1) == windows.wordStart(r)) {
            wholeFrom_[r] = 0;
            wholeTitles_.push_back(static_cast<std::uint32_t>(r));
        }
}

// Row `row` of the query (0-based) for every title: a title whose row above is zero and which lacks
// the character keeps a zero row; a title whose values may outgrow a byte is scored whole from here.
void IncrementalWindowScores::addRow(const WindowCandidateList& windows, const MatchText& query,
                                     std::size_t row) {
    const auto q = query.lowerKeys();
    const std::size_t length = row + 1, n = windows.size();
    for (auto* table : {&rowsAt_, &rowMaxAt_})
        if (table->size() <= length) table->resize(length + 1);
    if (bestAt_.size() <= length) bestAt_.resize(length + 1);
    if (positionsAt_.size() <= length) positionsAt_.resize(length + 1);
    auto& rows = rowsAt_[length];
    auto& rowMax = rowMaxAt_[length];
    auto& best = bestAt_[length];
    auto& positions = positionsAt_[length];
    rows.resize(16 * windows.totalVectors());
    rowMax.assign(n, 0);
    best = bestAt_[row];
    positions.assign(windows.totalWords(), 0);
    for (const auto& p : windows.postings(q[row]))
        positions[windows.wordStart(p.row) + p.word] = p.positions;
    const auto& above = rowsAt_[row];
    const auto& aboveMax = rowMaxAt_[row];
    const auto& previous = positionsAt_[row];
    for (std::size_t r = 0; r < n; ++r) {
        if (wholeFrom_[r] <= length) continue;
        const std::size_t start = windows.wordStart(r), words = windows.wordStart(r + 1) - start;
        const std::size_t vectors = windows.vectorStart(r + 1) - windows.vectorStart(r);
        std::uint8_t* out = rows.data() + 16 * windows.vectorStart(r);
        if (aboveMax[r] > kMaxByteRowValue) {
            wholeFrom_[r] = static_cast<std::uint32_t>(length);
            wholeTitles_.push_back(static_cast<std::uint32_t>(r));
            continue;
        }
        std::uint64_t any = 0;
        for (std::size_t w = 0; w < words; ++w)
            any |= positions[start + w];
        // The row stays zero (its bytes are left as they are: a zero row maximum says so).
        if (!any && aboveMax[r] <= kFadingRowValue) continue;
        const std::uint8_t* from = aboveMax[r] ? above.data() + 16 * windows.vectorStart(r) : zeroByteRow();
        const unsigned got = alignByteRow(windows.hitBase(r), positions.data() + start,
                                          previous.data() + start, vectors, from, out);
        rowMax[r] = static_cast<std::uint8_t>(got);
        best[r] = std::max(best[r], static_cast<int>(got));
    }
}

const std::vector<int>& IncrementalWindowScores::scores(const WindowCandidateList& windows,
                                                        const MatchText& query) {
    if (list_ != &windows || listSize_ != windows.size()) reset(windows);
    const auto q = query.lowerKeys();
    // The common prefix with what was scored stands; the rest is scored anew.
    std::size_t keep = 0;
    while (keep < q.size() && keep < keys_.size() && keys_[keep] == q[keep])
        ++keep;
    reused_ = keep;
    keys_.resize(keep);
    // A title that outgrew a byte on a row now forgotten is scored by rows again: its earlier rows stand.
    std::erase_if(wholeTitles_, [&](std::uint32_t r) {
        if (wholeFrom_[r] <= keep) return false;
        wholeFrom_[r] = std::numeric_limits<std::uint32_t>::max();
        return true;
    });
    for (std::size_t row = keep; row < q.size(); ++row) {
        addRow(windows, query, row);
        keys_.push_back(q[row]);
    }
    // Most keystrokes score no title whole: their scores are the rows' as they stand.
    if (wholeTitles_.empty()) return bestAt_[q.size()];
    scores_ = bestAt_[q.size()];
    for (std::uint32_t r : wholeTitles_)
        scores_[r] = fuzzyScore(query, windows.rows()[r].lowercasedTitle);
    return scores_;
}

std::vector<WindowMatch> filterWindows(const WindowCandidateList& windows, std::string_view q, bool fuzzy,
                                       bool useKeys, IncrementalWindowScores& scores) {
    const MatchText query(lowercased(q));
    if (!fuzzy || query.empty() || query.size() > kMaxSparseRows || !query.isLowercase())
        return filterScored(windows, query, fuzzy, useKeys, nullptr);
    return filterScored(windows, query, fuzzy, useKeys, &scores.scores(windows, query));
}

std::vector<WindowMatch> filterWindows(const WindowCandidateList& windows, std::string_view q, bool fuzzy,
                                       bool useKeys) {
    return filterScored(windows, MatchText(lowercased(q)), fuzzy, useKeys, nullptr);
}

namespace {

std::vector<WindowMatch> filterScored(const WindowCandidateList& windows, const MatchText& query, bool fuzzy,
                                      bool useKeys, const std::vector<int>* given) {
    std::vector<WindowMatch> out;
    if (query.empty()) {
        out.reserve(windows.size());
        for (std::size_t i = 0; i < windows.size(); ++i)
            out.push_back({i, 0});
        return out;
    }
    auto keys = query.lowerKeys();
    const std::string& firstLetter = query.characters().front();
    const int threshold = minScore(query);
    std::vector<int> computed;
    if (fuzzy && !given) computed = fuzzyScores(windows, query);
    const std::vector<int>& scores = given ? *given : computed;

    // The hits in title order, each with its group: key match first, then a title beginning with the
    // query. Sorting them stably by group, then higher score, gives the order asked for; as the scores
    // are small numbers a counting sort does it.
    struct Hit {
        std::uint32_t row;
        int score;
        unsigned group;
    };
    std::vector<Hit> hits;
    int low = std::numeric_limits<int>::max(), high = 0;
    hits.reserve(windows.size());
    for (std::uint32_t row : windows.byTitle()) {
        int score = 0;
        if (fuzzy) {
            score = scores[row];
            if (score < threshold) continue;
        } else if (!windows.rows()[row].lowercasedTitle.contains(keys)) {
            continue;
        }
        const WindowCandidate& w = windows.rows()[row];
        const bool keyMatch = useKeys && w.key == firstLetter;
        const bool prefix = windows.firstKey(row) == keys.front() && w.lowercasedTitle.hasPrefix(keys);
        hits.push_back({row, score, (keyMatch ? 0u : 2u) + (prefix ? 0u : 1u)});
        low = std::min(low, score);
        high = std::max(high, score);
    }
    if (hits.empty()) return out;
    const std::size_t span = static_cast<std::size_t>(high - low) + 1;
    auto bucket = [&](const Hit& h) { return h.group * span + static_cast<std::size_t>(high - h.score); };
    out.resize(hits.size());
    if (span <= 4096) {
        std::vector<std::uint32_t> start(4 * span + 1, 0);
        for (const Hit& h : hits)
            ++start[bucket(h) + 1];
        for (std::size_t b = 1; b < start.size(); ++b)
            start[b] += start[b - 1];
        for (const Hit& h : hits)
            out[start[bucket(h)]++] = {h.row, h.score};
    } else {
        std::stable_sort(hits.begin(), hits.end(),
                         [&](const Hit& a, const Hit& b) { return bucket(a) < bucket(b); });
        for (std::size_t i = 0; i < hits.size(); ++i)
            out[i] = {hits[i].row, hits[i].score};
    }
    return out;
}

}  // namespace

std::vector<WindowMatch> filterWindows(const std::vector<WindowCandidate>& windows, std::string_view q,
                                       bool fuzzy, bool useKeys) {
    return filterWindows(WindowCandidateList(windows), q, fuzzy, useKeys);
}

}  // namespace zelk::search
