#include "SingleInstance.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <thread>

#include "command/SocketPath.h"

namespace zelk::agent {

namespace {

using SteadyClock = std::chrono::steady_clock;

bool tryLock(int fd) {
    while (::flock(fd, LOCK_EX | LOCK_NB) != 0)
        if (errno != EINTR) return false;
    return true;
}

// The pid the holder wrote, or 0 when the file doesn't hold one.
pid_t holderPid(int fd) {
    char text[32] = {};
    ssize_t n = ::pread(fd, text, sizeof text - 1, 0);
    if (n <= 0) return 0;
    char* end = nullptr;
    long pid = std::strtol(text, &end, 10);
    return pid > 1 && pid <= INT32_MAX && end != text ? static_cast<pid_t>(pid) : 0;
}

bool writePid(int fd) {
    std::string text = std::to_string(::getpid()) + "\n";
    return ::ftruncate(fd, 0) == 0 && ::pwrite(fd, text.data(), text.size(), 0) == ssize_t(text.size());
}

std::string lockPathFor(const InstanceOptions& options, std::string& error) {
    if (!options.lockPath.empty()) return options.lockPath;
    auto location = command::resolveSocketLocation();
    // The lock shares the socket's private folder.
    if (!command::prepareSocketFolder(location, error)) return {};
    return location.path + ".lock";
}

}  // namespace

InstanceLock::~InstanceLock() {
    if (fd_ >= 0) ::close(fd_);
}

InstanceLock& InstanceLock::operator=(InstanceLock&& other) noexcept {
    if (this != &other) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = other.fd_;
        other.fd_ = -1;
    }
    return *this;
}

std::optional<InstanceLock> becomeTheOnlyInstance(const InstanceOptions& options, std::ostream& say,
                                                  std::string& error) {
    std::string path = lockPathFor(options, error);
    if (path.empty()) return std::nullopt;
    int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
        error = "instance lock " + path + ": " + std::strerror(errno);
        return std::nullopt;
    }
    InstanceLock lock(fd);
    if (!tryLock(fd)) {
        if (errno != EWOULDBLOCK) {
            error = "instance lock " + path + ": " + std::strerror(errno);
            return std::nullopt;
        }
        pid_t other = holderPid(fd);
        if (other == 0) {
            error = "another zelkd holds " + path + " and its pid is unknown; stop it and start again";
            return std::nullopt;
        }
        say << "zelkd: another zelkd is running for this user (pid " << other
            << "); asking it to quit so that this one takes over." << std::endl;
        if (::kill(other, SIGTERM) != 0 && errno != ESRCH) {
            error = "can't ask zelkd (pid " + std::to_string(other) + ") to quit: " + std::strerror(errno);
            return std::nullopt;
        }
        // A bounded poll: the running agent finishes its shutdown (settings written) before the
        // system lets go of its lock.
        auto deadline = SteadyClock::now() + options.quitWait;
        while (!tryLock(fd)) {
            if (SteadyClock::now() >= deadline) {
                error = "the running zelkd (pid " + std::to_string(other) + ") didn't quit within " +
                        std::to_string(options.quitWait.count()) + " ms; it stays the one agent";
                return std::nullopt;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        say << "zelkd: pid " << other << " quit; this one (pid " << ::getpid() << ") takes over."
            << std::endl;
    }
    if (!writePid(fd)) {
        error = "instance lock " + path + ": " + std::strerror(errno);
        return std::nullopt;
    }
    return lock;
}

}  // namespace zelk::agent
