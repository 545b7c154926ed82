// The debug commands and the debug dump on the live agent, driven by the real tool.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

namespace {

namespace fs = std::filesystem;
using Steady = std::chrono::steady_clock;
using nlohmann::json;

// A guard against a hang, never a timing assertion: waits end on what the agent answers.
constexpr auto kGuard = std::chrono::seconds(20);

std::string slurp(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

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

struct DebugLiveTest : ::testing::Test {
    fs::path dir;
    pid_t pid = -1;
    int out = -1;
    std::string seen;

    void SetUp() override {
        char tmpl[] = "/tmp/zelk-live-debug-XXXXXX";
        ASSERT_NE(::mkdtemp(tmpl), nullptr);
        dir = tmpl;
        fs::create_directories(dir / "tmp");
        int fds[2];
        ASSERT_EQ(::pipe(fds), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
        posix_spawn_file_actions_addclose(&actions, fds[0]);
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
        std::vector<std::string> env{"ZELK_SOCKET=" + (dir / "cli.sock").string(), "HOME=" + dir.string(),
                                     "XDG_CONFIG_HOME=" + (dir / "config").string(),
                                     "TMPDIR=" + (dir / "tmp").string(),
                                     "PATH=" + std::string(std::getenv("PATH") ? std::getenv("PATH") : "")};
        std::vector<char*> envp;
        for (auto& e : env)
            envp.push_back(e.data());
        envp.push_back(nullptr);
        std::string program = ZELKD_PATH, flag = "--settings",
                    settings = (dir / "state" / "settings.json").string();
        char* argv[] = {program.data(), flag.data(), settings.data(), nullptr};
        ASSERT_EQ(posix_spawn(&pid, program.c_str(), &actions, nullptr, argv, envp.data()), 0);
        posix_spawn_file_actions_destroy(&actions);
        ::close(fds[1]);
        out = fds[0];
        ASSERT_TRUE(waitFor("CLI listener started on")) << seen;
    }
    void TearDown() override {
        if (pid > 0) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
        }
        if (out >= 0) ::close(out);
        std::error_code ec;
        fs::remove_all(dir, ec);
    }
    bool waitFor(const std::string& text) {
        auto deadline = Steady::now() + kGuard;
        while (seen.find(text) == std::string::npos) {
            auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Steady::now()).count();
            pollfd p{out, POLLIN, 0};
            if (left <= 0 || ::poll(&p, 1, static_cast<int>(left)) <= 0) return false;
            char buf[4096];
            ssize_t n = ::read(out, buf, sizeof buf);
            if (n <= 0) return false;
            seen.append(buf, static_cast<std::size_t>(n));
        }
        return true;
    }
    json zelk(const std::string& args, int* exitCode = nullptr) {
        std::string cmd = "ZELK_SOCKET='" + (dir / "cli.sock").string() + "' " + ZELK_PATH + " --json " +
                          args + " 2>/dev/null";
        FILE* p = ::popen(cmd.c_str(), "r");
        std::string reply;
        char buf[4096];
        std::size_t n;
        while (p && (n = std::fread(buf, 1, sizeof buf, p)) > 0)
            reply.append(buf, n);
        int status = p ? ::pclose(p) : -1;
        if (exitCode) *exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return json::parse(reply, nullptr, false);
    }
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
