#pragma once
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace zelk {

// What a highlighted row stands for when an action is run on it: an app (by its bundle identifier) or
// one window (its number and the app that owns it).
struct SelectionActionTarget {
    enum class Kind { app, window };
    Kind kind = Kind::app;
    std::string bundleID;
    std::uint32_t windowID = 0;
    std::int32_t pid = 0;  // the owning process when the row knows it; 0: look it up
    std::string title;     // the row's title, for the log

    static SelectionActionTarget app(std::string bundleID) {
        return {Kind::app, std::move(bundleID), 0, 0, {}};
    }
    static SelectionActionTarget window(std::uint32_t id, std::string bundleID, std::int32_t pid = 0) {
        return {Kind::window, std::move(bundleID), id, pid, {}};
    }
    bool isWindow() const { return kind == Kind::window; }
    // "window id=1001 bundle=com.apple.Safari", "app bundle=com.apple.Safari"
    std::string describe() const;
    bool operator==(const SelectionActionTarget&) const = default;
};

// Which rows an action removes from an open panel: every row of one window, or every row of one app
// (its app row and its window rows).
struct RowMatch {
    std::optional<std::uint32_t> windowID;
    std::optional<std::string> bundleID;
    bool matchesWindow(std::uint32_t id) const { return windowID && *windowID == id; }
    bool matchesApp(const std::string& bundle) const { return bundleID && *bundleID == bundle; }
};

// The highlighted row of one panel that lists rows (the search, the tab cycle, the app cycle), and the
// removal of rows that an action made stale. A panel that isn't up answers no row; `prune` keeps the
// highlighted index, clamped to the rows left, and answers whether any row went.
struct HighlightedRows {
    std::function<std::optional<SelectionActionTarget>()> highlighted;
    std::function<bool(const RowMatch&)> prune;
    bool available() const { return highlighted && prune; }
};

}  // namespace zelk
