#pragma once
#include <cstdint>
#include <map>
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
    bool operator==(const ClosedWindowEntry&) const = default;
};

enum class SearchResultKind { app, window, closedWindow };

// One row of a search: an app to focus or launch, an open window, or a closed window to reopen.
struct SearchResult {
    SearchResultKind kind = SearchResultKind::app;
    SearchApp app;
    SearchWindow window;
    ClosedWindowEntry closed;

    static SearchResult ofApp(SearchApp a) { return {SearchResultKind::app, std::move(a), {}, {}}; }
    static SearchResult ofWindow(SearchWindow w) { return {SearchResultKind::window, {}, std::move(w), {}}; }
    static SearchResult ofClosed(ClosedWindowEntry c) {
        return {SearchResultKind::closedWindow, {}, {}, std::move(c)};
    }
    bool isApp() const { return kind == SearchResultKind::app; }
    bool isWindow() const { return kind == SearchResultKind::window; }
    const std::string& bundleID() const {
        switch (kind) {
            case SearchResultKind::app:
                return app.bundleID;
            case SearchResultKind::window:
                return window.bundleIdentifier;
            case SearchResultKind::closedWindow:
                break;
        }
        return closed.bundleIdentifier;
    }
    bool operator==(const SearchResult&) const = default;
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
