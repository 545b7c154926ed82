#pragma once
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "search/SearchEngine.h"
#include "support/MainQueue.h"
#include "support/Observable.h"

namespace zelk::search {

// The live search behind the panel: the rows of the last query and the highlighted row, both
// observable (the panels draw them, nothing in a view decides), and the debounced way of running it.
// Main thread only.
class SearchSession {
  public:
    // The debounce of the typing path.
    static constexpr ferrow::Nanos kTypingDebounce = ferrow::ms(90);

    SearchSession(std::function<const SearchEngine&()> engine, std::function<SearchState()> state)
        : engine_(std::move(engine)), state_(std::move(state)) {}
    ~SearchSession() { pending_.cancel(); }
    SearchSession(const SearchSession&) = delete;
    SearchSession& operator=(const SearchSession&) = delete;

    ferrow::Observable<std::vector<SearchResult>> searchResults;
    ferrow::Observable<std::size_t> selectedSearchIndex{0};

    // Runs the query now (cancelling a waiting run), publishes its rows and highlights the default row.
    void rerunSearch(const std::string& query);
    // The debounced form: a later call, or rerunSearch, replaces a waiting run.
    void scheduleSearch(const std::string& query, ferrow::Nanos after = kTypingDebounce);
    // A waiting run, now; false when none waited.
    bool flushPending();
    bool hasPending() const { return pending_.isPending(); }
    // The search ended: no rows, nothing waiting.
    void clear();

    // Moves the highlight, wrapping; nothing without rows.
    void step(int delta);
    void select(std::size_t index);
    std::optional<SearchResult> selected() const;
    // The highlighted running app opens into its windows: they follow its row (moved up when already
    // listed) and the highlight goes to the first. Nothing without rows; false when the highlighted
    // row is no running app with windows.
    std::optional<bool> expandSelected();
    const std::string& query() const { return query_; }
    bool windowsOnly() const { return windowsOnly_; }
    // Why each row stands where it does.
    std::vector<std::vector<std::string>> reasons() const;

  private:
    std::function<const SearchEngine&()> engine_;
    std::function<SearchState()> state_;
    std::string query_, pendingQuery_;
    bool windowsOnly_ = false;
    SearchState lastState_;
    ferrow::WorkItem pending_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace zelk::search
