// The typed search end to end on the simulated desktop: what a query lists, what a commit focuses or
// launches, and how learned picks and pins change the next search.
#include "ReplayHelpers.h"
#include "SearchService.h"

using namespace zelk::testing;

namespace {

// Safari in front; Terminal has a window on each Space; Termius and Itsycal run with one window each;
// Notes, Chess and iTerm2 are installed, not running.
const char* kWorld = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}], currentSpace: 1}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running:
      pid: 101
      windows:
        - {id: 1001, title: "Apple", frame: [0, 25, 1200, 800], space: 1}
        - {id: 1002, title: "GitHub Pull Request", frame: [20, 45, 1200, 800], space: 1}
  - bundleID: com.apple.Terminal
    name: Terminal
    running:
      pid: 102
      windows:
        - {id: 2001, title: "zsh build", frame: [0, 25, 900, 700], space: 1}
        - {id: 2002, title: "vim notes.txt", frame: [40, 60, 900, 700], space: 2}
  - bundleID: com.apple.mail
    name: Mail
    running: {pid: 103, windows: [{id: 3001, title: "Inbox", frame: [40, 60, 900, 700], space: 1}]}
  - bundleID: com.termius-dmg.mac
    name: Termius
    running: {pid: 105, windows: [{id: 5001, title: "Hosts", frame: [40, 60, 900, 700], space: 1}]}
  - bundleID: com.mowglii.ItsycalApp
    name: Itsycal
    running: {pid: 104, windows: [{id: 4001, title: "Itsycal", frame: [40, 60, 300, 300], space: 1}]}
  - {bundleID: com.apple.Notes, name: Notes, launchDelayMs: 250}
  - {bundleID: com.apple.Chess, name: Chess}
  - {bundleID: com.googlecode.iterm2, name: iTerm2}
frontmost: com.apple.Safari
focusedWindow: 1001
settings: {activationMode: onPress}
)";

json replyTo(const std::vector<json>& events, int at) {
    for (const auto& e : events)
        if (e["kind"] == "reply" && e["t"] == at) return e["response"];
    ADD_FAILURE() << "no reply at " << at;
    return json::object();
}

// "kind name" of each row of a search reply.
std::vector<std::string> rowsOf(const json& reply) {
    std::vector<std::string> out;
    for (const auto& r : reply["searchResults"])
        out.push_back(r["kind"].get<std::string>() + " " + r["name"].get<std::string>());
    return out;
}

std::string typing(const std::string& letters, int at) {
    std::string s = "- {at: " + std::to_string(at) + ", flags: [rightCommand]}\n";
    for (char c : letters)
        s += "- {at: " + std::to_string(at += 50) + ", tap: " + std::string(1, c) + "}\n";
    return s + "- {at: " + std::to_string(at + 100) + ", flags: []}\n";
}

}  // namespace

TEST(SearchReplay, TheSearchCommandAnswersRowsWithReasons) {
    auto events = replay(kWorld, R"(
- {at: 1000, command: {command: search, query: "no"}}
- {at: 1100, command: {command: search, query: "it"}}
- {at: 1200, command: {command: search, query: ""}}
- {at: 1300, command: {command: search, query: "vim", windowsOnly: true}}
- {at: 2000, end: true}
)");
    auto notes = replyTo(events, 1000);
    EXPECT_EQ(notes["ok"], true);
    ASSERT_FALSE(notes["searchResults"].empty());
    EXPECT_EQ(notes["searchResults"][0]["name"], "Notes");
    EXPECT_EQ(notes["searchResults"][0]["rank"], 1);
    EXPECT_EQ(notes["searchResults"][0]["reasons"], json::array({"name-prefix"}));
    // The initials of iTerm2 outrank a running app with the same prefix.
    auto it = rowsOf(replyTo(events, 1100));
    ASSERT_GE(it.size(), 2u);
    EXPECT_EQ(it[0], "app iTerm2");
    EXPECT_EQ(it[1], "app Itsycal");
    EXPECT_EQ(replyTo(events, 1200)["error"], "missing query");
    auto windows = replyTo(events, 1300);
    ASSERT_FALSE(windows["searchResults"].empty());
    EXPECT_EQ(windows["searchResults"][0]["windowID"], 2002);
    EXPECT_EQ(windows["searchResults"][0]["reasons"][0], "windows-only");
}

