// How windows get their keys under the window trigger: title patterns, the letter fallback, digits,
// free letters, and the cache that keeps a refresh from running an expression twice on one title.
#include <gtest/gtest.h>

#include "config/WindowPatterns.h"
#include "windows/WindowKeys.h"

using namespace zelk;
using namespace zelk::windows;

namespace {

std::vector<std::string> keysOf(const std::map<std::string, std::vector<AppWindow>>& rows,
                                const std::string& bundle) {
    std::vector<std::string> keys;
    for (const auto& row : rows.at(bundle))
        keys.push_back(row.key);
    return keys;
}

struct WindowKeys : ::testing::Test {
    WindowKeyPatterns patterns{defaultWindowPatternGroups()};
    std::map<std::string, std::map<std::uint32_t, int>> noNumbers;

    std::vector<std::string> keys(const std::vector<KeyedWindowSource>& windows,
                                  WindowKeyOptions options = {}) {
        auto rows = assignWindowKeys(windows, options, patterns, noNumbers);
        return keysOf(rows, windows.front().bundleIdentifier);
    }
};

}  // namespace

TEST_F(WindowKeys, PatternsTakeTheFirstWordCharacterAfterTheDash) {
    const std::string safari = "com.apple.Safari";
    EXPECT_EQ(keys({{2, "Apple — Docs", safari}, {1, "Apple — Blog", safari}}),
              (std::vector<std::string>{"b", "d"}));  // rows in id order
    // A bundle-id prefix reaches its group; the separator's punctuation is skipped.
    EXPECT_EQ(patterns.patternKey("main.rs — «zelk»", "com.sublimetext.4"), "z");
    EXPECT_EQ(patterns.patternKey("main.rs — «zelk»", "com.sublimetext.9"), "z");
    // Apps without a pattern run the default expression, slashes included.
    EXPECT_EQ(patterns.patternKey("see /q/ here", "com.example.app"), "/q/");
    EXPECT_EQ(patterns.patternKey("no slashes", "com.example.app"), std::nullopt);
}

TEST_F(WindowKeys, WindowsWithoutAPatternKeyTakeTheFreeLettersInIdOrder) {
    const std::string code = "com.microsoft.VSCode";
    // The second title yields "a" from its pattern and keeps it; the others take b and c.
    EXPECT_EQ(keys({{1, "Welcome", code}, {2, "x — alpha", code}, {3, "Untitled-1", code}}),
              (std::vector<std::string>{"b", "a", "c"}));
    // Two projects starting with one letter share their key.
    EXPECT_EQ(keys({{1, "a — zelk", code}, {2, "b — zeta", code}, {3, "plain", code}}),
              (std::vector<std::string>{"z", "z", "a"}));
}

TEST_F(WindowKeys, ReservedLettersAreSkippedAndLettersCanRunOut) {
    std::vector<KeyedWindowSource> windows;
    for (std::uint32_t id = 1; id <= 28; ++id)
        windows.push_back({id, "Untitled", "com.example.app"});
    WindowKeyOptions options;
    options.reserved = {"a", "c"};
    auto got = keys(windows, options);
    EXPECT_EQ(got[0], "b");
    EXPECT_EQ(got[1], "d");
    EXPECT_EQ(got[23], "z");
    EXPECT_EQ(got[24], "");  // 24 free letters, then none
    EXPECT_EQ(got[27], "");
}

TEST_F(WindowKeys, DigitsFromPatternsGiveWayWhenDigitsMoveWindowsToSpaces) {
    const std::string safari = "com.apple.Safari";
    std::vector<KeyedWindowSource> windows{{1, "Page — 1password", safari}, {2, "Page — news", safari}};
    EXPECT_EQ(keys(windows), (std::vector<std::string>{"1", "n"}));
    WindowKeyOptions blocked;
    blocked.blockDigitKeys = true;
    EXPECT_EQ(keys(windows, blocked), (std::vector<std::string>{"a", "n"}));
}

TEST_F(WindowKeys, TheLetterFallbackTakesTheTitlesFirstLetter) {
    WindowKeyOptions options;
    options.mode = WindowKeyMode::noNumbers;
    EXPECT_EQ(keys({{1, "2024 Report", "com.example.app"},
                    {2, "Émile's notes", "com.example.app"},
                    {3, "1234", "com.example.app"}},
                   options),
              (std::vector<std::string>{"r", "é", "a"}));
    EXPECT_EQ(windowKey(std::string("x"), "Hello", true, false), "x");
    EXPECT_EQ(windowKey(std::string("/x/"), "Hello", true, false), "h");
    EXPECT_EQ(windowKey(std::string("7"), "Hello", false, true), std::nullopt);
    EXPECT_EQ(windowKey(std::string("7"), "Hello", false, false), "7");
    EXPECT_EQ(windowKey(std::string("72"), "Hello", false, true), "72");
}

TEST_F(WindowKeys, NumbersOnlyUsesTheWindowsDigits) {
    std::vector<KeyedWindowSource> windows;
    std::map<std::string, std::map<std::uint32_t, int>> numbers;
    for (std::uint32_t id = 1; id <= 10; ++id) {
        windows.push_back({id, "Doc", "com.example.app"});
        if (id <= 9) numbers["com.example.app"][id] = static_cast<int>(id);
    }
    WindowKeyOptions options;
    options.mode = WindowKeyMode::numbersOnly;
    auto rows = assignWindowKeys(windows, options, patterns, numbers);
    auto got = keysOf(rows, "com.example.app");
    EXPECT_EQ(got[0], "1");
    EXPECT_EQ(got[8], "9");
    EXPECT_EQ(got[9], "");
    // With digits kept for Space moves the mode falls back to letters.
    options.blockDigitKeys = true;
    EXPECT_EQ(keysOf(assignWindowKeys(windows, options, patterns, numbers), "com.example.app")[0], "d");
}

TEST_F(WindowKeys, ABadPatternIsIgnoredAndResultsAreCached) {
    WindowKeyPatterns custom({{"bad", "Bad", {"com.example.bad"}, "(unclosed", ""},
                              {"good", "Good", {"com.example."}, "^(.)", ""}});
    // The bad group is left out: its app falls to the next rule that fits, the prefix group.
    EXPECT_EQ(custom.patternKey("Quarterly", "com.example.bad"), "Q");
    EXPECT_EQ(custom.evaluations(), 1u);
    EXPECT_EQ(custom.patternKey("Quarterly", "com.example.bad"), "Q");
    EXPECT_EQ(custom.evaluations(), 1u);
    for (int i = 0; i < 150; ++i)
        custom.patternKey("title " + std::to_string(i), "com.example.other");
    EXPECT_EQ(custom.cachedCount(), WindowKeyPatterns::kCacheLimit);
    // The first title was pushed out by the newer ones and runs again.
    custom.patternKey("Quarterly", "com.example.bad");
    EXPECT_EQ(custom.evaluations(), 152u);
}
