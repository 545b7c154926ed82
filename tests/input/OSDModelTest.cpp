// The panel model's pure parts: which view fills the panel, where it stands, and its fixed texts.
#include <gtest/gtest.h>

#include "input/OSDModel.h"

using nlohmann::json;

namespace zelk::osd {
namespace {

TEST(OSDViewChoice, PrecedenceTableRowByRow) {
    ViewInputs in;
    EXPECT_EQ(chooseView(in), (ViewChoice{OSDView::none, 8}));
    in.windowTriggerKeysPressed = true;
    EXPECT_EQ(chooseView(in), (ViewChoice{OSDView::windowSwitcher, 7}));
    in.showWindowSwitcher = false;
    EXPECT_EQ(chooseView(in), (ViewChoice{OSDView::none, 8}));
    in.appTriggerKeysPressed = true;
    EXPECT_EQ(chooseView(in).row, 8) << "the app panel is off";
    in.showAppSwitcher = true;
    EXPECT_EQ(chooseView(in), (ViewChoice{OSDView::appSwitcher, 6}));
    in.searchActive = true;
    in.bufferLength = 2;
    EXPECT_EQ(chooseView(in), (ViewChoice{OSDView::search, 5}));
    in.stageTriggerKeysPressed = true;
    EXPECT_EQ(chooseView(in), (ViewChoice{OSDView::stage, 4}));
    in.tabCycling = true;
    EXPECT_EQ(chooseView(in), (ViewChoice{OSDView::tabCycle, 3}));
    in.appSwitcherCycleLatched = true;
    EXPECT_EQ(chooseView(in), (ViewChoice{OSDView::appSwitcher, 2}));
    in.latchedSearchSurface = "window";
    EXPECT_EQ(chooseView(in), (ViewChoice{OSDView::search, 1}));
}

TEST(OSDViewChoice, OneTypedLetterKeepsTheAppPanelTheSecondBringsSearch) {
    ViewInputs in;
    in.appTriggerKeysPressed = in.searchActive = true;
    in.showAppSwitcher = true;
    in.singleLetterQuery = true;
    in.bufferLength = 1;
    EXPECT_EQ(chooseView(in).view, OSDView::appSwitcher);
    in.showAppSwitcher = false;
    EXPECT_EQ(chooseView(in).view, OSDView::none) << "no panel flashes for a letter that resolves";
    // Backspaced to one letter: the search stays.
    in.singleLetterQuery = false;
    in.lastSearchEditWasBackspace = true;
    EXPECT_EQ(chooseView(in).view, OSDView::search);
    in.forceSearchMode = true;
    EXPECT_EQ(chooseView(in).view, OSDView::search);
    in.singleLetterQuery = false;
    in.lastSearchEditWasBackspace = false;
    in.bufferLength = 2;
    EXPECT_EQ(chooseView(in).view, OSDView::search);
}

TEST(OSDPlacementGeometry, CornersEdgesAndCentreOnTheVisibleFrame) {
    PlacementInputs in;
    in.size = {400, 300};
    in.screenFrame = {0, 0, 1440, 900};
    in.visibleFrame = {0, 25, 1440, 875};
    in.corner = ScreenCorner::bottomRight;
    EXPECT_EQ(panelFrame(in), (Rect{1440 - 12 - 400, 900 - 12 - 300, 400, 300}));
    in.corner = ScreenCorner::topLeft;
    EXPECT_EQ(panelFrame(in), (Rect{12, 37, 400, 300}));
    in.corner = ScreenCorner::center;
    EXPECT_EQ(panelFrame(in), (Rect{520, 25 + 287.5, 400, 300}));
    in.corner = ScreenCorner::top;
    EXPECT_EQ(panelFrame(in), (Rect{520, 37, 400, 300}));
    in.corner = ScreenCorner::right;
    EXPECT_EQ(panelFrame(in), (Rect{1028, 312.5, 400, 300}));
    // Offsets move inwards from an anchored side, and along a centred axis.
    in.corner = ScreenCorner::bottomRight;
    in.offsetX = 100;
    in.offsetY = 50;
    EXPECT_EQ(panelFrame(in), (Rect{1028 - 100, 588 - 50, 400, 300}));
    in.corner = ScreenCorner::center;
    EXPECT_EQ(panelFrame(in), (Rect{620, 362.5, 400, 300}));
}

TEST(OSDPlacementGeometry, YOffsetKeepsItsRelativePlaceXStaysInPoints) {
    PlacementInputs in;
    in.corner = ScreenCorner::topLeft;
    in.size = {200, 100};
    in.offsetX = 30;
    in.offsetY = 45;
    in.referenceHeight = 900;
    in.screenFrame = in.visibleFrame = {0, 0, 1920, 1800};
    EXPECT_DOUBLE_EQ(scaledOffsetY(in), 90);
    EXPECT_EQ(panelFrame(in), (Rect{42, 102, 200, 100}));
    in.referenceHeight = 0;
    EXPECT_DOUBLE_EQ(scaledOffsetY(in), 45);
}

TEST(OSDPlacementGeometry, OffsetsNeverPushThePanelOffScreenAndLargePanelsShrink) {
    PlacementInputs in;
    in.corner = ScreenCorner::topLeft;
    in.size = {400, 300};
    in.screenFrame = in.visibleFrame = {1440, 0, 1000, 800};
    in.offsetX = 5000;
    in.offsetY = -5000;
    EXPECT_EQ(panelFrame(in), (Rect{2040, 0, 400, 300}));
    in.size = {3000, 3000};
    EXPECT_EQ(panelFrame(in), (Rect{1440, 0, 1000, 800}));
}

OSDModel modelOf(OSDView view) {
    OSDModel m;
    m.view = {view, 1};
    return m;
}

TEST(OSDContent, SearchHeaderChipsAndEmptyTextsVerbatim) {
    PanelTexts t;
    t.showMenubarAppsInSearch = true;
    t.searchRunningAndStaticOnly = false;
    auto m = modelOf(OSDView::search);
    fillContent(m, t, {});
    EXPECT_TRUE(m.header.shown);
    EXPECT_EQ(m.header.placeholder, "Type to fuzzy search...");
    ASSERT_EQ(m.header.chips.size(), 2u);
    EXPECT_EQ(m.header.chips[0].label, "Hide menu bar apps");
    EXPECT_EQ(m.header.chips[1].label, "Hide non-running apps");
    EXPECT_EQ(m.emptyText, "No results found");
    EXPECT_EQ(m.sideHint,
              "Left-side \xE2\x8C\x98 Command for \xE2\x8C\x98W / \xE2\x8C\x98Q / \xE2\x8C\x98H / "
              "\xE2\x8C\x98R actions");

    t.showMenubarAppsInSearch = false;
    t.searchRunningAndStaticOnly = true;
    t.pinPickQuery = "saf";
    fillContent(m, t, {OSDSection{"", {OSDRow{"com.apple.Safari", "", "Safari"}}}});
    EXPECT_EQ(m.header.chips[0].label, "Show menu bar apps");
    EXPECT_EQ(m.header.chips[1].label, "Show non-running apps");
    EXPECT_EQ(m.header.pinPickText, "Pick an app to pin saf");
    EXPECT_EQ(m.header.pinPickHint, "type to find \xC2\xB7 \xE2\x8F\x8E pin \xC2\xB7 esc back");
    EXPECT_EQ(m.emptyText, "");

    auto stage = modelOf(OSDView::stage);
    t.stageSaveKey = "=";
    fillContent(stage, t, {});
    EXPECT_EQ(stage.emptyText, "No stages saved yet.\nPress = to save the current windows as a stage.");
    auto tab = modelOf(OSDView::tabCycle);
    fillContent(tab, t, {});
    EXPECT_EQ(tab.emptyText, "No other windows to switch to.");
    t.tabFilter = "xy";
    fillContent(tab, t, {});
    EXPECT_EQ(tab.emptyText, "No matches for \"xy\"");
}

TEST(OSDContent, AppFooterFollowsItsBitAndTheHideSetting) {
    PanelTexts t;
    auto m = modelOf(OSDView::appSwitcher);
    fillContent(m, t, {});
    EXPECT_TRUE(m.footer.empty());
    t.appFooter = true;
    t.hideOnlyFocusedAppOnMinus = true;
    fillContent(m, t, {});
    auto has = [&](const std::string& label) {
        return std::any_of(m.footer.begin(), m.footer.end(), [&](auto& h) { return h.label == label; });
    };
    EXPECT_TRUE(has("cycle") && has("hide app") && has("quit") && has("refresh"));
    t.hideOnlyFocusedAppOnMinus = false;
    t.enableSelectionActionHotkeys = false;
    fillContent(m, t, {});
    EXPECT_TRUE(has("show/hide all"));
    EXPECT_FALSE(has("quit"));
    EXPECT_EQ(m.sideHint, "");
}

TEST(OSDDescribe, HiddenPanelSaysWhatIsPending) {
    OSDModel m;
    m.view = {OSDView::appSwitcher, 6};
    EXPECT_EQ(describe(m), "hidden");
    m.visibility.pending = OSDPending{PendingKind::retry, 1250};
    EXPECT_EQ(describe(m), "hidden, retry due at 1250ms (AppSwitcherOSDView)");
    m.visibility = {false, true, 1.0, std::nullopt, true, 0};
    m.placement.displayID = 2;
    m.placement.frame = {10, 20, 400, 300};
    m.sections = {OSDSection{"",
                             {OSDRow{"com.apple.Safari", "s", "Safari", "", "", true},
                              OSDRow{"1001", "", "Apple", "Safari", "2", false, false, true, true, true}}}};
    EXPECT_EQ(describe(m),
              "AppSwitcherOSDView (row 6) on display 2 at 10,20 400x300 |>[s] Safari | Apple \xE2\x80\x94 "
              "Safari @2 "
              "(minimised)");
    auto j = toJson(m);
    EXPECT_EQ(j["view"], "AppSwitcherOSDView");
    EXPECT_EQ(j["rows"], json({"com.apple.Safari", "1001"}));
    EXPECT_EQ(j["items"][0]["highlighted"], true);
    EXPECT_EQ(j["items"][1]["minimised"], true);
}

}  // namespace
}  // namespace zelk::osd
