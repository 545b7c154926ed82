#pragma once
// zelkd started in a home of its own and driven by the real zelk tool over its socket, for the tests
// that check the live agent end to end.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace zelk::testing {

inline std::string slurp(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

class LiveAgentTest : public ::testing::Test {
  protected:
    using json = nlohmann::json;
    // A guard against a hang, never a timing assertion: waits end on what the agent answers.
    static constexpr auto kGuard = std::chrono::seconds(20);

    std::filesystem::path dir;
    pid_t pid = -1;
    int out = -1;
    std::string seen;

    // What a test changes of the agent's start.
    virtual std::vector<std::string> extraEnvironment() { return {}; }
    virtual std::filesystem::path settingsFile() { return dir / "settings.json"; }

    void SetUp() override {
        char tmpl[] = "/tmp/zelk-live-XXXXXX";
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
        for (auto& e : extraEnvironment())
            env.push_back(e);
        std::vector<char*> envp;
        for (auto& e : env)
            envp.push_back(e.data());
        envp.push_back(nullptr);
        std::string program = ZELKD_PATH, flag = "--settings", settings = settingsFile().string();
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
        std::filesystem::remove_all(dir, ec);
    }
    // Reads the agent's output until `text` shows; false at the guard or when the output ends.
    bool waitFor(const std::string& text) {
        auto deadline = std::chrono::steady_clock::now() + kGuard;
        while (seen.find(text) == std::string::npos) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                            deadline - std::chrono::steady_clock::now())
                            .count();
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

}  // namespace zelk::testing
