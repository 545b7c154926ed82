#include <gtest/gtest.h>

#include "search/AppMatching.h"
#include "search/FuzzyScore.h"
#include "search/TextMatch.h"
#include "search/WindowFilter.h"

using namespace zelk::search;
using zelk::SearchMatchMode;

namespace {
const std::vector<std::string> kPrefixes = {"google", "microsoft", "adobe", "apple", "the", "4k"};
}  // namespace

TEST(FuzzyScore, HandWorkedPairs) {
    // c: 14 first + 4 boundary + 1 case = 19; h: 6 + 1 case + 4 run after the c = 11 on top.
    EXPECT_EQ(fuzzyScore("ch", "chrome"), 30);
    // b matches the camel-case boundary B: 6 + 4, no case bonus; B earns the case bonus too.
    EXPECT_EQ(fuzzyScore("b", "FooBar"), 10);
    EXPECT_EQ(fuzzyScore("B", "FooBar"), 11);
    // Lower-cased text loses the camel boundary.
    EXPECT_EQ(fuzzyScore("b", "foobar"), 7);
    // a at 2 (7), then b right after it with the run bonus: 7 + 6 + 1 + 4.
    EXPECT_EQ(fuzzyScore("ab", "xab"), 18);
    // A skipped b costs a mismatch step (-4) but no run bonus: 19 + 4 (gap path 16 then 15) ... best 23.
    EXPECT_EQ(fuzzyScore("ac", "abc"), 23);
    // After a separator the boundary bonus applies: "s" in "a-s" = 6 + 4 + 1.
    EXPECT_EQ(fuzzyScore("s", "a-s"), 11);
    EXPECT_EQ(fuzzyScore("", "chrome"), 0);
    EXPECT_EQ(fuzzyScore("ch", ""), 0);
    EXPECT_EQ(fuzzyScore("xyz", "chrome"), 0);
}

TEST(FuzzyScore, ComparesWholeCharactersCaseInsensitively) {
    // É (one code point) and É (E + combining accent) are different characters; é matches É.
    EXPECT_EQ(fuzzyScore("é", "École"), 18);  // 14 + 4, no case bonus
    EXPECT_EQ(fuzzyScore("e", "E\xCC\x81tat"), 0);
    EXPECT_EQ(fuzzyScore("e\xCC\x81", "E\xCC\x81"), 18);
    EXPECT_EQ(fuzzyScore("中", "中文"), 19);
}

TEST(FuzzyScore, MinScoreIsThreePerCharacter) {
    EXPECT_EQ(minScore(MatchText("")), 3);
    EXPECT_EQ(minScore(MatchText("abc")), 9);
    EXPECT_EQ(minScore(MatchText("résumé")), 18);
}

TEST(TextMatch, AcronymsTakeInitialsCapitalsAndDigitChanges) {
    EXPECT_EQ(acronym("iTerm2"), "it2");
    EXPECT_EQ(acronym("1Password"), "1p");
    EXPECT_EQ(acronym("Visual Studio Code"), "vsc");
    EXPECT_EQ(acronym("VirtualBox"), "vb");
    EXPECT_EQ(acronym("Ünter Ölbaum"), "üö");
    EXPECT_EQ(acronym(""), "");
    EXPECT_EQ(acronymBonus("vc", "Visual Studio Code"), 100);
    EXPECT_EQ(acronymBonus("cv", "Visual Studio Code"), 0);
    EXPECT_EQ(acronymBonus("i2", "iTerm2"), 100);
    EXPECT_EQ(acronymBonus("", "iTerm2"), 0);
}

