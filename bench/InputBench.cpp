// Costs on the key path: the tap filter per bare keystroke, one flags change through the trigger
// state machine, and one key down through the whole routing chain.
#include <benchmark/benchmark.h>

#include "Agent.h"
#include "input/InputManager.h"
#include "input/KeyRouter.h"
#include "platform/Platform.h"
#include "platform/sim/WorldFile.h"
#include "support/Log.h"
#include "support/MainQueue.h"

namespace {

struct Program {
    std::shared_ptr<ferrow::VirtualClock> clock = std::make_shared<ferrow::VirtualClock>();
    zelk::sim::SimDesktop desktop;
    std::unique_ptr<zelk::agent::Agent> agent;

    explicit Program(bool capsLockInASet) {
        ferrow::Log::setConsole(false);
        ferrow::MainQueue::install(clock);
        zelk::sim::WorldExtras extras;
        std::string error;
        zelk::sim::loadWorldText(zelk::sim::defaultWorldYaml(), desktop, extras, error);
        if (!capsLockInASet) desktop.settings().write("stageTriggerKeys", nlohmann::json::array());
        zelk::platform::Platform::install(desktop.platform());
        agent = std::make_unique<zelk::agent::Agent>();
        agent->start();
        ferrow::MainQueue::shared().runDue();
    }
    ~Program() {
        agent.reset();
        zelk::platform::Platform::reset();
        ferrow::MainQueue::reset();
    }
};

void BM_TapFilterBareKey(benchmark::State& state) {
    Program program(state.range(0) != 0);
    auto& input = zelk::InputManager::shared();
    zelk::platform::KeyEvent e;
    e.type = zelk::platform::EventType::keyDown;
    e.keyCode = 0;  // "a", no modifiers
    auto hopsBefore = ferrow::MainQueue::shared().syncCount();
    for (auto _ : state)
        benchmark::DoNotOptimize(input.tapCallback(e));
    state.counters["mainThreadHopsPerKey"] =
        benchmark::Counter(static_cast<double>(ferrow::MainQueue::shared().syncCount() - hopsBefore),
                           benchmark::Counter::kAvgIterations);
    state.SetLabel(state.range(0) ? "caps lock in a trigger set" : "caps lock in no set");
}
BENCHMARK(BM_TapFilterBareKey)->Arg(0)->Arg(1);

void BM_HandleFlagsChanged(benchmark::State& state) {
    Program program(true);
    auto& input = zelk::InputManager::shared();
    const zelk::TriggerList down{zelk::TriggerKey::rightCommand}, up{};
    bool pressed = false;
    for (auto _ : state) {
        input.handleFlagsChanged(pressed ? up : down);
        pressed = !pressed;
    }
}
BENCHMARK(BM_HandleFlagsChanged);

void BM_KeyDownToDecision(benchmark::State& state) {
    Program program(true);
    auto& input = zelk::InputManager::shared();
    program.desktop.eventTap().setHeldModifiers({"rightCommand"});
    zelk::platform::KeyEvent e;
    e.type = zelk::platform::EventType::keyDown;
    e.keyCode = 12;  // q: reaches no app, so the whole chain runs and nothing changes the desktop
    e.flags = zelk::platform::flag::rcmd | zelk::platform::flag::command;
    for (auto _ : state)
        benchmark::DoNotOptimize(input.tapCallback(e));
}
BENCHMARK(BM_KeyDownToDecision);

}  // namespace
