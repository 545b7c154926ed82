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

// zelkd in a home of its own, driven by the zelk tool over its socket.
struct ConfigLiveTest : ::testing::Test {
    fs::path dir;
    pid_t pid = -1;
    int out = -1;
    std::string seen;

    void SetUp() override {
        char tmpl[] = "/tmp/zelk-live-config-XXXXXX";
        ASSERT_NE(::mkdtemp(tmpl), nullptr);
        dir = tmpl;
        int fds[2];
        ASSERT_EQ(::pipe(fds), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
        posix_spawn_file_actions_addclose(&actions, fds[0]);
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
        std::vector<std::string> env{"ZELK_SOCKET=" + (dir / "cli.sock").string(), "HOME=" + dir.string(),
                                     "XDG_CONFIG_HOME=" + (dir / "config").string(),
                                     "PATH=" + std::string(std::getenv("PATH") ? std::getenv("PATH") : "")};
        std::vector<char*> envp;
        for (auto& e : env)
            envp.push_back(e.data());
        envp.push_back(nullptr);
        std::string program = ZELKD_PATH, flag = "--settings", settings = (dir / "settings.json").string();
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
    // The tool's JSON answer to one command line.
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
    auto deadline = Steady::now() + kGuard;
    std::string sort;
    while (sort != "key" && Steady::now() < deadline) {
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
