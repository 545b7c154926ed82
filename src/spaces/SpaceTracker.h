#pragma once
#include <functional>
#include <optional>

#include "platform/Accessibility.h"
#include "platform/WindowServer.h"
#include "platform/Workspace.h"
#include "support/MainQueue.h"
#include "support/Observable.h"

namespace zelk::spaces {

// A Space-crossing focus in flight: where it goes, where it came from, when it started.
struct PendingCrossSpaceFocus {
    std::uint64_t spaceID = 0;
    std::uint64_t originSpace = 0;
    ferrow::Nanos at = 0;
};

// The state before the last observed change, so that Mission Control can roll it back.
struct SpaceChangeRecord {
    std::uint64_t priorCurrent = 0;
    std::optional<std::uint64_t> priorPrevious;
    ferrow::Nanos at = 0;
};

// One observed change of the active Space. `intermediate`: a Space passed through on the way to the
// target of a cross-Space focus, which leaves `previousSpaceID` alone.
struct ActiveSpaceChange {
    std::uint64_t from = 0;
    std::uint64_t to = 0;
    std::optional<std::uint64_t> previous;
    bool intermediate = false;
};

// Which Space this program treats as active and where the user came from, kept still while Mission
// Control shows and reconciled when it ends.
class SpaceTracker {
  public:
    static constexpr ferrow::Nanos kCrossSpaceGuard = 2 * ferrow::kNanosPerSecond;
    static constexpr ferrow::Nanos kSettle = 600 * ferrow::kNanosPerMs;
    static constexpr ferrow::Nanos kTransientWindow = 300 * ferrow::kNanosPerMs;
    static constexpr ferrow::Nanos kReresolveAfterLanding = 500 * ferrow::kNanosPerMs;

    explicit SpaceTracker(platform::WindowServer& server);
    ~SpaceTracker();

    void activeSpaceDidChange();
    void missionControlChanged(bool exit);
    // Observes the Dock's overlay notifications; again whenever the Dock relaunches.
    void attachMissionControlObserver(platform::Accessibility& ax, platform::Workspace& workspace);

    std::uint64_t currentSpaceID() const { return currentSpaceID_; }
    std::optional<std::uint64_t> previousSpaceID() const { return previousSpaceID_; }
    const std::optional<SpaceChangeRecord>& lastSpaceChange() const { return lastSpaceChange_; }
    bool missionControlActive() const { return missionControlActive_; }
    std::optional<PendingCrossSpaceFocus>& pendingCrossSpaceFocus() { return pending_; }

    // Focus resolution after a landing or the settle (the focus pipeline's `updateFocusedWindow`).
    std::function<void()> resolveFocus;
    // Schedules the focus re-resolve after a cross-Space focus landed.
    std::function<void(ferrow::Nanos delay)> scheduleReresolve;
    // Drops whatever caches the Space list.
    std::function<void()> dropSpaceCache;
    ferrow::Signal<ActiveSpaceChange> activeSpaceChanged;

  private:
    void detachObserver();
    platform::WindowServer& server_;
    std::uint64_t currentSpaceID_ = 0;
    std::optional<std::uint64_t> previousSpaceID_;
    std::optional<SpaceChangeRecord> lastSpaceChange_;
    std::optional<PendingCrossSpaceFocus> pending_;
    bool missionControlActive_ = false;
    std::optional<std::uint64_t> preMCSpaceID_, preMCPreviousSpaceID_;
    bool haveSnapshot_ = false;
    ferrow::WorkItem settle_;
    platform::Accessibility* observerAX_ = nullptr;
    std::uint64_t dockObserver_ = 0;
};

}  // namespace zelk::spaces
