#include "config/OSDLook.h"

#include <gtest/gtest.h>

#include <set>

#include "config/OSDTheme.h"
#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "config/SettingsFixture.h"

namespace zelk {
namespace {
using nlohmann::json;
using A = WindowSwitcherAppearance;

TEST(OSDLookTest, PresetsFollowTheAppearanceTable) {
    struct Row {
        A appearance;
        double opacity;
        KeycapStyle keycaps;
        SearchBarStyle searchBar;
        double iconSize;
        RowSeparationStyle rows;
    };
    for (auto row :
         {Row{A::dense, 0.22, KeycapStyle::plaintext, SearchBarStyle::clean, 20, RowSeparationStyle::none},
          Row{A::compact, 0, KeycapStyle::badge, SearchBarStyle::glassy, 24, RowSeparationStyle::none},
          Row{A::comfortable, 0, KeycapStyle::badge, SearchBarStyle::glassy, 30,
              RowSeparationStyle::filled}}) {
        SCOPED_TRACE(enumName(row.appearance));
        OSDLook look = OSDLook::preset(row.appearance);
        EXPECT_EQ(look.density, row.appearance);
        EXPECT_EQ(look.backgroundStyle, BackgroundStyle::glass(row.opacity));
        EXPECT_EQ(look.keycapStyle, row.keycaps);
        EXPECT_EQ(look.searchBarStyle, row.searchBar);
        EXPECT_EQ(look.appIconSize, row.iconSize);
        EXPECT_EQ(look.rowSeparationStyle, row.rows);
        EXPECT_EQ(look.accentColor.rawValue, "#FFFFFFFF");
        EXPECT_EQ(look.foregroundColor.rawValue, "#FFFFFFFF");
        EXPECT_EQ(look.keycapColor.rawValue, "#FFFFFFFF");
        EXPECT_EQ(look.cornerRadius, 14);
        EXPECT_EQ(look.iconStyle, IconStyle::native);
        EXPECT_EQ(look.fontStyle, FontStyle::rounded);
        EXPECT_EQ(look.focusStyle, FocusStyle::bar);
        EXPECT_FALSE(look.glassTint);
    }
}

TEST(OSDLookTest, StoredFormRoundTripsAndDecodesLeniently) {
    OSDLook look = OSDLook::preset(A::dense);
    look.backgroundStyle = BackgroundStyle::solid({"#10203040"});
    look.glassTint = ColorHex{"#ABCDEF"};
    look.focusStyle = FocusStyle::glow;
    json stored = look.toJson();
    EXPECT_EQ(stored["density"], "clean");
    EXPECT_EQ(stored["backgroundStyle"], (json{{"solid", {{"color", "#10203040"}}}}));
    EXPECT_EQ(OSDLook::fromJson(stored), look);
    EXPECT_FALSE(OSDLook::preset(A::dense).toJson().contains("glassTint"));

    // Fields missing or unreadable take the preset of the stored density.
    json partial{
        {"density", "compact"}, {"focusStyle", "pill"}, {"appIconSize", "big"}, {"accentColor", "red"}};
    OSDLook expected = OSDLook::preset(A::compact);
    expected.focusStyle = FocusStyle::pill;
    EXPECT_EQ(OSDLook::fromJson(partial), expected);
    EXPECT_FALSE(OSDLook::fromJson(json{{"focusStyle", "pill"}}));
    EXPECT_FALSE(OSDLook::fromJson(json("comfortable")));

    EXPECT_FALSE(BackgroundStyle::fromJson(json{{"glass", {{"opacity", "x"}}}}));
    EXPECT_FALSE(BackgroundStyle::fromJson(json{{"plaid", {}}}));
    EXPECT_TRUE(ColorHex::isValid("#a1B2c3"));
    EXPECT_FALSE(ColorHex::isValid("a1b2c3ff"));
    EXPECT_FALSE(ColorHex::isValid("#a1b2c"));
    EXPECT_FALSE(ColorHex::isValid("#GGGGGG"));
}

TEST(OSDLookTest, TwelveBuiltInThemesWithCompanionFirst) {
    auto& themes = builtInThemes();
    ASSERT_EQ(themes.size(), 12u);
    std::set<std::string> ids, names;
    for (auto& t : themes) {
        ids.insert(t.id);
        names.insert(t.name);
        EXPECT_EQ(OSDTheme::fromJson(t.toJson()), t) << t.id;
    }
    EXPECT_EQ(ids.size(), 12u);
    EXPECT_EQ(names.size(), 12u);
    EXPECT_EQ(themes[0].name, "Companion");
    EXPECT_EQ(themes[0].appPlacement, ScreenCorner::bottomRight);
    EXPECT_EQ(themes[0].appWidth, 360);
    EXPECT_EQ(themes[0].appHeight, 680);
    auto squarish = builtInTheme("squarish");
    ASSERT_TRUE(squarish);
    EXPECT_EQ(squarish->appPlacement, ScreenCorner::center);
    EXPECT_EQ(squarish->appWidth, 700);
    EXPECT_EQ(squarish->appHeight, 550);
    EXPECT_EQ(squarish->windowWidth, 800);
    int standard = 0;
    for (auto& t : themes)
        standard += t.appWidth == 600 && t.appHeight == 550;
    EXPECT_GE(standard, 7);
    EXPECT_FALSE(builtInTheme("nope"));
}

TEST(OSDLookTest, CustomThemeDefaultsToTheDefaultLookAndPlacements) {
    OSDTheme t = defaultCustomTheme();
    EXPECT_EQ(t.look, OSDLook::preset(A::comfortable));
    EXPECT_EQ(t.appPlacement, keys::switcherScreenPlacement.defaultValue);
    EXPECT_EQ(t.appWidth, keys::appSwitcherOSDWidth.defaultValue);
    EXPECT_EQ(t.appHeight, keys::appSwitcherOSDHeight.defaultValue);
    EXPECT_EQ(t.windowWidth, keys::windowSearchOSDWidth.defaultValue);
    EXPECT_EQ(t.windowHeight, keys::windowSearchOSDHeight.defaultValue);
    EXPECT_EQ(t.windowMirrorsApp, keys::windowSwitcherMirrorAppPlacement.defaultValue);
    EXPECT_EQ(t.stageMirrorsApp, keys::stageSwitcherMirrorAppPlacement.defaultValue);
    // A stored theme that lacks fields keeps these.
    auto partial = OSDTheme::fromJson(json{{"id", "mine"}, {"appWidth", 500}, {"stagePlacement", "top"}});
    ASSERT_TRUE(partial);
    EXPECT_EQ(partial->appWidth, 500);
    EXPECT_EQ(partial->stagePlacement, ScreenCorner::top);
    EXPECT_EQ(partial->appHeight, 600);
    EXPECT_FALSE(OSDTheme::fromJson(json{{"name", "no id"}}));
}

class ApplyThemeTest : public testing::SettingsTestBase {
  protected:
    platform::MemorySettingsStore store;
    Settings settings{store};
};

TEST_F(ApplyThemeTest, ApplyingCopiesTheLookAndWithTheLayoutSwitchThePlacements) {
    OSDTheme squarish = *builtInTheme("squarish");
    applyTheme(squarish, settings);
    EXPECT_EQ(settings.get(keys::osdLook), squarish.look);
    EXPECT_EQ(settings.get(keys::activeThemeID), std::optional<std::string>("squarish"));
    EXPECT_EQ(settings.get(keys::switcherScreenPlacement), ScreenCorner::center);
    EXPECT_EQ(settings.get(keys::appSwitcherOSDWidth), 700);
    EXPECT_EQ(settings.get(keys::windowSearchOSDWidth), 800);
    EXPECT_EQ(settings.get(keys::stageSwitcherPlacement), ScreenCorner::center);

    settings.set(keys::applyThemeLayout, false);
    OSDTheme companion = builtInThemes()[0];
    applyTheme(companion, settings);
    EXPECT_EQ(settings.get(keys::osdLook), companion.look);
    EXPECT_EQ(settings.get(keys::activeThemeID), std::optional<std::string>("companion"));
    EXPECT_EQ(settings.get(keys::switcherScreenPlacement), ScreenCorner::center) << "placements stay";
    EXPECT_EQ(settings.get(keys::appSwitcherOSDWidth), 700);
}

}  // namespace
}  // namespace zelk
