#include "command/CLIService.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "command/Framing.h"
#include "support/Log.h"

namespace zelk::command {

using ferrow::Log;
using ferrow::Nanos;

namespace {

// Stop reading from a client whose replies pile up unread.
constexpr std::size_t kMaxPendingOutput = 1u << 20;
// Read at most this much from one client per turn, so others get theirs.
constexpr std::size_t kReadBudget = 256u * 1024;

bool fillAddress(const std::string& path, sockaddr_un& addr) {
    std::memset(&addr, 0, sizeof addr);
    addr.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof addr.sun_path) return false;
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    return true;
}

// Someone answers on the socket at `path`.
bool somethingListens(const std::string& path) {
    sockaddr_un addr;
    if (!fillAddress(path, addr)) return false;
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    bool live = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
    ::close(fd);
    return live;
}

struct Connection {
    int fd = -1;
    FrameReader reader;
    std::string out;
    std::size_t outSent = 0;
    Nanos deadline = 0;
    bool busy = false;     // a message or reply is under way
    bool stirred = false;  // bytes came in since the deadline was last set
    bool closeAfterFlush = false;
    bool dead = false;

    explicit Connection(int f, std::size_t maxBytes) : fd(f), reader(maxBytes) {}
    bool hasOutput() const { return outSent < out.size(); }
};

}  // namespace

struct CLIService::Impl {
    int listenFd = -1;
    int wakeRead = -1, wakeWrite = -1;
    dev_t socketDev = 0;
    ino_t socketIno = 0;
    std::vector<std::unique_ptr<Connection>> connections;
};

CLIService::CLIService(const CommandDispatcher& dispatcher, CLIServiceOptions options)
    : dispatcher_(dispatcher), options_(std::move(options)), impl_(std::make_unique<Impl>()) {
    if (!options_.clock) options_.clock = std::make_shared<ferrow::RealClock>();
    location_ = options_.location ? *options_.location : resolveSocketLocation();
}

CLIService::~CLIService() {
    stop();
}

