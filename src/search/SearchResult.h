#pragma once
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zelk::search {

// One application a search can offer.
struct SearchApp {
    std::string identifier;  // the catalogue's identity: repeats are removed by it
    std::string bundleID;
    std::string name;            // the display name, as written (initials and anchors come from it)
    std::string lowercasedName;  // what prefixes and scores compare with
    bool running = false;
    double usageScore = 0;
    bool operator==(const SearchApp&) const = default;
};

// One open window row.
struct SearchWindow {
    std::uint32_t id = 0;
    std::string title;
    std::string bundleIdentifier;
    bool focused = false;
    std::string key;      // its window key, lower case; empty when it has none
    std::string appName;  // empty when unknown
    bool operator==(const SearchWindow&) const = default;
};

// One recently closed window, as the closed-window list keeps it.
struct ClosedWindowEntry {
    std::string bundleIdentifier;
    std::string title;
    std::string appName;  // the record's own name, used when the catalogue no longer knows the app
    std::string age;      // how long ago, as the record words it
    std::string id;       // the entry's identity in the list, by which it is reopened
    bool operator==(const ClosedWindowEntry&) const = default;
};

enum class SearchResultKind { app, window, closedWindow };

// One row of a search: an app to focus or launch, an open window, or a closed window to reopen. A row
// shares what it shows with the world it came from (a row outlives a rebuilt world safely), so a
// keystroke that lists a thousand windows copies no titles.
struct SearchResult {
    SearchResultKind kind = SearchResultKind::app;

    static SearchResult ofApp(std::shared_ptr<const SearchApp> a) {
        return {SearchResultKind::app, std::move(a), {}, {}};
    }
    static SearchResult ofWindow(std::shared_ptr<const SearchWindow> w) {
        return {SearchResultKind::window, {}, std::move(w), {}};
    }
    static SearchResult ofClosed(std::shared_ptr<const ClosedWindowEntry> c) {
        return {SearchResultKind::closedWindow, {}, {}, std::move(c)};
    }
    static SearchResult ofApp(SearchApp a) { return ofApp(std::make_shared<const SearchApp>(std::move(a))); }
    static SearchResult ofWindow(SearchWindow w) {
        return ofWindow(std::make_shared<const SearchWindow>(std::move(w)));
    }
    static SearchResult ofClosed(ClosedWindowEntry c) {
        return ofClosed(std::make_shared<const ClosedWindowEntry>(std::move(c)));
    }

    bool isApp() const { return kind == SearchResultKind::app; }
    bool isWindow() const { return kind == SearchResultKind::window; }
    // The row's payload; only the one of its kind may be read.
    const SearchApp& app() const { return *app_; }
    const SearchWindow& window() const { return *window_; }
    const ClosedWindowEntry& closed() const { return *closed_; }
    const std::string& bundleID() const {
        switch (kind) {
            case SearchResultKind::app:
                return app_->bundleID;
            case SearchResultKind::window:
                return window_->bundleIdentifier;
            case SearchResultKind::closedWindow:
                break;
        }
        return closed_->bundleIdentifier;
    }
    bool operator==(const SearchResult& o) const {
        if (kind != o.kind) return false;
        switch (kind) {
            case SearchResultKind::app:
                return *app_ == *o.app_;
            case SearchResultKind::window:
                return *window_ == *o.window_;
            case SearchResultKind::closedWindow:
                break;
        }
        return *closed_ == *o.closed_;
    }

    std::shared_ptr<const SearchApp> app_;
    std::shared_ptr<const SearchWindow> window_;
    std::shared_ptr<const ClosedWindowEntry> closed_;
};

// A letter bound to an application.
struct LetterBinding {
    std::string key;
    std::string bundleID;
    bool launchIfNotRunning = true;
};

// Everything a search ranks over, gathered when it changes (not per keystroke).
struct SearchWorld {
    // The apps a query may reach, running ones first, already narrowed by the menu-bar and
    // running-or-static rules.
    std::vector<SearchApp> candidates;
    // Every app the catalogue knows: a pin or a window may name one that isn't a candidate.
    std::vector<SearchApp> catalogue;
    std::map<std::string, LetterBinding> staticByKey, dynamicByKey;  // by lower-case key
    std::map<std::string, std::vector<std::string>> relatedByKey;    // bundle ids, in offer order
    std::map<std::string, std::vector<SearchWindow>> windowsByBundle;
    // The windows-only mode's windows, most recently used first.
    std::vector<SearchWindow> openWindows;
    // Recently closed windows, newest first (empty until something keeps them).
    std::vector<ClosedWindowEntry> closedWindows;
    // The program's own settings window, when open: it can be searched by its title.
    std::optional<SearchWindow> settingsWindow;
};

}  // namespace zelk::search