TEST(SearchReplay, PinAndLearnCommandsChangeTheNextSearchAndRefuseBadInput) {
    auto events = replay(kWorld, R"(
- {at: 1000, command: {command: search-pin, query: "x"}}
- {at: 1010, command: {command: search-pin}}
- {at: 1020, command: {command: search-pin, query: "no", bundleID: com.nowhere.app}}
- {at: 1030, command: {command: search-pin, query: "no", appQuery: chess}}
- {at: 1040, command: {command: search, query: "no"}}
- {at: 1050, command: {command: search-learn, query: "no", appQuery: notes}}
- {at: 1060, command: {command: search-unlearn, query: "no"}}
- {at: 1070, command: {command: search-unpin, query: "no"}}
- {at: 1080, command: {command: search-unpin, query: "no"}}
- {at: 1090, command: {command: search, query: "no"}}
- {at: 1100, command: {command: search-learn, query: "ter", appQuery: termius}}
- {at: 1110, command: {command: search-learned}}
- {at: 1120, command: {command: search-unlearn, mode: all}}
- {at: 1130, command: {command: search-unlearn}}
- {at: 1140, command: {command: search-unlearn, query: "ter"}}
- {at: 2000, end: true}
)");
    EXPECT_EQ(replyTo(events, 1000)["error"],
              "single-letter queries are static key assignments, not pins. Assign the key instead");
    EXPECT_EQ(replyTo(events, 1010)["error"], "missing query");
    EXPECT_EQ(replyTo(events, 1020)["error"], "no app matching \"com.nowhere.app\"");
    EXPECT_EQ(replyTo(events, 1030)["message"], "pinned \"no\" to Chess");
    auto pinned = replyTo(events, 1040);
    EXPECT_EQ(pinned["searchResults"][0]["name"], "Chess");
    EXPECT_EQ(pinned["searchResults"][0]["reasons"][0], "pin[\"no\"]");
    EXPECT_EQ(replyTo(events, 1050)["error"], "\"no\" is pinned. Unpin it first");
    EXPECT_EQ(replyTo(events, 1060)["error"], "\"no\" is pinned. Use `zelk search unpin`");
    EXPECT_EQ(replyTo(events, 1070)["message"], "unpinned \"no\"");
    EXPECT_EQ(replyTo(events, 1080)["error"], "\"no\" is not pinned");
    EXPECT_EQ(replyTo(events, 1090)["searchResults"][0]["name"], "Notes");
    EXPECT_EQ(replyTo(events, 1100)["message"], "learned \"ter\" -> Termius (count 1)");
    auto learned = replyTo(events, 1110)["learnedQueries"];
    ASSERT_EQ(learned.size(), 1u);
    EXPECT_EQ(learned[0]["query"], "ter");
    EXPECT_EQ(learned[0]["bundleID"], "com.termius-dmg.mac");
    EXPECT_EQ(learned[0]["appName"], "Termius");
    EXPECT_EQ(learned[0]["stale"], false);
    EXPECT_EQ(replyTo(events, 1120)["message"], "forgot 1 learned queries (pins untouched)");
    EXPECT_EQ(replyTo(events, 1130)["error"], "missing query (or --stale / --all)");
    EXPECT_EQ(replyTo(events, 1140)["error"], "\"ter\" is not learned");
}

TEST(SearchReplay, TheAppsLetterThenATitleWordFocusesThatWindow) {
    // s reaches Safari; "gi" then narrows its windows to the pull request.
    auto events = replay(kWorld, typing("sgi", 1000) + "- {at: 3000, end: true}\n", true);
    auto focus = summary(events, {"focus"});
    ASSERT_FALSE(focus.empty());
    EXPECT_EQ(focus.back(), "1250 focus bundleID=com.apple.Safari pid=101 windowID=1002");
    EXPECT_TRUE(hasLog(events, "search commit: window #1002 query=\"sgi\""));
    // A window on another Space is reached the same way.
    events = replay(kWorld, typing("tvi", 1000) + "- {at: 3000, end: true}\n");
    focus = summary(events, {"focus", "space"});
    ASSERT_GE(focus.size(), 2u);
    EXPECT_EQ(focus[focus.size() - 2], "1250 space display=1 space=2");
    EXPECT_EQ(focus.back(), "1250 focus bundleID=com.apple.Terminal pid=102 windowID=2002");
}

TEST(SearchReplay, AWindowThatMatchesBetterThanAnyAppLeads) {
    // No app answers to "svim"; Terminal's vim window scores above every app and is committed.
    auto events = replay(kWorld, typing("svim", 1000) + "- {at: 3000, end: true}\n", true);
    EXPECT_TRUE(hasLog(events, "search commit: window #2002 query=\"svim\""));
    EXPECT_EQ(summary(events, {"focus"}).back(),
              "1300 focus bundleID=com.apple.Terminal pid=102 windowID=2002");
}

