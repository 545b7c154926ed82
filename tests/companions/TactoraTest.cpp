#include "companions/TactoraManager.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include <unistd.h>

#include "../input/AgentFixture.h"
#include "Subsystems.h"
#include "apps/AppManager.h"
#include "config/SettingsCatalogue.h"

using namespace zelk;
using namespace zelk::testing;
using companions::TactoraManager;
using companions::TactoraPayload;

namespace {

const char* kWorld = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}, {id: 3}], currentSpace: 1}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running: {pid: 101, windows: [{id: 1001, title: "Apple", space: 1}]}
  - bundleID: com.apple.mail
    name: Mail
    running: {pid: 102, windows: [{id: 1011, title: "Inbox", space: 1}]}
  - bundleID: com.ferrowlabs.Tactora
    name: Tactora
    path: /Applications/Tactora.app
    kind: accessory
    installed: true
frontmost: com.apple.Safari
focusedWindow: 1001
)";

// Counts what reaches the companion: the simulated desktop delivers distributed notifications to
// observers in this process, which stands in for the companion here.
struct CompanionEar {
    std::vector<TactoraPayload> shows;
    int hides = 0;
    std::vector<ferrow::Subscription> subs;
    void listen(platform::Notifications& n) {
        subs.push_back(n.observeDistributed(TactoraManager::kShow,
                                            [this](const platform::UserInfo& u) { shows.push_back(u); }));
        subs.push_back(
            n.observeDistributed(TactoraManager::kHide, [this](const platform::UserInfo&) { ++hides; }));
    }
};

struct CompanionKeyboardTest : AgentFixture {
    CompanionEar ear;
    void startWith(nlohmann::json settings) {
        settings["tactoraEnabled"] = true;
        start(kWorld, settings);
        ear.listen(desktop.notifications());
    }
    TactoraManager& companion() { return agent->subsystems().companion(); }
};

}  // namespace

TEST_F(CompanionKeyboardTest, HoldingTheTriggerPostsThePayloadOnceAndRefreshesItOnABindingChange) {
    startWith({{"tactoraHoldDelay", 0.5}});
    hold({"rightCommand"});
    runFor(450);
    EXPECT_TRUE(ear.shows.empty());
    runFor(100);
    ASSERT_EQ(ear.shows.size(), 1u);
    EXPECT_EQ(ear.shows[0].at("fill"), "dim");
    EXPECT_EQ(ear.shows[0].at("position"), "bottom");
    EXPECT_EQ(ear.shows[0].at("tab"), "symtext:arrow.left.arrow.right|Cycle");
    EXPECT_EQ(ear.shows[0].count("x"), 0u);
    runFor(1000);
    EXPECT_EQ(ear.shows.size(), 1u);

    // A new letter for Mail while shown: one re-send carrying it.
    auto& apps = apps::AppManager::shared();
    apps.assign(apps.launchableAppFor(*apps.runningAppByBundleIdentifier("com.apple.mail")), "x");
    runFor(10);
    ASSERT_EQ(ear.shows.size(), 2u);
    EXPECT_EQ(ear.shows[1].at("x"), "a:com.apple.mail");

    hold({});
    runFor(10);
    EXPECT_EQ(ear.hides, 1);
    EXPECT_FALSE(companion().keyboardCurrentlyShown);
}

TEST_F(CompanionKeyboardTest, AKeyBeforeTheDelayCancelsTheShowForThatHoldOnly) {
    startWith({{"tactoraHoldDelay", 0.5}});
    hold({"rightCommand"});
    runFor(100);
    press(Key::m);
    runFor(1000);
    EXPECT_TRUE(ear.shows.empty());
    EXPECT_TRUE(companion().suppressedThisCycle);
    hold({});
    runFor(10);
    EXPECT_EQ(ear.hides, 0);  // nothing was shown, so nothing is hidden
    EXPECT_FALSE(companion().suppressedThisCycle);
    hold({"rightCommand"});
    runFor(600);
    EXPECT_EQ(ear.shows.size(), 1u);
}

