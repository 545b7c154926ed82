#include <gtest/gtest.h>

#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "platform/SettingsStore.h"
#include "stages/BundleTables.h"
#include "stages/StageModel.h"
#include "stages/StageStore.h"
#include "support/Log.h"

using namespace zelk;
using namespace zelk::stages;
using nlohmann::json;

namespace {

constexpr const char* kItemID = "0F8E2A3C-7B1D-4E5F-9A6B-1C2D3E4F5A6B";

json safariApp() {
    return {
        {"path", "/Applications/Safari.app"}, {"originalName", "Safari"}, {"identifier", "com.apple.Safari"}};
}

json urlItem(const char* id = kItemID) {
    return {{"id", id},
            {"app", safariApp()},
            {"windowSpec", {{"type", "browserURL"}, {"url", "https://example.org/a"}}},
            {"windowTitle", "Example"}};
}

// Counts drawn from fresh items so legacy decoding is reproducible.
struct CountingUUIDs {
    CountingUUIDs() {
        setUUIDSource([n = 0]() mutable { return fmt::format("00000000-0000-4000-8000-{:012d}", ++n); });
    }
    ~CountingUUIDs() { setUUIDSource(nullptr); }
};

}  // namespace

TEST(StageModelJson, EveryWindowSpecCaseRoundTripsInItsStoredForm) {
    const std::vector<std::pair<WindowSpec, const char*>> golden{
        {DocumentPathSpec{"/Users/a/notes.md"}, R"({"path":"/Users/a/notes.md","type":"documentPath"})"},
        {BrowserURLSpec{""}, R"({"type":"browserURL","url":""})"},
        {TerminalCWDSpec{"/Users/a/src"}, R"({"path":"/Users/a/src","type":"terminalCWD"})"},
        {AppSpec{}, R"({"type":"app"})"},
    };
    for (const auto& [spec, text] : golden) {
        EXPECT_EQ(toJson(spec).dump(), text);
        std::string error;
        EXPECT_EQ(windowSpecFromJson(json::parse(text), error), spec) << text;
    }
    std::string error;
    EXPECT_FALSE(windowSpecFromJson(json{{"type", "tab"}}, error));
    EXPECT_EQ(error, "Unknown WindowSpec type 'tab'");
    EXPECT_FALSE(windowSpecFromJson(json{{"type", "documentPath"}}, error));
    EXPECT_EQ(describe(WindowSpec{TerminalCWDSpec{"/x"}}), "cwd:/x");
    EXPECT_EQ(describe(WindowSpec{AppSpec{}}), "app");
}