TEST(SearchReplay, AStrongLearnedPickLeadsTheNextSearch) {
    const std::string learn = R"(
- {at: 500, command: {command: search-learn, query: term, appQuery: termius}}
- {at: 510, command: {command: search-learn, query: term, appQuery: termius}}
- {at: 520, command: {command: search-learn, query: term, appQuery: termius}}
)";
    // Without anything learned, "term" is Terminal's name: its row leads.
    auto plain = replay(kWorld, typing("term", 1000) + "- {at: 3000, end: true}\n", true);
    EXPECT_TRUE(hasLog(plain, "search commit: app com.apple.Terminal query=\"term\""));
    EXPECT_TRUE(hasLog(plain, "recordPick: \"term\" -> com.apple.Terminal count=1"));
    auto learned = replay(kWorld, learn + typing("term", 1000) + "- {at: 3000, end: true}\n", true);
    EXPECT_TRUE(hasLog(learned, "search commit: app com.termius-dmg.mac query=\"term\""));
    EXPECT_EQ(summary(learned, {"focus"}).back(),
              "1300 focus bundleID=com.termius-dmg.mac pid=105 windowID=5001");
    EXPECT_TRUE(hasLog(learned, "recordPick: \"term\" -> com.termius-dmg.mac count=4"));
}

TEST(SearchReplay, DoubleTapSearchesOpenWindowsOnly) {
    auto events = replay(kWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, flags: []}
- {at: 1150, flags: [rightCommand]}
- {at: 1300, tap: h}
- {at: 1350, tap: o}
- {at: 1500, flags: []}
- {at: 3000, end: true}
)",
                         true);
    // "ho" is the start of Termius's only window: a window row, never an app.
    EXPECT_TRUE(hasLog(events, "search commit: window #5001 query=\"ho\""));
    EXPECT_EQ(summary(events, {"focus"}).back(),
              "1500 focus bundleID=com.termius-dmg.mac pid=105 windowID=5001");
}

TEST(SearchReplay, SpaceLatchesTheSearchAndReturnCommitsTheHighlightedRow) {
    // The latched search takes bare typing: "no" is Notes, which Return launches; Escape before
    // Return would have ended the search with nothing done.
    auto events = replay(kWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: space}
- {at: 1200, flags: []}
- {at: 1300, tap: n}
- {at: 1350, tap: o}
- {at: 1500, tap: return}
- {at: 2000, flags: [rightCommand]}
- {at: 2100, tap: space}
- {at: 2200, flags: []}
- {at: 2300, tap: c}
- {at: 2350, tap: h}
- {at: 2400, tap: escape}
- {at: 2500, tap: x}
- {at: 4000, end: true}
)",
                         true);
    EXPECT_EQ(summary(events, {"launch"}),
              (std::vector<std::string>{"1500 launch activates=true bundleID=com.apple.Notes"}));
    EXPECT_TRUE(hasLog(events, "recordPick: \"no\" -> com.apple.Notes count=1"));
    auto downs = withoutKeyUps(events, {"key"});
    // After Escape the latch is gone: x reaches the app in front.
    EXPECT_NE(downs.back().find("key=x"), std::string::npos);
    EXPECT_NE(downs.back().find("action=passed"), std::string::npos);
}

TEST(SearchReplay, TabMovesTheHighlightAndADigitActsOnItsRow) {
    // "term" lists Terminal, then Termius; Tab moves to Termius, which the release acts on.
    // (Arrows reach the app while no panel shows.)
    auto stepped = replay(kWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1050, tap: t}
- {at: 1100, tap: e}
- {at: 1150, tap: r}
- {at: 1200, tap: m}
- {at: 1300, tap: tab}
- {at: 1500, flags: []}
- {at: 3000, end: true}
)",
                          true);
    EXPECT_EQ(logsStartingWith(stepped, "search commit: "),
              (std::vector<std::string>{
                  "search commit: app com.termius-dmg.mac query=\"term\" running=true inFront=false"}));
    // Digit 1 acts on the first row at once, before the release.
    auto digit = replay(kWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1050, tap: s}
- {at: 1100, tap: v}
- {at: 1150, tap: i}
- {at: 1200, tap: m}
- {at: 1300, tap: one}
- {at: 1500, flags: []}
- {at: 3000, end: true}
)",
                        true);
    EXPECT_TRUE(hasLog(digit, "search commit: window #2002 query=\"svim\""));
    EXPECT_EQ(logsStartingWith(digit, "search commit: ").size(), 1u);
    auto focus = summary(digit, {"focus"});
    EXPECT_EQ(focus.back(), "1300 focus bundleID=com.apple.Terminal pid=102 windowID=2002");
}

