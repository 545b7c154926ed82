#include "LiveAgent.h"

namespace {

using zelk::testing::slurp;

namespace fs = std::filesystem;
using nlohmann::json;

// zelkd in a home of its own, driven by the zelk tool over its socket.
struct ConfigLiveTest : zelk::testing::LiveAgentTest {
    fs::path folder() const { return dir / "config" / "zelk"; }
};

TEST_F(ConfigLiveTest, TheToolsConfigCommandsReachTheRunningAgent) {
    const fs::path config = folder() / "config.yaml", backup = folder() / "config.yaml.bak";
    auto path = zelk("config path");
    EXPECT_EQ(path["config"]["configPath"], config.string());
    EXPECT_EQ(path["config"]["hasBackup"], false);
    ASSERT_TRUE(fs::exists(config));

    int code = 0;
    auto restore = zelk("config restore", &code);
    EXPECT_EQ(code, 1);
    EXPECT_EQ(restore["error"], "no backup to restore (" + backup.string() + " not found)");

    std::ofstream(dir / "import.json") << R"({"appSort": "score"})";
    auto imported = zelk("config import " + (dir / "import.json").string());
    EXPECT_EQ(imported["message"], "imported settings (20 bytes)");
    EXPECT_EQ(json::parse(zelk("config export")["body"].get<std::string>())["appSort"], "score");

    auto reset = zelk("config reset");
    EXPECT_EQ(reset["message"], "config reset (previous saved to " + backup.string() + ")");
    EXPECT_EQ(json::parse(zelk("config export")["body"].get<std::string>())["appSort"], "name");
    EXPECT_NE(slurp(backup).find("appSort: score"), std::string::npos);
    auto restored = zelk("config restore");
    EXPECT_EQ(restored["message"], "config restored from " + backup.string());
    EXPECT_EQ(json::parse(zelk("config export")["body"].get<std::string>())["appSort"], "score");

    // A hand edit reaches the running agent through its watch.
    std::string text = slurp(config);
    text.replace(text.find("appSort: score"), 14, "appSort: key");
    std::ofstream(config, std::ios::trunc) << text;
    auto deadline = std::chrono::steady_clock::now() + kGuard;
    std::string sort;
    while (sort != "key" && std::chrono::steady_clock::now() < deadline) {
        waitFor("read: decoded ok");
        sort = json::parse(zelk("config export")["body"].get<std::string>())["appSort"];
    }
    EXPECT_EQ(sort, "key") << seen;

    ::kill(pid, SIGTERM);
    int status = 0;
    ::waitpid(pid, &status, 0);
    pid = -1;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_NE(slurp(config).find("appSort: key"), std::string::npos);
}

}  // namespace
