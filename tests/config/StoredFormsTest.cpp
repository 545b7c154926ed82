#include <gtest/gtest.h>

#include "config/SettingsCatalogue.h"
#include "config/SettingsFixture.h"
#include "input/TriggerKey.h"

namespace zelk {
namespace {
using nlohmann::json;

template <StringRawEnum E>
std::vector<std::string> raws() {
    std::vector<std::string> out;
    for (auto e : allCases<E>())
        out.emplace_back(enumRaw(e));
    return out;
}

// Every case survives encode then decode, and an index reads as the case at that position.
template <StringRawEnum E>
void expectRoundTrip() {
    int i = 0;
    for (auto e : allCases<E>()) {
        json stored = SettingCodec<E>::encode(e);
        EXPECT_EQ(stored, json(std::string(enumRaw(e))));
        EXPECT_EQ(SettingCodec<E>::decode(stored), e) << enumName(e);
        EXPECT_EQ(SettingCodec<E>::decode(json(i)), e) << enumName(e);
        EXPECT_EQ(enumIndex(e), i);
        ++i;
    }
    EXPECT_FALSE(SettingCodec<E>::decode(json(i))) << EnumCases<E>::typeName;
    EXPECT_FALSE(SettingCodec<E>::decode(json(-1)));
    EXPECT_FALSE(SettingCodec<E>::decode(json("Bogus")));
    EXPECT_FALSE(SettingCodec<E>::decode(json(true)));
}

TEST(StoredFormsTest, EnumerationsKeepTheirCaseOrderAndRawValues) {
    using V = std::vector<std::string>;
    EXPECT_EQ(raws<AppSort>(), (V{"key", "name", "score"}));
    EXPECT_EQ(raws<TabCycleScope>(), (V{"auto", "currentSpace", "activeStage", "allWindows", "sameApp"}));
    EXPECT_EQ(raws<StageCloseAction>(), (V{"close", "minimize", "moveOffScreen"}));
    EXPECT_EQ(raws<SpaceMode>(), (V{"single", "multi"}));
    EXPECT_EQ(raws<WindowSwitcherAppearance>(), (V{"clean", "compact", "comfortable"}));
    EXPECT_EQ(raws<TactoraFillMode>(), (V{"visible", "dim", "blank"}));
    EXPECT_EQ(raws<SwitcherMode>(), (V{"switcher", "launcher"}));
    EXPECT_EQ(raws<FocusBehaviour>(), (V{"allWindows", "mainWindow", "sameSpaceWindow"}));
    EXPECT_EQ(raws<WindowKeyMode>(), (V{"mixed", "numbersOnly", "noNumbers"}));
    EXPECT_EQ(raws<StickyAppSwitcherScope>(), (V{"zelkOnly", "zelkAndSystem"}));
    EXPECT_EQ(raws<ActivationMode>(), (V{"onPress", "onRelease", "adaptive"}));
    EXPECT_EQ(raws<SearchMatchMode>(), (V{"anchored", "contains"}));
    EXPECT_EQ(raws<OSDLayoutPreset>(), (V{"companion", "launcher"}));
    EXPECT_EQ(raws<RowSeparationStyle>(), (V{"none", "filled", "dividers", "outlined", "zebra", "floating"}));
    EXPECT_EQ(raws<FocusStyle>(), (V{"bar", "pill", "underline", "glow", "border"}));
    EXPECT_EQ(raws<FontStyle>(), (V{"rounded", "system", "mono"}));
    EXPECT_EQ(raws<IconStyle>(), (V{"native", "grayscale", "grayscaleUntilFocused", "roundedRect"}));
    EXPECT_EQ(raws<SearchBarStyle>(), (V{"glassy", "clean", "embedded", "underlined", "pill", "outlined"}));
    EXPECT_EQ(raws<KeycapStyle>(), (V{"badge", "plaintext", "bordered"}));
    EXPECT_EQ(raws<ScreenCorner>(), (V{"bottomLeft", "bottomRight", "topLeft", "topRight", "top", "bottom",
                                       "left", "right", "center"}));
}

TEST(StoredFormsTest, EnumerationsRoundTrip) {
    expectRoundTrip<AppSort>();
    expectRoundTrip<TabCycleScope>();
    expectRoundTrip<StageCloseAction>();
    expectRoundTrip<SpaceMode>();
    expectRoundTrip<WindowSwitcherAppearance>();
    expectRoundTrip<TactoraFillMode>();
    expectRoundTrip<SwitcherMode>();
    expectRoundTrip<FocusBehaviour>();
    expectRoundTrip<WindowKeyMode>();
    expectRoundTrip<StickyAppSwitcherScope>();
    expectRoundTrip<ActivationMode>();
    expectRoundTrip<SearchMatchMode>();
    expectRoundTrip<OSDLayoutPreset>();
    expectRoundTrip<RowSeparationStyle>();
    expectRoundTrip<FocusStyle>();
    expectRoundTrip<FontStyle>();
    expectRoundTrip<IconStyle>();
    expectRoundTrip<SearchBarStyle>();
    expectRoundTrip<KeycapStyle>();
    expectRoundTrip<ScreenCorner>();
    // dense is stored as "clean", and its case name is still understood.
    EXPECT_EQ(SettingCodec<WindowSwitcherAppearance>::decode(json("dense")), WindowSwitcherAppearance::dense);
    EXPECT_EQ(enumName(WindowSwitcherAppearance::dense), "dense");
}

TEST(StoredFormsTest, OptionSetsAreArraysOfFlagNames) {
    using C = SettingCodec<SwitcherFeatures>;
    EXPECT_EQ(C::encode(SwitcherFeatures(0x39)),
              (json{"lastWindow", "windows", "windowActions", "bottomActions"}));
    EXPECT_EQ(C::encode(SwitcherFeatures(0x26)), (json{"runningApps", "launchableApps", "bottomActions"}));
    EXPECT_EQ(C::encode(SwitcherFeatures()), json::array());
    for (std::uint64_t raw = 0; raw < 0x40; ++raw)
        EXPECT_EQ(C::decode(C::encode(SwitcherFeatures(raw)))->rawValue, raw);
    EXPECT_EQ(C::decode(json{"windows", "lastWindow", "windows"})->rawValue,
              0x9u);                                    // order and repeats don't count
    EXPECT_EQ(C::decode(json(0x3F))->rawValue, 0x3Fu);  // the older integer form
    EXPECT_FALSE(C::decode(json(0x40)));
    EXPECT_FALSE(C::decode(json{"windows", "sideways"}));
    EXPECT_FALSE(C::decode(json{"windows", 8}));

    EXPECT_EQ(SettingCodec<TabCycleFilter>::encode(TabCycleFilter(3)), (json{"minimized", "hidden"}));
    EXPECT_EQ(SettingCodec<ExposeFilter>::encode(ExposeFilter(7)),
              (json{"minimized", "hidden", "fullscreen"}));
    EXPECT_TRUE(TabCycleFilter(3).contains(TabCycleFilter::hidden));
    EXPECT_FALSE(TabCycleFilter(1).contains(TabCycleFilter::hidden));
    SwitcherFeatures f(0x39);
    f.remove(SwitcherFeatures::windows).insert(SwitcherFeatures::runningApps);
    EXPECT_EQ(f.rawValue, 0x33u);
}

TEST(StoredFormsTest, KeysAreStoredByName) {
    using C = SettingCodec<Key>;
    for (int i = 0; i < kKeyCount; ++i) {
        auto key = static_cast<Key>(i);
        EXPECT_EQ(C::decode(C::encode(key)), key) << keyName(key);
    }
    EXPECT_EQ(C::encode(Key::section), json("section"));
    EXPECT_EQ(C::encode(Key::leftBracket), json("leftBracket"));
    EXPECT_FALSE(C::decode(json(27)));
}

TEST(StoredFormsTest, TriggerKeysKeepRawValuesZeroToThirteen) {
    const std::vector<std::string> names{"lshift", "lctrl", "lalt",   "lcmd",    "rightCommand",
                                         "ralt",   "rctrl", "rshift", "cmd",     "alt",
                                         "ctrl",   "shift", "fn",     "capsLock"};
    ASSERT_EQ(names.size(), static_cast<std::size_t>(kTriggerKeyCount));
    for (int raw = 0; raw < kTriggerKeyCount; ++raw) {
        auto key = triggerKeyFromRaw(raw);
        ASSERT_TRUE(key);
        EXPECT_EQ(triggerKeyName(*key), names[raw]);
        EXPECT_EQ(triggerKeyFromName(names[raw]), key);
        EXPECT_EQ(SettingCodec<TriggerKey>::encode(*key), json(raw));
        EXPECT_EQ(SettingCodec<TriggerKey>::decode(json(raw)), key);
        EXPECT_FALSE(readableStr(*key).empty());
        EXPECT_FALSE(shortReadableStr(*key).empty());
    }
    EXPECT_EQ(kTriggerKeyNone, 14);
    EXPECT_FALSE(triggerKeyFromRaw(kTriggerKeyNone));
    EXPECT_FALSE(SettingCodec<TriggerKey>::decode(json(kTriggerKeyNone)));
    EXPECT_EQ(readableStr(TriggerKey::rightCommand), "Right Command");
    EXPECT_EQ(shortReadableStr(TriggerKey::rightCommand), "R⌘");
    EXPECT_EQ(directionalStr(TriggerKey::lalt), "left");
    EXPECT_EQ(directionalStr(TriggerKey::rshift), "right");
    EXPECT_EQ(directionalStr(TriggerKey::capsLock), "");
    // Lists: raw values, no-key entries skipped, one unknown entry spoils the list.
    using L = SettingCodec<TriggerKeyList>;
    EXPECT_EQ(L::encode({TriggerKey::rightCommand, TriggerKey::capsLock}), (json{4, 13}));
    EXPECT_EQ(L::decode(json{14, 4, "ralt"}), (TriggerKeyList{TriggerKey::rightCommand, TriggerKey::ralt}));
    EXPECT_FALSE(L::decode(json{4, 15}));
    EXPECT_FALSE(L::decode(json(4)));
}

TEST(StoredFormsTest, NumbersAndContainers) {
    EXPECT_EQ(SettingCodec<int>::decode(json(150.0)), 150);
    EXPECT_FALSE(SettingCodec<int>::decode(json(0.15)));
    EXPECT_FALSE(SettingCodec<int>::decode(json(1e12)));
    EXPECT_FALSE(SettingCodec<int>::decode(json("150")));
    EXPECT_EQ(SettingCodec<double>::decode(json(2)), 2.0);
    EXPECT_FALSE(SettingCodec<bool>::decode(json(1)));
    EXPECT_EQ(SettingCodec<StringSet>::encode({"b", "a"}), (json{"a", "b"}));
    EXPECT_FALSE(SettingCodec<StringSet>::decode(json{"a", nullptr}));
    using M = SettingCodec<std::map<std::string, std::string>>;
    EXPECT_EQ(M::decode(json{{"te", "com.apple.Terminal"}})->at("te"), "com.apple.Terminal");
    EXPECT_FALSE(M::decode(json{{"te", 3}}));
    EXPECT_FALSE(M::decode(json::array()));
}

TEST(StoredFormsTest, LearnedSelectionsAreOnePerQueryAndReadLeniently) {
    SearchSelection s{"com.apple.Safari", 3, 1.7e9};
    EXPECT_EQ(SearchSelection::fromJson(s.toJson()), s);
    EXPECT_EQ(SearchSelection::fromJson(json{{"bundleID", "com.x"}, {"count", 0}})->count, 1);
    EXPECT_FALSE(SearchSelection::fromJson(json{{"count", 2}}));
    auto strongest =
        SearchSelection::fromJson(json::array({{{"bundleID", "a"}, {"count", 2}, {"lastPickedAt", 9}},
                                               {{"bundleID", "b"}, {"count", 5}, {"lastPickedAt", 1}},
                                               {{"bundleID", "c"}, {"count", 5}, {"lastPickedAt", 3}}}));
    ASSERT_TRUE(strongest);
    EXPECT_EQ(strongest->bundleID, "c");
    EXPECT_FALSE(SearchSelection::fromJson(json::array()));
}

TEST(StoredFormsTest, PatternGroupsDefaultToTheFourShippedGroups) {
    auto& groups = defaultWindowPatternGroups();
    ASSERT_EQ(groups.size(), 4u);
    EXPECT_EQ(groups[0].id, "code-editors");
    EXPECT_EQ(groups[0].bundleIDs.size(), 11u);
    EXPECT_EQ(groups[1].id, "jetbrains");
    EXPECT_EQ(groups[1].keyPattern, "");
    EXPECT_EQ(groups[2].titlePattern, "^.+? — (.+)$");
    EXPECT_EQ(groups[3].name, "Xcode");
    for (auto& g : groups)
        EXPECT_EQ(WindowPatternGroup::fromJson(g.toJson()), g);
}

}  // namespace
}  // namespace zelk