TEST(SearchReplay, ThePinKeyPinsTheQueryToTheHighlightedApp) {
    auto events = replay(kWorld, std::string(R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1050, tap: t}
- {at: 1100, tap: e}
- {at: 1150, tap: r}
- {at: 1200, tap: m}
- {at: 1250, tap: tab}
- {at: 1300, flags: [rightCommand, lcmd]}
- {at: 1350, tap: p}
- {at: 1400, flags: [rightCommand]}
- {at: 1500, tap: escape}
- {at: 1600, flags: []}
- {at: 2000, command: {command: search-learned}}
- {at: 3000, end: true}
)"),
                         true);
    EXPECT_TRUE(hasLog(events, "flash: Pinned \"term\" to Termius (pin.circle.fill)"));
    auto learned = replyTo(events, 2000)["learnedQueries"];
    ASSERT_EQ(learned.size(), 1u);
    EXPECT_EQ(learned[0]["pinned"], true);
    EXPECT_EQ(learned[0]["bundleID"], "com.termius-dmg.mac");
}

TEST(SearchReplay, ReturnInALatchedSearchActsOnAOneLetterQueryToo) {
    // Under the trigger a bound letter acts by its own route; in a latched search it took none, so
    // the highlighted row is the user's choice.
    auto events = replay(kWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: space}
- {at: 1200, flags: []}
- {at: 1300, tap: i}
- {at: 1500, tap: return}
- {at: 3000, end: true}
)",
                         true);
    EXPECT_TRUE(hasLog(events, "search commit: app com.mowglii.ItsycalApp query=\"i\""));
    EXPECT_EQ(summary(events, {"focus"}).back(),
              "1500 focus bundleID=com.mowglii.ItsycalApp pid=104 windowID=4001");
}

// What the search finds is what the panel lists: the rows numbered for their digits, the highlight on
// the row the release commits.
TEST(SearchReplay, ThePanelListsTheSearchRowsAsTheyAreTyped) {
    auto events = replay(kWorld, typing("tbu", 1000) + "- {at: 2000, end: true}\n");
    json last;
    for (const auto& e : events)
        if (e["kind"] == "panel" && e["t"].get<double>() <= 1150) last = e;
    ASSERT_FALSE(last.is_null());
    EXPECT_TRUE(last["visible"].get<bool>());
    EXPECT_EQ(last["view"], "SearchOSDView");
    ASSERT_GE(last["items"].size(), 2u);
    EXPECT_EQ(last["items"][0]["title"], "zsh build");
    EXPECT_EQ(last["items"][0]["key"], "1");
    EXPECT_TRUE(last["items"][0].value("highlighted", false));
    EXPECT_EQ(last["items"][1]["title"], "GitHub Pull Request");
}

// The world above with another app in front.
std::string withFront(const std::string& bundle, int window) {
    std::string w = kWorld;
    w.replace(w.find("frontmost: com.apple.Safari"), std::string("frontmost: com.apple.Safari").size(),
              "frontmost: " + bundle);
    w.replace(w.find("focusedWindow: 1001"), std::string("focusedWindow: 1001").size(),
              "focusedWindow: " + std::to_string(window));
    return w;
}

TEST(SearchReplay, ALearnedOneLetterQueryCommitsItsAppAtTheRelease) {
    // x reaches nothing by key; learned for Termius, a one-letter query "x" (a slow x after m starts
    // it) focuses Termius at the release, or runs its already-focused action when it was in front.
    const std::string script = R"(
- {at: 500, command: {command: search-learn, query: "x", appQuery: termius}}
- {at: 1000, flags: [rightCommand]}
- {at: 1050, tap: m}
- {at: 1600, tap: x}
- {at: 1700, flags: []}
- {at: 3000, end: true}
)";
    auto events = replay(kWorld, script, true);
    EXPECT_TRUE(hasLog(events, "search commit: learned app com.termius-dmg.mac for \"x\""));
    EXPECT_EQ(summary(events, {"focus"}).back(),
              "1700 focus bundleID=com.termius-dmg.mac pid=105 windowID=5001");
    auto front = replay(withFront("com.termius-dmg.mac", 5001), script, true);
    EXPECT_TRUE(hasLog(front, "Hiding assigned com.termius-dmg.mac"));
}

