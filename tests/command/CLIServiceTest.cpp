#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "command/BuiltinCommands.h"
#include "command/CLIClient.h"
#include "command/CLIService.h"
#include "command/Framing.h"
#include "platform/sim/SimFixture.h"
#include "support/Log.h"

namespace zelk::command {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

// A guard against a hang, never a timing assertion: every wait below ends on an event.
constexpr CLIClient::Timeout kGuard{10'000};

struct CLIServiceTest : testing::SimFixture {
    fs::path dir;
    std::string socketPath;
    CommandDispatcher dispatcher;
    ferrow::LogCapture logs;
    std::unique_ptr<CLIService> service;

    void SetUp() override {
        ferrow::Log::setConsole(false);
        char tmpl[] = "/tmp/zelk-cmd-XXXXXX";
        ASSERT_NE(::mkdtemp(tmpl), nullptr);
        dir = tmpl;
        socketPath = (dir / "run" / "cli.sock").string();
        load(R"(
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running: {pid: 101, windows: [{id: 1001, title: "Apple"}]}
frontmost: com.apple.Safari
)");
        registerBuiltinCommands(dispatcher, platformStatusProviders());
    }
    void TearDown() override {
        service.reset();
        std::error_code ec;
        fs::remove_all(dir, ec);
        SimFixture::TearDown();
    }
    CLIServiceOptions options() {
        CLIServiceOptions o;
        o.location = SocketLocation{socketPath, false};
        o.clock = clock;
        return o;
    }
    void startService(CLIServiceOptions o) {
        service = std::make_unique<CLIService>(dispatcher, std::move(o));
        ASSERT_TRUE(service->start());
    }
    CLIClient connect() {
        CLIClient c;
        EXPECT_EQ(c.connect(socketPath), ClientStatus::ok) << c.lastError();
        return c;
    }
    static json receive(CLIClient& c) {
        std::string reply;
        auto status = c.receive(reply, kGuard);
        EXPECT_EQ(status, ClientStatus::ok) << c.lastError();
        return status == ClientStatus::ok ? json::parse(reply) : json();
    }
    static json ask(CLIClient& c, const json& request) {
        EXPECT_EQ(c.send(request.dump(), kGuard), ClientStatus::ok);
        return receive(c);
    }
    // The service closed this connection: reading ends without a reply.
    static bool closedByService(CLIClient& c) {
        std::string reply;
        return c.receive(reply, kGuard) == ClientStatus::connectionLost;
    }
    static const json& invalid() {
        static const json j = json::parse(R"({"ok":false,"error":"invalid request"})");
        return j;
    }
};

TEST_F(CLIServiceTest, ListensWithPrivateModesAndSays) {
    startService(options());
    struct stat st {};
    ASSERT_EQ(::stat((dir / "run").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    ASSERT_EQ(::stat(socketPath.c_str(), &st), 0);
    EXPECT_TRUE(S_ISSOCK(st.st_mode));
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    EXPECT_TRUE(logs.contains("CLI listener started on " + socketPath));
}

TEST_F(CLIServiceTest, AnswersSeveralRequestsOnOneConnectionInOrder) {
    startService(options());
    CLIClient c = connect();
    // All three go out before any reply is read.
    ASSERT_EQ(c.send(R"({"command":"status"})"), ClientStatus::ok);
    ASSERT_EQ(c.send(R"({"command":"osd","surface":"nope"})"), ClientStatus::ok);
    ASSERT_EQ(c.send(R"({"command":"list-apps"})"), ClientStatus::ok);
    json first = receive(c);
    EXPECT_EQ(first["ok"], true);
    EXPECT_EQ(first["status"]["frontmostApp"], "Safari");
    EXPECT_EQ(receive(c)["error"], "osd: expected one of app | window | hide");
    EXPECT_EQ(receive(c)["error"], "not available yet");
    EXPECT_EQ(service->answeredCount(), 3u);
}

TEST_F(CLIServiceTest, UndecodableMessagesAreInvalidAndTheConnectionGoesOn) {
    startService(options());
    CLIClient c = connect();
    for (const char* bad :
         {"", "null", "not json", R"({"command":"status")", R"({"query":"x"})", R"({"command":"nope"})",
          R"({"command":"focus-window","windowID":4294967296})", "{\"command\":\"status\",\"q\":\"\xFF\"}"}) {
        ASSERT_EQ(c.send(bad), ClientStatus::ok);
        EXPECT_EQ(receive(c), invalid()) << bad;
    }
    EXPECT_EQ(ask(c, {{"command", "status"}})["ok"], true);
}

TEST_F(CLIServiceTest, AMessageAtTheLimitIsReadAndOneByteMoreIsRefusedAndClosed) {
    EXPECT_EQ(CLIServiceOptions{}.maxMessageBytes, 16u * 1024 * 1024);
    auto o = options();
    o.maxMessageBytes = 4096;  // the same rule as at 16 MiB, without moving megabytes in a test
    startService(o);
    CLIClient c = connect();
    std::string head = R"({"command":"status","pad":")";
    std::string atLimit = head + std::string(4096 - head.size() - 2, 'x') + "\"}";
    ASSERT_EQ(atLimit.size(), 4096u);
    ASSERT_EQ(c.send(atLimit, kGuard), ClientStatus::ok);
    EXPECT_EQ(receive(c)["ok"], true);

    std::string tooBig = head + std::string(4097 - head.size() - 2, 'x') + "\"}";
    ASSERT_EQ(c.send(tooBig), ClientStatus::ok);
    EXPECT_EQ(receive(c), invalid());
    EXPECT_TRUE(closedByService(c));
    // Others are served as before.
    CLIClient d = connect();
    EXPECT_EQ(ask(d, {{"command", "status"}})["ok"], true);
}

TEST_F(CLIServiceTest, AMessageCutShortByTheEndOfTheStreamIsInvalidThenClosed) {
    startService(options());
    CLIClient c = connect();
    std::string frame = frameMessage(R"({"command":"status"})");
    ASSERT_EQ(c.sendRaw(frameMessage(R"({"command":"status"})") + frame.substr(0, frame.size() - 3)),
              ClientStatus::ok);
    c.shutdownSending();
    EXPECT_EQ(receive(c)["ok"], true);  // the whole message before it still gets its reply
    EXPECT_EQ(receive(c), invalid());
    EXPECT_TRUE(closedByService(c));
}

TEST_F(CLIServiceTest, AStalledClientIsDroppedAtItsDeadlineWithoutHoldingUpOthers) {
    auto o = options();
    o.messageTimeout = ferrow::seconds(5);
    o.idleTimeout = ferrow::seconds(60);
    startService(o);
    std::string frame = frameMessage(R"({"command":"status"})");

    CLIClient halfSent = connect();
    ASSERT_EQ(halfSent.sendRaw(frame.substr(0, 6)), ClientStatus::ok);
    CLIClient silent = connect();
    // While both sit there, another client is answered.
    CLIClient other = connect();
    EXPECT_EQ(ask(other, {{"command", "status"}})["ok"], true);

    // Just short of the deadline the half-sent client may still finish its message.
    CLIClient slow = connect();
    ASSERT_EQ(slow.sendRaw(frame.substr(0, 6)), ClientStatus::ok);
    EXPECT_EQ(ask(other, {{"command", "status"}})["ok"], true);  // the service has seen slow's bytes
    clock->advanceBy(ferrow::seconds(5) - ferrow::ms(1));
    service->wake();
    ASSERT_EQ(slow.sendRaw(frame.substr(6)), ClientStatus::ok);
    EXPECT_EQ(receive(slow)["ok"], true);

    clock->advanceBy(ferrow::ms(1));
    service->wake();
    EXPECT_TRUE(closedByService(halfSent));
    EXPECT_EQ(ask(silent, {{"command", "status"}})["ok"], true);  // idle, but not for a minute yet

    clock->advanceBy(ferrow::seconds(60));
    service->wake();
    EXPECT_TRUE(closedByService(silent));
    EXPECT_TRUE(closedByService(other));
}

TEST_F(CLIServiceTest, EveryFailureToListenSaysWhyOnTheSameLine) {
    // A folder in the way of the socket's folder, and a path the system can't take.
    std::ofstream(dir / "file") << "x";
    auto o = options();
    o.location = SocketLocation{(dir / "file" / "cli.sock").string(), true};
    CLIService underAFile(dispatcher, o);
    EXPECT_FALSE(underAFile.start());
    EXPECT_TRUE(logs.containsSubstring("Failed to create Mach port " + o.location->path + ": " +
                                       (dir / "file").string() + ": "));
    o.location = SocketLocation{(dir / std::string(200, 'x')).string(), false};
    CLIService tooLong(dispatcher, o);
    EXPECT_FALSE(tooLong.start());
    EXPECT_TRUE(logs.contains("Failed to create Mach port " + o.location->path +
                              ": socket path is empty or too long"));
}

// Clients that connect and send nothing, as many as the service takes.
std::vector<CLIClient> connectSilent(const std::string& path, std::size_t count) {
    std::vector<CLIClient> out(count);
    for (auto& c : out)
        EXPECT_EQ(c.connect(path), ClientStatus::ok) << c.lastError();
    return out;
}

TEST_F(CLIServiceTest, IdleClientsAtTheCapGiveWayToANewOneLongestIdleFirst) {
    EXPECT_EQ(CLIServiceOptions{}.maxConnections, 64u);
    startService(options());
    auto idle = connectSilent(socketPath, 64);
    // The 65th is served at once, not after the idle ones' minute.
    CLIClient fresh = connect();
    EXPECT_EQ(ask(fresh, {{"command", "status"}})["ok"], true);
    // The first to connect had been idle longest and gave way; the others stay.
    EXPECT_TRUE(closedByService(idle[0]));
    clock->advanceBy(ferrow::ms(1));
    EXPECT_EQ(ask(idle[1], {{"command", "status"}})["ok"], true);
    // idle[1] was used last, so the next newcomer takes idle[2]'s place.
    CLIClient another = connect();
    EXPECT_EQ(ask(another, {{"command", "status"}})["ok"], true);
    EXPECT_TRUE(closedByService(idle[2]));
    EXPECT_EQ(ask(idle[1], {{"command", "status"}})["ok"], true);
    EXPECT_TRUE(logs.containsSubstring("closed the longest-idle client"));
}

TEST_F(CLIServiceTest, WhenEveryConnectionIsMidMessageANewClientIsToldTheAgentIsBusy) {
    auto o = options();
    o.maxConnections = 8;  // the same rule as at 64
    startService(o);
    std::string frame = frameMessage(R"({"command":"status"})");
    auto stalled = connectSilent(socketPath, 8);
    for (auto& c : stalled)
        ASSERT_EQ(c.sendRaw(frame.substr(0, 6)), ClientStatus::ok);

    CLIClient late = connect();
    std::string reply;
    // The busy answer is read even when the service closed before the request went out.
    ASSERT_EQ(late.request(R"({"command":"status"})", reply, kGuard, kGuard), ClientStatus::ok)
        << late.lastError();
    EXPECT_EQ(json::parse(reply), json::parse(R"({"ok":false,"error":"the agent is busy"})"));
    EXPECT_TRUE(closedByService(late));
    EXPECT_EQ(service->answeredCount(), 0u);
    EXPECT_TRUE(logs.containsSubstring("busy, refused a client"));

    // A stalled message holds its place for the message time-out only.
    clock->advanceBy(o.messageTimeout);
    service->wake();
    for (auto& c : stalled)
        EXPECT_TRUE(closedByService(c));
    CLIClient next = connect();
    EXPECT_EQ(ask(next, {{"command", "status"}})["ok"], true);
}

TEST_F(CLIServiceTest, AClientThatFinishedItsMessageButHasNotReadTheReplyIsNotIdle) {
    auto o = options();
    o.maxConnections = 1;
    startService(o);
    // A reply larger than the socket buffers stays under way while its client doesn't read.
    dispatcher.registerHandler(ZelkCommand::listApps, [](const ZelkRequest&) {
        auto r = ZelkResponse::success();
        r.apps = std::vector<ZelkAppInfo>(
            20'000, ZelkAppInfo{"Some App", "com.example.app", 1, false, false, 3, {1, 2}});
        return r;
    });
    CLIClient reader = connect();
    ASSERT_EQ(reader.send(R"({"command":"list-apps"})"), ClientStatus::ok);
    CLIClient late = connect();
    std::string reply;
    ASSERT_EQ(late.request(R"({"command":"status"})", reply, kGuard, kGuard), ClientStatus::ok);
    EXPECT_EQ(json::parse(reply)["error"], "the agent is busy");
    EXPECT_EQ(receive(reader)["apps"].size(), 20'000u);  // its reply is whole
}

TEST_F(CLIServiceTest, APeerOfAnotherUserIsRefused) {
    auto o = options();
    o.allowedUid = ::geteuid() + 1;
    startService(o);
    CLIClient c = connect();
    std::string reply;
    ASSERT_EQ(c.send(R"({"command":"status"})"), ClientStatus::ok);
    EXPECT_EQ(c.receive(reply, kGuard), ClientStatus::connectionLost);
    EXPECT_EQ(service->answeredCount(), 0u);
    EXPECT_TRUE(logs.containsSubstring("refused a client of uid " + std::to_string(::geteuid())));
}

TEST_F(CLIServiceTest, AStaleSocketFileIsReplacedButALiveOneIsLeftAlone) {
    fs::create_directories(dir / "run");
    {
        int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        std::strcpy(addr.sun_path, socketPath.c_str());
        ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
        ::close(fd);  // as after a crash: the file stays, nobody listens
    }
    startService(options());
    CLIClient c = connect();
    EXPECT_EQ(ask(c, {{"command", "status"}})["ok"], true);

    CLIService second(dispatcher, options());
    EXPECT_FALSE(second.start());
    EXPECT_TRUE(
        logs.contains("Failed to create Mach port " + socketPath + ": another instance is listening on it"));
    EXPECT_EQ(ask(c, {{"command", "status"}})["ok"], true);
    CLIClient d = connect();
    EXPECT_EQ(ask(d, {{"command", "status"}})["ok"], true);
}

TEST_F(CLIServiceTest, AFileThatIsNotASocketIsNeverRemoved) {
    fs::create_directories(dir / "run");
    std::ofstream(socketPath) << "keep me";
    CLIService s(dispatcher, options());
    EXPECT_FALSE(s.start());
    EXPECT_TRUE(logs.contains("Failed to create Mach port " + socketPath +
                              ": a file that isn't a socket is in the way"));
    std::ifstream in(socketPath);
    std::string text;
    std::getline(in, text);
    EXPECT_EQ(text, "keep me");
}

TEST_F(CLIServiceTest, StopClosesClientsAndRemovesTheSocket) {
    startService(options());
    CLIClient c = connect();
    EXPECT_EQ(ask(c, {{"command", "status"}})["ok"], true);
    service->stop();
    EXPECT_FALSE(fs::exists(socketPath));
    EXPECT_TRUE(closedByService(c));
    CLIClient late;
    EXPECT_EQ(late.connect(socketPath), ClientStatus::notRunning);
    // A service can start again on the same place.
    ASSERT_TRUE(service->start());
    CLIClient again = connect();
    EXPECT_EQ(ask(again, {{"command", "status"}})["ok"], true);
}

TEST_F(CLIServiceTest, AClientThatLeavesBeforeItsReplyDoesNotHurtTheService) {
    // A large reply, so the service is still writing when the client is gone.
    dispatcher.registerHandler(ZelkCommand::listApps, [](const ZelkRequest&) {
        auto r = ZelkResponse::success();
        r.apps = std::vector<ZelkAppInfo>(
            2'000, ZelkAppInfo{"Some App", "com.example.app", 1, false, false, 3, {1, 2}});
        return r;
    });
    startService(options());
    for (int i = 0; i < 3; ++i) {
        CLIClient c = connect();
        ASSERT_EQ(c.send(R"({"command":"list-apps"})"), ClientStatus::ok);
        ASSERT_EQ(c.send(R"({"command":"list-apps"})"), ClientStatus::ok);
        c.close();
    }
    CLIClient d = connect();
    EXPECT_EQ(ask(d, {{"command", "list-apps"}})["apps"].size(), 2'000u);
}

TEST_F(CLIServiceTest, CommandsRunOnTheMainQueueThread) {
    auto& realQueue = ferrow::MainQueue::install(std::make_shared<ferrow::RealClock>());
    std::thread mainThread([&] { realQueue.run(); });
    std::atomic<bool> onMain{false};
    dispatcher.registerHandler(ZelkCommand::listSpaces, [&](const ZelkRequest&) {
        onMain = ferrow::MainQueue::shared().onMainThread();
        return ZelkResponse::success();
    });
    auto o = options();
    o.clock = std::make_shared<ferrow::RealClock>();
    startService(o);
    CLIClient c = connect();
    EXPECT_EQ(ask(c, {{"command", "list-spaces"}})["ok"], true);
    EXPECT_TRUE(onMain);
    realQueue.stop();
    mainThread.join();
}

TEST_F(CLIServiceTest, StoppingDoesNotHangOnACommandTheMainQueueWillNeverRun) {
    // A real queue that nobody serves, as after the main loop has ended.
    ferrow::MainQueue::install(std::make_shared<ferrow::RealClock>());
    auto o = options();
    o.clock = std::make_shared<ferrow::RealClock>();
    startService(o);
    CLIClient c = connect();
    ASSERT_EQ(c.send(R"({"command":"status"})"), ClientStatus::ok);
    while (service->connectionCount() == 0)
        std::this_thread::yield();
    service->stop();  // returns: the waiting command is given up
    std::string reply;
    auto status = c.receive(reply, kGuard);
    if (status == ClientStatus::ok) {
        EXPECT_EQ(json::parse(reply)["error"], "agent is quitting");
    }
    EXPECT_FALSE(fs::exists(socketPath));
}

}  // namespace
}  // namespace zelk::command
