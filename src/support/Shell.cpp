#include "support/Shell.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <thread>

extern char** environ;

namespace ferrow {

namespace {
std::vector<std::string> mergedEnvironment(const std::map<std::string, std::string>& extra) {
    std::vector<std::string> env;
    for (char** e = environ; e && *e; ++e) {
        std::string entry(*e);
        auto eq = entry.find('=');
        if (eq != std::string::npos && extra.count(entry.substr(0, eq))) continue;
        env.push_back(entry);
    }
    for (auto& [k, v] : extra)
        env.push_back(k + "=" + v);
    return env;
}
}  // namespace

ShellResult runShell(const ShellCommand& command) {
    ShellResult result;
    int out[2], err[2];
    if (pipe2(out, O_CLOEXEC) != 0) return result;
    if (pipe2(err, O_CLOEXEC) != 0) {
        close(out[0]);
        close(out[1]);
        return result;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (command.wait) {
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    } else {
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    }
    std::vector<std::string> args{command.program};
    args.insert(args.end(), command.arguments.begin(), command.arguments.end());
    std::vector<char*> argv;
    for (auto& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    auto envStrings = mergedEnvironment(command.environment);
    std::vector<char*> envp;
    for (auto& e : envStrings)
        envp.push_back(e.data());
    envp.push_back(nullptr);
    pid_t pid = 0;
    int rc = posix_spawn(&pid, command.program.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    close(err[1]);
    if (rc != 0) {
        close(out[0]);
        close(err[0]);
        result.errorOutput = std::strerror(rc);
        return result;
    }
    result.started = true;
    if (!command.wait) {
        close(out[0]);
        close(err[0]);
        std::thread([pid] { waitpid(pid, nullptr, 0); }).detach();
        return result;
    }
    auto deadline = std::chrono::steady_clock::now() +
                    std::chrono::milliseconds(static_cast<long long>(command.timeoutSeconds * 1000));
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    int open = 2;
    char buffer[4096];
    while (open > 0) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline -
                                                                          std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            result.timedOut = true;
            kill(pid, SIGKILL);
            break;
        }
        if (poll(fds, 2, static_cast<int>(left.count())) < 0 && errno != EINTR) break;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
            ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0)
                (i == 0 ? result.output : result.errorOutput).append(buffer, static_cast<std::size_t>(n));
            else {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    for (auto& f : fds)
        if (f.fd >= 0) close(f.fd);
    int status = 0;
    waitpid(pid, &status, 0);
    if (!result.timedOut && WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
    return result;
}

}  // namespace ferrow
