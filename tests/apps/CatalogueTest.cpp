#include "AppsFixture.h"

#include "config/SettingsCatalogue.h"

namespace zelk::testing {
namespace {

using apps::AppCatalogue;

struct CatalogueTest : AppsFixture {
    std::vector<AppSpec> base{
        {"com.apple.Safari", "Safari", 0, 40},
        {"com.google.Chrome", "Google Chrome", 0, 25},
        {"com.example.clock", "Menu Clock", 0, 30, "", "accessory"},
    };
};

TEST_F(CatalogueTest, QueryResultsBecomeRecordsAndAreKeptInTheSettings) {
    makeWorld(base);
    manager().start();
    EXPECT_TRUE(manager().catalogue().apps().empty());
    manager().startInstalledAppsQuery();
    runFor(0);
    // Records with new bundles wait for the background read of their menu-bar flags.
    EXPECT_TRUE(manager().catalogue().apps().empty());
    runFor(desktop.workspace().bundleReadDelayMs);
    ASSERT_EQ(manager().catalogue().apps().size(), 3u);
    auto chrome = record("com.google.Chrome");
    ASSERT_TRUE(chrome);
    EXPECT_EQ(chrome->name(), "Chrome");
    EXPECT_EQ(chrome->useCount(), 25);
    EXPECT_FALSE(chrome->isMenuBarApp());
    EXPECT_TRUE(record("com.example.clock")->isMenuBarApp());
    EXPECT_DOUBLE_EQ(record("com.example.clock")->usageScore(), 0);
    EXPECT_DOUBLE_EQ(chrome->usageScore(), 1.5 * 25);

    auto stored = settings().get(keys::launchableApps);
    ASSERT_EQ(stored.size(), 3u);
    EXPECT_EQ(stored[1]["identifier"], "com.google.Chrome");
    EXPECT_EQ(stored[1]["originalName"], "Chrome");
}

TEST_F(CatalogueTest, StoredRecordsServeUntilTheFirstDelivery) {
    makeWorld(
        base, "",
        {{"launchableApps", nlohmann::json::array({{{"path", "/System/Volumes/Data/Applications/Old.app"},
                                                    {"originalName", "Old"},
                                                    {"useCount", 3},
                                                    {"identifier", "com.example.old"}}})}});
    manager().start();
    ASSERT_EQ(manager().catalogue().apps().size(), 1u);
    EXPECT_EQ(record("com.example.old")->path(), "/Applications/Old.app");
    manager().startInstalledAppsQuery();
    runFor(200);
    EXPECT_FALSE(record("com.example.old"));
    EXPECT_TRUE(record("com.apple.Safari"));
}

TEST_F(CatalogueTest, UnchangedRecordsAreReusedAndChangedOnesRebuilt) {
    makeWorld(base);
    startWithCatalogue();
    auto safari = record("com.apple.Safari");
    auto chrome = record("com.google.Chrome");
    safari->setSwitchCount(11);
    chrome->setSwitchCount(9);
    runFor(3000);
    desktop.workspace().bundleExtras["com.google.Chrome"].useCount = 26;
    desktop.workspace().installedAppsChanged();
    runFor(500);
    EXPECT_EQ(record("com.apple.Safari"), safari);  // same record
    EXPECT_NE(record("com.google.Chrome"), chrome);
    EXPECT_EQ(record("com.google.Chrome")->useCount(), 26);
    // A rebuilt record starts from zero; the reused one keeps its count.
    EXPECT_EQ(record("com.google.Chrome")->switchCount(), 0);
    EXPECT_EQ(record("com.apple.Safari")->switchCount(), 11);
}

TEST_F(CatalogueTest, AppsWithAZeroFactorAreHiddenFromTheCatalogue) {
    makeWorld(
        {{"com.apple.DiskUtility", "Disk Utility", 0, 10}, {"com.apple.Dictionary", "Dictionary", 0, 10}});
    startWithCatalogue();
    ASSERT_TRUE(record("com.apple.DiskUtility"));
    EXPECT_FALSE(manager().isRelevant(*record("com.apple.DiskUtility")));
    // The smallest factor above zero only ranks an app low.
    EXPECT_TRUE(manager().isRelevant(*record("com.apple.Dictionary")));
}

TEST_F(CatalogueTest, DeliveriesAreThrottledToOnePerTwoSeconds) {
    makeWorld(base);
    desktop.workspace().bundleReadDelayMs = 0;
    startWithCatalogue();
    int installs = 0;
    auto sub = manager().catalogue().installed.subscribe([&] { ++installs; });
    world().addApp({"com.example.a", "Alpha", "/Applications/Alpha.app"});
    desktop.workspace().installedAppsChanged();
    runFor(10);
    world().addApp({"com.example.b", "Beta", "/Applications/Beta.app"});
    desktop.workspace().installedAppsChanged();
    runFor(10);
    world().addApp({"com.example.c", "Gamma", "/Applications/Gamma.app"});
    desktop.workspace().installedAppsChanged();
    runFor(1000);
    // The first delivery at launch opened a 2 s interval: nothing installs inside it.
    EXPECT_EQ(installs, 0);
    EXPECT_FALSE(record("com.example.a"));
    runFor(1000);
    EXPECT_EQ(installs, 1);  // the latest delivery alone, at the interval's end
    EXPECT_TRUE(record("com.example.c"));
    EXPECT_EQ(manager().catalogue().apps().size(), 6u);
}

TEST_F(CatalogueTest, ALaterDeliveryDuringTheBackgroundPassWins) {
    makeWorld(base);
    startWithCatalogue();
    runFor(3000);
    // A slow disk: the menu-bar pass of a build outlasts the throttle interval.
    desktop.workspace().bundleReadDelayMs = 3000;
    world().addApp({"com.example.first", "First", "/Applications/First.app"});
    desktop.workspace().installedAppsChanged();
    runFor(10);
    auto generation = manager().catalogue().generation();
    world().addApp({"com.example.second", "Second", "/Applications/Second.app"});
    desktop.workspace().installedAppsChanged();
    runFor(2500);  // the second delivery leaves the throttle and starts its own pass
    EXPECT_EQ(manager().catalogue().generation(), generation + 1);
    int installs = 0;
    auto sub = manager().catalogue().installed.subscribe([&] { ++installs; });
    runFor(600);  // the first pass ends: it is stale and dropped
    EXPECT_EQ(installs, 0);
    EXPECT_FALSE(record("com.example.first"));
    runFor(3000);
    EXPECT_EQ(installs, 1);
    EXPECT_TRUE(record("com.example.first"));
    EXPECT_TRUE(record("com.example.second"));
}

TEST_F(CatalogueTest, SecondStartWhileRunningDoesNothing) {
    makeWorld(base);
    startWithCatalogue();
    manager().startInstalledAppsQuery();
    EXPECT_EQ(desktop.workspace().liveQueryCount(), 1);
}

TEST_F(CatalogueTest, FolderChangesSignalAndRescan) {
    makeWorld(base);
    desktop.workspace().bundleReadDelayMs = 0;
    startWithCatalogue();
    runFor(3000);
    int signals = 0;
    auto sub = manager().catalogue().foldersChanged.subscribe([&] { ++signals; });
    auto live = desktop.workspace().liveQueryCount();
    ASSERT_EQ(live, 1);
    world().addApp({"com.example.util", "Util", "/Applications/Utilities/Util.app"});
    desktop.workspace().installedAppsChanged({"/Applications/Utilities/Util.app"});
    runFor(100);
    EXPECT_EQ(signals, 1);
    EXPECT_TRUE(record("com.example.util"));
    // A folder outside the watched ones says nothing.
    desktop.workspace().installedAppsChanged({"/opt/tools/Other.app"});
    runFor(100);
    EXPECT_EQ(signals, 1);
}

TEST_F(CatalogueTest, AFolderWatchThatFailsLeavesTheQueryWorking) {
    makeWorld(base);
    desktop.workspace().folderWatchFails = true;
    startWithCatalogue();
    EXPECT_TRUE(logs->contains("Could not start FSevent. Error: The folder watch could not be created."));
    EXPECT_EQ(manager().catalogue().apps().size(), 3u);
}

TEST_F(CatalogueTest, SafariFromTheCryptexWhenTheQueryMissesIt) {
    makeWorld({{"com.example.notes", "Notes"}});
    desktop.workspace().extraFiles.insert(AppCatalogue::kCryptexSafariPath);
    startWithCatalogue();
    auto safari = record("com.apple.Safari");
    ASSERT_TRUE(safari);
    EXPECT_EQ(safari->path(), AppCatalogue::kCryptexSafariPath);
    EXPECT_EQ(safari->name(), "Safari");
    EXPECT_EQ(safari->useCount(), 0);
}

TEST_F(CatalogueTest, LowDocumentAppsReadTheBundleCategory) {
    makeWorld({{"com.example.chess", "Chess Club"}, {"com.example.writer", "Writer"}});
    desktop.workspace().bundleExtras["com.example.chess"].category = "public.app-category.board-games";
    startWithCatalogue();
    EXPECT_TRUE(manager().isLowDocumentApp("com.example.chess"));
    EXPECT_FALSE(manager().isLowDocumentApp("com.example.writer"));
    EXPECT_TRUE(manager().isLowDocumentApp("com.apple.mail"));
}

}  // namespace
}  // namespace zelk::testing
