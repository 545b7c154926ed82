#pragma once
#include <chrono>
#include <string>
#include <string_view>

#include "command/ZelkRequest.h"

namespace zelk::command {

enum class ClientStatus {
    ok,
    notRunning,      // no socket there, or nobody listening on it
    timedOut,        // the agent didn't take or answer the message in time
    connectionLost,  // the agent closed the connection or an I/O error
    replyTooLarge,
};

// The tool's end of the socket: blocking calls bounded by time-outs, no SIGPIPE.
class CLIClient {
  public:
    using Timeout = std::chrono::milliseconds;

    CLIClient() = default;
    ~CLIClient();
    CLIClient(CLIClient&& other) noexcept;
    CLIClient& operator=(CLIClient&& other) noexcept;
    CLIClient(const CLIClient&) = delete;
    CLIClient& operator=(const CLIClient&) = delete;

    ClientStatus connect(const std::string& path);
    // Sends one message (framed here) and waits for its reply.
    ClientStatus request(std::string_view payload, std::string& reply, Timeout sendTimeout = Timeout(5000),
                         Timeout receiveTimeout = Timeout(30000));
    ClientStatus send(std::string_view payload, Timeout timeout = Timeout(5000));
    // Sends bytes exactly as given (tests use it for broken frames).
    ClientStatus sendRaw(std::string_view bytes, Timeout timeout = Timeout(5000));
    ClientStatus receive(std::string& reply, Timeout timeout = Timeout(30000));
    // Half-closes the sending side: the agent sees the end of the stream.
    void shutdownSending();
    void close();
    bool connected() const { return fd_ >= 0; }
    // The system's text for the last failure, for messages.
    const std::string& lastError() const { return lastError_; }

  private:
    ClientStatus readExactly(char* out, std::size_t size, std::chrono::steady_clock::time_point deadline);

    int fd_ = -1;
    std::string lastError_;
};

}  // namespace zelk::command
