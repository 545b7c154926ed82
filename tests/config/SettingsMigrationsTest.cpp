#include "config/SettingsMigrations.h"

#include <gtest/gtest.h>

#include <random>

#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "config/SettingsFixture.h"

namespace zelk {
namespace {
using nlohmann::json;
using platform::MemorySettingsStore;

class SettingsMigrationsTest : public testing::SettingsTestBase {
  protected:
    MemorySettingsStore store;
    Settings settings{store};

    json stored(const std::string& key) { return store.read(key).value_or(json("<absent>")); }
    std::map<std::string, json> snapshot() {
        std::map<std::string, json> out;
        for (auto& k : store.keys())
            out[k] = *store.read(k);
        return out;
    }
};

TEST_F(SettingsMigrationsTest, StepsRunInVersionOrderUpToTheCurrentVersion) {
    auto& steps = settingsMigrations();
    ASSERT_EQ(steps.size(), static_cast<std::size_t>(kSettingsVersion));
    for (std::size_t i = 0; i < steps.size(); ++i)
        EXPECT_EQ(steps[i].version, static_cast<int>(i) + 1);
    EXPECT_EQ(kSettingsVersion, 11);
}

TEST_F(SettingsMigrationsTest, AnOlderStoreIsBroughtToTodaysForms) {
    store.write("migrationVersion", 0);
    store.write("triggerKeys", json{"rightCommand", "hyper", 5});
    store.write("stageTriggerKeys", json{"nope"});
    store.write("windowTriggerKeys", json{14, "ralt"});
    store.write("appSort", 2);
    store.write("windowSwitcherAppearance", "dense");
    store.write("switcherScreenPlacement", 8);
    store.write("tabCycleScope", 99);  // no such case: left for the reader to report
    store.write("whenAlreadyFocusedAction", "cycleWindows");
    store.write("windowSwitcherFeatures", 0x09);
    store.write("exposeInclude", 5);
    store.write("minimizeKey", "-");
    store.write("windowCycleKey", 50);  // the grave key's code
    store.write("specialKey", "equal");
    store.write("focusBehaviour", "allWindows");
    store.write("spaceMode", "multi");
    store.write(
        "searchQueryAppSelections",
        json{{"sa", json::array({{{"bundleID", "com.a"}, {"count", 1}, {"lastPickedAt", 5}},
                                 {{"bundleID", "com.apple.Safari"}, {"count", 4}, {"lastPickedAt", 2}}})},
             {"te", {{"bundleID", "com.apple.Terminal"}, {"count", 2}, {"lastPickedAt", 1}}},
             {"xx", 7}});
    store.write("windowKeyPatterns", json::array({{{"id", "com.a"}, {"pattern", "(.)"}}}));
    store.write("windowTitlePatterns", json::array({{{"id", "com.b"}, {"pattern", "(.+)"}},
                                                    {{"id", "com.a"}, {"pattern", "t(.+)"}}}));
    store.write("ignoredApps", json{"b", "a", "b", 3});
    store.write("adaptiveFollowupGraceMs", 149.6);

    EXPECT_EQ(runSettingsMigrations(store), 11);

    EXPECT_EQ(stored("migrationVersion"), json(11));
    EXPECT_EQ(stored("triggerKeys"), (json{4, 5}));
    EXPECT_EQ(stored("stageTriggerKeys"), json("<absent>"));
    EXPECT_EQ(stored("windowTriggerKeys"), json{5});
    EXPECT_EQ(stored("appSort"), json("score"));
    EXPECT_EQ(stored("windowSwitcherAppearance"), json("clean"));
    EXPECT_EQ(stored("switcherScreenPlacement"), json("center"));
    EXPECT_EQ(stored("tabCycleScope"), json(99));
    EXPECT_EQ(stored("whenAlreadyFocusedAction"), json(3));
    EXPECT_EQ(stored("windowSwitcherFeatures"), (json{"lastWindow", "windows"}));
    EXPECT_EQ(stored("exposeInclude"), (json{"minimized", "fullscreen"}));
    EXPECT_EQ(stored("minimizeKey"), json("minus"));
    EXPECT_EQ(stored("windowCycleKey"), json("grave"));
    EXPECT_EQ(stored("specialKey"), json("equal"));
    EXPECT_EQ(stored("focusBehaviourMulti"), json("allWindows"));
    EXPECT_EQ(stored("focusBehaviourSingle"), json("<absent>"));
    EXPECT_EQ(stored("searchQueryAppSelections"),
              (json{{"sa", {{"bundleID", "com.apple.Safari"}, {"count", 4}, {"lastPickedAt", 2.0}}},
                    {"te", {{"bundleID", "com.apple.Terminal"}, {"count", 2}, {"lastPickedAt", 1.0}}}}));
    auto groups = settings.get(keys::windowPatternGroups);
    ASSERT_EQ(groups.size(), 2u);
    EXPECT_EQ(groups[0], (WindowPatternGroup{"com.a", "com.a", {"com.a"}, "(.)", "t(.+)"}));
    EXPECT_EQ(groups[1], (WindowPatternGroup{"com.b", "com.b", {"com.b"}, "", "(.+)"}));
    EXPECT_EQ(stored("ignoredApps"), (json{"a", "b"}));
    EXPECT_EQ(stored("osdLook"), OSDLook::preset(WindowSwitcherAppearance::dense).toJson());
    EXPECT_EQ(stored("adaptiveFollowupGraceMs"), json(150));

    // Everything migrated reads without a complaint except the value with no case at all.
    ferrow::LogCapture log;
    for (auto& e : settingsCatalogue())
        if (auto v = store.read(e.name); v && e.name != "tabCycleScope" && !e.reads(*v))
            ADD_FAILURE() << e.name << " " << v->dump();
    EXPECT_EQ(settings.get(keys::tabCycleScope), TabCycleScope::auto_);
}

TEST_F(SettingsMigrationsTest, RunningAgainOrOnTodaysFormsChangesNothing) {
    store.write("triggerKeys", json{"lcmd"});
    store.write("whenAlreadyFocusedAction", 2);
    store.write("tabCycleInclude", 1);
    runSettingsMigrations(store);
    EXPECT_EQ(stored("whenAlreadyFocusedAction"), json("<absent>")) << "retired raw value 2 goes";
    auto after = snapshot();
    int notified = 0;
    auto sub = store.observe([&](const std::string&) { ++notified; });
    EXPECT_EQ(runSettingsMigrations(store), 0);
    EXPECT_EQ(notified, 0);

    // Each step on its own, run on values already in today's form, is a no-op.
    for (auto& step : settingsMigrations()) {
        step.run(store);
        EXPECT_EQ(snapshot(), after) << step.name;
    }
    EXPECT_EQ(notified, 0);
}

TEST_F(SettingsMigrationsTest, OnlyStepsAboveTheStoredVersionRun) {
    store.write("migrationVersion", 5);
    store.write("appSort", 0);                     // migration 2 would fix this, but it has run already
    store.write("adaptiveFollowupGraceMs", 80.4);  // migration 11 hasn't
    ferrow::LogCapture log;
    EXPECT_EQ(runSettingsMigrations(store), 6);
    EXPECT_EQ(stored("appSort"), json(0));
    EXPECT_EQ(stored("adaptiveFollowupGraceMs"), json(80));
    EXPECT_TRUE(log.contains("migrate: focusBehaviourPerSpaceMode (version 6)"));
    EXPECT_FALSE(log.contains("migrate: keyNames (version 5)"));
}

TEST_F(SettingsMigrationsTest, AStoreFromANewerVersionIsLeftAlone) {
    store.write("migrationVersion", 14);
    store.write("appSort", 0);
    EXPECT_EQ(runSettingsMigrations(store), 0);
    EXPECT_EQ(stored("migrationVersion"), json(14));
    EXPECT_EQ(stored("appSort"), json(0));
}

TEST_F(SettingsMigrationsTest, FocusBehaviourMovesToTheSpaceModeInForceOnlyWhenNeitherIsSet) {
    store.write("focusBehaviour", "mainWindow");
    runSettingsMigrations(store);
    EXPECT_EQ(stored("focusBehaviourSingle"), json("mainWindow"));
    EXPECT_EQ(stored("focusBehaviourMulti"), json("<absent>"));

    MemorySettingsStore other;
    other.write("focusBehaviour", "allWindows");
    other.write("focusBehaviourMulti", "mainWindow");
    runSettingsMigrations(other);
    EXPECT_FALSE(other.read("focusBehaviourSingle"));
    EXPECT_EQ(other.read("focusBehaviourMulti"), json("mainWindow"));
}

TEST_F(SettingsMigrationsTest, AFreshInstallOnlyGetsItsVersion) {
    EXPECT_EQ(runSettingsMigrations(store), 11);
    EXPECT_EQ(store.keys(), std::vector<std::string>{"migrationVersion"});
}

// The string sets come out as a set's encoding whatever the stored list: repeats at either end, entries
// that aren't strings, lists already clean, bytes past ASCII.
TEST_F(SettingsMigrationsTest, StringSetsComeOutAsASetWritesThem) {
    std::mt19937 rng(9);
    const std::vector<json> pool{"a", "b", "B", "com.x", "\u00e9t\u00e9", "", 3, nullptr, json::array()};
    for (int round = 0; round < 200; ++round) {
        json list = json::array();
        for (int i = static_cast<int>(rng() % 8); i > 0; --i)
            list.push_back(pool[rng() % pool.size()]);
        if (round % 4 == 0)
            list =
                SettingCodec<StringSet>::encode(SettingCodec<StringSet>::decode(list).value_or(StringSet{}));
        StringSet expected;
        for (auto& item : list)
            if (item.is_string()) expected.insert(item.get<std::string>());
        store.write("migrationVersion", 8);
        store.write("ignoredApps", list);
        runSettingsMigrations(store);
        EXPECT_EQ(stored("ignoredApps"), SettingCodec<StringSet>::encode(expected)) << list.dump();
    }
}

}  // namespace
}  // namespace zelk
