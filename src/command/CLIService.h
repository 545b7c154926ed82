#pragma once
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "command/CommandDispatcher.h"
#include "command/SocketPath.h"
#include "support/Clock.h"

namespace zelk::command {

struct CLIServiceOptions {
    // Where to listen; empty resolves $ZELK_SOCKET and the default folders.
    std::optional<SocketLocation> location;
    // Deadlines are read from this clock (the real one unless a test injects a virtual one; then
    // `wake()` makes the service look again after the clock moved).
    std::shared_ptr<ferrow::Clock> clock;
    // A message or a reply that is under way must be done within this; a client that sends half a
    // message and stops, or doesn't read its reply, is dropped after it.
    ferrow::Nanos messageTimeout = ferrow::seconds(5);
    // A connection with nothing under way is dropped after this.
    ferrow::Nanos idleTimeout = ferrow::seconds(60);
    uid_t allowedUid = ::geteuid();
    std::size_t maxConnections = 64;
    std::size_t maxMessageBytes = kMaxMessageBytes;
};

// The local command service: a Unix stream socket served by one thread. Each message is decoded on
// that thread and its command runs synchronously on the main queue, so replies go out in request
// order and commands one at a time. I/O is non-blocking, so one client can't hold up another
// beyond the command it runs.
class CLIService {
  public:
    explicit CLIService(const CommandDispatcher& dispatcher, CLIServiceOptions options = {});
    ~CLIService();
    CLIService(const CLIService&) = delete;
    CLIService& operator=(const CLIService&) = delete;

    // Binds (replacing a stale socket file left by a crash), then serves on the service thread.
    // False, with "Failed to create Mach port ..." in the log, when the socket can't be made; the
    // rest of the program goes on without it.
    bool start();
    // Closes every connection, removes the socket file and joins the thread.
    void stop();
    bool running() const { return thread_.joinable(); }
    const std::string& path() const { return location_.path; }

    // Makes the service thread look at its deadlines again now.
    void wake();
    // Connections open right now, as the service thread last counted them.
    std::size_t connectionCount() const { return connectionCount_.load(); }
    // Messages answered so far.
    std::uint64_t answeredCount() const { return answered_.load(); }

  private:
    struct Impl;
    void serve();

    const CommandDispatcher& dispatcher_;
    CLIServiceOptions options_;
    SocketLocation location_;
    std::unique_ptr<Impl> impl_;
    std::thread thread_;
    std::atomic<bool> stopping_{false};
    std::atomic<std::size_t> connectionCount_{0};
    std::atomic<std::uint64_t> answered_{0};
};

}  // namespace zelk::command
