#pragma once
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "config/SearchOptions.h"
#include "search/AppMatching.h"
#include "search/LearnedQueries.h"
#include "search/SearchResult.h"
#include "search/WindowFilter.h"

namespace zelk::search {

// What a search reads besides its world: the settings, the panel's state and what was learned.
struct SearchState {
    SearchMatchMode mode = SearchMatchMode::anchored;
    std::vector<std::string> optionalPrefixes;  // lower-cased
    bool switcherAppsOnly = false;
    bool runningAndStaticOnly = false;
    bool windowsOnly = false;
    std::optional<std::string> pinPickQuery;
    // A latched surface or a latched cycle: an empty query then lists everything.
    bool emptyQueryListsAll = false;
    LearnedMap selections;
    PinMap pins;
    double now = 0;  // seconds since 1970
};

// Turns a query into the ordered rows of the search panel. The world is prepared once (names and
// titles segmented, the windows indexed); each query then runs synchronously over it.
class SearchEngine {
  public:
    SearchEngine() : world_(std::make_shared<const SearchWorld>()) {}
    explicit SearchEngine(SearchWorld world);

    const SearchWorld& world() const { return *world_; }
    std::vector<SearchResult> search(std::string_view query, const SearchState& state) const;

    // The labels that say why each row stands where it does, for the explain output.
    std::vector<std::vector<std::string>> reasons(std::string_view query, const SearchState& state,
                                                  const std::vector<SearchResult>& rows) const;

    // The windows-only mode on its own.
    std::vector<SearchResult> searchOpenWindows(const std::string& q, const SearchState& state) const;

  private:
    struct Ranked {
        const SearchApp* app;
        int score;
    };
    const SearchApp* catalogueApp(const std::string& bundleID) const;
    const SearchApp* candidateApp(const std::string& bundleID) const;
    const LetterBinding* assignmentFor(const std::string& letter) const;
    int appScore(const MatchText& query, const SearchApp& app) const;
    std::vector<SearchResult> emptyQuery(const SearchState& state, bool appsOnly) const;
    std::vector<SearchResult> closedRows(const std::string& q, const std::vector<SearchResult>& emitted,
                                         bool force) const;

    std::shared_ptr<const SearchWorld> world_;
    std::unordered_map<std::string, std::size_t> candidateByBundle_, catalogueByBundle_;  // first of each
    // Each app's own windows prepared for its sub-query, and their lower-cased titles for scoring.
    std::unordered_map<std::string, WindowCandidateList> ownWindows_;
    std::vector<AppCandidate> appCandidates_;
    std::vector<MatchText> catalogueNames_;  // as written, for scores of apps that aren't candidates
    // The windows of every app with more than one, prepared for the whole-query filter.
    std::vector<const SearchWindow*> globalWindows_;
    WindowCandidateList globalList_;
    // The global windows' scores as the query grows a keystroke at a time (main thread only, like
    // every search).
    mutable IncrementalWindowScores globalScores_;
    // Each global window's group, the groups numbered in ascending bundle id order.
    std::vector<std::uint32_t> globalGroup_;
    std::vector<std::string> groupBundles_;
    std::unordered_map<std::string, std::uint32_t> groupOf_;
};

// The row highlighted after a search: a sub-query's window under its app, else the first row; the
// windows-only mode never highlights an app.
std::size_t defaultSelection(const std::vector<SearchResult>& rows, std::string_view query, bool windowsOnly);

}  // namespace zelk::search
