#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Agent.h"
#include "SearchService.h"
#include "Subsystems.h"
#include "command/CommandService.h"
#include "config/ConfigFileManager.h"
#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "input/InputManager.h"
#include "platform/sim/SimFixture.h"
#include "search/QueryLearning.h"
#include "support/Log.h"

namespace zelk::agent {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

std::string slurp(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// The whole agent on the simulated desktop with its configuration folder in a temporary directory.
struct ConfigCommandsTest : testing::SimFixture {
    fs::path dir;
    std::unique_ptr<Agent> agent;

    void SetUp() override {
        ferrow::Log::setConsole(false);
        char tmpl[] = "/tmp/zelk-config-XXXXXX";
        ASSERT_NE(::mkdtemp(tmpl), nullptr);
        dir = tmpl;
        load(R"(
apps:
  - bundleID: com.apple.Safari
    name: Safari
    path: /Applications/Safari.app
    running: {pid: 101, windows: [{id: 1001, title: "Apple"}]}
frontmost: com.apple.Safari
)");
        agent = std::make_unique<Agent>();
        agent->useConfigFolder(dir / "zelk");
        agent->start();
    }
    void TearDown() override {
        agent.reset();
        InputManager::reset();
        std::error_code ec;
        fs::remove_all(dir, ec);
        SimFixture::TearDown();
    }
    json run(json request) { return agent->handleCommand(request); }
    fs::path config() const { return dir / "zelk" / "config.yaml"; }
    fs::path backup() const { return dir / "zelk" / "config.yaml.bak"; }
};

TEST_F(ConfigCommandsTest, PathExportImportResetAndRestoreAnswerWithTheirTexts) {
    ASSERT_TRUE(fs::exists(config()));
    auto path = run({{"command", "config-path"}});
    EXPECT_EQ(path["ok"], true);
    EXPECT_EQ(path["config"]["configPath"], config().string());
    EXPECT_EQ(path["config"]["backupPath"], backup().string());
    EXPECT_EQ(path["config"]["hasBackup"], false);

    auto restore = run({{"command", "config-restore"}});
    EXPECT_EQ(restore["ok"], false);
    EXPECT_EQ(restore["error"], "no backup to restore (" + backup().string() + " not found)");

    auto missing = run({{"command", "config-import"}});
    EXPECT_EQ(missing["error"], "missing JSON payload");
    auto bad = run({{"command", "config-import"}, {"body", R"({"appSort": false})"}});
    EXPECT_EQ(bad["ok"], false);
    EXPECT_EQ(Settings::shared().get(keys::appSort), AppSort::name);

    const std::string body = R"({"appSort":"score","triggerKeys":[3]})";
    auto imported = run({{"command", "config-import"}, {"body", body}});
    EXPECT_EQ(imported["message"], "imported settings (" + std::to_string(body.size()) + " bytes)");
    EXPECT_EQ(Settings::shared().get(keys::appSort), AppSort::score);
    EXPECT_NE(slurp(config()).find("appSort: score"), std::string::npos);
    EXPECT_TRUE(fs::exists(backup()));

    auto exported = run({{"command", "config-export"}});
    ASSERT_EQ(exported["ok"], true);
    auto record = json::parse(exported["body"].get<std::string>());
    EXPECT_EQ(record["appSort"], "score");
    EXPECT_EQ(record["triggerKeys"], json::array({3}));

    const std::string customised = slurp(config());
    auto reset = run({{"command", "config-reset"}});
    EXPECT_EQ(reset["message"], "config reset (previous saved to " + backup().string() + ")");
    EXPECT_EQ(Settings::shared().get(keys::appSort), AppSort::name);
    EXPECT_EQ(slurp(backup()), customised);

    restore = run({{"command", "config-restore"}});
    EXPECT_EQ(restore["message"], "config restored from " + backup().string());
    EXPECT_EQ(Settings::shared().get(keys::appSort), AppSort::score);
    EXPECT_EQ(Settings::shared().get(keys::triggerKeys), TriggerKeyList{TriggerKey::lcmd});

    std::ofstream(backup()) << "general: [";
    EXPECT_EQ(run({{"command", "config-restore"}})["error"], "restore failed");
}

TEST_F(ConfigCommandsTest, AppKeysGoToTheFileByBundleIdentifierAndPinsWriteTheCacheAtOnce) {
    auto* manager = agent->config();
    ASSERT_NE(manager, nullptr);
    Settings::shared().store().write(
        "appKeyAssignments",
        json::array({{{"key", "s"},
                      {"app", {{"identifier", "com.apple.Safari"}, {"path", "/Applications/Safari.app"}}},
                      {"index", 0},
                      {"whenAlreadyFocusedAction", 5},
                      {"launchIfNotRunning", true}}}));
    ASSERT_TRUE(manager->writeSettingsToFile());
    EXPECT_NE(slurp(config()).find("appKeyAssignments:\n  s:\n    app: com.apple.Safari\n"),
              std::string::npos);

    // A learned query that a pin replaces reaches the cache file at once, not at the next flush.
    std::map<std::string, SearchSelection> learned{{"sa", {"com.apple.Safari", 2, 1767603600}}};
    Settings::shared().set(keys::searchQueryAppSelections, learned);
    ASSERT_TRUE(manager->writeSearchCache());
    EXPECT_NE(slurp(dir / "zelk" / "search-cache.yaml").find("sa:"), std::string::npos);
    agent->subsystems().search().learning().pin("sa", "com.apple.Safari");
    EXPECT_EQ(slurp(dir / "zelk" / "search-cache.yaml").find("sa:"), std::string::npos);
    EXPECT_FALSE(manager->searchCacheDirty());
}

TEST_F(ConfigCommandsTest, QuittingWritesAPendingChangeAndADirtyCache) {
    Settings::shared().set(keys::appSort, AppSort::key);
    std::map<std::string, SearchSelection> learned{{"ma", {"com.apple.Mail", 1, 1767603600}}};
    Settings::shared().set(keys::searchQueryAppSelections, learned);
    agent->terminate();
    EXPECT_NE(slurp(config()).find("appSort: key"), std::string::npos);
    EXPECT_NE(slurp(dir / "zelk" / "search-cache.yaml").find("ma:"), std::string::npos);
}

}  // namespace
}  // namespace zelk::agent

namespace zelk::agent {
namespace {

TEST_F(ConfigCommandsTest, ABadFileIsNotifiedWithItsPlaceAndChangesNothing) {
    std::vector<sim::WorldChange> notes;
    auto sub = world().changes.subscribe([&](const sim::WorldChange& c) {
        if (c.kind == sim::WorldChange::Kind::notification) notes.push_back(c);
    });
    Settings::shared().set(keys::appSort, AppSort::score);
    ASSERT_TRUE(agent->config()->writeSettingsToFile());
    std::string text = slurp(config());
    text.replace(text.find("appSort: score"), 14, "appSort: {by: name}");
    std::ofstream(config(), std::ios::trunc) << text;
    EXPECT_FALSE(agent->config()->readSettingsFromFile());
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_EQ(notes[0].text2, "zelk: config.yaml not applied");
    EXPECT_NE(notes[0].text3.find("appSwitcher.appSort: expected a string, found a mapping"),
              std::string::npos)
        << notes[0].text3;
    EXPECT_EQ(notes[0].text3.rfind("line ", 0), 0u);
    EXPECT_EQ(Settings::shared().get(keys::appSort), AppSort::score);
}

}  // namespace
}  // namespace zelk::agent
