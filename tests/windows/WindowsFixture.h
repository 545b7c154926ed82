#pragma once
#include <memory>

#include "../platform/sim/SimFixture.h"
#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "support/Log.h"
#include "windows/WindowManager.h"

namespace zelk::testing {

// Three Spaces on one display; Safari has a window here and one on Space 2, Mail one here, Notes one
// on Space 3, and Tasks (last in order) one here.
inline const char* kThreeSpaces = R"(
displays:
  - id: 1
    frame: [0, 0, 1440, 900]
    spaces: [{id: 1}, {id: 2}, {id: 3}]
    currentSpace: 1
apps:
  - bundleID: a.safari
    name: Safari
    running:
      pid: 101
      windows:
        - {id: 11, title: "Front page", frame: [0, 25, 1000, 700], space: 1}
        - {id: 12, title: "Docs", frame: [0, 25, 1000, 700], space: 2}
  - bundleID: a.mail
    name: Mail
    running:
      pid: 102
      windows:
        - {id: 21, title: "Inbox", frame: [100, 100, 900, 600], space: 1}
  - bundleID: a.notes
    name: Notes
    running:
      pid: 103
      windows:
        - {id: 31, title: "Shopping", frame: [100, 100, 800, 600], space: 3}
  - bundleID: a.tasks
    name: Tasks
    running:
      pid: 104
      windows:
        - {id: 41, title: "Today", frame: [200, 200, 600, 500], space: 1}
frontmost: a.safari
focusedWindow: 11
)";

// The window manager and the Space switcher on a fresh simulated desktop and virtual clock.
struct WindowsFixture : SimFixture {
    std::unique_ptr<ferrow::LogCapture> logs;
    std::unique_ptr<spaces::ISSManager> iss;
    std::unique_ptr<windows::WindowManager> wm;
    bool triggerHeld = false;
    std::vector<sim::WorldChange> changes;
    ferrow::Subscription changeSub;

    void SetUp() override {
        ferrow::Log::setConsole(false);
        Settings::reset();
        logs = std::make_unique<ferrow::LogCapture>();
    }
    void TearDown() override {
        wm.reset();
        iss.reset();
        changeSub.cancel();
        logs.reset();
        Settings::reset();
        SimFixture::TearDown();
    }
    // Loads the world and starts the manager (its first refresh included).
    void startWith(const std::string& yaml, bool start = true) {
        load(yaml);
        changeSub = world().changes.subscribe([this](const sim::WorldChange& c) { changes.push_back(c); });
        auto p = desktop.platform();
        iss = std::make_unique<spaces::ISSManager>(*p.windowServer, p.screens, p.pointer);
        auto env = windows::WindowEnvironment::fromPlatform(p);
        env.triggerHeld = [this] { return triggerHeld; };
        wm = std::make_unique<windows::WindowManager>(env, *iss);
        if (start) wm->start();
    }
    std::vector<std::uint32_t> ids() const {
        std::vector<std::uint32_t> out;
        for (auto& w : wm->windows())
            out.push_back(w.id);
        return out;
    }
    std::optional<windows::ManagedWindow> tracked(std::uint32_t id) { return wm->tracker().window(id); }
    std::size_t logCount(std::string_view part) const {
        std::size_t n = 0;
        for (auto& l : logs->lines())
            if (l.message.find(part) != std::string::npos) ++n;
        return n;
    }
    // Index of the first world change matching, or -1.
    long changeIndex(std::function<bool(const sim::WorldChange&)> match) const {
        for (std::size_t i = 0; i < changes.size(); ++i)
            if (match(changes[i])) return static_cast<long>(i);
        return -1;
    }
};

}  // namespace zelk::testing
