#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "command/SearchCommands.h"
#include "input/RoutingServices.h"
#include "search/QueryLearning.h"
#include "search/SearchEngine.h"
#include "search/SearchSession.h"
#include "support/Observable.h"

namespace zelk {
class KeyRouter;
}
namespace zelk::windows {
class WindowManager;
}

namespace zelk::agent {

// One row of a search as the `search` command answers it. The reply knows two kinds, "app" and
// "window": a recently closed window is a "window" row without a window id, its reasons beginning
// with "recently-closed".
command::ZelkSearchResult searchReplyRow(const search::SearchResult& row, std::int64_t rank,
                                         std::vector<std::string> reasons);

// The typed search of the running program: gathers the world it ranks over from the app and window
// managers (again only after they change), runs the panel's session, and learns from what is picked.
class SearchService {
  public:
    explicit SearchService(windows::WindowManager& windows);
    ~SearchService();
    SearchService(const SearchService&) = delete;
    SearchService& operator=(const SearchService&) = delete;

    // Subscribes to the managers once they run.
    void start();
    // The router whose buffer and flags the search reads.
    void attachRouter(KeyRouter* router) { router_ = router; }

    search::SearchSession& session() { return session_; }
    search::QueryLearning& learning() { return learning_; }
    const search::SearchEngine& engine();
    search::SearchState state() const;

    // The routing services this feature provides.
    void fill(RoutingServices& services);
    command::SearchProviders commandProviders();

    // Acts on the highlighted row as the trigger's release does: false when there was nothing to act
    // on (the letter's own route then stands).
    // A row chosen by its number acts even for a one-letter query.
    bool commitSelection(bool chosenRow = false);
    // The pin key: pins the query to the highlighted app, or unpins it from that app. False when the
    // highlighted row is no app (the user then picks one).
    bool pinSelection(const std::string& query);
    std::optional<RoutedApp> learnedAppFor(const std::string& query);

    // Where the closed-window rows come from and how one is reopened; the rows are read again after
    // `closedWindowsChanged`.
    void setRecentlyClosed(std::function<std::vector<search::ClosedWindowEntry>()> entries,
                           std::function<bool(const std::string& id)> reopen) {
        closedEntries_ = std::move(entries);
        reopenClosed_ = std::move(reopen);
        invalidate();
    }
    void closedWindowsChanged() { invalidate(); }

  private:
    void invalidate() { dirty_ = true; }
    search::SearchWorld gatherWorld();
    std::optional<std::string> staticBundleFor(const std::string& letter) const;
    std::optional<command::AppTarget> resolveApp(const command::ZelkRequest& r) const;
    bool commitApp(const search::SearchApp& app, const std::string& q, bool chosen);
    bool commitPinPick(const search::SearchResult& row);
    // Whether the letter's own key (static or dynamic) reaches this app.
    bool letterReaches(const std::string& letter, const std::string& bundleID) const;
    RoutedApp routedApp(const std::string& bundleID) const;
    std::optional<RoutedAssignment> ownAssignment(const std::string& bundleID) const;
    std::string appName(const std::string& bundleID) const;

    windows::WindowManager& windows_;
    KeyRouter* router_ = nullptr;
    search::SearchEngine engine_;
    bool dirty_ = true;
    search::SearchSession session_;
    search::QueryLearning learning_;
    std::vector<ferrow::Subscription> subscriptions_;
    std::function<std::vector<search::ClosedWindowEntry>()> closedEntries_;
    std::function<bool(const std::string& id)> reopenClosed_;
};

}  // namespace zelk::agent
