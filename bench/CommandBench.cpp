// The command socket: a status round trip from a client in another process, and many requests from
// concurrent clients with nothing lost or reordered.
#include <benchmark/benchmark.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include "command/BuiltinCommands.h"
#include "command/CLIClient.h"
#include "command/CLIService.h"
#include "platform/Platform.h"
#include "platform/sim/SimDesktop.h"
#include "platform/sim/WorldFile.h"
#include "support/Log.h"
#include "support/MainQueue.h"

namespace {

using namespace zelk::command;

// An agent in a child process: the default desktop, a real main queue, the service.
struct AgentProcess {
    pid_t pid = -1;
    std::string path;

    AgentProcess() {
        path = "/tmp/zelk-bench-" + std::to_string(::getpid()) + ".sock";
        pid = ::fork();
        if (pid == 0) serve();
        // Wait until it answers.
        for (int i = 0; i < 5000; ++i) {
            CLIClient c;
            if (c.connect(path) == ClientStatus::ok) return;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    ~AgentProcess() {
        if (pid > 0) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
        }
        ::unlink(path.c_str());
    }

    [[noreturn]] void serve() {
        ferrow::Log::setConsole(false);
        auto& queue = ferrow::MainQueue::install(std::make_shared<ferrow::RealClock>());
        zelk::sim::SimDesktop desktop;
        zelk::sim::WorldExtras extras;
        std::string error;
        if (!zelk::sim::loadWorldText(zelk::sim::defaultWorldYaml(), desktop, extras, error)) std::_Exit(2);
        zelk::platform::Platform::install(desktop.platform());
        CommandDispatcher dispatcher;
        registerBuiltinCommands(dispatcher, platformStatusProviders());
        CLIServiceOptions options;
        options.location = SocketLocation{path, false};
        CLIService service(dispatcher, options);
        if (!service.start()) std::_Exit(2);
        queue.run();
        std::_Exit(0);
    }

    static AgentProcess& shared() {
        static AgentProcess agent;
        return agent;
    }
};

void BM_StatusRoundTripFromAnotherProcess(benchmark::State& state) {
    auto& agent = AgentProcess::shared();
    CLIClient client;
    if (client.connect(agent.path) != ClientStatus::ok) {
        state.SkipWithError("no agent");
        return;
    }
    std::string reply;
    for (auto _ : state) {
        if (client.request(R"({"command":"status"})", reply) != ClientStatus::ok ||
            reply.find("\"ok\":true") == std::string::npos) {
            state.SkipWithError("status failed");
            break;
        }
    }
}
BENCHMARK(BM_StatusRoundTripFromAnotherProcess)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime()
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

// 10,000 requests from 4 clients at once, each sending in bursts before reading. Every reply must
// answer its own request: the surfaces vary, so a lost or swapped reply shows.
void BM_TenThousandRequestsFromFourClients(benchmark::State& state) {
    auto& agent = AgentProcess::shared();
    constexpr int kClients = 4, kPerClient = 2500, kBurst = 50;
    static const char* kSurfaces[] = {"app", "window", "hide"};
    std::atomic<long> wrong{0}, lost{0};
    for (auto _ : state) {
        std::vector<std::thread> clients;
        for (int c = 0; c < kClients; ++c)
            clients.emplace_back([&, c] {
                CLIClient client;
                if (client.connect(agent.path) != ClientStatus::ok) {
                    lost += kPerClient;
                    return;
                }
                std::string reply;
                for (int start = 0; start < kPerClient; start += kBurst) {
                    for (int i = start; i < start + kBurst; ++i) {
                        std::string request = std::string(R"({"command":"osd","surface":")") +
                                              kSurfaces[(i * 7 + c) % 3] + "\"}";
                        if (client.send(request) != ClientStatus::ok) ++lost;
                    }
                    for (int i = start; i < start + kBurst; ++i) {
                        if (client.receive(reply) != ClientStatus::ok) {
                            ++lost;
                            continue;
                        }
                        std::string expected =
                            std::string("\"message\":\"osd ") + kSurfaces[(i * 7 + c) % 3] + "\"";
                        if (reply.find(expected) == std::string::npos) ++wrong;
                    }
                }
            });
        for (auto& t : clients)
            t.join();
    }
    state.counters["lost"] = static_cast<double>(lost.load());
    state.counters["wrongOrder"] = static_cast<double>(wrong.load());
    state.counters["requests/s"] = benchmark::Counter(
        static_cast<double>(kClients * kPerClient) * state.iterations(), benchmark::Counter::kIsRate);
    if (lost || wrong) state.SkipWithError("replies lost or out of order");
}
BENCHMARK(BM_TenThousandRequestsFromFourClients)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace
