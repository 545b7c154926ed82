#include "AppsFixture.h"

#include "config/SettingsCatalogue.h"

namespace zelk::testing {
namespace {

using apps::AppKeyAssignment;

// Running apps on a desktop: several share letters.
std::vector<AppSpec> desk() {
    return {
        {"com.apple.Safari", "Safari", 101, 40},      {"com.tinyspeck.slackmacgap", "Slack", 102, 30},
        {"com.spotify.client", "Spotify", 103, 10},   {"com.apple.mail", "Mail", 104, 20},
        {"com.apple.MobileSMS", "Messages", 105, 50}, {"com.apple.Terminal", "Terminal", 106, 5},
        {"com.example.notes", "Notes", 0, 90},  // installed, not running
    };
}

struct AssignmentsTest : AppsFixture {
    void start(std::vector<AppSpec> specs = desk(), const std::string& front = "",
               const nlohmann::json& settingsJson = nlohmann::json::object()) {
        makeWorld(specs, front, settingsJson);
        startWithCatalogue();
    }
};

TEST_F(AssignmentsTest, UsageDecidesRightAfterStart) {
    start(desk(), "com.apple.Terminal");
    // s: Slack 4×30 beats Safari 1.5×40 and Spotify 1.2×10.
    EXPECT_EQ(dynamicBundle("s"), "com.tinyspeck.slackmacgap");
    EXPECT_EQ(dynamicBundle("m"), "com.apple.MobileSMS");
    EXPECT_EQ(dynamicBundle("t"), "com.apple.Terminal");
    EXPECT_EQ(dynamicBundle("n"), "");  // Notes doesn't run
    EXPECT_EQ(dynamicKeys(), "mst");
    auto stored = settings().get(keys::dynamicAppKeyAssignments);
    ASSERT_EQ(stored.size(), 3u);
    EXPECT_EQ(stored[1]["key"], "s");
    EXPECT_EQ(stored[1]["index"], 1);
    EXPECT_EQ(stored[1]["whenAlreadyFocusedAction"], 0);  // the global action, hide by default
}

TEST_F(AssignmentsTest, TheMostRecentlyActiveAppTakesItsLetters) {
    start(desk(), "com.apple.Terminal");
    activate("com.apple.Safari");
    EXPECT_EQ(dynamicBundle("s"), "com.apple.Safari");
    activate("com.spotify.client");
    EXPECT_EQ(dynamicBundle("s"), "com.spotify.client");
    activate("com.apple.mail");
    // Mail doesn't answer to s, so the last app in front that does keeps it.
    EXPECT_EQ(dynamicBundle("s"), "com.spotify.client");
    EXPECT_EQ(dynamicBundle("m"), "com.apple.mail");
    ASSERT_GE(manager().recentApps().size(), 3u);
    EXPECT_EQ(manager().recentApps()[0]->bundleIdentifier(), "com.apple.mail");
}

TEST_F(AssignmentsTest, RightAfterStartUsageDecidesNotTheAppInFront) {
    start(desk(), "com.apple.Safari");
    // Safari is in front but no app has been activated since start: the best score takes s.
    EXPECT_EQ(dynamicBundle("s"), "com.tinyspeck.slackmacgap");
    EXPECT_TRUE(manager().recentApps().empty());
    ASSERT_TRUE(manager().focusedApp());
    EXPECT_EQ(manager().focusedApp()->bundleID, "com.apple.Safari");
}

TEST_F(AssignmentsTest, SwitchesAreCountedOnTheCatalogueRecordAndLettersKeepAfterARestart) {
    start(desk(), "com.apple.Terminal");
    ASSERT_EQ(dynamicBundle("m"), "com.apple.MobileSMS");  // by usage: 50 against Mail's 20
    for (int i = 0; i < 40; ++i) {
        activate("com.apple.Terminal");
        activate("com.apple.mail");
    }
    EXPECT_EQ(record("com.apple.mail")->switchCount(), 40);
    // The catalogue is stored again (another app's use count moved), counts included.
    runFor(3000);
    desktop.workspace().bundleExtras["com.spotify.client"].useCount = 11;
    desktop.workspace().installedAppsChanged();
    runFor(500);
    auto stored = settings().get(keys::launchableApps);
    bool mailStored = false;
    for (auto& r : stored)
        if (r["identifier"] == "com.apple.mail") mailStored = r["switchCount"] == 40;
    EXPECT_TRUE(mailStored);

    // After a restart no app has been in front yet, and usage decides as it did at the last start.
    apps::AppManager::reset();
    startWithCatalogue();
    EXPECT_EQ(dynamicBundle("m"), "com.apple.MobileSMS");
}

TEST_F(AssignmentsTest, AFreshLearnedPickWinsWhileItsAppRuns) {
    double now = clock->wallSeconds();
    start(desk(), "com.apple.Terminal",
          {{"searchQueryAppSelections",
            {{"s", {{"bundleID", "com.spotify.client"}, {"count", 2}, {"lastPickedAt", now - 3600}}}}}});
    EXPECT_EQ(dynamicBundle("s"), "com.spotify.client");
    activate("com.apple.Safari");  // recency doesn't beat a learned pick
    EXPECT_EQ(dynamicBundle("s"), "com.spotify.client");

    // A change of the learned picks refreshes the letters.
    settings().set(keys::searchQueryAppSelections,
                   std::map<std::string, SearchSelection>{{"s", {"com.tinyspeck.slackmacgap", 1, now}}});
    runFor(60);
    EXPECT_EQ(dynamicBundle("s"), "com.tinyspeck.slackmacgap");
}

TEST_F(AssignmentsTest, AStaleOrUnreachableLearnedPickHasNoEffect) {
    double now = clock->wallSeconds();
    start(desk(), "com.apple.Terminal",
          {{"searchQueryAppSelections",
            {{"s", {{"bundleID", "com.spotify.client"}, {"count", 50}, {"lastPickedAt", now - 259201}}},
             {"n", {{"bundleID", "com.example.notes"}, {"count", 5}, {"lastPickedAt", now}}},
             {"m", {{"bundleID", "com.spotify.client"}, {"count", 5}, {"lastPickedAt", now}}}}}});
    EXPECT_EQ(dynamicBundle("s"), "com.tinyspeck.slackmacgap");  // older than 3 days
    EXPECT_EQ(dynamicBundle("n"), "");                           // not running
    EXPECT_EQ(dynamicBundle("m"), "com.apple.MobileSMS");        // Spotify doesn't answer to m
}

TEST_F(AssignmentsTest, StaticBindingsTakeLettersAndAppsAway) {
    start(desk(), "com.apple.Terminal");
    manager().assign(record("com.apple.Safari"), "B");
    runFor(60);
    // The key is the static one's; the app is reachable through it alone.
    EXPECT_EQ(manager().assignmentForKey("b")->app->bundleIdentifier(), "com.apple.Safari");
    EXPECT_EQ(dynamicBundle("b"), "");
    activate("com.apple.Safari");
    EXPECT_NE(dynamicBundle("s"), "com.apple.Safari");
    EXPECT_EQ(dynamicBundle("s"), "com.tinyspeck.slackmacgap");
    // A static binding on a letter takes it from the derivation.
    manager().assign(record("com.apple.mail"), "s");
    runFor(60);
    EXPECT_EQ(dynamicBundle("s"), "");
    EXPECT_EQ(dynamicBundle("m"), "com.apple.MobileSMS");
    EXPECT_DOUBLE_EQ(
        record("com.apple.mail")->score(manager().staticAssignments().hasStaticKey("com.apple.mail")),
        20 - 99999.0);
}

TEST_F(AssignmentsTest, AnAppWithAStaticKeyCantBeIgnored) {
    start(desk(), "com.apple.Terminal");
    manager().assign(record("com.apple.Safari"), "b");
    EXPECT_FALSE(manager().ignore(*record("com.apple.Safari")));
    EXPECT_TRUE(settings().get(keys::ignoredApps).empty());
    EXPECT_TRUE(manager().ignore(*record("com.tinyspeck.slackmacgap")));
    runFor(60);
    EXPECT_EQ(settings().get(keys::ignoredApps), StringSet{"com.tinyspeck.slackmacgap"});
    EXPECT_EQ(dynamicBundle("s"), "com.spotify.client");
    manager().unignore(*record("com.tinyspeck.slackmacgap"));
    runFor(60);
    EXPECT_EQ(dynamicBundle("s"), "com.tinyspeck.slackmacgap");
}

TEST_F(AssignmentsTest, RelevanceOfRunningApps) {
    start({{"com.apple.Safari", "Safari", 101, 40},
           {"com.apple.finder", "Finder", 102, 10, "/System/Library/CoreServices/Finder.app"},
           {"com.hegenberg.BetterTouchTool", "BetterTouchTool", 103, 99},
           {"com.example.helper", "Helper", 104, 99, "/Applications/Suite.app/Contents/Library/Helper.app"},
           {"com.example.daemon", "Daemon", 105, 99, "", "background"}},
          "com.apple.Safari");
    auto bundles = [&] {
        std::vector<std::string> out;
        for (const auto& e : manager().runningApps())
            out.push_back(e.app->bundleIdentifier());
        return out;
    };
    // A background app in a relevant place counts like any other.
    EXPECT_EQ(bundles(),
              (std::vector<std::string>{"com.apple.Safari", "com.apple.finder", "com.example.daemon"}));
    EXPECT_EQ(manager().allRunningApps().size(), 6u);  // this program too
    EXPECT_EQ(dynamicBundle("b"), "");
    // Once windows are known at all, Finder counts only with a window of its own.
    manager().setAppWindowCounts({{"com.apple.Safari", 2}});
    EXPECT_EQ(bundles(), (std::vector<std::string>{"com.apple.Safari", "com.example.daemon"}));
    runFor(60);
    EXPECT_EQ(dynamicBundle("f"), "");
    manager().setAppWindowCounts({{"com.apple.Safari", 2}, {"com.apple.finder", 1}});
    runFor(60);
    EXPECT_EQ(dynamicBundle("f"), "com.apple.finder");
}

TEST_F(AssignmentsTest, OptionalPrefixesAndLeadingDigitsGiveTwoInitials) {
    start({{"com.adobe.Photoshop", "Adobe Photoshop", 101, 10},
           {"com.macpaw.Unarchiver", "The Unarchiver", 102, 10},
           {"com.1password.1password", "1Password", 103, 10},
           {"com.microsoft.VSCode", "Visual Studio Code", 104, 10}},
          "com.microsoft.VSCode");
    EXPECT_EQ(dynamicBundle("a"), "com.adobe.Photoshop");
    EXPECT_EQ(dynamicBundle("p"), "com.adobe.Photoshop");  // Photoshop scores 10, 1Password 0.5 × 10
    EXPECT_EQ(dynamicBundle("t"), "com.macpaw.Unarchiver");
    EXPECT_EQ(dynamicBundle("u"), "com.macpaw.Unarchiver");
    EXPECT_EQ(dynamicBundle("1"), "com.1password.1password");
    EXPECT_EQ(dynamicBundle("v"), "com.microsoft.VSCode");
    EXPECT_EQ(dynamicBundle("s"), "");
    EXPECT_EQ(dynamicBundle("c"), "");
    activate("com.1password.1password");
    EXPECT_EQ(dynamicBundle("p"), "com.1password.1password");
    EXPECT_EQ(dynamicKeys(), "1aptuv");

    // Without anchors only the start of the (normalised) name counts.
    settings().set(keys::searchMatchMode, SearchMatchMode::contains);
    runFor(60);
    EXPECT_EQ(dynamicBundle("a"), "");
    EXPECT_EQ(dynamicBundle("p"), "com.adobe.Photoshop");
    EXPECT_EQ(dynamicBundle("1"), "com.1password.1password");
    EXPECT_EQ(dynamicBundle("u"), "");
    EXPECT_EQ(dynamicBundle("t"), "com.macpaw.Unarchiver");
}

TEST_F(AssignmentsTest, AtMostTwentyKeysDigitsFirst) {
    std::vector<AppSpec> many;
    const std::string names = "abcdefghijklmnopqrstuvwxyz";
    for (std::size_t i = 0; i < names.size(); ++i) {
        std::string n(1, static_cast<char>(names[i] - 32));
        many.push_back({"com.example." + n, n + "pp", static_cast<std::int32_t>(200 + i), 1});
    }
    for (int d = 0; d < 3; ++d)
        many.push_back({"com.example.d" + std::to_string(d), std::to_string(d) + " Tool", 300 + d, 1});
    start(many);
    auto& list = manager().dynamicAppKeyAssignments();
    ASSERT_EQ(list.size(), 20u);
    EXPECT_EQ(dynamicKeys(), "012abcdefghijklmnopq");
    for (std::size_t i = 0; i < list.size(); ++i)
        EXPECT_EQ(list[i].index, static_cast<int>(i));
}

TEST_F(AssignmentsTest, BindAndRebind) {
    start(desk(), "com.apple.Terminal");
    int changes = 0;
    auto sub = manager().assignmentsChanged.subscribe([&] { ++changes; });
    auto safari = manager().assign(record("com.apple.Safari"), "W");
    EXPECT_EQ(safari.key, "w");
    EXPECT_EQ(safari.id(), "w-com.apple.Safari-5-true");
    EXPECT_GT(changes, 0);
    ASSERT_TRUE(manager().lastAppKeyAssignment());
    EXPECT_EQ(manager().lastAppKeyAssignment()->id(), safari.id());
    manager().assign(record("com.apple.mail"), "e");
    auto stored = settings().get(keys::appKeyAssignments);
    ASSERT_EQ(stored.size(), 2u);
    EXPECT_EQ(stored[0]["key"], "w");

    // Mail moves onto Safari's key: Safari's binding goes, the free key returns to the derivation.
    auto mail = *manager().assignmentForKey("e");
    auto moved = manager().rebound(mail, "W");
    runFor(60);
    EXPECT_EQ(moved.key, "w");
    ASSERT_EQ(manager().appKeyAssignments().size(), 1u);
    EXPECT_EQ(manager().assignmentForKey("w")->app->bundleIdentifier(), "com.apple.mail");
    EXPECT_EQ(manager().assignmentForKey("e"), nullptr);
    EXPECT_EQ(manager().lastAppKeyAssignment()->key, "w");
    EXPECT_EQ(dynamicBundle("m"), "com.apple.MobileSMS");
    EXPECT_EQ(dynamicBundle("s"), "com.tinyspeck.slackmacgap");
    EXPECT_EQ(settings().get(keys::appKeyAssignments).size(), 1u);

    // Rebinding a record the list doesn't hold adds it.
    AppKeyAssignment outside;
    outside.key = "q";
    outside.app = record("com.apple.Terminal");
    manager().rebound(outside, "x");
    EXPECT_EQ(manager().assignmentForKey("x")->app->bundleIdentifier(), "com.apple.Terminal");
}

TEST_F(AssignmentsTest, TheLaterOfTwoAssignmentsOnAKeyWins) {
    auto entry = [](const char* key, const char* bundle, const char* name) {
        return nlohmann::json{{"key", key},
                              {"app",
                               {{"path", std::string("/Applications/") + name + ".app"},
                                {"originalName", name},
                                {"useCount", 0},
                                {"identifier", bundle}}},
                              {"index", 0},
                              {"whenAlreadyFocusedAction", 3},
                              {"launchIfNotRunning", true}};
    };
    start(desk(), "com.apple.Terminal",
          {{"appKeyAssignments", nlohmann::json::array({entry("K", "com.apple.Safari", "Safari"),
                                                        entry("k", "com.apple.mail", "Mail")})}});
    EXPECT_EQ(manager().assignmentForKey("k")->app->bundleIdentifier(), "com.apple.mail");
    EXPECT_EQ(manager().assignmentForKey("k")->whenAlreadyFocusedAction,
              WhenAlreadyFocusedAction::cycleWindows);
    // An edit from outside (the configuration file) reaches the indexes and the derivation.
    settings().set(keys::appKeyAssignments,
                   nlohmann::json::array({entry("s", "com.tinyspeck.slackmacgap", "Slack")}));
    runFor(60);
    EXPECT_EQ(manager().assignmentForKey("k"), nullptr);
    EXPECT_EQ(dynamicBundle("s"), "");
    EXPECT_EQ(dynamicBundle("m"), "com.apple.MobileSMS");
}

TEST_F(AssignmentsTest, DeletedAssignmentsAreKeptUntilRestored) {
    start(desk(), "com.apple.Terminal");
    auto safari = manager().assign(record("com.apple.Safari"), "b");
    EXPECT_TRUE(manager().removeAssignment(safari));
    EXPECT_EQ(manager().assignmentForKey("b"), nullptr);
    ASSERT_EQ(manager().deletedAppKeyAssignments().size(), 1u);
    EXPECT_EQ(settings().get(keys::deletedAppKeyAssignments).size(), 1u);
    manager().restoreFromDeleted(safari);
    EXPECT_TRUE(manager().deletedAppKeyAssignments().empty());
    EXPECT_EQ(settings().get(keys::deletedAppKeyAssignments).size(), 0u);
}

TEST_F(AssignmentsTest, RelatedAppsOfferTheOtherMatches) {
    start(desk(), "com.apple.Terminal");
    auto bundles = [&](const std::string& key) {
        std::vector<std::string> out;
        auto it = manager().relatedApps().find(key);
        if (it != manager().relatedApps().end())
            for (const auto& a : it->second)
                out.push_back(a->bundleIdentifier());
        return out;
    };
    // Slack holds s; the others that s means, walked from the lowest score up.
    EXPECT_EQ(bundles("s-com.tinyspeck.slackmacgap"),
              (std::vector<std::string>{"com.spotify.client", "com.apple.Safari"}));
    activate("com.apple.Safari");
    activate("com.spotify.client");
    activate("com.apple.Terminal");
    // Spotify now holds s; recently active alternatives come before the rest.
    EXPECT_EQ(bundles("s-com.spotify.client"),
              (std::vector<std::string>{"com.apple.Safari", "com.tinyspeck.slackmacgap"}));
    // A learned query beginning with the letter puts its app first.
    settings().set(
        keys::searchQueryAppSelections,
        std::map<std::string, SearchSelection>{{"saf", {"com.apple.Safari", 3, clock->wallSeconds()}}});
    runFor(60);
    EXPECT_EQ(bundles("s-com.spotify.client"),
              (std::vector<std::string>{"com.apple.Safari", "com.tinyspeck.slackmacgap"}));
    // A static assignment gets the alternatives of its key too.
    manager().assign(record("com.apple.mail"), "m");
    runFor(60);
    EXPECT_EQ(bundles("m-com.apple.mail"), std::vector<std::string>{"com.apple.MobileSMS"});
}

TEST_F(AssignmentsTest, RelatedAppsUnderTheFirstNameLetter) {
    start({{"com.adobe.Photoshop", "Adobe Photoshop", 101, 10},
           {"com.adobe.Acrobat", "Adobe Acrobat", 102, 50},
           {"com.example.pages", "Pages", 103, 1}},
          "com.example.pages");
    // Photoshop reaches p through its second initial; its alternatives stand under its first name
    // letter and under its own key.
    // Right after start usage decides: Photoshop's score beats Pages'.
    EXPECT_EQ(dynamicBundle("p"), "com.adobe.Photoshop");
    activate("com.adobe.Photoshop");
    EXPECT_EQ(dynamicBundle("p"), "com.adobe.Photoshop");
    EXPECT_EQ(dynamicBundle("a"), "com.adobe.Photoshop");
    auto& related = manager().relatedApps();
    ASSERT_TRUE(related.count("p-com.adobe.Photoshop"));
    ASSERT_EQ(related.at("a-com.adobe.Photoshop").size(), 1u);
    EXPECT_EQ(related.at("a-com.adobe.Photoshop")[0]->bundleIdentifier(), "com.adobe.Acrobat");
}

TEST_F(AssignmentsTest, TheFocusedAppsPseudoAssignment) {
    start(desk(), "com.apple.Terminal");
    EXPECT_EQ(manager().focusedAppKeyAssignment().key, "t");
    activate("com.apple.MobileSMS");
    EXPECT_EQ(manager().focusedAppKeyAssignment().key, "m");
    EXPECT_EQ(manager().focusedAppKeyAssignment().whenAlreadyFocusedAction, WhenAlreadyFocusedAction::hide);
    auto mail = manager().assign(record("com.apple.mail"), "e");
    auto list = manager().appKeyAssignments();
    list[0].whenAlreadyFocusedAction = WhenAlreadyFocusedAction::expose;
    manager().setAppKeyAssignments(list);
    activate("com.apple.mail");
    EXPECT_EQ(manager().focusedAppKeyAssignment().key, "m");  // the name's letter, not the bound key
    EXPECT_EQ(manager().focusedAppKeyAssignment().whenAlreadyFocusedAction, WhenAlreadyFocusedAction::expose);
    EXPECT_EQ(settings().get(keys::focusedAppKeyAssignment)["app"]["identifier"], "com.apple.mail");
    // This program coming forward leaves the record alone.
    world().activate(sim::SimWorld::kOwnPID);
    runFor(60);
    EXPECT_EQ(manager().focusedAppKeyAssignment().app->bundleIdentifier(), "com.apple.mail");
}

TEST_F(AssignmentsTest, RefreshesAreThrottledTo50Milliseconds) {
    start(desk(), "com.apple.Terminal");
    runFor(100);
    int refreshes = 0;
    auto sub = manager().assignmentsChanged.subscribe([&] { ++refreshes; });
    for (int i = 0; i < 10; ++i)
        manager().scheduleDynamicRefresh();
    EXPECT_EQ(refreshes, 1);  // the first runs at once
    runFor(49);
    EXPECT_EQ(refreshes, 1);
    runFor(1);
    EXPECT_EQ(refreshes, 2);  // the rest fold into one at the interval's end
    runFor(200);
    EXPECT_EQ(refreshes, 2);
}

TEST_F(AssignmentsTest, LaunchesAndQuitsRefreshTheLetters) {
    start(desk(), "com.apple.Terminal");
    feedRunningApps();
    EXPECT_EQ(dynamicBundle("n"), "");
    manager().launch("com.example.notes");
    runFor(500);
    EXPECT_EQ(dynamicBundle("n"), "com.example.notes");
    world().terminate(pidOf("com.tinyspeck.slackmacgap"));
    runFor(100);
    EXPECT_EQ(dynamicBundle("s"), "com.apple.Safari");
}

TEST_F(AssignmentsTest, QueryChipsAndAmbiguatingLetters) {
    start(desk(), "com.apple.Terminal",
          {{"searchQueryPins", {{"sp", "com.spotify.client"}, {"x", "com.apple.Safari"}}},
           {"searchQueryAppSelections",
            {{"sa", {{"bundleID", "com.apple.Safari"}, {"count", 3}, {"lastPickedAt", 100}}},
             {"saf", {{"bundleID", "com.apple.Safari"}, {"count", 3}, {"lastPickedAt", 200}}},
             {"safari", {{"bundleID", "com.apple.Safari"}, {"count", 9}, {"lastPickedAt", 50}}},
             {"m", {{"bundleID", "com.apple.mail"}, {"count", 1}, {"lastPickedAt", 50}}},
             {"sp", {{"bundleID", "com.apple.Safari"}, {"count", 1}, {"lastPickedAt", 50}}},
             {"te", {{"bundleID", "com.apple.Terminal"}, {"count", 1}, {"lastPickedAt", 50}}}}}});
    const auto& chips = manager().queryChipsByBundleID();
    std::vector<std::string> safari;
    for (const auto& c : chips.at("com.apple.Safari"))
        safari.push_back(c.query);
    EXPECT_EQ(safari, (std::vector<std::string>{"x", "safari", "saf", "sa"}));
    ASSERT_EQ(chips.at("com.spotify.client").size(), 1u);
    EXPECT_TRUE(chips.at("com.spotify.client")[0].pinned);
    EXPECT_EQ(manager().ambiguatingQueryLetters(), (std::set<std::string>{"s", "t", "x"}));
    EXPECT_TRUE(manager().isAmbiguatingLetter("T"));
    EXPECT_FALSE(manager().isAmbiguatingLetter("m"));

    settings().set(keys::searchQueryPins, std::map<std::string, std::string>{});
    EXPECT_FALSE(manager().isAmbiguatingLetter("x"));
}

}  // namespace
}  // namespace zelk::testing
