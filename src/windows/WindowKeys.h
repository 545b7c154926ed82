#pragma once
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "config/SwitcherOptions.h"
#include "config/WindowPatterns.h"
#include "windows/AppWindow.h"

namespace zelk::windows {

// The key patterns of the pattern groups, compiled once, and what they extracted from titles. A
// window list refresh asks again for every title, so results are cached (the last 100).
class WindowKeyPatterns {
  public:
    static constexpr std::size_t kCacheLimit = 100;
    // Run over titles of apps without a pattern: the slashes are part of the expression.
    static constexpr const char* kDefaultPattern = R"(/[\w\d]/)";

    explicit WindowKeyPatterns(const std::vector<WindowPatternGroup>& groups = {});
    ~WindowKeyPatterns();
    WindowKeyPatterns(WindowKeyPatterns&&) noexcept;
    WindowKeyPatterns& operator=(WindowKeyPatterns&&) noexcept;

    // The key a title yields: the first capture of the app's pattern (its bundle id's, else the
    // first id that prefixes it), or without a pattern the whole match of the default expression.
    std::optional<std::string> patternKey(const std::string& title, const std::string& bundleIdentifier);

    std::size_t cachedCount() const { return cache_.size(); }
    std::size_t evaluations() const { return evaluations_; }

    // A compiled expression (behind this type so that users of keys don't see the regex library).
    struct Compiled;

  private:
    const Compiled* patternFor(const std::string& bundleIdentifier) const;
    std::optional<std::string> run(const Compiled& pattern, const std::string& title);

    // By id (a bundle id or a prefix of bundle ids), in the groups' order; a bad expression is left
    // out, so its windows go on to the next rule.
    std::vector<std::pair<std::string, std::shared_ptr<Compiled>>> patterns_;
    std::shared_ptr<Compiled> default_;
    // "{title}-{pattern}" to the extracted key, least recently used first.
    std::list<std::pair<std::string, std::optional<std::string>>> order_;
    std::unordered_map<std::string, decltype(order_)::iterator> cache_;
    std::size_t evaluations_ = 0;
};

// The key of one window: with the letter fallback, a one-letter pattern key or else the title's first
// letter; without it, the pattern key, except a lone digit when digits are kept for Space moves.
std::optional<std::string> windowKey(const std::optional<std::string>& patternKey, const std::string& title,
                                     bool useLetterFallback, bool blockDigitKeys);

struct WindowKeyOptions {
    WindowKeyMode mode = WindowKeyMode::mixed;
    // Digits move windows to Spaces (several Spaces, the move shortcut on): no window takes one.
    bool blockDigitKeys = false;
    // Characters of the window cycle, minimise and assign keys: never handed out as free letters.
    std::set<std::string> reserved;
};

// A window as the key assignment sees it.
struct KeyedWindowSource {
    std::uint32_t id = 0;
    std::string title;
    std::string bundleIdentifier;
    bool focused = false;
};

// The rows of every app's windows with their keys, in id order per app (apps by bundle id). Digits
// come from `numbers` (bundle to window id to digit) in the numbers-only mode.
std::map<std::string, std::vector<AppWindow>> assignWindowKeys(
    const std::vector<KeyedWindowSource>& windows, const WindowKeyOptions& options,
    WindowKeyPatterns& patterns, const std::map<std::string, std::map<std::uint32_t, int>>& numbers);

}  // namespace zelk::windows
