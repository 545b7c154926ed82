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

// zelkd in a home of its own, driven by the zelk tool over its socket.
struct SpaceMoveLiveTest : ::testing::Test {
    fs::path dir;
    pid_t pid = -1;
    int out = -1;
    std::string seen;

    void SetUp() override {
        char tmpl[] = "/tmp/zelk-live-move-XXXXXX";
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
};

// The tool's `window move` against zelkd on its default desktop: Safari's "Apple" window is focused on
// Space 1 of the built-in display (Spaces 1-3), the second display's user Space is number 4.
TEST_F(SpaceMoveLiveTest, WindowMoveSpeaksTheProtocolsTexts) {
    auto moved = zelk("window move --space 2");
    EXPECT_EQ(moved["ok"], true) << moved.dump();
    EXPECT_EQ(moved["message"], "moved focused window to Space #2");
    auto again = zelk("window move --space 2");
    EXPECT_EQ(again["error"], "focused window already on Space #2");
    int code = 0;
    auto bad = zelk("window move --space 10", &code);
    EXPECT_EQ(bad["error"], "space index must be 1-9");
    EXPECT_EQ(code, 1);
    auto named = zelk("window move 3 apple");
    EXPECT_EQ(named["message"], "moved Apple to Space #3");
    auto none = zelk("window move --space 1 no-such-window-title");
    EXPECT_EQ(none["error"], "no matching window");
    auto listed = zelk("window list --app Safari");
    bool found = false;
    for (auto& w : listed["windows"])
        if (w["id"] == 1001) {
            found = true;
            EXPECT_EQ(w["spaceIndex"], 3);
        }
    EXPECT_TRUE(found) << listed.dump();
}

}  // namespace