TEST_F(CompanionKeyboardTest, TheHoldDelayIsNeverUnderATenthOfASecond) {
    startWith({{"tactoraHoldDelayEnabled", false}});
    hold({"rightCommand"});
    runFor(90);
    EXPECT_TRUE(ear.shows.empty());
    runFor(20);
    EXPECT_EQ(ear.shows.size(), 1u);
    hold({});
    runFor(10);
    Settings::shared().set(keys::tactoraHoldDelayEnabled, true);
    Settings::shared().set(keys::tactoraHoldDelay, 0.05);
    hold({"rightCommand"});
    runFor(90);
    EXPECT_EQ(ear.shows.size(), 1u);
    runFor(20);
    EXPECT_EQ(ear.shows.size(), 2u);
}

TEST_F(CompanionKeyboardTest, SeveralChangesWhileShownSendOnceAndWhileHiddenNone) {
    startWith({{"tactoraHoldDelay", 0.2}});
    hold({"rightCommand"});
    runFor(300);
    ASSERT_EQ(ear.shows.size(), 1u);
    Settings::shared().set(keys::createMissingSpaces, false);
    Settings::shared().set(keys::enableTabCycle, false);
    Settings::shared().set(keys::tactoraFillMode, TactoraFillMode::blank);
    runFor(10);
    ASSERT_EQ(ear.shows.size(), 2u);
    EXPECT_EQ(ear.shows[1].count("tab"), 0u);
    EXPECT_EQ(ear.shows[1].at("fill"), "blank");
    hold({});
    runFor(10);
    Settings::shared().set(keys::enableTabCycle, true);
    runFor(10);
    EXPECT_EQ(ear.shows.size(), 2u);
}

TEST_F(CompanionKeyboardTest, WithoutTheCompanionNothingIsPostedAndInstallSaysWhy) {
    start(kBasicWorld, {{"tactoraEnabled", true}});
    ear.listen(desktop.notifications());
    EXPECT_EQ(companion().installState.get().kind, companions::TactoraInstallState::Kind::notInstalled);
    hold({"rightCommand"});
    runFor(2000);
    EXPECT_TRUE(ear.shows.empty());
    companion().install();
    EXPECT_EQ(companions::describe(companion().installState.get()),
              "failed(Tactora is not available on this system)");
}

TEST(TactoraPayloadBuild, SpacesDigitsPreviousWindowAndSpecialKeys) {
    companions::TactoraBindingInputs in;
    in.bindingsOf = [](const std::string& key) -> std::vector<companions::TactoraBinding> {
        if (key == "s") return {{"com.apple.Safari", false, true}};
        if (key == "n") return {{"com.apple.Notes", false, false}};  // neither running nor static
        if (key == "5") return {{"com.apple.mail", true, true}};
        if (key == "c") return {{"", true, true}, {"com.apple.Calendar", true, false}};
        return {};
    };
    auto p = companions::buildTactoraBindings(in);
    EXPECT_EQ(p.at("s"), "a:com.apple.Safari");
    EXPECT_EQ(p.count("n"), 0u);
    EXPECT_EQ(p.at("c"), "a:com.apple.Calendar");
    EXPECT_EQ(p.at("5"), "a:com.apple.mail");
    EXPECT_EQ(p.at("-"), "symtext:eye.slash|Hide");
    EXPECT_EQ(p.at("="), "symtext:line.3.horizontal|Menu");
    EXPECT_EQ(p.at("."), "symtext:rectangle.3.group|Expose");
    EXPECT_EQ(p.at("`"), "symtext:rectangle.on.rectangle|Windows");
    in.onlyRunningAndStatic = false;
    EXPECT_EQ(companions::buildTactoraBindings(in).at("n"), "a:com.apple.Notes");

    // Three Spaces and no creating: digits 4 to 9 go even when bound.
    in.multiSpace = true;
    in.spaceCount = 3;
    in.createMissingSpaces = false;
    in.previousWindowBundleID = "com.apple.Terminal";
    p = companions::buildTactoraBindings(in);
    EXPECT_EQ(p.at("3"), "symtext:3.square|Space");
    for (const char* d : {"4", "5", "9"})
        EXPECT_EQ(p.count(d), 0u) << d;
    EXPECT_EQ(p.at("0"), "a:com.apple.Terminal");
    in.createMissingSpaces = true;
    in.previousWindowBundleID.reset();
    p = companions::buildTactoraBindings(in);
    EXPECT_EQ(p.at("5"), "symtext:plus.square|Space");
    EXPECT_EQ(p.count("0"), 0u);

    in.hideAndSettingsKeys = false;
    in.exposeOverlay = false;
    in.tabCycle = false;
    in.windowCycleKeyEnabled = false;
    p = companions::buildTactoraBindings(in);
    for (const char* k : {"-", "=", ".", "`", "tab"})
        EXPECT_EQ(p.count(k), 0u) << k;

    auto shown = companions::tactoraShowPayload({}, TactoraFillMode::visible, true);
    EXPECT_EQ(shown, (TactoraPayload{{"position", "bottom"},
                                     {"offset", "0:100"},
                                     {"width", "1000"},
                                     {"fill", "visible"},
                                     {"dimBlankModifierKeys", "1"},
                                     {"theme", "zelk dark"}}));
}

