#include "windows/WindowKeys.h"

#include <unicode/locid.h>
#include <unicode/regex.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <algorithm>

namespace zelk::windows {

struct WindowKeyPatterns::Compiled {
    std::string source;
    std::unique_ptr<icu::RegexPattern> pattern;
};

namespace {

std::shared_ptr<WindowKeyPatterns::Compiled> compile(const std::string& source) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexPattern> pattern(
        icu::RegexPattern::compile(icu::UnicodeString::fromUTF8(source), 0, status));
    if (U_FAILURE(status) || !pattern) return nullptr;
    return std::make_shared<WindowKeyPatterns::Compiled>(
        WindowKeyPatterns::Compiled{source, std::move(pattern)});
}

std::string lowercased(const std::string& text) {
    std::string out;
    icu::UnicodeString::fromUTF8(text).toLower(icu::Locale::getRoot()).toUTF8String(out);
    return out;
}

// The code points of a UTF-8 text (ill-formed bytes read as U+FFFD).
std::vector<UChar32> codePoints(const std::string& text) {
    std::vector<UChar32> out;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    const auto length = static_cast<std::int32_t>(text.size());
    for (std::int32_t i = 0; i < length;) {
        UChar32 c;
        U8_NEXT(bytes, i, length, c);
        out.push_back(c < 0 ? 0xFFFD : c);
    }
    return out;
}

std::string utf8(UChar32 c) {
    std::string out;
    icu::UnicodeString(c).toUTF8String(out);
    return out;
}

}  // namespace

WindowKeyPatterns::WindowKeyPatterns(const std::vector<WindowPatternGroup>& groups)
    : default_(compile(kDefaultPattern)) {
    for (const auto& group : groups) {
        if (group.keyPattern.empty()) continue;
        auto compiled = compile(group.keyPattern);
        if (!compiled) continue;
        for (const auto& id : group.bundleIDs)
            if (!id.empty()) patterns_.emplace_back(id, compiled);
    }
}

WindowKeyPatterns::~WindowKeyPatterns() = default;
WindowKeyPatterns::WindowKeyPatterns(WindowKeyPatterns&&) noexcept = default;
WindowKeyPatterns& WindowKeyPatterns::operator=(WindowKeyPatterns&&) noexcept = default;

const WindowKeyPatterns::Compiled* WindowKeyPatterns::patternFor(const std::string& bundleIdentifier) const {
    for (const auto& [id, pattern] : patterns_)
        if (id == bundleIdentifier) return pattern.get();
    for (const auto& [id, pattern] : patterns_)
        if (bundleIdentifier.starts_with(id)) return pattern.get();
    return nullptr;
}

std::optional<std::string> WindowKeyPatterns::run(const Compiled& compiled, const std::string& title) {
    const std::string cacheKey = title + "-" + compiled.source;
    if (auto it = cache_.find(cacheKey); it != cache_.end()) {
        order_.splice(order_.end(), order_, it->second);
        return it->second->second;
    }
    ++evaluations_;
    std::optional<std::string> result;
    UErrorCode status = U_ZERO_ERROR;
    const icu::UnicodeString input = icu::UnicodeString::fromUTF8(title);
    std::unique_ptr<icu::RegexMatcher> matcher(compiled.pattern->matcher(input, status));
    if (U_SUCCESS(status) && matcher->find(status) && U_SUCCESS(status)) {
        const int group = matcher->groupCount() >= 1 ? 1 : 0;
        if (matcher->start(group, status) >= 0 && U_SUCCESS(status)) {
            std::string text;
            matcher->group(group, status).toUTF8String(text);
            if (U_SUCCESS(status) && !text.empty()) result = text;
        }
    }
    order_.emplace_back(cacheKey, result);
    cache_[cacheKey] = std::prev(order_.end());
    if (cache_.size() > kCacheLimit) {
        cache_.erase(order_.front().first);
        order_.pop_front();
    }
    return result;
}

std::optional<std::string> WindowKeyPatterns::patternKey(const std::string& title,
                                                         const std::string& bundleIdentifier) {
    if (const Compiled* pattern = patternFor(bundleIdentifier)) return run(*pattern, title);
    if (!default_) return std::nullopt;
    return run(*default_, title);
}

std::optional<std::string> windowKey(const std::optional<std::string>& patternKey, const std::string& title,
                                     bool useLetterFallback, bool blockDigitKeys) {
    if (useLetterFallback) {
        if (patternKey) {
            auto points = codePoints(*patternKey);
            if (points.size() == 1 && u_isalpha(points.front())) return patternKey;
        }
        for (UChar32 c : codePoints(title))
            if (u_isalpha(c)) return lowercased(utf8(c));
        return std::nullopt;
    }
    if (!patternKey || !blockDigitKeys) return patternKey;
    if (patternKey->size() == 1 && (*patternKey)[0] >= '0' && (*patternKey)[0] <= '9') return std::nullopt;
    return patternKey;
}

std::map<std::string, std::vector<AppWindow>> assignWindowKeys(
    const std::vector<KeyedWindowSource>& windows, const WindowKeyOptions& options,
    WindowKeyPatterns& patterns, const std::map<std::string, std::map<std::uint32_t, int>>& numbers) {
    std::map<std::string, std::vector<AppWindow>> byApp;
    for (const auto& w : windows)
        byApp[w.bundleIdentifier].push_back({w.id, w.title, w.bundleIdentifier, w.focused, ""});
    for (auto& [bundle, rows] : byApp)
        std::sort(rows.begin(), rows.end(),
                  [](const AppWindow& a, const AppWindow& b) { return a.id < b.id; });

    if (options.mode == WindowKeyMode::numbersOnly && !options.blockDigitKeys) {
        for (auto& [bundle, rows] : byApp) {
            auto app = numbers.find(bundle);
            for (auto& row : rows) {
                if (app == numbers.end()) continue;
                if (auto n = app->second.find(row.id); n != app->second.end())
                    row.key = std::to_string(n->second);
            }
        }
        return byApp;
    }

    const bool useLetterFallback = options.mode != WindowKeyMode::mixed;
    for (auto& [bundle, rows] : byApp) {
        // Windows keep the keys their titles give, even when several share one: two projects that
        // start with one letter make one key with two rows.
        std::set<std::string> taken;
        for (auto& row : rows) {
            auto key = windowKey(patterns.patternKey(row.title, bundle), row.title, useLetterFallback,
                                 options.blockDigitKeys);
            if (key) row.key = lowercased(*key);
            if (!row.key.empty()) taken.insert(row.key);
        }
        // The rest take the first free letter, in id order; once the letters run out a window has no
        // key and is reached with the arrows or by search.
        for (auto& row : rows) {
            if (!row.key.empty()) continue;
            for (char c = 'a'; c <= 'z'; ++c) {
                const std::string letter(1, c);
                if (options.reserved.count(letter) || taken.count(letter)) continue;
                row.key = letter;
                taken.insert(letter);
                break;
            }
        }
    }
    return byApp;
}

}  // namespace zelk::windows
