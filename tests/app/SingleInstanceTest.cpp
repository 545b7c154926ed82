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
#include "SingleInstance.h"
#include "command/CommandService.h"
#include "input/InputManager.h"
#include "platform/sim/SimFixture.h"
#include "support/Log.h"

extern char** environ;

namespace zelk::agent {
namespace {

namespace fs = std::filesystem;
using Steady = std::chrono::steady_clock;

// A guard against a hang, never a timing assertion: every wait ends on what a process writes or on
// its exit.
constexpr auto kGuard = std::chrono::seconds(20);

// A live zelkd with its standard output read line by line.
struct AgentProcess {
    pid_t pid = -1;
    int out = -1;
    std::string seen;

    AgentProcess(const fs::path& dir, const std::string& settings) {
        int fds[2];
        if (::pipe(fds) != 0) return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
        posix_spawn_file_actions_addclose(&actions, fds[0]);
        std::vector<std::string> env{"ZELK_SOCKET=" + (dir / "cli.sock").string(),
                                     "PATH=" + std::string(std::getenv("PATH") ? std::getenv("PATH") : "")};
        std::vector<char*> envp;
        for (auto& e : env)
            envp.push_back(e.data());
        envp.push_back(nullptr);
        std::string program = ZELKD_PATH, flag = "--settings", settingsArg = settings;
        char* argv[] = {program.data(), flag.data(), settingsArg.data(), nullptr};
        if (posix_spawn(&pid, program.c_str(), &actions, nullptr, argv, envp.data()) != 0) pid = -1;
        posix_spawn_file_actions_destroy(&actions);
        ::close(fds[1]);
        out = fds[0];
    }
    ~AgentProcess() {
        if (pid > 0) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
        }
        if (out >= 0) ::close(out);
    }
    // Reads until `text` has been written; false at the end of the output or the guard.
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
    // The exit code once the process ended by itself (its output read to the end); -1 when it
    // didn't end within the guard, and then it is stopped.
    int waitExit() {
        auto deadline = Steady::now() + kGuard;
        while (true) {
            auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Steady::now()).count();
            pollfd p{out, POLLIN, 0};
            if (left <= 0 || ::poll(&p, 1, static_cast<int>(left)) <= 0) {
                ::kill(pid, SIGKILL);
                break;
            }
            char buf[4096];
            ssize_t n = ::read(out, buf, sizeof buf);
            if (n <= 0) break;
            seen.append(buf, static_cast<std::size_t>(n));
        }
        int status = 0;
        ::waitpid(pid, &status, 0);
        pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

struct SingleInstanceTest : ::testing::Test {
    fs::path dir;
    void SetUp() override {
        char tmpl[] = "/tmp/zelk-instance-XXXXXX";
        ASSERT_NE(::mkdtemp(tmpl), nullptr);
        dir = tmpl;
    }
    void TearDown() override {
        std::error_code ec;
        fs::remove_all(dir, ec);
    }
};

TEST_F(SingleInstanceTest, ASecondAgentAsksTheFirstToQuitAndTakesOver) {
    std::string settings = (dir / "settings.json").string();
    AgentProcess first(dir, settings);
    ASSERT_GT(first.pid, 0);
    ASSERT_TRUE(first.waitFor("CLI listener started on")) << first.seen;

    pid_t firstPid = first.pid;
    AgentProcess second(dir, settings);
    ASSERT_GT(second.pid, 0);
    // The first shuts down in order (its exit code is 0) before the second starts anything.
    EXPECT_EQ(first.waitExit(), 0) << first.seen;
    ASSERT_TRUE(second.waitFor("CLI listener started on")) << second.seen;
    EXPECT_NE(
        second.seen.find("zelkd: another zelkd is running for this user (pid " + std::to_string(firstPid)),
        std::string::npos)
        << second.seen;
    EXPECT_NE(second.seen.find("takes over"), std::string::npos) << second.seen;
    EXPECT_LT(second.seen.find("takes over"), second.seen.find("CLI listener started on"));

    // The one that remains answers, under its own process id.
    std::string cmd = "ZELK_SOCKET='" + (dir / "cli.sock").string() + "' " + ZELK_PATH + " --json status";
    FILE* p = ::popen(cmd.c_str(), "r");
    ASSERT_NE(p, nullptr);
    std::string reply;
    char buf[4096];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, p)) > 0)
        reply.append(buf, n);
    EXPECT_EQ(::pclose(p), 0) << reply;
    auto j = nlohmann::json::parse(reply, nullptr, false);
    ASSERT_TRUE(j.is_object()) << reply;
    EXPECT_EQ(j["status"]["pid"], second.pid);

    ::kill(second.pid, SIGTERM);
    EXPECT_EQ(second.waitExit(), 0);
}

TEST_F(SingleInstanceTest, AnAgentThatDoesNotQuitStaysTheOnlyOne) {
    // A holder that ignores the request to quit: this process, holding the lock.
    InstanceOptions options;
    options.lockPath = (dir / "cli.sock.lock").string();
    options.quitWait = std::chrono::milliseconds(0);
    std::string error;
    std::ostringstream said;
    auto held = becomeTheOnlyInstance(options, said, error);
    ASSERT_TRUE(held) << error;
    EXPECT_EQ(said.str(), "");
    {
        std::ifstream in(options.lockPath);
        pid_t written = 0;
        in >> written;
        EXPECT_EQ(written, ::getpid());
    }
    // The child's request to quit reaches this process, which ignores it like a hung agent.
    ::signal(SIGTERM, SIG_IGN);
    pid_t child = ::fork();
    if (child == 0) {
        std::ostringstream childSaid;
        std::string childError;
        auto lock = becomeTheOnlyInstance(options, childSaid, childError);
        bool refused =
            !lock && childError.find("didn't quit within 0 ms; it stays the one agent") != std::string::npos;
        ::_exit(refused ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ::signal(SIGTERM, SIG_DFL);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

struct AgentStatusTest : testing::SimFixture {};

TEST_F(AgentStatusTest, OnTheSocketStatusNamesTheAgentsOwnProcess) {
    ferrow::Log::setConsole(false);
    load(R"(
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running: {pid: 101, windows: [{id: 1001, title: "Apple"}]}
frontmost: com.apple.Safari
)");
    nlohmann::json request = {{"command", "status"}};
    {
        Agent live(/*commandService=*/true);
        EXPECT_EQ(live.commands().dispatcher().handleJson(request)["status"]["pid"], ::getpid());
    }
    InputManager::reset();
    // The replay bench keeps the simulated desktop's own pid, so its traces stay the same.
    Agent replay;
    EXPECT_EQ(replay.commands().dispatcher().handleJson(request)["status"]["pid"],
              desktop.workspace().ownPID());
    EXPECT_NE(desktop.workspace().ownPID(), ::getpid());
}

}  // namespace
}  // namespace zelk::agent
