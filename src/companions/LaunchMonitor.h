#pragma once
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/LaunchableApp.h"
#include "platform/Geometry.h"
#include "platform/Screens.h"
#include "platform/Workspace.h"
#include "support/MainQueue.h"
#include "support/Observable.h"

namespace zelk::companions {

// One row of the launch surface: an app whose launch is taking noticeably long, and how it stands.
struct LaunchPill {
    enum class Phase { launching = 0, launched = 1, quit = 2, slow = 3 };
    std::string id;  // the bundle identifier
    std::string name;
    std::string image;  // where the app's icon comes from (its bundle)
    Phase phase = Phase::launching;
    bool operator==(const LaunchPill&) const = default;
};

// "Launching Mail", "Mail launched", "Mail has quit", "Mail is taking a while".
std::string pillText(const LaunchPill& pill);
std::string_view phaseName(LaunchPill::Phase phase);

// What the floating launch surface shows: the pills in order of first appearance, where it stands.
struct LaunchPillsModel {
    bool visible = false;
    Rect frame;  // global points, on the main screen
    std::vector<LaunchPill> pills;
    bool operator==(const LaunchPillsModel&) const = default;
};

// The surface's size and place: rows stacked from the top-right corner of the main screen's visible
// frame, inset from its top and right edges.
struct LaunchPillsGeometry {
    static constexpr double kInsetX = 12;
    static constexpr double kInsetY = 14;
    static constexpr double kWidth = 280;
    static constexpr double kRowHeight = 30;
    static constexpr double kRowGap = 6;
};
Rect launchPillsFrame(const Rect& visibleFrame, std::size_t rows);

// Follows each launch this program started and, only when it takes noticeably long, shows a pill with
// the app's name and state. A launch that completes inside the grace period shows nothing. Main
// thread only; every timer is a cancellable work item on the main queue.
class LaunchMonitor {
  public:
    static constexpr std::int64_t kGraceMs = 1500;
    static constexpr std::int64_t kDeadlineMs = 5000;
    static constexpr std::int64_t kLaunchedStaysMs = 1200;
    static constexpr std::int64_t kQuitStaysMs = 2200;
    static constexpr std::int64_t kSlowStaysMs = 2500;

    // Observes the workspace's launch and termination notifications from creation on.
    LaunchMonitor(platform::Workspace* workspace, platform::Screens* screens);
    ~LaunchMonitor();
    LaunchMonitor(const LaunchMonitor&) = delete;
    LaunchMonitor& operator=(const LaunchMonitor&) = delete;

    // Called just before the system is asked to open the app.
    void track(const apps::LaunchableApp& app);

    const std::vector<LaunchPill>& pills() const { return model_.get().pills; }
    bool osdVisible() const { return model_.get().visible; }
    bool isTracking(const std::string& bundleID) const { return tracking_.count(bundleID) > 0; }
    // The surface as it should be drawn; changes after every step that touches it.
    const ferrow::Observable<LaunchPillsModel>& model() const { return model_; }
    ferrow::Observable<LaunchPillsModel>& model() { return model_; }

  private:
    struct Tracking {
        std::string name, image;
        bool appeared = false;
        bool shown = false;
        ferrow::WorkItem grace, deadline, fade;
    };

    Tracking* find(const std::string& bundleID);
    void graceFired(const std::string& bundleID);
    void deadlineFired(const std::string& bundleID);
    void didLaunch(const std::string& bundleID);
    void didTerminate(const std::string& bundleID);
    bool isRunning(const std::string& bundleID) const;
    void removeAfter(const std::string& bundleID, std::int64_t ms);
    void setPill(const std::string& bundleID, LaunchPill::Phase phase);
    void remove(const std::string& bundleID);
    void updateOSD(std::vector<LaunchPill> pills);

    platform::Workspace* workspace_;
    platform::Screens* screens_;
    std::map<std::string, Tracking> tracking_;
    ferrow::Observable<LaunchPillsModel> model_;
    ferrow::Subscription workspaceSub_;
};

}  // namespace zelk::companions
