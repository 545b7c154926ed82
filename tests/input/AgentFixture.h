#pragma once
#include "Agent.h"
#include "input/AppDelegate.h"
#include "input/InputManager.h"
#include "input/KeyRouter.h"
#include "platform/sim/SimFixture.h"
#include "support/Log.h"

namespace zelk::testing {

// The whole program started on a simulated desktop, driven by hand.
struct AgentFixture : SimFixture {
    std::unique_ptr<ferrow::LogCapture> logs;
    std::unique_ptr<agent::Agent> agent;
    // The features routes may lead to, as the agent will have them when it starts (none by default,
    // as in the program today).
    BuiltFeatures built;

    void start(const std::string& world, const nlohmann::json& settings = nlohmann::json::object()) {
        ferrow::Log::setConsole(false);
        load(world);
        for (auto& [k, v] : settings.items())
            desktop.settings().write(k, v);
        logs = std::make_unique<ferrow::LogCapture>();
        agent = std::make_unique<agent::Agent>();
        agent->router().services().built = built;
        agent->start();
        runFor(0);
    }
    void TearDown() override {
        agent.reset();
        logs.reset();
        SimFixture::TearDown();
    }
    InputManager& input() { return InputManager::shared(); }
    void hold(std::vector<std::string> names) { desktop.eventTap().setHeldModifiers(names); }
    void press(Key k, bool repeat = false) {
        desktop.eventTap().key(k, true, repeat);
        desktop.eventTap().key(k, false, false);
    }
};

inline const char* kBasicWorld = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}], currentSpace: 1}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running: {pid: 101, windows: [{id: 1001, title: "Apple", space: 1}]}
  - bundleID: com.apple.mail
    name: Mail
    running: {pid: 102, windows: [{id: 1011, title: "Inbox", space: 1}]}
  - bundleID: com.apple.Terminal
    name: Terminal
    running: {pid: 103, windows: [{id: 1021, title: "zsh", space: 2}]}
frontmost: com.apple.Safari
focusedWindow: 1001
)";

}  // namespace zelk::testing
