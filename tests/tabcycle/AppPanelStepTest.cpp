// One step of the app cycle through the panel's rows: where the first step lands, wrapping, and a
// pick that left the panel.
#include <gtest/gtest.h>

#include "tabcycle/AppPanelStep.h"

namespace zelk::tabcycle {
namespace {

const std::vector<std::string> kRows{"app-a", "win-1", "win-2", "app-b", "win-3"};

TEST(AppPanelStep, FirstStepStartsFromTheFocusedWindowThenItsApp) {
    EXPECT_EQ(nextAppPanelRow(kRows, std::nullopt, {"win-2", "app-a"}, false), 3u);
    EXPECT_EQ(nextAppPanelRow(kRows, std::nullopt, {"win-2", "app-a"}, true), 1u);
    // A focused window without a row (the panel lists apps only) starts from its app's row.
    EXPECT_EQ(nextAppPanelRow(kRows, std::nullopt, {"win-9", "app-b"}, false), 4u);
    // Neither has a row: the first row going forward, the last going back.
    EXPECT_EQ(nextAppPanelRow(kRows, std::nullopt, {"win-9", "app-z"}, false), 0u);
    EXPECT_EQ(nextAppPanelRow(kRows, std::nullopt, {}, true), 4u);
}

TEST(AppPanelStep, StepsFromThePickAndWraps) {
    EXPECT_EQ(nextAppPanelRow(kRows, "win-3", {"win-1"}, false), 0u);
    EXPECT_EQ(nextAppPanelRow(kRows, "app-a", {"win-1"}, true), 4u);
    // A pick that left the panel counts as none.
    EXPECT_EQ(nextAppPanelRow(kRows, "win-7", {"win-1"}, false), 2u);
    EXPECT_EQ(nextAppPanelRow({}, "win-1", {"win-1"}, false), std::nullopt);
}

TEST(AppPanelStep, RowIDsNameAppsByBundleAndWindowsByNumber) {
    osd::OSDRow app;
    app.id = "com.apple.Safari";
    osd::OSDRow window;
    window.id = "1001";
    window.isWindow = true;
    EXPECT_EQ(appPanelRowIDs({osd::OSDSection{"", {app, window}}}),
              (std::vector<std::string>{"app-com.apple.Safari", "win-1001"}));
}

}  // namespace
}  // namespace zelk::tabcycle