TEST(TextMatch, AnchoredMatchStartsOnlyAtAnchors) {
    EXPECT_TRUE(anchoredMatch("Google Chrome", "ch", kPrefixes));
    EXPECT_TRUE(anchoredMatch("Google Chrome", "GOO", kPrefixes));
    EXPECT_FALSE(anchoredMatch("Google Chrome", "hr", kPrefixes));
    EXPECT_TRUE(anchoredMatch("Visual Studio Code", "vis", kPrefixes));
    EXPECT_FALSE(anchoredMatch("Visual Studio Code", "st", kPrefixes));
    EXPECT_TRUE(anchoredMatch("1Password", "pass", kPrefixes));
    EXPECT_FALSE(anchoredMatch("Arc", "arcade", kPrefixes));
    EXPECT_TRUE(anchoredMatch("The Unarchiver", "unar", kPrefixes));
    EXPECT_FALSE(anchoredMatch("The Unarchiver", "unar", {}));
}

TEST(TextMatch, WordBoundaryMatchNeedsAStartOrASeparator) {
    EXPECT_TRUE(wordBoundaryMatch("visual studio code", "stu"));
    EXPECT_TRUE(wordBoundaryMatch("visual studio code", "vis"));
    EXPECT_FALSE(wordBoundaryMatch("visual studio code", "tud"));
    EXPECT_TRUE(wordBoundaryMatch("zelk-settings", "set"));
    EXPECT_TRUE(wordBoundaryMatch("résumé — final.pdf", "fin"));
    EXPECT_FALSE(wordBoundaryMatch("résumé", "sumé"));
    EXPECT_FALSE(wordBoundaryMatch("code-", "x"));
}

namespace {
std::vector<std::string> identifiers(const std::vector<AppCandidate>& apps,
                                     const std::vector<AppMatch>& matches) {
    std::vector<std::string> out;
    for (const AppMatch& m : matches)
        out.push_back(apps[m.index].identifier);
    return out;
}
using Ids = std::vector<std::string>;
}  // namespace

TEST(MatchApps, EqualScoresFallBackToRunningThenUsage) {
    std::vector<AppCandidate> apps = {
        AppCandidate::make("chrome", "Google Chrome", "Chrome", false, 9),
        AppCandidate::make("chess", "Chess", "Chess", true, 1),
        AppCandidate::make("calc", "Calculator", "Calculator", true, 50),
    };
    auto matches = matchApps(apps, "ch", SearchMatchMode::anchored, kPrefixes);
    EXPECT_EQ(identifiers(apps, matches), (Ids{"chess", "chrome"}));
    EXPECT_EQ(matches[0].score, 30);
    EXPECT_EQ(matches[1].score, 30);
    apps[0].isRunning = true;
    EXPECT_EQ(identifiers(apps, matchApps(apps, "ch", SearchMatchMode::anchored, kPrefixes)),
              (Ids{"chrome", "chess"}));
}

TEST(MatchApps, AnchoredPutsNamePrefixesBeforeHigherScores) {
    std::vector<AppCandidate> apps = {
        AppCandidate::make("room", "Google DriveRoom", "Google DriveRoom", true, 10),
        AppCandidate::make("drafts", "Drafts", "Drafts", false, 0),
        AppCandidate::make("android", "Android Studio", "Android Studio", true, 10),
        AppCandidate::make("code", "Visual Studio Code", "Visual Studio Code", true, 10),
    };
    auto matches = matchApps(apps, "dr", SearchMatchMode::anchored, kPrefixes);
    ASSERT_EQ(identifiers(apps, matches), (Ids{"drafts", "room"}));
    EXPECT_TRUE(matches[0].isPrefix);
    EXPECT_FALSE(matches[1].isPrefix);
    EXPECT_GT(matches[1].score, 100);  // the acronym bonus
    EXPECT_LT(matches[0].score, 100);
    // Contains mode: prefixes first, then word-boundary hits.
    EXPECT_EQ(identifiers(apps, matchApps(apps, "stu", SearchMatchMode::contains, kPrefixes)),
              (Ids{"android", "code"}));
    EXPECT_TRUE(matchApps(apps, "stu", SearchMatchMode::anchored, kPrefixes).empty());
}