bool CLIService::start() {
    if (running()) return true;
    const std::string& path = location_.path;
    auto fail = [&](const std::string& why) {
        Log::error("Failed to create Mach port {}: {}", path, why);
        if (impl_->listenFd >= 0) ::close(impl_->listenFd);
        impl_->listenFd = -1;
        return false;
    };
    sockaddr_un addr;
    if (!fillAddress(path, addr)) return fail("socket path is empty or too long");
    std::string error;
    if (!prepareSocketFolder(location_, error)) return fail(error);

    struct stat st {};
    if (::lstat(path.c_str(), &st) == 0) {
        if (!S_ISSOCK(st.st_mode)) return fail("a file that isn't a socket is in the way");
        if (somethingListens(path)) return fail("another instance is listening on it");
        // Left behind by a run that crashed.
        ::unlink(path.c_str());
    }

    impl_->listenFd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (impl_->listenFd < 0) return fail(std::string("socket: ") + std::strerror(errno));
    if (::bind(impl_->listenFd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0)
        return fail(std::string("bind: ") + std::strerror(errno));
    // Nobody can connect before listen(), so the mode is right before the first client.
    if (::chmod(path.c_str(), 0600) != 0) return fail(std::string("chmod: ") + std::strerror(errno));
    if (::listen(impl_->listenFd, 64) != 0) return fail(std::string("listen: ") + std::strerror(errno));
    if (::lstat(path.c_str(), &st) == 0) {
        impl_->socketDev = st.st_dev;
        impl_->socketIno = st.st_ino;
    }
    int pipeFds[2];
    if (::pipe2(pipeFds, O_NONBLOCK | O_CLOEXEC) != 0)
        return fail(std::string("pipe: ") + std::strerror(errno));
    impl_->wakeRead = pipeFds[0];
    impl_->wakeWrite = pipeFds[1];

    stopping_ = false;
    thread_ = std::thread([this] { serve(); });
    Log::info("CLI listener started on {}", path);
    return true;
}

void CLIService::wake() {
    if (impl_->wakeWrite >= 0) {
        char c = 1;
        [[maybe_unused]] auto n = ::write(impl_->wakeWrite, &c, 1);
    }
}

void CLIService::stop() {
    if (!thread_.joinable()) return;
    stopping_ = true;
    wake();
    thread_.join();
    for (auto& c : impl_->connections)
        ::close(c->fd);
    impl_->connections.clear();
    connectionCount_ = 0;
    ::close(impl_->listenFd);
    ::close(impl_->wakeRead);
    ::close(impl_->wakeWrite);
    impl_->listenFd = impl_->wakeRead = impl_->wakeWrite = -1;
    // Remove the socket file only if it is still the one we made.
    struct stat st {};
    if (::lstat(location_.path.c_str(), &st) == 0 && st.st_dev == impl_->socketDev &&
        st.st_ino == impl_->socketIno)
        ::unlink(location_.path.c_str());
    Log::info("CLI listener stopped on {}", location_.path);
}

void CLIService::serve() {
    auto& impl = *impl_;
    auto& clock = *options_.clock;
    const std::string invalidReply = frameMessage(encodeResponse(ZelkResponse::failure(kInvalidRequest)));
    const std::string busyReply = frameMessage(encodeResponse(ZelkResponse::failure(kAgentBusy)));

    // Deadlines count from the start of the turn that saw the change: a reply already sent may let
    // the client (a test moving a virtual clock) act before the turn ends.
    Nanos turnStart = clock.now();
    // Deadlines start when a message or reply gets under way and again when the connection falls idle.
    auto updateDeadline = [&](Connection& c) {
        bool busy = c.reader.midMessage() || c.hasOutput();
        // A request answered within one turn leaves the state as it was, but the client wasn't idle.
        if (busy != c.busy || c.stirred) {
            c.busy = busy;
            c.stirred = false;
            c.deadline = turnStart + (busy ? options_.messageTimeout : options_.idleTimeout);
        }
    };
    auto queueReply = [&](Connection& c, const std::string& framed) {
        if (c.outSent == c.out.size()) {
            c.out.clear();
            c.outSent = 0;
        }
        c.out += framed;
    };

    auto flush = [&](Connection& c) {
        while (c.hasOutput()) {
            ssize_t n =
                ::send(c.fd, c.out.data() + c.outSent, c.out.size() - c.outSent, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (n > 0) {
                c.outSent += static_cast<std::size_t>(n);
                continue;
            }
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) return;
            c.dead = true;  // the client went away
            return;
        }
        if (c.closeAfterFlush) c.dead = true;
    };

    auto answerMessages = [&](Connection& c) {
        std::string message;
        while (!c.closeAfterFlush && !stopping_) {
            auto result = c.reader.next(message);
            if (result == FrameReader::Result::needMore) return;
            if (result == FrameReader::Result::tooLarge) {
                // The rest of the stream can't be told apart from the oversized message: answer, then close.
                queueReply(c, invalidReply);
                c.closeAfterFlush = true;
                return;
            }
            queueReply(c, frameMessage(dispatcher_.handleMessage(message, &stopping_)));
            answered_.fetch_add(1);
        }
    };

    auto readFrom = [&](Connection& c) {
        char chunk[64 * 1024];
        std::size_t budget = kReadBudget;
        while (budget > 0) {
            ssize_t n = ::recv(c.fd, chunk, sizeof chunk, MSG_DONTWAIT);
            if (n > 0) {
                c.reader.append(chunk, static_cast<std::size_t>(n));
                c.stirred = true;
                budget -= std::min<std::size_t>(budget, static_cast<std::size_t>(n));
                continue;
            }
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) break;
            // End of stream (or an error): whole messages still get their replies; a message cut
            // short gets "invalid request", and the connection closes once the replies are out.
            answerMessages(c);
            if (c.reader.midMessage() && !c.closeAfterFlush) queueReply(c, invalidReply);
            c.closeAfterFlush = true;
            return;
        }
        answerMessages(c);
    };

    auto liveConnections = [&] {
        return static_cast<std::size_t>(std::count_if(impl.connections.begin(), impl.connections.end(),
                                                      [](const auto& c) { return !c->dead; }));
    };
    // At the cap, the client that has sat idle longest gives way to the new one, so idle clients
    // can't lock the service; only clients with a message or a reply under way (each bounded by the
    // message time-out) hold their place. Input that has already arrived is read first, so a client
    // that has started a message counts as busy.
    auto makeRoom = [&] {
        Connection* victim = nullptr;
        for (auto& c : impl.connections) {
            if (c->dead) continue;
            readFrom(*c);
            updateDeadline(*c);
            if (c->closeAfterFlush && !c->hasOutput()) {
                c->dead = true;  // already on its way out
                return true;
            }
            if (!c->busy && !c->closeAfterFlush && (!victim || c->deadline < victim->deadline))
                victim = c.get();
        }
        if (!victim) return false;
        Log::info("CLIService: closed the longest-idle client to serve a new one");
        victim->dead = true;
        return true;
    };

    // Out of descriptors, the listening socket stays readable: stop polling it until a connection closes,
    // or the loop would spin.
    bool acceptPaused = false;
    auto acceptClients = [&] {
        while (true) {
            int fd = ::accept4(impl.listenFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
            if (fd < 0) {
                if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
                    Log::error("CLIService: can't accept a client: {}", std::strerror(errno));
                    acceptPaused = true;
                }
                return;
            }
            ucred cred{};
            socklen_t len = sizeof cred;
            if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0 ||
                cred.uid != options_.allowedUid) {
                Log::error("CLIService: refused a client of uid {} (pid {})", cred.uid, cred.pid);
                ::close(fd);
                continue;
            }
            if (liveConnections() >= options_.maxConnections && !makeRoom()) {
                Log::error("CLIService: busy, refused a client: all {} connections have a message under way",
                           liveConnections());
                // Small enough for an empty socket buffer; the client reads it even after the close.
                [[maybe_unused]] auto n =
                    ::send(fd, busyReply.data(), busyReply.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
                ::close(fd);
                continue;
            }
            auto c = std::make_unique<Connection>(fd, options_.maxMessageBytes);
            c->deadline = turnStart + options_.idleTimeout;
            impl.connections.push_back(std::move(c));
        }
    };

    std::vector<pollfd> fds;
    while (!stopping_) {
        fds.clear();
        fds.push_back({impl.wakeRead, POLLIN, 0});
        fds.push_back({impl.listenFd, static_cast<short>(acceptPaused ? 0 : POLLIN), 0});
        Nanos earliest = INT64_MAX;
        for (auto& c : impl.connections) {
            short events = 0;
            if (!c->closeAfterFlush && c->out.size() - c->outSent < kMaxPendingOutput) events |= POLLIN;
            if (c->hasOutput()) events |= POLLOUT;
            fds.push_back({c->fd, events, 0});
            earliest = std::min(earliest, c->deadline);
        }
        int timeoutMs = -1;
        if (earliest != INT64_MAX) {
            Nanos wait = earliest - clock.now();
            if (wait <= 0)
                timeoutMs = 0;
            else if (!clock.isVirtual())
                timeoutMs = static_cast<int>(
                    std::min<Nanos>((wait + ferrow::kNanosPerMs - 1) / ferrow::kNanosPerMs, 60'000));
        }
        int ready = ::poll(fds.data(), fds.size(), timeoutMs);
        if (ready < 0 && errno != EINTR) {
            Log::error("CLIService: poll failed: {}", std::strerror(errno));
            break;
        }
        if (stopping_) break;
        turnStart = clock.now();
        if (fds[0].revents & POLLIN) {
            char drain[64];
            while (::read(impl.wakeRead, drain, sizeof drain) > 0) {
            }
        }
        // Connections accepted in this turn are polled from the next one.
        std::size_t polled = impl.connections.size();
        if (fds[1].revents & POLLIN) acceptClients();

        for (std::size_t i = 0; i < polled; ++i) {
            Connection& c = *impl.connections[i];
            if (c.dead) continue;
            short rev = fds[i + 2].revents;
            if (rev & (POLLIN | POLLHUP | POLLERR)) readFrom(c);
            if (c.hasOutput() || c.closeAfterFlush) flush(c);
            updateDeadline(c);
        }
        for (auto& c : impl.connections) {
            if (!c->dead && turnStart >= c->deadline) {
                Log::debug("CLIService: dropped a client that {}",
                           c->busy ? "stalled mid-message" : "stayed idle");
                c->dead = true;
            }
        }
        std::size_t before = impl.connections.size();
        std::erase_if(impl.connections, [](const std::unique_ptr<Connection>& c) {
            if (c->dead) ::close(c->fd);
            return c->dead;
        });
        if (impl.connections.size() < before) acceptPaused = false;
        connectionCount_ = impl.connections.size();
    }
}

}  // namespace zelk::command
