#pragma once
#include <map>
#include <memory>

#include "platform/PanelEvents.h"
#include "platform/Platform.h"
#include "platform/sim/SimAccessibility.h"
#include "platform/sim/SimEventTap.h"
#include "platform/sim/SimMissionControl.h"
#include "platform/sim/SimWindowServer.h"
#include "platform/sim/SimWorkspace.h"
#include "platform/sim/SimWorld.h"

namespace zelk::sim {

class SimScreens final : public platform::Screens {
  public:
    explicit SimScreens(SimWorld& world) : world_(world) {}
    std::vector<platform::Screen> screens() override;
    // The screen that holds the focused window (else the first).
    std::optional<platform::Screen> mainScreen() override;

  private:
    SimWorld& world_;
};

class SimPointer final : public platform::Pointer, public platform::PanelEventSource {
  public:
    explicit SimPointer(SimWorld& world) : world_(world) {}
    Point location() override { return world_.pointer(); }
    void warp(Point to) override { world_.warpPointer(to); }
    std::uint32_t pressedButtons() override { return buttons; }
    bool setMouseDownMonitor(std::function<void(Point at)> callback) override {
        mouseDownMonitor_ = std::move(callback);
        return true;
    }
    // A click at a point: the pointer moves there and the monitor, if any, hears the button go down.
    void click(Point at) {
        world_.warpPointer(at);
        if (mouseDownMonitor_) mouseDownMonitor_(at);
    }
    void setPanelEventHandler(std::function<void(const platform::PanelEvent&)> callback) override {
        panelHandler_ = std::move(callback);
    }
    bool panelsUp() const { return static_cast<bool>(panelHandler_); }
    // An event of the mouse or the trackpad: the pointer moves to it and, while this program's
    // full-screen panels are up, they receive it. False when no panel is up.
    bool panelEvent(const platform::PanelEvent& event) {
        world_.warpPointer(event.at);
        if (!panelHandler_) return false;
        auto handler = panelHandler_;  // the receiver may remove itself
        handler(event);
        return true;
    }
    std::uint32_t buttons = 0;

  private:
    SimWorld& world_;
    std::function<void(Point at)> mouseDownMonitor_;
    std::function<void(const platform::PanelEvent&)> panelHandler_;
};

// User notifications show on the simulated desktop (and in the trace); distributed notifications
// travel between observers of this process, delivered on the main queue.
class SimNotifications final : public platform::Notifications {
  public:
    explicit SimNotifications(SimWorld& world) : world_(world) {}
    void postUserNotification(const std::string& identifier, const std::string& title,
                              const std::string& body) override;
    void postDistributed(const std::string& name, const platform::UserInfo& userInfo) override;
    ferrow::Subscription observeDistributed(const std::string& name,
                                            std::function<void(const platform::UserInfo&)> callback) override;

  private:
    SimWorld& world_;
    std::map<std::string, std::shared_ptr<ferrow::Signal<platform::UserInfo>>> channels_;
};

// Child processes on the simulated desktop: "/usr/bin/open -a PATH" launches, everything else is
// recorded and answers as a program that isn't there.
class SimProcesses final : public platform::Processes {
  public:
    explicit SimProcesses(SimWorld& world) : world_(world) {}
    platform::ProcessResult run(const platform::ProcessRequest& request) override;
    std::optional<std::string> runScript(const std::string& source, std::string* error) override;
    std::vector<platform::ProcessRequest> requests;
    // Scripts answered by their exact text; any other script fails. Every run is kept in `scripts`.
    std::map<std::string, std::string> scriptAnswers;
    std::vector<std::string> scripts;

  private:
    SimWorld& world_;
};

// The whole simulated desktop: one world behind every platform interface.
class SimDesktop {
  public:
    SimDesktop();
    SimWorld& world() { return world_; }
    SimAccessibility& accessibility() { return accessibility_; }
    SimWindowServer& windowServer() { return windowServer_; }
    SimWorkspace& workspace() { return workspace_; }
    SimEventTap& eventTap() { return eventTap_; }
    SimPointer& pointer() { return pointer_; }
    SimNotifications& notifications() { return notifications_; }
    SimProcesses& processes() { return processes_; }
    SimMissionControl& missionControl() { return missionControl_; }
    platform::MemorySettingsStore& settings() { return settings_; }
    // The interfaces, with the settings store given (default: the in-memory one).
    platform::Platform platform(platform::SettingsStore* settings = nullptr);

  private:
    SimWorld world_;
    SimAccessibility accessibility_{world_};
    SimWindowServer windowServer_{world_};
    SimWorkspace workspace_{world_};
    SimEventTap eventTap_{world_};
    SimScreens screens_{world_};
    SimPointer pointer_{world_};
    SimNotifications notifications_{world_};
    SimProcesses processes_{world_};
    SimMissionControl missionControl_{world_, windowServer_, accessibility_};
    platform::MemorySettingsStore settings_;
};

}  // namespace zelk::sim