TEST(MatchApps, ContainsModeSortsEachListAndDropsRepeatedIdentifiers) {
    std::vector<AppCandidate> apps = {
        AppCandidate::make("notes-b", "Notes", "Notes", false, 5),
        AppCandidate::make("sticky", "Sticky Notes", "Sticky Notes", false, 1),
        AppCandidate::make("notion", "Notion", "Notion", true, 0),
        AppCandidate::make("notes-b", "Notes", "Notes", true, 5),
        AppCandidate::make("quick", "Quick Notes", "Quick Notes", true, 0),
    };
    auto matches = matchApps(apps, "no", SearchMatchMode::contains, {});
    EXPECT_EQ(identifiers(apps, matches), (Ids{"notes-b", "notion", "quick", "sticky"}));
    EXPECT_EQ(matches[0].index, 3u);  // the running copy sorted first and was kept
}

namespace {
std::vector<std::string> titles(const std::vector<WindowCandidate>& windows,
                                const std::vector<WindowMatch>& m) {
    std::vector<std::string> out;
    for (const WindowMatch& w : m)
        out.push_back(windows[w.index].title);
    return out;
}
}  // namespace

TEST(FilterWindows, ContainsOrdersKeyThenPrefixThenTitle) {
    std::vector<WindowCandidate> windows = {
        WindowCandidate::make("Pre-flight", ""), WindowCandidate::make("report.txt", ""),
        WindowCandidate::make("Area 51", "r"),   WindowCandidate::make("README.md", ""),
        WindowCandidate::make("Other", "x"),     WindowCandidate::make("Bare", "R"),
    };
    EXPECT_EQ(titles(windows, filterWindows(windows, "Re", false, true)),
              (Ids{"Area 51", "Bare", "README.md", "report.txt", "Pre-flight"}));
    // Without keys the key of a window means nothing.
    EXPECT_EQ(titles(windows, filterWindows(windows, "re", false, false)),
              (Ids{"README.md", "report.txt", "Area 51", "Bare", "Pre-flight"}));
    // An empty query keeps everything in order.
    EXPECT_EQ(filterWindows(windows, "", false, true).size(), windows.size());
    EXPECT_EQ(filterWindows(windows, "", true, true)[4].index, 4u);
}

TEST(FilterWindows, FuzzyKeepsScoresAtTheThresholdAndRanksByScore) {
    std::vector<WindowCandidate> windows = {
        WindowCandidate::make("x main", ""),     // m at a boundary: 6+4+1, then a,i,n runs
        WindowCandidate::make("domain.rs", ""),  // inside a word
        WindowCandidate::make("Main menu", ""),  // prefix
        WindowCandidate::make("xyz", ""),
        WindowCandidate::make("m", ""),  // 19, above the 12 that four characters need
    };
    auto m = filterWindows(windows, "main", true, false);
    ASSERT_EQ(titles(windows, m), (Ids{"Main menu", "x main", "domain.rs", "m"}));
    for (std::size_t i = 1; i + 1 < m.size(); ++i)
        EXPECT_GE(m[i].score, m[i + 1].score);
    EXPECT_EQ(m[3].score, 19);
    EXPECT_EQ(m[0].score, fuzzyScore("main", "main menu"));
    // "m" alone scores 19 for "main"; a query of 7 characters needs 21, so it drops out.
    EXPECT_TRUE(filterWindows({WindowCandidate::make("m", "")}, "mainxyz", true, false).empty());
}

TEST(FilterWindows, TitleOrderIsByteOrderWhateverTheSortKeys) {
    // Same first eight bytes, shorter first, a title with a NUL byte, and a row built without make().
    std::vector<WindowCandidate> windows = {
        WindowCandidate::make("abcdefghZ", ""),
        WindowCandidate::make("abcdefgh", ""),
        WindowCandidate::make(std::string("ab\0x", 4), ""),
        WindowCandidate::make("ab", ""),
        WindowCandidate::make("abé", ""),
    };
    windows.push_back(WindowCandidate{"abA", zelk::search::MatchText("aba"), ""});
    EXPECT_EQ(titles(windows, filterWindows(windows, "ab", false, false)),
              (Ids{"ab", std::string("ab\0x", 4), "abA", "abcdefgh", "abcdefghZ", "abé"}));
}