TEST(TactoraThemes, ParsesTheCompanionsList) {
    EXPECT_EQ(companions::parseThemeList(" * zelk light\n  zelk dark  \n\nClassic\n"),
              (std::vector<std::string>{"zelk light", "zelk dark", "Classic"}));
}

namespace {

// The companion's side of theme listing, played by the test: it answers a listing by writing the
// names it has into the file it was given.
struct ThemeFixture : SimFixture {
    std::filesystem::path dir;
    std::unique_ptr<TactoraManager> manager;
    std::vector<std::string> imported;
    std::optional<std::vector<std::string>> companionThemes;
    std::vector<ferrow::Subscription> subs;
    std::unique_ptr<ferrow::LogCapture> logs;

    void SetUp() override {
        SimFixture::SetUp();
        load(kWorld);
        logs = std::make_unique<ferrow::LogCapture>();
        dir = std::filesystem::temp_directory_path() / ("zelk-tactora-test-" + std::to_string(::getpid()));
        std::filesystem::create_directories(dir);
        std::ofstream(dir / "tactora-themes.json") << "[]";
        TactoraManager::Sources s;
        s.notifications = &desktop.notifications();
        s.workspace = &desktop.workspace();
        s.themesResource = (dir / "tactora-themes.json").string();
        s.temporaryDirectory = dir;
        manager = std::make_unique<TactoraManager>(Settings::shared(), std::move(s));
        subs.push_back(desktop.notifications().observeDistributed(TactoraManager::kListThemes,
                                                                  [this](const platform::UserInfo& u) {
                                                                      if (companionThemes) {
                                                                          std::ofstream out(u.at("file"));
                                                                          for (auto& name : *companionThemes)
                                                                              out << " * " << name << "\n";
                                                                      }
                                                                  }));
        subs.push_back(desktop.notifications().observeDistributed(
            TactoraManager::kImportThemes,
            [this](const platform::UserInfo& u) { imported.push_back(u.at("file")); }));
    }
    void TearDown() override {
        manager.reset();
        subs.clear();
        logs.reset();
        std::filesystem::remove_all(dir);
        SimFixture::TearDown();
    }
};

}  // namespace

TEST_F(ThemeFixture, BothOwnThemesPresentMeansNoImportOneMissingMeansImport) {
    companionThemes = std::vector<std::string>{"zelk light", "zelk dark", "Classic"};
    manager->importThemes();
    runFor(1000);
    EXPECT_TRUE(imported.empty());
    companionThemes = std::vector<std::string>{"zelk light"};
    manager->importThemes();
    runFor(1000);
    ASSERT_EQ(imported.size(), 1u);
    EXPECT_TRUE(std::filesystem::exists(imported[0]));
    // The staged copy is removed once the companion had time to read it; the listing files go at once.
    runFor(60'000);
    EXPECT_FALSE(std::filesystem::exists(imported[0]));
    std::size_t left = 0;
    for (auto& e : std::filesystem::directory_iterator(dir))
        left += e.path().filename().string().starts_with("zelk-tactora-") ? 1 : 0;
    EXPECT_EQ(left, 0u);
}

TEST_F(ThemeFixture, AListingWithoutAnswerTimesOutAndSkipsTheImport) {
    manager->importThemes();
    runFor(4900);
    EXPECT_FALSE(logs->contains("listThemes timed out; skipping theme import to avoid duplicates"));
    runFor(200);
    EXPECT_TRUE(logs->contains("listThemes timed out; skipping theme import to avoid duplicates"));
    EXPECT_TRUE(imported.empty());
}
