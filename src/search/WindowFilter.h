#pragma once
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "search/FuzzyScore.h"
#include "search/MatchText.h"

namespace zelk::search {

// What the window filter needs of one window row; the lower-cased title is segmented once.
struct WindowCandidate {
    std::string title;
    MatchText lowercasedTitle;
    std::string key;  // the row's window key, lower-cased; empty when it has none

    static WindowCandidate make(std::string_view title, std::string_view key);
};

// The window rows of a search, prepared once for every keystroke that filters them: the rows in title
// order, and for each character the titles holding it with their positions, so that a keystroke reads
// a few short lists instead of every title.
class WindowCandidateList {
  public:
    // Where one title holds a character: its row, and the positions within one 64-character word of
    // the title, as bits.
    struct Posting {
        std::uint32_t row;
        std::uint32_t word;
        std::uint64_t positions;
    };

    WindowCandidateList() = default;
    explicit WindowCandidateList(std::vector<WindowCandidate> rows);

    const std::vector<WindowCandidate>& rows() const { return rows_; }
    std::size_t size() const { return rows_.size(); }
    // Row numbers in ascending title order, equal titles in row order.
    std::span<const std::uint32_t> byTitle() const { return byTitle_; }
    std::span<const Posting> postings(CharKey key) const;
    // The 64-bit words a row's title takes in position sets, from wordStart(row) to wordStart(row + 1);
    // none for a title the postings leave out (empty, or too long for the sparse scorer).
    std::size_t wordStart(std::size_t row) const { return wordStart_[row]; }
    std::size_t totalWords() const { return wordStart_.back(); }
    // A row's boundary and lower-case positions, its words() words each.
    const std::uint64_t* boundary(std::size_t row) const { return boundary_.data() + wordStart_[row]; }
    const std::uint64_t* lowercase(std::size_t row) const { return lowercase_.data() + wordStart_[row]; }
    // A row's first lower-cased key (0 for an empty title): most titles fail a prefix test there, without
    // reading the title.
    CharKey firstKey(std::size_t row) const { return firstKeys_[row]; }
    // A row's place in byte rows of the alignment (blocks of 16 positions, from vectorStart(row) to
    // vectorStart(row + 1); none for a title the postings leave out), and its match scores before the
    // run bonus, one byte a position.
    std::size_t vectorStart(std::size_t row) const { return vectorStart_[row]; }
    std::size_t totalVectors() const { return vectorStart_.back(); }
    const std::uint8_t* hitBase(std::size_t row) const { return hitBase_.data() + 16 * vectorStart_[row]; }

  private:
    std::vector<WindowCandidate> rows_;
    std::vector<std::uint32_t> byTitle_;
    std::unordered_map<CharKey, std::vector<Posting>> postings_;
    std::vector<std::uint32_t> wordStart_ = {0};
    std::vector<std::uint64_t> boundary_, lowercase_;
    std::vector<CharKey> firstKeys_;
    std::vector<std::uint32_t> vectorStart_ = {0};
    std::vector<std::uint8_t> hitBase_;
};

// The fuzzy scores of a candidate list for a query typed a character at a time. A query's alignment
// table begins with the table of each of its prefixes, so a longer query keeps its prefix's rows and
// adds the rows of its new characters: a keystroke computes one byte row per title (and skips the
// titles whose row stays zero). Going back (a deletion) forgets the rows past the common prefix.
// Titles whose values outgrow a byte are scored whole. The scores are those of fuzzyScore. Bound to
// one list: another list (or the same list moved) starts afresh.
class IncrementalWindowScores {
  public:
    // The score of every row of `windows` (in row order) for the lower-cased query.
    const std::vector<int>& scores(const WindowCandidateList& windows, const MatchText& query);
    // How many characters of the last query were reused (for tests).
    std::size_t reused() const { return reused_; }

  private:
    void reset(const WindowCandidateList& windows);
    void addRow(const WindowCandidateList& windows, const MatchText& query, std::size_t row);

    const WindowCandidateList* list_ = nullptr;
    std::size_t listSize_ = 0;
    std::vector<CharKey> keys_;  // the query rows scored so far
    // Per query length (index 0: the empty query; buffers past the current length are kept for
    // reuse): every title's last byte row (whatever its bytes where its largest value is 0), that value, the
    // best score so far, and where each title holds the length's last character (the run bonus of the next
    // row reads it).
    std::vector<std::vector<std::uint8_t>> rowsAt_;
    std::vector<std::vector<std::uint8_t>> rowMaxAt_;
    std::vector<std::vector<int>> bestAt_;
    std::vector<std::vector<std::uint64_t>> positionsAt_;
    // The query length from which a title is scored whole (its values outgrew a byte); 0 for a title
    // that isn't indexed.
    std::vector<std::uint32_t> wholeFrom_;
    std::vector<std::uint32_t> wholeTitles_;  // the titles with a wholeFrom_ (any order)
    std::vector<int> scores_;
    std::size_t reused_ = 0;
};

struct WindowMatch {
    std::size_t index = 0;  // into the candidate list
    int score = 0;          // fuzzy score when scored, else 0
    bool operator==(const WindowMatch&) const = default;
};

// The windows whose title answers to the lower-cased query `q`, best first. An empty query keeps every
// window in its order. Without `fuzzy` the title must contain the query; with it, the fuzzy score must
// reach minScore. A window whose key is the query's first character leads when `useKeys` is set.
std::vector<WindowMatch> filterWindows(const WindowCandidateList& windows, std::string_view q, bool fuzzy,
                                       bool useKeys);
// The same, scoring through `scores`, which keeps the work of the previous keystroke.
std::vector<WindowMatch> filterWindows(const WindowCandidateList& windows, std::string_view q, bool fuzzy,
                                       bool useKeys, IncrementalWindowScores& scores);
// The same for rows not prepared in advance (they are prepared on the way).
std::vector<WindowMatch> filterWindows(const std::vector<WindowCandidate>& windows, std::string_view q,
                                       bool fuzzy, bool useKeys);

}  // namespace zelk::search
