// Orderings of whole searches on a fixed desktop: each case is a row list a user would see.
#include <gtest/gtest.h>

#include "search/SearchEngine.h"
#include "search/SearchFixture.h"

using namespace zelk;
using namespace zelk::search;
using namespace zelk::search::testing;

namespace {

constexpr double kNow = 1'800'000'000;
constexpr double kDay = 86'400;

class SearchEngineTest : public ::testing::Test {
  protected:
    SearchEngineTest() : engine(fixedWorld()) { state.now = kNow; }
    std::vector<std::string> rows(const std::string& q) { return labels(engine.search(q, state)); }
    void rebuild(SearchWorld w) { engine = SearchEngine(std::move(w)); }

    SearchEngine engine;
    SearchState state;
};

TEST_F(SearchEngineTest, OneLetterListsTheLettersAppWithItsWindowsAndOnlyAppsThatMatch) {
    EXPECT_EQ(rows("s"), (std::vector<std::string>{"app:Safari", "win:Apple — Start Page",
                                                   "win:GitHub Pull Request", "win:Résumé draft", "app:Slack",
                                                   "app:System Settings", "app:Sublime Text"}));
    // A dynamic letter: Chrome's windows in their own order, the window keyed c among them.
    EXPECT_EQ(rows("c"),
              (std::vector<std::string>{"app:Chrome", "win:Inbox - Gmail", "win:Calendar", "app:Chess"}));
}

TEST_F(SearchEngineTest, TwoLettersPutTheAssignedAppsWindowsFirst) {
    // "a" is contained in two of Safari's titles; other apps' windows follow under their app's row.
    EXPECT_EQ(rows("sa"),
              (std::vector<std::string>{"win:Apple — Start Page", "win:Résumé draft", "app:Safari",
                                        "app:Terminal", "win:vim notes.txt", "win:zsh — build", "app:Chrome",
                                        "win:Calendar", "win:Inbox - Gmail"}));
    // Even when the second letter is in no title: the fuzzy fallback of a static letter.
    EXPECT_EQ(rows("tv").front(), "win:vim notes.txt");
}

TEST_F(SearchEngineTest, ThreeLettersThatNameTheAppKeepTheAppFirst) {
    EXPECT_EQ(rows("saf"), (std::vector<std::string>{"app:Safari", "win:Résumé draft"}));
    EXPECT_EQ(defaultSelection(engine.search("saf", state), "saf", false), 1u);
}

TEST_F(SearchEngineTest, EqualPrefixesLeadWithTheRunningApp) {
    EXPECT_EQ(rows("ch"),
              (std::vector<std::string>{"app:Chrome", "app:Chess", "app:Safari", "win:GitHub Pull Request",
                                        "app:Terminal", "win:zsh — build"}));
}

TEST_F(SearchEngineTest, AWindowOfAnAppThatDoesNotMatchClimbsAboveWeakerApps) {
    EXPECT_EQ(rows("git"), (std::vector<std::string>{"win:GitHub Pull Request", "win:Inbox - Gmail",
                                                     "win:vim notes.txt"}));
    EXPECT_EQ(rows("notes"),
              (std::vector<std::string>{"app:Notes", "win:vim notes.txt", "win:GitHub Pull Request"}));
}

TEST_F(SearchEngineTest, AcronymBonusDecidesBetweenTwoPrefixes) {
    auto w = fixedWorld();
    w.candidates.push_back(app("Itsycal", "com.mowglii.ItsycalApp", true, 60));
    w.candidates.push_back(app("iTerm2", "com.googlecode.iterm2", false, 1));
    rebuild(w);
    auto r = rows("it");
    ASSERT_GE(r.size(), 2u);
    EXPECT_EQ(r[0], "app:iTerm2");
    EXPECT_EQ(r[1], "app:Itsycal");
}

TEST_F(SearchEngineTest, NonAsciiTitlesMatchByCharacter) {
    EXPECT_EQ(rows("résum"), (std::vector<std::string>{"win:Résumé draft"}));
    EXPECT_EQ(rows("RÉSUM"), (std::vector<std::string>{"win:Résumé draft"}));
}

TEST_F(SearchEngineTest, AQueryThatMatchesNothingHasNoRows) {
    EXPECT_TRUE(rows("qqq").empty());
    EXPECT_EQ(defaultSelection({}, "qqq", false), 0u);
}

TEST_F(SearchEngineTest, ATypoStillFindsItsWindow) {
    // No subsequence filter: "gihtub" is out of order yet scores above the threshold.
    auto r = rows("gihtub");
    EXPECT_NE(std::find(r.begin(), r.end(), "win:GitHub Pull Request"), r.end());
}

TEST_F(SearchEngineTest, EmptyQueryShowsNothingOutsideALatchedSurface) {
    EXPECT_TRUE(rows("").empty());
    state.emptyQueryListsAll = true;
    EXPECT_EQ(rows(""),
              (std::vector<std::string>{"app:Chess", "app:Chrome", "win:Calendar", "win:Inbox - Gmail",
                                        "app:Mail", "app:Notes", "app:Safari", "win:Apple — Start Page",
                                        "win:GitHub Pull Request", "win:Résumé draft", "app:Slack",
                                        "app:Sublime Text", "app:System Settings", "app:Terminal",
                                        "win:vim notes.txt", "win:zsh — build", "app:Visual Studio Code"}));
    state.switcherAppsOnly = true;
    EXPECT_EQ(rows("").size(), 10u);
}

TEST_F(SearchEngineTest, OptionalPrefixesLetALaterWordAnchor) {
    auto w = fixedWorld();
    w.candidates.push_back(app("Google Drive", "com.google.drivefs", true, 10));
    rebuild(w);
    auto apps = [&] {
        std::vector<std::string> out;
        for (const auto& r : rows("dr"))
            if (r.rfind("app:", 0) == 0) out.push_back(r);
        return out;
    };
    // Without the prefix only the apps heading other matching windows appear.
    EXPECT_EQ(apps(), (std::vector<std::string>{"app:Safari", "app:Terminal", "app:Chrome"}));
    state.optionalPrefixes = {"google"};
    EXPECT_EQ(apps().front(), "app:Google Drive");
}

TEST_F(SearchEngineTest, ContainsModeTakesPrefixesThenWordStarts) {
    state.mode = SearchMatchMode::contains;
    // Running first within each list; a word start inside the name comes after every prefix.
    EXPECT_EQ(rows("s"),
              (std::vector<std::string>{"app:Safari", "win:Apple — Start Page", "win:GitHub Pull Request",
                                        "win:Résumé draft", "app:Slack", "app:System Settings",
                                        "app:Sublime Text", "app:Visual Studio Code"}));
    // No fuzzy window hits in this mode: only titles that contain the query.
    EXPECT_EQ(rows("inbox"), (std::vector<std::string>{"app:Chrome", "win:Inbox - Gmail"}));
}

TEST_F(SearchEngineTest, AppsOnlyKeepsTheAppRowsOfTheSameFlow) {
    state.switcherAppsOnly = true;
    EXPECT_EQ(rows("sa"), (std::vector<std::string>{"app:Safari", "app:Terminal", "app:Chrome"}));
    state.switcherAppsOnly = false;
    state.pinPickQuery = "xy";
    EXPECT_EQ(rows("sa"), (std::vector<std::string>{"app:Safari", "app:Terminal", "app:Chrome"}));
}

TEST_F(SearchEngineTest, AWindowKeyedWithTheLetterAfterTheAppsLetterSortsFirst) {
    auto w = fixedWorld();
    // "build" holds a b in its title and is keyed b; "vim notes.txt" begins with nothing of it.
    w.windowsByBundle["com.apple.Terminal"] = {window(31, "com.apple.Terminal", "about bash", "x"),
                                               window(32, "com.apple.Terminal", "zsh — build", "b")};
    rebuild(w);
    auto r = rows("tb");
    ASSERT_GE(r.size(), 2u);
    EXPECT_EQ(r[0], "win:zsh — build");
    EXPECT_EQ(r[1], "win:about bash");
}

// Learned picks and pins ------------------------------------------------------------------------

// Twelve apps that all begin with "al", ranked by use: App 1 first, App 12 last.
SearchWorld alphabetWorld() {
    SearchWorld w;
    for (int i = 1; i <= 12; ++i)
        w.candidates.push_back(app("Alpha " + std::to_string(i), "app." + std::to_string(i), true, 100 - i));
    w.catalogue = w.candidates;
    w.catalogue.push_back(app("Zebra", "app.zebra", false, 0));
    return w;
}

TEST_F(SearchEngineTest, LearnedEntriesMoveTheirAppWithinTheirRankLimit) {
    rebuild(alphabetWorld());
    auto at = [&](int count, double age, const std::string& bundle) {
        state.selections = {{"al", SearchSelection{bundle, count, kNow - age}}};
        return rows("al").front();
    };
    EXPECT_EQ(at(1, 0, "app.5"), "app:Alpha 5");             // position 4 < 5
    EXPECT_EQ(at(1, 0, "app.6"), "app:Alpha 1");             // position 5: the limit is exclusive
    EXPECT_EQ(at(2, 0, "app.10"), "app:Alpha 10");           // position 9 < 10
    EXPECT_EQ(at(2, 0, "app.11"), "app:Alpha 1");            // position 10: not moved
    EXPECT_EQ(at(1, 4 * kDay, "app.2"), "app:Alpha 1");      // old and weak: ignored entirely
    EXPECT_EQ(at(3, 400 * kDay, "app.12"), "app:Alpha 12");  // strong: any age, any rank
}

TEST_F(SearchEngineTest, AWeakPickOfAnAppThatIsNotRunningDoesNotJumpRunningApps) {
    auto w = alphabetWorld();
    w.candidates[3].running = false;  // Alpha 4
    rebuild(w);
    state.selections = {{"al", SearchSelection{"app.4", 2, kNow}}};
    EXPECT_EQ(rows("al").front(), "app:Alpha 1");
    state.selections = {{"al", SearchSelection{"app.4", 3, kNow}}};
    EXPECT_EQ(rows("al").front(), "app:Alpha 4");
}

TEST_F(SearchEngineTest, AnAppWithItsOwnStaticKeyIsLeftToThatKey) {
    auto w = alphabetWorld();
    w.staticByKey["x"] = {"x", "app.3", true};
    rebuild(w);
    state.selections = {{"al", SearchSelection{"app.3", 3, kNow}}};
    EXPECT_EQ(rows("al").front(), "app:Alpha 1");
    // A static key that the query begins with does not hold it back.
    w.staticByKey.clear();
    w.staticByKey["a"] = {"a", "app.3", true};
    rebuild(w);
    EXPECT_EQ(rows("al").front(), "app:Alpha 3");
}

TEST_F(SearchEngineTest, APinComesFirstEvenWhenItMatchedNothingAndBeatsALearnedEntry) {
    rebuild(alphabetWorld());
    state.pins = {{"al", "app.zebra"}};
    state.selections = {{"al", SearchSelection{"app.7", 9, kNow}}};
    auto r = rows("al");
    EXPECT_EQ(r.front(), "app:Zebra");
    EXPECT_EQ(r[1], "app:Alpha 1");
    state.pins = {{"al", "app.9"}};
    EXPECT_EQ(rows("al").front(), "app:Alpha 9");
}

TEST_F(SearchEngineTest, AStrongPickOfAnotherAppOrAPinKeepsTheSubQueryWindowsInPlace) {
    state.selections = {{"sa", SearchSelection{"com.apple.Terminal", 3, kNow}}};
    EXPECT_EQ(rows("sa").front(), "app:Safari");
    state.selections.clear();
    state.pins = {{"sa", "com.apple.Notes"}};
    EXPECT_EQ(rows("sa").front(), "app:Notes");
}

TEST_F(SearchEngineTest, ReasonsSayWhyEachRowStands) {
    state.selections = {{"sa", SearchSelection{"com.apple.Safari", 4, kNow - 5 * kDay}}};
    auto found = engine.search("sa", state);
    auto why = engine.reasons("sa", state, found);
    ASSERT_EQ(found.size(), why.size());
    ASSERT_EQ(labels(found)[2], "app:Safari");
    EXPECT_EQ(why[2], (std::vector<std::string>{"static-assign[s]", "user-pick[\"sa\"×4+strong+stale]",
                                                "name-prefix", "running"}));
    EXPECT_EQ(why[0], (std::vector<std::string>{"dyn-app-window-subquery", "title-prefix"}));
    EXPECT_EQ(why[4], (std::vector<std::string>{"global-window-match", "fuzzy"}));

    state.pins = {{"zz", "com.apple.calculator"}};
    auto pinned = engine.search("zz", state);
    ASSERT_FALSE(pinned.empty());
    EXPECT_EQ(engine.reasons("zz", state, pinned)[0], (std::vector<std::string>{"pin[\"zz\"]"}));
}

// Letter priority and the order of the moves to the front ------------------------------------------

TEST_F(SearchEngineTest, ALettersAppLeadsShortQueriesOverBetterRankedApps) {
    auto w = fixedWorld();
    // Maps and Chess outrank Mail and Chrome by use; the letters point at the latter.
    w.candidates.push_back(app("Maps", "com.apple.Maps", true, 90));
    w.candidates[6].running = true;  // Chess
    w.candidates[6].usageScore = 95;
    rebuild(w);
    EXPECT_EQ(rows("m"), (std::vector<std::string>{"app:Mail", "app:Maps"}));
    // Two letters: the first related app whose name begins with the query leads.
    auto r = rows("ch");
    ASSERT_GE(r.size(), 2u);
    EXPECT_EQ(r[0], "app:Chrome");
    EXPECT_EQ(r[1], "app:Chess");
    // Three letters that only a later related app begins with: that one leads.
    EXPECT_EQ(rows("che").front(), "app:Chess");
    // Four letters: no letter priority, the ranking alone.
    EXPECT_EQ(rows("ches").front(), "app:Chess");
    // Without related apps under its letter a two-letter query keeps the ranking.
    EXPECT_EQ(rows("ma").front(), "app:Maps");
}

// Every move to the front happens in turn, so a later one wins: letter priority, then the learned
// entry, then the pin; a one-letter query's static letter comes last of all.
TEST_F(SearchEngineTest, LaterMovesToTheFrontWin) {
    auto w = alphabetWorld();
    w.dynamicByKey["a"] = {"a", "app.2", true};
    w.relatedByKey["a"] = {"app.3"};
    rebuild(w);
    EXPECT_EQ(rows("al")[0], "app:Alpha 3");
    state.selections = {{"al", SearchSelection{"app.5", 1, kNow}}};
    auto r = rows("al");
    EXPECT_EQ((std::vector<std::string>{r[0], r[1], r[2]}),
              (std::vector<std::string>{"app:Alpha 5", "app:Alpha 3", "app:Alpha 1"}));
    state.pins = {{"al", "app.7"}};
    r = rows("al");
    // The pin removes the learned entry from the ranking: letter priority stands behind it.
    EXPECT_EQ((std::vector<std::string>{r[0], r[1], r[2]}),
              (std::vector<std::string>{"app:Alpha 7", "app:Alpha 3", "app:Alpha 1"}));

    w.dynamicByKey.clear();
    w.staticByKey["a"] = {"a", "app.9", true};
    rebuild(w);
    state.pins.clear();
    state.selections = {{"a", SearchSelection{"app.4", 1, kNow}}};
    r = rows("a");
    // Letter priority brings Alpha 9 up, the learned entry then Alpha 4 (at position 4 of 5), and
    // the static letter Alpha 9 again.
    EXPECT_EQ((std::vector<std::string>{r[0], r[1], r[2]}),
              (std::vector<std::string>{"app:Alpha 9", "app:Alpha 4", "app:Alpha 1"}));
}

TEST_F(SearchEngineTest, AStaticLetterWhoseAppDidNotMatchIsInsertedUnlessItMayNotLaunch) {
    auto w = fixedWorld();
    w.staticByKey["k"] = {"k", "com.apple.calculator", true};
    rebuild(w);
    EXPECT_EQ(rows("k"), (std::vector<std::string>{"app:Calculator"}));
    state.runningAndStaticOnly = true;
    w.staticByKey["k"].launchIfNotRunning = false;
    rebuild(w);
    EXPECT_TRUE(rows("k").empty());
}

// The assigned app's own windows climb above it when they answer the query better than its name,
// once something else has taken the front (a strong pick of another app).
TEST_F(SearchEngineTest, TheLettersOwnWindowsClimbAboveItsWeakerName) {
    auto w = fixedWorld();
    w.windowsByBundle["com.apple.mail"] = {window(51, "com.apple.mail", "Meeting notes", "", "Mail"),
                                           window(52, "com.apple.mail", "Inbox", "", "Mail")};
    rebuild(w);
    state.selections = {{"mno", SearchSelection{"com.apple.Notes", 3, kNow}}};
    const auto r = rows("mno");
    const auto meeting = std::find(r.begin(), r.end(), "win:Meeting notes");
    const auto mail = std::find(r.begin(), r.end(), "app:Mail");
    ASSERT_NE(meeting, r.end());
    ASSERT_NE(mail, r.end());
    EXPECT_LT(meeting, mail);
    EXPECT_EQ(std::count(r.begin(), r.end(), "win:Meeting notes"), 1);
    // Without the strong pick the sub-query's windows simply come first.
    state.selections.clear();
    EXPECT_EQ(rows("mno").front(), "win:Meeting notes");
}

TEST_F(SearchEngineTest, ReasonsNameLettersRelationsKeysAndHowTheTextMatched) {
    auto w = fixedWorld();
    w.closedWindows = {{"com.apple.Safari", "Release notes", "Safari", "2 min ago"}};
    rebuild(w);
    auto why = [&](const std::string& q, const std::string& row) {
        const auto found = engine.search(q, state);
        const auto all = labels(found);
        const auto at = std::find(all.begin(), all.end(), row);
        EXPECT_NE(at, all.end()) << q << ": " << row;
        if (at == all.end()) return std::vector<std::string>{};
        return engine.reasons(q, state, found)[static_cast<std::size_t>(at - all.begin())];
    };
    EXPECT_EQ(why("c", "app:Chrome"),
              (std::vector<std::string>{"dyn-assign[c]", "related-to-dyn[c]", "name-prefix", "running"}));
    EXPECT_EQ(why("c", "app:Chess"), (std::vector<std::string>{"related-to-dyn[c]", "name-prefix"}));
    EXPECT_EQ(why("c", "win:Calendar"),
              (std::vector<std::string>{"dyn-app-window-list", "window-key=C", "title-prefix"}));
    EXPECT_EQ(why("ca", "win:Calendar"),
              (std::vector<std::string>{"dyn-app-window-subquery", "window-key=C", "title-prefix"}));
    // An anchor after a number, and a word after an optional prefix.
    w.candidates.push_back(app("1Password", "com.1password.1password", false, 2));
    w.candidates.push_back(app("Google Drive", "com.google.drivefs", false, 2));
    rebuild(w);
    state.optionalPrefixes = {"google"};
    EXPECT_EQ(why("pas", "app:1Password"), (std::vector<std::string>{"anchored"}));
    EXPECT_EQ(why("driv", "app:Google Drive"), (std::vector<std::string>{"name-word-boundary"}));
    EXPECT_EQ(why("gmail", "win:Inbox - Gmail"),
              (std::vector<std::string>{"global-window-match", "title-word-boundary"}));
    EXPECT_EQ(why("otes", "win:vim notes.txt"),
              (std::vector<std::string>{"global-window-match", "contains"}));
    EXPECT_EQ(why("release", "closed:Release notes"),
              (std::vector<std::string>{"recently-closed", "2 min ago"}));
    state.windowsOnly = true;
    w.openWindows = {window(21, "com.google.Chrome", "Inbox - Gmail", "", "Chrome")};
    rebuild(w);
    EXPECT_EQ(why("chrome", "win:Inbox - Gmail"), (std::vector<std::string>{"windows-only", "title-prefix"}));
}

// Windows only, closed windows, selection -------------------------------------------------------

TEST_F(SearchEngineTest, WindowsOnlyRanksByItsOwnTableAndGroupsByApp) {
    auto w = fixedWorld();
    w.openWindows = {window(31, "com.apple.Terminal", "zsh — build", "", "Terminal"),
                     window(21, "com.google.Chrome", "Inbox - Gmail", "", "Chrome"),
                     window(11, "com.apple.Safari", "Apple — Start Page", "", "Safari"),
                     window(32, "com.apple.Terminal", "vim notes.txt", "", "Terminal")};
    rebuild(w);
    state.windowsOnly = true;
    // Most recent first, regrouped by app.
    EXPECT_EQ(rows(""), (std::vector<std::string>{"win:zsh — build", "win:vim notes.txt", "win:Inbox - Gmail",
                                                  "win:Apple — Start Page"}));
    // An app name prefix is as strong as a title prefix; a contained text is weaker.
    EXPECT_EQ(rows("chr"), (std::vector<std::string>{"win:Inbox - Gmail"}));
    // A word start beats the fuzzy hits that follow it.
    EXPECT_EQ(rows("notes").front(), "win:vim notes.txt");
    EXPECT_EQ(rows("gmail"), (std::vector<std::string>{"win:Inbox - Gmail", "win:zsh — build"}));
    state.mode = SearchMatchMode::contains;
    EXPECT_EQ(rows("gmail"), (std::vector<std::string>{"win:Inbox - Gmail"}));
    auto found = engine.search("", state);
    EXPECT_EQ(engine.reasons("", state, found)[0], (std::vector<std::string>{"windows-only: mru"}));
}

TEST_F(SearchEngineTest, ClosedWindowsFollowLongerQueriesAndNeverDuplicateAnOpenOne) {
    auto w = fixedWorld();
    w.closedWindows = {{"com.apple.Safari", "Release notes", "Safari", "2 min ago"},
                       {"com.apple.Safari", "GitHub Pull Request", "Safari", "5 min ago"},
                       {"com.gone.app", "Gone notes", "Gone", "1 h ago"}};
    rebuild(w);
    auto r = rows("notes");
    ASSERT_GE(r.size(), 2u);
    EXPECT_EQ(r[r.size() - 2], "closed:Release notes");
    EXPECT_EQ(r.back(), "closed:Gone notes");
    // One letter: no closed rows.
    for (const auto& row : rows("r"))
        EXPECT_NE(row.rfind("closed:", 0), 0u) << row;
    // A closed window equal to an open row is dropped.
    r = rows("github");
    EXPECT_EQ(std::count(r.begin(), r.end(), "closed:GitHub Pull Request"), 0);
    // Windows only with an empty query lists them all.
    state.windowsOnly = true;
    EXPECT_EQ(rows("").size(), 3u);
}

TEST(SearchSelectionRule, ASubQueryWindowUnderItsAppIsHighlighted) {
    auto a = SearchResult::ofApp(app("Safari", "com.apple.Safari", true, 0));
    auto own = SearchResult::ofWindow(window(1, "com.apple.Safari", "x"));
    auto other = SearchResult::ofWindow(window(2, "com.other", "y"));
    EXPECT_EQ(defaultSelection({a, own}, "sa", false), 1u);
    EXPECT_EQ(defaultSelection({a, own}, "s", false), 0u);
    EXPECT_EQ(defaultSelection({a, other}, "sa", false), 0u);
    EXPECT_EQ(defaultSelection({a, a, other}, "s", true), 2u);
}

}  // namespace

namespace {

// App candidates keep their anchors between keystrokes; a change of the optional prefixes must not
// read the anchors of the old set.
TEST(AppMatchingAnchors, KeptAnchorsFollowTheOptionalPrefixes) {
    const std::vector<AppCandidate> apps = {
        AppCandidate::make("drive", "Google Drive", "Google Drive", true, 1)};
    EXPECT_TRUE(matchApps(apps, "dr", SearchMatchMode::anchored, {}).empty());
    EXPECT_EQ(matchApps(apps, "dr", SearchMatchMode::anchored, {"google"}).size(), 1u);
    EXPECT_EQ(matchApps(apps, "dr", SearchMatchMode::anchored, {"google"}).size(), 1u);
    EXPECT_TRUE(matchApps(apps, "dr", SearchMatchMode::anchored, {"apple"}).empty());
    EXPECT_EQ(matchApps(apps, "go", SearchMatchMode::anchored, {"apple"}).size(), 1u);
}

}  // namespace