TEST(SearchReplay, CommittingTheAppThatWasInFrontRunsItsAlreadyFocusedAction) {
    // In a latched search no letter took a route: Safari, in front at the press, gets the
    // already-focused action (hide by default) instead of a focus that changes nothing.
    auto events = replay(kWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: space}
- {at: 1200, flags: []}
- {at: 1300, tap: s}
- {at: 1350, tap: a}
- {at: 1400, tap: f}
- {at: 1500, tap: return}
- {at: 3000, end: true}
)",
                         true);
    EXPECT_TRUE(
        hasLog(events, "search commit: app com.apple.Safari query=\"saf\" running=true inFront=true"));
    EXPECT_TRUE(hasLog(events, "Hiding assigned com.apple.Safari"));
    EXPECT_TRUE(hasLog(events, "recordPick: \"saf\" -> com.apple.Safari count=1"));
}

TEST(SearchReplay, ThePinKeyOnAWindowRowLetsTheUserPickTheAppToPinTo) {
    // "sgi" highlights Safari's pull request window: the pin key opens the pick, which lists apps;
    // "ch" then Return pins "sgi" to Chess, and the next "sgi" search leads with it.
    const std::string start = R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1050, tap: s}
- {at: 1100, tap: g}
- {at: 1150, tap: i}
- {at: 1200, flags: [rightCommand, lcmd]}
- {at: 1250, tap: p}
- {at: 1300, flags: [rightCommand]}
- {at: 1350, flags: []}
- {at: 1400, tap: c}
- {at: 1450, tap: h}
)";
    auto events = replay(kWorld, start + R"(
- {at: 1500, tap: return}
- {at: 2000, command: {command: search, query: "sgi"}}
- {at: 3000, end: true}
)",
                         true);
    EXPECT_TRUE(hasLog(events, "search: picking the app to pin \"sgi\" to"));
    EXPECT_TRUE(hasLog(events, "flash: Pinned \"sgi\" to Chess (pin.circle.fill)"));
    EXPECT_TRUE(summary(events, {"launch"}).empty());  // a pick activates nothing
    auto next = replyTo(events, 2000)["searchResults"];
    ASSERT_FALSE(next.empty());
    EXPECT_EQ(next[0]["name"], "Chess");
    EXPECT_EQ(next[0]["reasons"][0], "pin[\"sgi\"]");

    // Escape goes back to the query, still latched; a second Escape ends it with nothing pinned.
    auto back = replay(kWorld, start + R"(
- {at: 1500, tap: escape}
- {at: 1550, tap: escape}
- {at: 2000, command: {command: search-learned}}
- {at: 3000, end: true}
)",
                       true);
    EXPECT_FALSE(hasLog(back, "flash: Pinned"));
    EXPECT_TRUE(replyTo(back, 2000)["learnedQueries"].empty());
    EXPECT_TRUE(hasLog(back, "search: \"sgi\""));
}

TEST(SearchReplay, PeriodOpensTheHighlightedAppIntoItsWindows) {
    // "ma" lists Mail; Period puts its window under it and highlights it, so Return focuses that
    // window rather than the app.
    auto events = replay(kWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: space}
- {at: 1200, flags: []}
- {at: 1300, tap: m}
- {at: 1350, tap: a}
- {at: 1400, tap: period}
- {at: 1500, tap: return}
- {at: 3000, end: true}
)",
                         true);
    EXPECT_TRUE(hasLog(events, "search commit: window #3001 query=\"ma\""));
    EXPECT_FALSE(hasLog(events, "search commit: app"));
    EXPECT_EQ(summary(events, {"focus"}).back(), "1500 focus bundleID=com.apple.mail pid=103 windowID=3001");
    std::vector<std::string> periods;
    for (const auto& k : withoutKeyUps(events, {"key"}))
        if (k.find("key=period") != std::string::npos) periods.push_back(k);
    ASSERT_EQ(periods.size(), 1u);
    EXPECT_NE(periods[0].find("action=swallowed"), std::string::npos) << periods[0];
}

// The reply knows two kinds of row; a recently closed window is a window without a live id.
TEST(SearchReply, RowsAreAppsOrWindowsAndAClosedWindowHasNoId) {
    using zelk::search::ClosedWindowEntry;
    using zelk::search::SearchResult;
    const auto closed = zelk::agent::searchReplyRow(
        SearchResult::ofClosed(ClosedWindowEntry{"com.apple.Safari", "Release notes", "Safari", "2 min ago"}),
        3, {"recently-closed", "2 min ago"});
    EXPECT_EQ(closed.kind, "window");
    EXPECT_EQ(closed.rank, 3);
    EXPECT_EQ(closed.name, "Release notes");
    EXPECT_EQ(closed.bundleID, "com.apple.Safari");
    EXPECT_FALSE(closed.windowID.has_value());
    EXPECT_FALSE(closed.isRunning);
    EXPECT_EQ(closed.reasons.front(), "recently-closed");
}
