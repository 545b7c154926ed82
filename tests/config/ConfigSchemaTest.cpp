#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "config/ConfigSchema.h"
#include "config/SettingsCatalogue.h"
#include "config/SettingsFixture.h"
#include "platform/SettingsStore.h"
#include "support/Yaml.h"

namespace zelk::testing {
namespace {

using configfile::applyConfig;
using configfile::configText;
using configfile::decodeConfig;
using nlohmann::json;

// Settings over a store of their own, and the file they write.
class ConfigSchemaTest : public SettingsTestBase {
  protected:
    platform::MemorySettingsStore store;
    Settings settings{store};

    std::string text() { return configText(settings); }

    // Reads a text into a second, default store and answers the error (empty when it applied).
    std::string readInto(Settings& target, const std::string& yaml) {
        std::string error;
        auto update = decodeConfig(yaml, target, error);
        if (update) applyConfig(target, *update);
        return error;
    }

    // The default file with one line replaced.
    std::string withLine(const std::string& from, const std::string& to) {
        std::string t = text();
        auto at = t.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        return at == std::string::npos ? t : t.replace(at, from.size(), to);
    }

    void fillNonDefaults() {
        settings.set(keys::triggerKeys, {TriggerKey::lcmd, TriggerKey::ralt});
        settings.set(keys::appSort, AppSort::score);
        settings.set(keys::windowSwitcherAppearance, WindowSwitcherAppearance::dense);
        settings.set(keys::osdLook, OSDLook::preset(WindowSwitcherAppearance::compact));
        settings.set(keys::switcherScreenOffsetX, 12.5);
        settings.set(keys::windowSwitchOSDDelay, 90);
        settings.set(keys::tabCycleInclude, TabCycleFilter(0x1));
        settings.set(keys::ignoredApps, StringSet{"com.example.on", "yes"});
        settings.set(keys::searchQueryPins, std::map<std::string, std::string>{{"no", "com.apple.Notes"}});
        settings.set(keys::searchOptionalPrefixes,
                     std::vector<std::string>{"y", "017", "1e3", ".5", "~", "Öl"});
        settings.set(keys::activeThemeID, std::optional<std::string>("midnight"));
        settings.set(keys::adaptiveFollowupGraceMs, 220);
        store.write("stages",
                    json::array({{{"key", "w"}, {"name", "Écriture · 書く"}, {"items", json::array()}}}));
        store.write(
            "appKeyAssignments",
            json::array({{{"key", "s"},
                          {"app", {{"identifier", "com.apple.Safari"}, {"path", "/Applications/Safari.app"}}},
                          {"index", 0},
                          {"whenAlreadyFocusedAction", 3},
                          {"launchIfNotRunning", false}},
                         {{"key", "s"},
                          {"app", {{"identifier", "com.apple.Stocks"}, {"path", "/Applications/Stocks.app"}}},
                          {"index", 0},
                          {"whenAlreadyFocusedAction", 5},
                          {"launchIfNotRunning", true}}}));
        store.write("windowKeyAssignments", json::array({{{"key", "m"},
                                                          {"appURL", "file:///Applications/Safari.app"},
                                                          {"name", "Mail"},
                                                          {"actionKind", 0},
                                                          {"webURL", "https://mail.example.com"}},
                                                         {{"key", "r"},
                                                          {"appURL", "file:///Applications/Safari.app"},
                                                          {"actionKind", 1},
                                                          {"fileURL", "file:///Users/me/read%20me.txt"}}}));
    }
};

TEST_F(ConfigSchemaTest, WriteReadWriteGivesTheSameBytesAndChangesNothing) {
    fillNonDefaults();
    const std::string first = text();
    EXPECT_EQ(first.rfind(std::string(configfile::kConfigHeader), 0), 0u);
    // Stages lead the file.
    EXPECT_EQ(first.find("stages:"), configfile::kConfigHeader.size());

    platform::MemorySettingsStore otherStore;
    Settings other(otherStore);
    ASSERT_EQ(readInto(other, first), "");
    EXPECT_EQ(configText(other), first);

    // Reading the file back into the settings that wrote it changes no key.
    std::string error;
    auto update = decodeConfig(first, settings, error);
    ASSERT_TRUE(update) << error;
    EXPECT_EQ(applyConfig(settings, *update), 0u);

    EXPECT_EQ(other.get(keys::triggerKeys), (TriggerKeyList{TriggerKey::lcmd, TriggerKey::ralt}));
    EXPECT_EQ(other.get(keys::switcherScreenOffsetX), 12.5);
    EXPECT_EQ(other.get(keys::searchOptionalPrefixes),
              (std::vector<std::string>{"y", "017", "1e3", ".5", "~", "Öl"}));
    EXPECT_EQ(other.get(keys::stages)[0]["name"], "Écriture · 書く");
    EXPECT_EQ(other.get(keys::appKeyAssignments).size(), 2u);
    EXPECT_EQ(other.get(keys::windowKeyAssignments)[1]["fileURL"], "file:///Users/me/read%20me.txt");
    EXPECT_EQ(other.get(keys::activeThemeID), std::optional<std::string>("midnight"));
    EXPECT_EQ(other.get(keys::adaptiveFollowupGraceMs), 220);
}

TEST_F(ConfigSchemaTest, AFreshInstallWritesTheHeaderAndTheSectionsInTheFilesOrder) {
    const std::string t = text();
    EXPECT_EQ(t.substr(0, 784),
              "# zelk configuration file\n"
              "# Edit this file to customise zelk's behaviour. Changes are picked up within a few seconds.\n"
              "# Full settings reference: run `zelk config help`\n"
              "stages: []\n"
              "appKeyAssignments: {}\n"
              "windowKeyAssignments: {}\n"
              "ignoredApps: []\n"
              "appsWhereZelkIsPaused: []\n"
              "ignoredKeys: []\n"
              "searchPins: {}\n"
              "triggers:\n"
              "  triggerKeys:\n"
              "  - rightCommand\n"
              "  windowTriggerKeys:\n"
              "  - ralt\n"
              "  assignKeyTriggerKeys:\n"
              "  - rightCommand\n"
              "  - ralt\n"
              "  hideOnFocusTriggerKeys:\n"
              "  - rightCommand\n"
              "  - rshift\n"
              "  enableAssignHotkey: true\n"
              "  enableHideOthersHotkey: false\n"
              "  alwaysHideOthers: false\n"
              "appSwitcher:\n"
              "  showAppSwitcher: false\n"
              "  appSwitcherOSDDelay: 150\n"
              "  appSwitcherFeatures:\n"
              "  - runningApps\n"
              "  - launchableApps\n"
              "  - bottomActions\n"
              "  switcherScreenPlacement:\n"
              "    position: bottomRight\n"
              "    offsetX: 0\n"
              "    offsetY: 0\n");
    std::vector<std::size_t> at;
    for (const char* section :
         {"\ntriggers:", "\nappSwitcher:", "\nwindowSwitcher:", "\nstageSwitcher:", "\ntabCycle:",
          "\nspaces:", "\ngeneral:", "\nwindowKeyPatterns:", "\nwindowTitlePatterns:",
          "\nwindowPatternGroups:", "\noverrideUserDefaults: false\n"})
        at.push_back(t.find(section));
    EXPECT_TRUE(std::is_sorted(at.begin(), at.end()));
    EXPECT_EQ(std::count(at.begin(), at.end(), std::string::npos), 0);
}

TEST_F(ConfigSchemaTest, StringsAnotherReaderWouldRetypeAreQuoted) {
    fillNonDefaults();
    const std::string t = text();
    for (const char* quoted : {"- \"y\"\n", "- \"017\"\n", "- \"1e3\"\n", "- \".5\"\n", "- \"~\"\n",
                               "\"no\": com.apple.Notes", "- \"yes\"\n", "- Öl\n"})
        EXPECT_NE(t.find(quoted), std::string::npos) << quoted;
    // Never wrapped: every scalar stays on its line, however long.
    settings.set(keys::searchOptionalPrefixes, std::vector<std::string>{std::string(500, 'x') + " tail"});
    EXPECT_NE(text().find("- " + std::string(500, 'x') + " tail\n"), std::string::npos);
}

TEST(YamlWriter, ControlAndNonAsciiTextRoundTrips) {
    for (std::string s :
         {std::string("tab\there"), std::string("bell\x07"), std::string("del\x7F"),
          std::string("c1 \xC2\x85 next"), std::string("日本語のタイトル"), std::string("a: b"),
          std::string("- item"), std::string("#not a comment"), std::string("ON"), std::string("Null"),
          std::string("+12"), std::string("12:30"), std::string("0x1F"), std::string("trailing:")}) {
        json v{{"k", s}, {s, 1}};
        auto text = ferrow::emitYaml(v);
        ferrow::YamlError error;
        auto back = ferrow::parseYaml(text, &error);
        ASSERT_TRUE(back) << text << error.describe();
        EXPECT_EQ(*back, v) << text;
    }
}

TEST_F(ConfigSchemaTest, EnumerationsFlagsAndLooksReadAsTheFileSays) {
    platform::MemorySettingsStore otherStore;
    Settings other(otherStore);
    // "clean" is the stored form of `dense`; without a look the file gets the appearance's preset.
    std::string yaml = withLine("windowSwitcherAppearance: comfortable", "windowSwitcherAppearance: clean");
    auto lookStart = yaml.find("  osdLook:");
    auto lookEnd = yaml.find("  customTheme:");
    ASSERT_NE(lookStart, std::string::npos);
    yaml.erase(lookStart, lookEnd - lookStart);
    other.set(keys::osdLook, OSDLook::preset(WindowSwitcherAppearance::comfortable));
    ASSERT_EQ(readInto(other, yaml), "");
    EXPECT_EQ(other.get(keys::windowSwitcherAppearance), WindowSwitcherAppearance::dense);
    EXPECT_EQ(other.get(keys::osdLook), OSDLook::preset(WindowSwitcherAppearance::dense));

    ASSERT_EQ(readInto(other, withLine("  tabCycleInclude:\n  - minimized\n  - hidden\n",
                                       "  tabCycleInclude: [hidden, sideways]\n")),
              "");
    EXPECT_EQ(other.get(keys::tabCycleInclude), TabCycleFilter(0x2));
    ASSERT_EQ(readInto(other, withLine("  tabCycleInclude:\n  - minimized\n  - hidden\n",
                                       "  tabCycleInclude: [minimized, hidden]\n")),
              "");
    EXPECT_EQ(other.get(keys::tabCycleInclude), TabCycleFilter(0x3));

    // An unknown string is tolerated and leaves the setting as it was.
    other.set(keys::appSort, AppSort::score);
    std::string error;
    auto update = decodeConfig(withLine("appSort: name", "appSort: byColour"), other, error);
    ASSERT_TRUE(update) << error;
    applyConfig(other, *update);
    EXPECT_EQ(other.get(keys::appSort), AppSort::score);
    ASSERT_EQ(update->notes.size(), 1u);
    EXPECT_NE(update->notes[0].find("appSwitcher.appSort: unknown value 'byColour'"), std::string::npos);

    // A key no reader knows (a newer version's, a typo) is noted with its place and ignored.
    update = decodeConfig(text() + "futureSetting: 1\n", other, error);
    ASSERT_TRUE(update) << error;
    ASSERT_EQ(update->notes.size(), 1u);
    EXPECT_NE(update->notes[0].find(": futureSetting: unknown key, ignored"), std::string::npos)
        << update->notes[0];
    EXPECT_EQ(update->notes[0].rfind("line ", 0), 0u);
}

TEST_F(ConfigSchemaTest, FocusBehaviourAloneGoesToTheKeyOfTheSpaceModeInForce) {
    auto withoutPerMode = [&](const std::string& mode, const std::string& value) {
        std::string t = withLine("spaceMode: single", "spaceMode: " + mode);
        for (const char* line :
             {"  focusBehaviourSingle: mainWindow\n", "  focusBehaviourMulti: sameSpaceWindow\n"})
            t.erase(t.find(line), std::string(line).size());
        auto at = t.find("  focusBehaviour: sameSpaceWindow\n");
        return t.replace(at, std::string("  focusBehaviour: sameSpaceWindow\n").size(),
                         "  focusBehaviour: " + value + "\n");
    };
    platform::MemorySettingsStore s1, s2;
    Settings single(s1), multi(s2);
    ASSERT_EQ(readInto(single, withoutPerMode("single", "allWindows")), "");
    EXPECT_EQ(single.get(keys::focusBehaviourSingle), FocusBehaviour::allWindows);
    EXPECT_EQ(single.get(keys::focusBehaviourMulti), FocusBehaviour::sameSpaceWindow);
    ASSERT_EQ(readInto(multi, withoutPerMode("multi", "allWindows")), "");
    EXPECT_EQ(multi.get(keys::focusBehaviourMulti), FocusBehaviour::allWindows);
    EXPECT_EQ(multi.get(keys::focusBehaviourSingle), FocusBehaviour::mainWindow);
}

TEST_F(ConfigSchemaTest, ABadFileIsRefusedWholeWithItsPlace) {
    platform::MemorySettingsStore otherStore;
    Settings other(otherStore);
    other.set(keys::appSort, AppSort::score);
    other.set(keys::fuzzySearch, false);
    const auto before = otherStore.keys();

    struct Case {
        std::string yaml;
        std::string message;
    };
    const std::string good = text();
    std::string missingSection = good;
    missingSection.erase(missingSection.find("tabCycle:"),
                         missingSection.find("spaces:") - missingSection.find("tabCycle:"));
    const std::vector<Case> cases{
        // One wrong type anywhere, even after good sections, rejects everything.
        {withLine("  fuzzySearch: true", "  fuzzySearch: maybe"),
         "general.fuzzySearch: expected true or false, found a string"},
        {withLine("appSwitcherOSDDelay: 150", "appSwitcherOSDDelay: [1]"),
         "appSwitcher.appSwitcherOSDDelay: expected a whole number, found a list"},
        {withLine("  triggerKeys:\n  - rightCommand\n", "  triggerKeys:\n  - 4\n"),
         "triggers.triggerKeys[0]: expected a string, found a whole number"},
        {missingSection, "missing required key 'tabCycle'"},
        {withLine("  hidePerAppSettings: false\n", ""), "general: missing required key 'hidePerAppSettings'"},
        {"stages: [\n  - a\n", "line"},
        {std::string(40000, '['), "nesting deeper than"},
        {"a: &a [x, x, x, x, x, x, x, x, x, x]\nb: &b [*a, *a, *a, *a, *a, *a, *a, *a, *a, *a]\n"
         "c: &c [*b, *b, *b, *b, *b, *b, *b, *b, *b, *b]\nd: &d [*c, *c, *c, *c, *c, *c, *c, *c, *c, *c]\n"
         "e: &e [*d, *d, *d, *d, *d, *d, *d, *d, *d, *d]\nf: &f [*e, *e, *e, *e, *e, *e, *e, *e, *e, *e]\n"
         "g: [*f, *f, *f, *f, *f, *f, *f, *f, *f, *f]\n",
         "more than"},
        {"- just\n- a list\n", "expected a mapping of settings, found a list"},
        {good + "---\nsecond: document\n", "more than one document"},
    };
    for (auto& c : cases) {
        std::string error;
        auto update = decodeConfig(c.yaml, other, error);
        EXPECT_FALSE(update) << c.message;
        EXPECT_NE(error.find(c.message), std::string::npos) << error;
        // Every refusal says where, but for budgets counted over the whole text.
        if (c.message != "more than") {
            EXPECT_EQ(error.rfind("line ", 0), 0u) << error;
        }
    }
    EXPECT_EQ(otherStore.keys(), before);
    EXPECT_EQ(other.get(keys::appSort), AppSort::score);
    EXPECT_FALSE(other.get(keys::fuzzySearch));
}

TEST_F(ConfigSchemaTest, OverrideUserDefaultsLetsTheFileAloneDecide) {
    std::string yaml = text();
    // An optional key the file leaves out.
    yaml.erase(yaml.find("  activationMode: adaptive\n"), std::string("  activationMode: adaptive\n").size());

    platform::MemorySettingsStore s1, s2;
    Settings keeps(s1), resets(s2);
    for (Settings* s : {&keeps, &resets}) {
        s->set(keys::activationMode, ActivationMode::onPress);
        s->set(keys::applyThemeLayout, false);
        s->set(keys::capsLockTapToggles, false);  // not the file's: never touched
    }
    ASSERT_EQ(readInto(keeps, yaml), "");
    EXPECT_EQ(keeps.get(keys::activationMode), ActivationMode::onPress);

    std::string overriding = yaml;
    overriding.replace(overriding.find("overrideUserDefaults: false"), 27, "overrideUserDefaults: true");
    ASSERT_EQ(readInto(resets, overriding), "");
    EXPECT_EQ(resets.get(keys::activationMode), ActivationMode::adaptive);
    EXPECT_FALSE(s2.read("activationMode"));
    // The file carries applyThemeLayout, so the override takes the file's value, not the default.
    EXPECT_TRUE(resets.get(keys::applyThemeLayout));
    EXPECT_FALSE(resets.get(keys::capsLockTapToggles));
}

TEST_F(ConfigSchemaTest, EveryKeyThatWritesTheFileIsReadBackFromIt) {
    // The managed keys are exactly what a read can restore: a key in the list that the file didn't
    // carry would be reset by every overriding read.
    fillNonDefaults();
    std::string error;
    auto update = decodeConfig(text(), settings, error);
    ASSERT_TRUE(update) << error;
    std::set<std::string> read;
    for (auto& [key, value] : update->writes)
        read.insert(key);
    for (auto& key : configfile::configManagedKeys())
        EXPECT_TRUE(read.count(key)) << key;
    for (const char* key : {"customTheme", "applyThemeLayout", "adaptiveFollowupGraceMs", "osdLook",
                            "activeThemeID", "focusBehaviour", "searchQueryPins", "overrideUserDefaults"})
        EXPECT_NE(
            std::find(configfile::configManagedKeys().begin(), configfile::configManagedKeys().end(), key),
            configfile::configManagedKeys().end())
            << key;
}

TEST_F(ConfigSchemaTest, SettingsRecordExportsAndImportsByRecordNames) {
    fillNonDefaults();
    auto record = configfile::exportSettingsRecord(settings);
    EXPECT_EQ(record.begin().key(), "stages");
    EXPECT_EQ(record["hideKey"], "minus");
    EXPECT_EQ(record["appsWhereZelkIsPaused"], json::array());
    EXPECT_EQ(record["appSwitcherOSDDelay"], 90);
    std::string error;
    auto writes = configfile::decodeSettingsRecord(record.dump(), error);
    ASSERT_TRUE(writes) << error;
    platform::MemorySettingsStore otherStore;
    Settings other(otherStore);
    for (auto& [key, value] : *writes)
        otherStore.write(key, value);
    EXPECT_EQ(configfile::exportSettingsRecord(other), record);

    EXPECT_FALSE(configfile::decodeSettingsRecord(R"({"appSort": 7.5})", error));
    EXPECT_EQ(error, "appSort is not a AppSort");
    EXPECT_FALSE(configfile::decodeSettingsRecord("[1]", error));
    EXPECT_FALSE(configfile::decodeSettingsRecord("{", error));
}

}  // namespace
}  // namespace zelk::testing
