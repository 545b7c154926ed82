#pragma once
#include <chrono>
#include <optional>
#include <ostream>
#include <string>

namespace zelk::agent {

// The one agent of a user: an exclusive lock on a file beside the command socket, held for the life
// of the process (the system lets go of it when the process ends, however it ends). The file holds
// the holder's pid.
class InstanceLock {
  public:
    InstanceLock() = default;
    explicit InstanceLock(int fd) : fd_(fd) {}
    ~InstanceLock();
    InstanceLock(InstanceLock&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
    InstanceLock& operator=(InstanceLock&& other) noexcept;
    InstanceLock(const InstanceLock&) = delete;
    InstanceLock& operator=(const InstanceLock&) = delete;

  private:
    int fd_ = -1;
};

struct InstanceOptions {
    // The lock file; empty puts it beside the command socket ("cli.sock.lock").
    std::string lockPath;
    // How long the running agent has to quit once asked.
    std::chrono::milliseconds quitWait{5000};
};

// Makes this process the only agent: one that already runs is asked to quit (SIGTERM, so it shuts
// down in order and writes its settings) and this one waits for it to go, so two agents never take
// keys or write settings at once. Says what happens on `say`. Nothing when this process can't take
// over: the lock can't be made, or the running agent didn't quit in time (it stays the one agent);
// the reason is in `error`.
std::optional<InstanceLock> becomeTheOnlyInstance(const InstanceOptions& options, std::ostream& say,
                                                  std::string& error);

}  // namespace zelk::agent
