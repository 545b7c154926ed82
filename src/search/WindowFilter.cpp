#include "search/WindowFilter.h"

#include <algorithm>
#include <limits>

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
    firstKeys_.reserve(rows_.size());
    for (std::uint32_t row = 0; row < rows_.size(); ++row) {
        const MatchText& t = rows_[row].lowercasedTitle;
        firstKeys_.push_back(t.empty() ? 0 : t.lowerKeys().front());
        const bool indexed = !t.empty() && t.size() <= kMaxSparseLength;
        const std::size_t words = indexed ? t.words() : 0;
        wordStart_.push_back(static_cast<std::uint32_t>(wordStart_.back() + words));
        if (!indexed) continue;
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

// Each row's fuzzy score. Titles the postings cover are scored from the positions of the query's
// characters, gathered across all titles in one pass over each character's postings; the others, and
// any the sparse way declines, are scored in full.
std::vector<int> fuzzyScores(const WindowCandidateList& windows, const MatchText& query) {
    const std::size_t n = windows.size(), m = query.size();
    auto q = query.lowerKeys();
    const bool sparse = m <= kMaxSparseRows && query.isLowercase();
    std::vector<int> scores(n, 0);
    // Row r's sets: query character i's words from (wordStart(r) * m + i * words).
    std::vector<std::uint64_t> positions;
    if (sparse) {
        positions.assign(windows.totalWords() * m, 0);
        for (std::size_t i = 0; i < m; ++i)
            for (const auto& p : windows.postings(q[i])) {
                const std::size_t start = windows.wordStart(p.row);
                const std::size_t words = windows.wordStart(p.row + 1) - start;
                positions[start * m + i * words + p.word] = p.positions;
            }
    }
    std::array<const std::uint64_t*, kMaxSparseRows> rows{};
    for (std::size_t r = 0; r < n; ++r) {
        const std::size_t start = windows.wordStart(r), words = windows.wordStart(r + 1) - start;
        const MatchText& title = windows.rows()[r].lowercasedTitle;
        if (!sparse || words == 0) {
            scores[r] = fuzzyScore(query, title);
            continue;
        }
        const std::uint64_t* own = positions.data() + start * m;
        std::uint64_t any = 0;
        for (std::size_t i = 0; i < m; ++i) {
            rows[i] = own + i * words;
            for (std::size_t w = 0; w < words; ++w)
                any |= rows[i][w];
        }
        if (!any) continue;
        auto score = fuzzyScoreSparse(
            q, {rows.data(), windows.boundary(r), windows.lowercase(r), words, title.size()});
        scores[r] = score ? *score : fuzzyScore(query, title);
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
    cells_.assign(n, SparseCells{});
    countAt_.assign(1, std::vector<std::uint8_t>(n, 0));
    bestAt_.assign(1, std::vector<int>(n, 0));
    lastAt_.assign(1, std::vector<std::uint64_t>(n, 0));
    wholeFrom_.assign(n, std::numeric_limits<std::uint32_t>::max());
    for (std::size_t r = 0; r < n; ++r)
        if (windows.wordStart(r + 1) == windows.wordStart(r)) wholeFrom_[r] = 0;
}

// Row `row` of the query (0-based) for every title holding its character; the others keep their
// score. A title past its cells is scored whole.
void IncrementalWindowScores::addRow(const WindowCandidateList& windows, const MatchText& query,
                                     std::size_t row) {
    const auto q = query.lowerKeys();
    const std::size_t length = row + 1;
    countAt_.resize(length + 1);
    bestAt_.resize(length + 1);
    lastAt_.resize(length + 1);
    countAt_[length] = countAt_[row];
    bestAt_[length] = bestAt_[row];
    lastAt_[length].assign(windows.size(), 0);
    auto& count = countAt_[length];
    auto& best = bestAt_[length];
    auto& last = lastAt_[length];
    const auto& before = lastAt_[row];
    // A title has a posting for each word holding the character, in row order: take it once.
    std::uint32_t seen = std::numeric_limits<std::uint32_t>::max();
    for (const auto& p : windows.postings(q[row])) {
        const std::uint32_t r = p.row;
        if (r == seen) continue;
        seen = r;
        const std::size_t words = windows.wordStart(r + 1) - windows.wordStart(r);
        // One-word titles (most) read their positions from the postings, not from the title.
        const MatchText* title = nullptr;
        const std::uint64_t *positions = &p.positions, *previous = &before[r];
        if (words == 1) {
            last[r] = p.positions;
        } else {
            title = &windows.rows()[r].lowercasedTitle;
            positions = title->positionsOf(q[row]);
            previous = row > 0 ? title->positionsOf(q[row - 1]) : nullptr;
            if (!previous) previous = noPositions();
        }
        if (wholeFrom_[r] <= length) continue;
        std::size_t n = count[r];
        auto got = addSparseRow(cells_[r], n, static_cast<int>(row), positions, previous, windows.boundary(r),
                                windows.lowercase(r), words);
        if (!got) {
            wholeFrom_[r] = static_cast<std::uint32_t>(length);
            continue;
        }
        count[r] = static_cast<std::uint8_t>(n);
        best[r] = std::max(best[r], *got);
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
    countAt_.resize(keep + 1);
    bestAt_.resize(keep + 1);
    lastAt_.resize(keep + 1);
    // A title that outgrew its cells on a row now forgotten is sparse again: its earlier matches stand.
    for (auto& from : wholeFrom_)
        if (from > keep) from = std::numeric_limits<std::uint32_t>::max();
    for (std::size_t row = keep; row < q.size(); ++row) {
        addRow(windows, query, row);
        keys_.push_back(q[row]);
    }
    // Most keystrokes score no title whole: their scores are the sparse ones as they stand.
    bool anyWhole = false;
    for (std::uint32_t from : wholeFrom_)
        anyWhole |= from <= q.size();
    if (!anyWhole) return bestAt_[q.size()];
    scores_ = bestAt_[q.size()];
    for (std::size_t r = 0; r < windows.size(); ++r)
        if (wholeFrom_[r] <= q.size()) scores_[r] = fuzzyScore(query, windows.rows()[r].lowercasedTitle);
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
