#include "platform/HostProcesses.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <thread>

extern char** environ;

namespace zelk::platform {

namespace {
namespace fs = std::filesystem;
using Steady = std::chrono::steady_clock;

double wallNow() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

// The local time stamp the log file's lines start with ("2026-11-24 21:03:04.123"), as wall seconds.
std::optional<double> stampOf(const std::string& line) {
    if (line.size() < 19 || line[4] != '-' || line[10] != ' ' || line[13] != ':') return std::nullopt;
    std::tm tm{};
    std::istringstream in(line.substr(0, 19));
    in >> std::get_time(&tm, "%Y-%m-%d %H:%M:%S");
    if (in.fail()) return std::nullopt;
    tm.tm_isdst = -1;
    std::time_t t = std::mktime(&tm);
    if (t == -1) return std::nullopt;
    return static_cast<double>(t);
}

std::uintmax_t sizeOf(const fs::path& path) {
    std::error_code ec;
    auto size = fs::file_size(path, ec);
    return ec ? 0 : size;
}

std::string readFrom(const fs::path& path, std::uintmax_t offset) {
    std::ifstream in(path, std::ios::binary);
    in.seekg(static_cast<std::streamoff>(offset));
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

bool contains(const std::vector<std::string>& list, const std::string& value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

// Waits up to `seconds` in short slices, ending early once `cancel` turns true.
void waitFor(double seconds, const std::atomic<bool>* cancel) {
    auto end =
        Steady::now() + std::chrono::duration_cast<Steady::duration>(std::chrono::duration<double>(seconds));
    while (Steady::now() < end && !(cancel && *cancel))
        std::this_thread::sleep_for(
            std::min<Steady::duration>(std::chrono::milliseconds(100), end - Steady::now()));
}
}  // namespace

std::string HostProcesses::linesSince(const std::string& text, double sinceWallSeconds) {
    std::string out;
    std::istringstream in(text);
    std::string line;
    bool keep = false;
    while (std::getline(in, line)) {
        if (auto stamp = stampOf(line)) keep = *stamp >= sinceWallSeconds;
        if (!keep) continue;
        out += line;
        out += '\n';
    }
    return out;
}

ProcessResult HostProcesses::run(const ProcessRequest& request) {
    if (request.program == "/usr/bin/log") return runLogCommand(request);
    return spawn(request);
}

// "stream" keeps what the agent logs while it runs, until it is ended by its time-out; "show" with
// "--last 24h" gives the last day of the file.
ProcessResult HostProcesses::runLogCommand(const ProcessRequest& request) {
    ProcessResult result;
    if (logFile_.empty()) {
        result.errorOutput = "the agent keeps no log file";
        return result;
    }
    const auto& args = request.arguments;
    const std::string verb = args.empty() ? "" : args.front();
    if (verb == "stream") {
        result.started = true;
        auto from = sizeOf(logFile_);
        waitFor(request.timeoutSeconds, &interrupted_);
        auto now = sizeOf(logFile_);
        result.output = now >= from ? readFrom(logFile_, from) : readFrom(logFile_, 0);  // rotated: all of it
        result.timedOut = true;  // a stream ends only when it is stopped
        result.exitCode = 15;
        return result;
    }
    if (verb == "show" && contains(args, "--last")) {
        result.started = true;
        result.output = linesSince(readFrom(logFile_, 0), wallNow() - 24 * 3600);
        result.exitCode = 0;
        return result;
    }
    result.started = true;
    result.exitCode = 64;  // a usage the mapping doesn't know
    result.errorOutput = "log: unsupported arguments";
    return result;
}

// A real child process; standard output comes back through a pipe.
ProcessResult HostProcesses::spawn(const ProcessRequest& request) {
    ProcessResult result;
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0) return result;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    if (auto pwd = request.environment.find("PWD"); pwd != request.environment.end())
        posix_spawn_file_actions_addchdir_np(&actions, pwd->second.c_str());
    std::vector<std::string> args{request.program};
    args.insert(args.end(), request.arguments.begin(), request.arguments.end());
    std::vector<char*> argv;
    for (auto& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    std::vector<std::string> envStrings;
    for (char** e = environ; *e; ++e) {
        std::string entry = *e;
        if (!request.environment.count(entry.substr(0, entry.find('=')))) envStrings.push_back(entry);
    }
    for (const auto& [k, v] : request.environment)
        envStrings.push_back(k + "=" + v);
    std::vector<char*> envp;
    for (auto& e : envStrings)
        envp.push_back(e.data());
    envp.push_back(nullptr);
    pid_t pid = 0;
    int rc = posix_spawnp(&pid, request.program.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    if (rc != 0) {
        ::close(out[0]);
        result.errorOutput = fmt::format("{}: {}", request.program, std::strerror(rc));
        return result;
    }
    result.started = true;
    if (!request.wait) {
        ::close(out[0]);
        // Nobody waits for it: a thread reaps it so it leaves no zombie.
        std::thread([pid] { ::waitpid(pid, nullptr, 0); }).detach();
        result.exitCode = 0;
        return result;
    }
    ::fcntl(out[0], F_SETFL, O_NONBLOCK);
    auto drain = [&] {
        char buf[4096];
        ssize_t n;
        while ((n = ::read(out[0], buf, sizeof buf)) > 0)
            result.output.append(buf, static_cast<std::size_t>(n));
    };
    auto deadline = Steady::now() + std::chrono::duration_cast<Steady::duration>(
                                        std::chrono::duration<double>(std::max(0.0, request.timeoutSeconds)));
    int status = 0;
    while (true) {
        drain();
        pid_t done = ::waitpid(pid, &status, WNOHANG);
        if (done == pid) break;
        if (done < 0) {
            ::close(out[0]);
            return result;
        }
        if (Steady::now() >= deadline || interrupted_) {
            ::kill(pid, SIGTERM);
            ::waitpid(pid, &status, 0);
            result.timedOut = true;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    drain();
    ::close(out[0]);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

std::optional<std::string> HostProcesses::runScript(const std::string&, std::string* error) {
    if (error) *error = "scripts are not available on this desktop";
    return std::nullopt;
}

}  // namespace zelk::platform
