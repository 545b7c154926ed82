#include <gtest/gtest.h>

#include "apps/AppCategories.h"
#include "apps/AppRelevance.h"
#include "apps/AppScoreFactors.h"
#include "apps/LaunchableApp.h"

namespace zelk::apps {
namespace {

TEST(LaunchableAppNames, VendorWordsAndSuffixGo) {
    EXPECT_EQ(normalizedAppName("Google Chrome.app"), "Chrome");
    EXPECT_EQ(normalizedAppName("Microsoft Word"), "Word");
    EXPECT_EQ(normalizedAppName("Adobe Photoshop 2024"), "Photoshop 2024");
    EXPECT_EQ(normalizedAppName("  Safari.app \n"), "Safari");
    // Only a leading vendor word, and only as a word.
    EXPECT_EQ(normalizedAppName("Googlebot"), "Googlebot");
    EXPECT_EQ(normalizedAppName("Visual Studio Code"), "Visual Studio Code");

    LaunchableApp app("/Applications/Adobe Photoshop.app", "Adobe Photoshop.app", 3, "com.adobe.Photoshop");
    EXPECT_EQ(app.name(), "Photoshop");
    EXPECT_EQ(app.fullName(), "Adobe Photoshop");
    EXPECT_EQ(app.lowercasedName(), "photoshop");
    EXPECT_EQ(app.firstNameLetter(), "p");
    EXPECT_EQ(app.description(), "<LaunchableApp Photoshop>");
}

TEST(LaunchableAppNames, LettersAnchorOnTheFullName) {
    std::vector<std::string> prefixes{"google", "adobe", "the"};
    LaunchableApp photoshop("/Applications/Adobe Photoshop.app", "Adobe Photoshop", 0, "com.adobe.Photoshop");
    EXPECT_EQ(photoshop.nameLetters(prefixes, 1), (std::vector<std::string>{"a", "p"}));
    LaunchableApp unarchiver("/Applications/The Unarchiver.app", "The Unarchiver", 0,
                             "com.macpaw.site.theunarchiver");
    EXPECT_EQ(unarchiver.nameLetters(prefixes, 1), (std::vector<std::string>{"t", "u"}));
    LaunchableApp password("/Applications/1Password.app", "1Password", 0, "com.1password.1password");
    EXPECT_EQ(password.nameLetters(prefixes, 1), (std::vector<std::string>{"1", "p"}));
    LaunchableApp code("/Applications/Visual Studio Code.app", "Visual Studio Code", 0,
                       "com.microsoft.VSCode");
    EXPECT_EQ(code.nameLetters(prefixes, 1), (std::vector<std::string>{"v"}));
    // A new prefix list (new stamp) is read afresh.
    EXPECT_EQ(photoshop.nameLetters({}, 2), (std::vector<std::string>{"a"}));
}

TEST(LaunchableAppIdentity, BundleIdentifierOfAProcessIdentifier) {
    EXPECT_EQ(bundleIdentifierOf("com.apple.Safari"), "com.apple.Safari");
    EXPECT_EQ(bundleIdentifierOf("/com.apple.Safari:412/"), "com.apple.Safari");
    LaunchableApp second("/Applications/Safari.app", "Safari", 0, "/com.apple.Safari:412/");
    EXPECT_EQ(second.bundleIdentifier(), "com.apple.Safari");
}

TEST(LaunchableAppScores, FactorUseCountAndSwitches) {
    LaunchableApp seven("/Applications/Notes.app", "Notes", 10, "com.example.notes", 7);
    EXPECT_DOUBLE_EQ(seven.usageScore(), 10);  // 7 switches add nothing yet
    LaunchableApp plain("/Applications/Notes.app", "Notes", 10, "com.example.notes", 8);
    EXPECT_DOUBLE_EQ(plain.usageScore(), 18);
    EXPECT_DOUBLE_EQ(plain.score(true), 18 - 99999);
    // The score is kept for the record's life: later switches don't move it.
    plain.setSwitchCount(30);
    EXPECT_DOUBLE_EQ(plain.usageScore(), 18);
    EXPECT_EQ(plain.switchCount(), 30);

    LaunchableApp xcode("/Applications/Xcode.app", "Xcode", 10, "com.apple.dt.Xcode");
    EXPECT_DOUBLE_EQ(xcode.usageScore(), 50);
    LaunchableApp preview("/System/Applications/Preview.app", "Preview", 10, "com.apple.Preview");
    EXPECT_DOUBLE_EQ(preview.usageScore(), 5);

    // A menu-bar app's use count counts for nothing, its switches still do.
    LaunchableApp agent("/Applications/Clock.app", "Clock", 40, "com.example.clock", 9);
    agent.setMenuBarApp(true);
    EXPECT_DOUBLE_EQ(agent.usageScore(), 9);
}

TEST(LaunchableAppScores, FactorTable) {
    EXPECT_EQ(appScoreFactorCount(), 178u);
    EXPECT_EQ(appScoreFactorRow("com.tinyspeck.slackmacgap"), 4.0);
    EXPECT_EQ(appScoreFactorRow("com.apple.dock"), 0.0);
    EXPECT_EQ(appScoreFactorRow("com.ferrowlabs.zelk"), 0.0);
    EXPECT_EQ(appScoreFactorRow("com.example.unknown"), std::nullopt);
    EXPECT_EQ(appScoreFactor("com.example.unknown"), 1.0);
}

TEST(LaunchableAppRecords, StoredFormRoundTripsAndOlderFormsRead) {
    LaunchableApp app("/Applications/Google Chrome.app", "Google Chrome", 12, "com.google.Chrome", 9);
    auto back = LaunchableApp::fromJson(app.toJson());
    ASSERT_TRUE(back);
    EXPECT_EQ(back->path(), app.path());
    EXPECT_EQ(back->name(), "Chrome");
    EXPECT_EQ(back->fullName(), "Google Chrome");
    EXPECT_EQ(back->useCount(), 12);
    EXPECT_EQ(back->switchCount(), 9);
    EXPECT_EQ(back->url(), "file:///Applications/Google%20Chrome.app");

    // An older record: `name` instead of `originalName`, no switch count, on the data volume.
    auto old = LaunchableApp::fromJson({{"path", "/System/Volumes/Data/Applications/Slack.app"},
                                        {"name", "Slack.app"},
                                        {"useCount", 4},
                                        {"identifier", "com.tinyspeck.slackmacgap"}});
    ASSERT_TRUE(old);
    EXPECT_EQ(old->path(), "/Applications/Slack.app");
    EXPECT_EQ(old->name(), "Slack");
    EXPECT_EQ(old->switchCount(), 0);
    EXPECT_FALSE(LaunchableApp::fromJson({{"useCount", 1}}));
    EXPECT_FALSE(LaunchableApp::fromJson("garbage"));
}

TEST(AppRelevance, PathsOfARealisticCatalogue) {
    struct Case {
        const char* path;
        bool relevant;
    };
    const Case cases[] = {
        {"/Applications/Safari.app", true},
        {"/System/Applications/Utilities/Terminal.app", true},
        {"/Users/me/Applications/Chrome Apps.localized/Docs.app", true},
        {"/System/Library/CoreServices/Finder.app", true},
        {"/System/Library/CoreServices/Dock.app", false},
        {"/Library/Application Support/Vendor/Agent.app", false},
        {"/Applications/Slack.app/Contents/Frameworks/Slack Helper.app", false},
        {"/Applications/Xcode.app/Contents/Developer/Applications/Simulator.app", true},
        {"/Applications/Xcode.app/Contents/Developer/Tools/Helper.app", false},
        {"/Applications/Burp Suite.app/Contents/Resources/Burp.app", true},
        {"/Users/me/Library/Caches/JetBrains/Toolbox/IDEA.app", true},
        {"/Users/me/Library/Application Support/JetBrains/Toolbox/apps/IDEA.app", true},
        {"/Applications/BetterTouchTool.app/Contents/BTTRelaunch.app", false},
        {"/System/Library/PrivateFrameworks/Foo.framework/Versions/A/Resources/Bar.app", false},
        {"/Applications/Utils.app/Contents/XPCServices/Service.xpc", false},
        {"/Users/Shared/Riot/Riot Client.app", true},
    };
    PathRelevanceCache cache;
    for (const auto& c : cases) {
        EXPECT_EQ(isAppPathRelevant(c.path), c.relevant) << c.path;
        EXPECT_EQ(cache(c.path), c.relevant) << c.path;
    }
    EXPECT_EQ(cache.size(), std::size(cases));
}

TEST(AppCategories, ListsBeforeTheDeclaredCategory) {
    EXPECT_TRUE(isLowDocumentApp("com.tinyspeck.slackmacgap", ""));
    EXPECT_TRUE(isLowDocumentApp("com.hegenberg.BetterTouchTool-setapp", ""));  // the suffix goes
    EXPECT_FALSE(isLowDocumentApp("com.google.Chrome", "public.app-category.utilities"));
    EXPECT_FALSE(isLowDocumentApp("net.kovidgoyal.kitty", "public.app-category.utilities"));
    EXPECT_FALSE(isLowDocumentApp("com.jetbrains.intellij", "public.app-category.games"));
    EXPECT_FALSE(isLowDocumentApp("com.apple.finder", "public.app-category.utilities"));
    EXPECT_TRUE(isLowDocumentApp("com.example.chess", "public.app-category.board-games"));
    EXPECT_FALSE(isLowDocumentApp("com.example.writer", "public.app-category.productivity"));
    EXPECT_FALSE(isLowDocumentApp("com.example.writer", ""));
}

}  // namespace
}  // namespace zelk::apps
