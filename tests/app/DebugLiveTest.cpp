// The debug commands and the debug dump on the live agent, driven by the real tool.
#include "LiveAgent.h"

#include <set>

namespace {

using zelk::testing::slurp;

namespace fs = std::filesystem;
using nlohmann::json;

// The names in a zip archive's central directory.
std::set<std::string> zipListing(const std::string& bytes) {
    std::set<std::string> names;
    auto u16 = [&](std::size_t at) {
        return static_cast<std::size_t>(static_cast<unsigned char>(bytes[at])) |
               static_cast<std::size_t>(static_cast<unsigned char>(bytes[at + 1])) << 8;
    };
    const std::string signature("PK\x01\x02", 4);
    for (std::size_t at = bytes.find(signature); at != std::string::npos && at + 46 <= bytes.size();
         at = bytes.find(signature, at + 4)) {
        std::size_t length = u16(at + 28);
        if (at + 46 + length > bytes.size()) break;
        names.insert(bytes.substr(at + 46, length));
    }
    return names;
}

struct DebugLiveTest : zelk::testing::LiveAgentTest {
    std::vector<std::string> extraEnvironment() override {
        fs::create_directories(dir / "tmp");
        return {"TMPDIR=" + (dir / "tmp").string()};
    }
    fs::path settingsFile() override { return dir / "state" / "settings.json"; }
};

TEST_F(DebugLiveTest, TheDumpWritesAnArchiveOfTheWholeState) {
    int code = -1;
    auto reply = zelk("debug dump --seconds 0", &code);
    ASSERT_EQ(code, 0) << reply.dump();
    ASSERT_TRUE(reply["body"].is_string()) << reply.dump();
    const fs::path archive = reply["body"].get<std::string>();
    EXPECT_EQ(archive.parent_path(), dir / "tmp");
    EXPECT_EQ(reply["message"], "debug dump written to " + archive.string());
    ASSERT_TRUE(fs::exists(archive));
    const std::string name = archive.stem().string();
    EXPECT_EQ(name.rfind("zelk-debug-dump-", 0), 0u);
    EXPECT_FALSE(fs::exists(dir / "tmp" / name));  // the working folder goes once zipped
    std::set<std::string> expected;
    for (const char* file :
         {"cg-windows.json", "ax-windows.json", "cross-space-windows.json", "apps.txt", "assignments.txt",
          "tap-health.txt", "config.yaml", "oslog-live-30s.log", "oslog-historic-24h.log"})
        expected.insert(name + "/" + file);
    // The search cache is copied when the agent has written one by then.
    if (fs::exists(dir / "config" / "zelk" / "search-cache.yaml"))
        expected.insert(name + "/search-cache.yaml");
    auto names = zipListing(slurp(archive));
    names.erase(name + "/");
    EXPECT_EQ(names, expected);

    // Asked again, the agent still names the archive of its last dump.
    auto status = zelk("raw '{\"command\":\"debug-dump\",\"mode\":\"status\"}'");
    EXPECT_EQ(status["ok"], true);
    EXPECT_EQ(status["body"], archive.string());
}

TEST_F(DebugLiveTest, EachDebugCommandAnswersItsRecord) {
    auto tap = zelk("debug tap");
    ASSERT_EQ(tap["ok"], true) << tap.dump();
    EXPECT_TRUE(tap["debug"]["tap"]["tapPresent"].is_boolean());
    EXPECT_TRUE(tap["debug"]["tap"]["axTrusted"].is_boolean());

    auto keys = zelk("debug keys");
    ASSERT_EQ(keys["ok"], true) << keys.dump();
    EXPECT_TRUE(keys["debug"]["keys"]["dynamic"].is_array());
    EXPECT_FALSE(keys["debug"]["keys"]["dynamic"].empty());
    EXPECT_EQ(keys["debug"]["keys"]["dynamic"][0]["key"].get<std::string>().size(), 1u);

    auto stage = zelk("debug stage");
    ASSERT_EQ(stage["ok"], true) << stage.dump();
    EXPECT_TRUE(stage["debug"]["stage"]["stages"].is_array());
    int code = 0;
    auto missing = zelk("debug stage --stage q", &code);
    EXPECT_EQ(code, 1);
    EXPECT_EQ(missing["error"], "no stage assigned to 'q'");

    auto spaces = zelk("debug spaces-tree");
    ASSERT_EQ(spaces["ok"], true) << spaces.dump();
    ASSERT_FALSE(spaces["debug"]["spacesTree"]["displays"].empty());
    EXPECT_FALSE(spaces["debug"]["spacesTree"]["displays"][0]["spaces"].empty());

    auto drift = zelk("debug live-windows");
    ASSERT_EQ(drift["ok"], true) << drift.dump();
    EXPECT_GT(drift["debug"]["drift"]["tracked"].get<int>(), 0);
    EXPECT_TRUE(drift["debug"]["drift"]["trackedButNotLive"].empty()) << drift.dump();

    auto ax = zelk("debug ax");
    ASSERT_EQ(ax["ok"], true) << ax.dump();
    EXPECT_TRUE(ax["debug"]["ax"]["windows"].is_array());
    auto axMissing = zelk("debug ax --app no-such-app", &code);
    EXPECT_EQ(code, 1);
    EXPECT_EQ(axMissing["error"], "no matching app");

    auto windowKeys = zelk("debug window-keys");
    ASSERT_EQ(windowKeys["ok"], true) << windowKeys.dump();
    EXPECT_TRUE(windowKeys["debug"]["windowKeys"]["rows"].is_array());
}

}  // namespace
