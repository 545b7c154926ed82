#include "command/CLIClient.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "command/Framing.h"

namespace zelk::command {

using Clock = std::chrono::steady_clock;

namespace {
int remainingMs(Clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left < 0 ? 0 : static_cast<int>(std::min<long long>(left, 1 << 30));
}
}  // namespace

CLIClient::~CLIClient() {
    close();
}

CLIClient::CLIClient(CLIClient&& other) noexcept : fd_(other.fd_), lastError_(std::move(other.lastError_)) {
    other.fd_ = -1;
}

CLIClient& CLIClient::operator=(CLIClient&& other) noexcept {
    if (this != &other) {
        close();
        fd_ = other.fd_;
        other.fd_ = -1;
        lastError_ = std::move(other.lastError_);
    }
    return *this;
}

void CLIClient::close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

void CLIClient::shutdownSending() {
    if (fd_ >= 0) ::shutdown(fd_, SHUT_WR);
}

ClientStatus CLIClient::connect(const std::string& path) {
    close();
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof addr.sun_path) {
        lastError_ = "socket path is empty or too long";
        return ClientStatus::notRunning;
    }
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd_ < 0) {
        lastError_ = std::strerror(errno);
        return ClientStatus::connectionLost;
    }
    if (::connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        lastError_ = std::strerror(errno);
        close();
        return ClientStatus::notRunning;
    }
    return ClientStatus::ok;
}

ClientStatus CLIClient::sendRaw(std::string_view bytes, Timeout timeout) {
    if (fd_ < 0) return ClientStatus::connectionLost;
    auto deadline = Clock::now() + timeout;
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        ssize_t n = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0) {
            sent += static_cast<std::size_t>(n);
            continue;
        }
        if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
            lastError_ = std::strerror(errno);
            return ClientStatus::connectionLost;
        }
        pollfd p{fd_, POLLOUT, 0};
        int ready = ::poll(&p, 1, remainingMs(deadline));
        if (ready == 0) {
            lastError_ = "send timed out";
            return ClientStatus::timedOut;
        }
    }
    return ClientStatus::ok;
}

ClientStatus CLIClient::send(std::string_view payload, Timeout timeout) {
    return sendRaw(frameMessage(payload), timeout);
}

ClientStatus CLIClient::readExactly(char* out, std::size_t size, Clock::time_point deadline) {
    std::size_t got = 0;
    while (got < size) {
        ssize_t n = ::recv(fd_, out + got, size - got, MSG_DONTWAIT);
        if (n > 0) {
            got += static_cast<std::size_t>(n);
            continue;
        }
        if (n == 0) {
            lastError_ = "the agent closed the connection";
            return ClientStatus::connectionLost;
        }
        if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
            lastError_ = std::strerror(errno);
            return ClientStatus::connectionLost;
        }
        pollfd p{fd_, POLLIN, 0};
        if (::poll(&p, 1, remainingMs(deadline)) == 0) {
            lastError_ = "no reply in time";
            return ClientStatus::timedOut;
        }
    }
    return ClientStatus::ok;
}

ClientStatus CLIClient::receive(std::string& reply, Timeout timeout) {
    if (fd_ < 0) return ClientStatus::connectionLost;
    auto deadline = Clock::now() + timeout;
    unsigned char header[4];
    if (auto s = readExactly(reinterpret_cast<char*>(header), 4, deadline); s != ClientStatus::ok) return s;
    std::uint32_t length = (std::uint32_t(header[0]) << 24) | (std::uint32_t(header[1]) << 16) |
                           (std::uint32_t(header[2]) << 8) | std::uint32_t(header[3]);
    if (length > kMaxMessageBytes * 4) {
        lastError_ = "reply too large";
        return ClientStatus::replyTooLarge;
    }
    reply.resize(length);
    return readExactly(reply.data(), length, deadline);
}

ClientStatus CLIClient::request(std::string_view payload, std::string& reply, Timeout sendTimeout,
                                Timeout receiveTimeout) {
    if (auto s = send(payload, sendTimeout); s != ClientStatus::ok) {
        // A busy agent answers before it closes, so the send can fail with the answer waiting.
        if (s != ClientStatus::connectionLost) return s;
        std::string why = lastError_;
        if (receive(reply, Timeout(0)) == ClientStatus::ok) return ClientStatus::ok;
        lastError_ = why;
        return s;
    }
    return receive(reply, receiveTimeout);
}

}  // namespace zelk::command