TEST(StageModelJson, StageGoldenFormOmitsEmptyOptionalsAndTheLiveWindow) {
    std::string error;
    auto item = stageItemFromJson(urlItem(), error);
    ASSERT_TRUE(item) << error;
    item->windowID = 77;  // volatile: never written
    item->windowPlacement = SemanticPlacement{SemanticPosition::leftHalf, "builtin", 4.0, std::nullopt};
    Stage stage{"w", "Work", {*item}, 5};
    json j = toJson(stage);
    EXPECT_EQ(
        j.dump(),
        R"({"items":[{"app":)" + item->app->toJson().dump() +
            R"(,"id":"0F8E2A3C-7B1D-4E5F-9A6B-1C2D3E4F5A6B","windowPlacement":{"padding":4.0,)"
            R"("position":"left-half","screen":"builtin","type":"semantic"},"windowSpec":{"type":"browserURL",)"
            R"("url":"https://example.org/a"},"windowTitle":"Example"}],"key":"w","name":"Work","spaceID":5})");
    auto back = stageFromJson(j, error);
    ASSERT_TRUE(back) << error;
    item->windowID.reset();
    EXPECT_EQ(back->items.front(), *item);
    EXPECT_EQ(back->spaceID, 5u);
    EXPECT_FALSE(toJson(Stage{"x", "X", {}, std::nullopt}).contains("spaceID"));
    // A Space number read back as a signed integer still counts; a negative one does not.
    EXPECT_EQ(stageFromJson(json{{"key", "a"}, {"name", "A"}, {"spaceID", std::int64_t{7}}}, error)->spaceID,
              7u);
    EXPECT_FALSE(stageFromJson(json{{"key", "a"}, {"name", "A"}, {"spaceID", -3}}, error)->spaceID);
}

TEST(StageModelJson, WindowActionNeedsUrlsAndKeepsTheScriptRunnerOptional) {
    std::string error;
    json action{
        {"url", "file:///tmp/a.txt"}, {"appURL", "file:///Applications/TextEdit.app"}, {"name", "Notes"}};
    auto decoded = windowActionFromJson(action, error);
    ASSERT_TRUE(decoded);
    EXPECT_FALSE(decoded->scriptRunner);
    EXPECT_EQ(toJson(*decoded), action);
    action["appURL"] = "not a url";
    EXPECT_FALSE(windowActionFromJson(action, error));
    EXPECT_EQ(error, "appURL is not a URL");
}

TEST(StageModelJson, BadItemsAreDroppedOneByOneAndLogged) {
    ferrow::LogCapture logs;
    json bad1 = urlItem("1B8E2A3C-7B1D-4E5F-9A6B-1C2D3E4F5A6B");
    bad1["windowSpec"] = {{"type", "tab"}};
    json bad2 = urlItem("not-a-uuid");
    json good2 = urlItem("2C8E2A3C-7B1D-4E5F-9A6B-1C2D3E4F5A6B");
    json stage{{"key", "w"}, {"name", "Work"}, {"items", {urlItem(), bad1, bad2, good2}}};
    std::string error;
    auto decoded = stageFromJson(stage, error);
    ASSERT_TRUE(decoded);
    ASSERT_EQ(decoded->items.size(), 2u);
    EXPECT_EQ(decoded->items[0].id, kItemID);
    EXPECT_EQ(decoded->items[1].id, "2C8E2A3C-7B1D-4E5F-9A6B-1C2D3E4F5A6B");
    EXPECT_TRUE(logs.contains(
        "LossyStageItem: dropped a StageItem during decode, error=Unknown WindowSpec type 'tab'"));
    EXPECT_TRUE(logs.contains("LossyStageItem: dropped a StageItem during decode, error=id is not a UUID"));
    EXPECT_TRUE(
        logs.contains("Stage \"Work\" lost 2 of 4 item(s) during decode (likely schema drift, e.g. a "
                      "downgrade or partial corruption)"));
}

TEST(StageModelJson, AnUnreadablePlacementCostsOnlyThePlacement) {
    json item = urlItem();
    item["windowPlacement"] = {{"type", "grid"}};
    std::string error;
    auto decoded = stageItemFromJson(item, error);
    ASSERT_TRUE(decoded) << error;
    EXPECT_FALSE(decoded->windowPlacement);
}

TEST(StageModelJson, LegacyAppsBecomeWholeAppItems) {
    CountingUUIDs uuids;
    json stage{
        {"key", "m"}, {"name", "Mail"}, {"apps", {safariApp(), json{{"path", "/Applications/Mail.app"}}}}};
    std::string error;
    auto decoded = stageFromJson(stage, error);
    ASSERT_TRUE(decoded);
    ASSERT_EQ(decoded->items.size(), 2u);
    EXPECT_EQ(decoded->items[0].id, "00000000-0000-4000-8000-000000000001");
    EXPECT_TRUE(isAppSpec(decoded->items[1].windowSpec));
    EXPECT_EQ(decoded->items[1].windowTitle, "");
    EXPECT_FALSE(decoded->items[1].windowPlacement);
    // A broken items list falls back the same way; a good one wins over apps.
    stage["items"] = "garbage";
    EXPECT_EQ(stageFromJson(stage, error)->items.size(), 2u);
    stage["items"] = json::array({urlItem()});
    EXPECT_EQ(stageFromJson(stage, error)->items.size(), 1u);
}

TEST(StageModelJson, StagesWithoutKeyOrNameOrOnATakenKeyAreDropped) {
    ferrow::LogCapture logs;
    json list = json::array({json{{"key", "a"}, {"name", "A"}}, json{{"name", "nameless"}},
                             json{{"key", "a"}, {"name", "Again"}}, json{{"key", "b"}, {"name", "B"}}});
    auto stages = stagesFromJson(list);
    ASSERT_EQ(stages.size(), 2u);
    EXPECT_EQ(stages[0].name, "A");
    EXPECT_EQ(stages[1].key, "b");
    EXPECT_TRUE(logs.contains("stages: dropped a second stage on key 'a' (Again)"));
    EXPECT_EQ(defaultStageName("q"), "Stage Q");
}

TEST(StageModelUUID, FreshIdsAreVersionFourAndDistinct) {
    auto a = makeUUID(), b = makeUUID();
    EXPECT_NE(a, b);
    ASSERT_EQ(a.size(), 36u);
    EXPECT_EQ(a[14], '4');
    std::string error;
    json item = urlItem();
    item["id"] = a;
    EXPECT_TRUE(stageItemFromJson(item, error));
}

TEST(StageStore, WritesGoThroughTheSettingAndOutsideChangesAreReadBack) {
    platform::MemorySettingsStore memory;
    Settings settings(memory);
    StageStore store(settings);
    int changes = 0;
    auto sub = store.changed().subscribe([&] { ++changes; });
    store.putStage(Stage{"w", "Work", {}, std::nullopt});
    store.putStage(Stage{"m", "Mail", {}, 3});
    store.putStage(Stage{"w", "Work 2", {}, std::nullopt});
    ASSERT_EQ(store.stages().size(), 2u);
    EXPECT_EQ(store.stage("w")->name, "Work 2");
    EXPECT_EQ(settings.get(keys::stages)[1]["spaceID"], 3);
    // Another writer replaces the setting.
    settings.set(keys::stages, json::array({json{{"key", "z"}, {"name", "Zed"}}}));
    ASSERT_EQ(store.stages().size(), 1u);
    EXPECT_EQ(store.stage("w"), nullptr);
    EXPECT_NE(store.stage("z"), nullptr);
    EXPECT_TRUE(store.removeStage("z"));
    EXPECT_FALSE(store.removeStage("z"));
    EXPECT_EQ(changes, 5);
}

TEST(StageStore, TheActiveStageIsClearedWholly) {
    platform::MemorySettingsStore memory;
    Settings settings(memory);
    StageStore store(settings);
    store.setActiveStage("w");
    store.setActiveStageBundleIDs({"com.apple.Safari"});
    EXPECT_EQ(store.activeStageKey(), "w");
    store.clearActiveStage();
    EXPECT_FALSE(store.activeStageKey());
    EXPECT_TRUE(store.activeStageBundleIDs().empty());
}

TEST(BundleTables, TablesKeepEveryRowAndTheirSpecialCases) {
    auto sizes = bundleTableSizes();
    EXPECT_EQ(sizes.terminals, 8u);
    EXPECT_EQ(sizes.chromium, 11u);
    EXPECT_EQ(sizes.safari, 2u);
    EXPECT_EQ(sizes.firefox, 10u);
    EXPECT_EQ(sizes.browsers, 23u);
    EXPECT_EQ(sizes.noCapture, 2u);
    EXPECT_EQ(sizes.editors, 11u);
    EXPECT_EQ(sizes.markers, 20u);
    EXPECT_EQ(sizes.appLevel, 87u);
    EXPECT_EQ(sizes.categories, 10u);
    // The nightly build of that browser stands with the terminals.
    EXPECT_TRUE(isTerminalBundle("com.brave.Browser.nightly"));
    EXPECT_FALSE(isBrowserBundle("com.brave.Browser.nightly"));
    EXPECT_EQ(browserFamily("app.zen-browser.zen"), BrowserFamily::firefox);
    EXPECT_EQ(firefoxProfileRoot("org.torproject.torbrowser"), "TorBrowser-Data/Browser");
    EXPECT_TRUE(isEditorBundle("com.jetbrains.CLion"));
    EXPECT_FALSE(isEditorBundle("com.jetbrain"));
    EXPECT_EQ(projectMarkerFiles().front(), ".git");
    EXPECT_EQ(projectMarkerFiles().back(), "flake.nix");
}

TEST(BundleTables, AppLevelAppsByListSetappBuildAndCategory) {
    EXPECT_TRUE(isAppLevelApp("com.tinyspeck.slackmacgap", ""));
    EXPECT_TRUE(isAppLevelApp("com.acqualia.soulver3-setapp", ""));
    EXPECT_FALSE(isAppLevelApp("com.apple.finder", "public.app-category.utilities"));
    EXPECT_FALSE(isAppLevelApp("com.google.Chrome", "public.app-category.utilities"));
    EXPECT_FALSE(isAppLevelApp("com.sublimetext.4", "public.app-category.utilities"));
    EXPECT_TRUE(isAppLevelApp("com.example.chess", "public.app-category.board-games"));
    EXPECT_FALSE(isAppLevelApp("com.example.paint", "public.app-category.graphics-design"));
    EXPECT_FALSE(isAppLevelApp("com.example.unknown", ""));
}
