#include "spaces/SpaceTracker.h"

#include "support/Format.h"
#include "support/Log.h"

namespace zelk::spaces {

using ferrow::Log;

namespace {
std::string spaceText(std::optional<std::uint64_t> s) {
    return s ? std::to_string(*s) : std::string("nil");
}
}  // namespace

SpaceTracker::SpaceTracker(platform::WindowServer& server) : server_(server) {
    currentSpaceID_ = server_.activeSpace();
}

SpaceTracker::~SpaceTracker() {
    settle_.cancel();
    detachObserver();
}

void SpaceTracker::activeSpaceDidChange() {
    std::uint64_t live = server_.activeSpace();
    if (live == currentSpaceID_) return;
    if (dropSpaceCache) dropSpaceCache();
    ferrow::Nanos now = ferrow::now();
    if (!pending_) lastSpaceChange_ = SpaceChangeRecord{currentSpaceID_, previousSpaceID_, now};
    if (missionControlActive_) {
        Log::debug("activeSpaceDidChange: skipped, Mission Control active (live={})", live);
        return;
    }
    ActiveSpaceChange change{currentSpaceID_, live, previousSpaceID_, false};
    if (!pending_) {
        previousSpaceID_ = currentSpaceID_;
    } else if (live == pending_->spaceID || now - pending_->at >= kCrossSpaceGuard) {
        if (pending_->originSpace != live) previousSpaceID_ = pending_->originSpace;
        pending_.reset();
        if (scheduleReresolve) scheduleReresolve(kReresolveAfterLanding);
    } else {
        change.intermediate = true;  // a Space on the way of a multi-step swipe
    }
    currentSpaceID_ = live;
    change.previous = previousSpaceID_;
    Log::info("activeSpaceDidChange: {} → {} previous={}{}", change.from, change.to,
              spaceText(previousSpaceID_), change.intermediate ? " (intermediate)" : "");
    activeSpaceChanged.emit(change);
}

void SpaceTracker::missionControlChanged(bool exit) {
    if (!exit) {
        settle_.cancel();
        if (lastSpaceChange_ && ferrow::now() - lastSpaceChange_->at < kTransientWindow) {
            // Opening the overlay caused that change.
            currentSpaceID_ = lastSpaceChange_->priorCurrent;
            previousSpaceID_ = lastSpaceChange_->priorPrevious;
            Log::info("MC enter: rolled back transient space change → currentSpaceID={}", currentSpaceID_);
        }
        preMCSpaceID_ = currentSpaceID_;
        preMCPreviousSpaceID_ = previousSpaceID_;
        haveSnapshot_ = true;
        lastSpaceChange_.reset();
        missionControlActive_ = true;
        Log::info("MC enter: snapshot currentSpaceID={} previousSpaceID={}", currentSpaceID_,
                  spaceText(previousSpaceID_));
        return;
    }
    std::uint64_t live = server_.activeSpace();
    std::string settle = ferrow::decimal(ferrow::toSeconds(kSettle));
    if (haveSnapshot_ && preMCSpaceID_ && live != *preMCSpaceID_) {
        previousSpaceID_ = preMCSpaceID_;
        currentSpaceID_ = live;
        Log::info("MC exit: Space switched {} → {} (settle {}s)", *preMCSpaceID_, live, settle);
    } else {
        if (haveSnapshot_) {
            currentSpaceID_ = preMCSpaceID_.value_or(live);
            previousSpaceID_ = preMCPreviousSpaceID_;
        }
        Log::info("MC exit: no Space change, restored snapshot currentSpaceID={} (settle {}s)",
                  currentSpaceID_, settle);
    }
    preMCSpaceID_.reset();
    preMCPreviousSpaceID_.reset();
    haveSnapshot_ = false;
    settle_.cancel();
    // The system still reports old states during the closing animation.
    settle_ = ferrow::MainQueue::shared().asyncAfter(kSettle, [this] {
        missionControlActive_ = false;
        settle_ = {};
        Log::info("MC settle: cleared missionControlActive, resolving focused window");
        if (resolveFocus) resolveFocus();
    });
}

void SpaceTracker::detachObserver() {
    if (observerAX_ && dockObserver_) observerAX_->destroyObserver(dockObserver_);
    dockObserver_ = 0;
}

void SpaceTracker::attachMissionControlObserver(platform::Accessibility& ax, platform::Workspace& workspace) {
    std::optional<platform::RunningApp> dock;
    for (auto& app : workspace.runningApplications())
        if (app.bundleID == "com.apple.dock") dock = app;
    if (!dock) {
        Log::error("MC observer: no Dock process found");
        return;
    }
    detachObserver();
    observerAX_ = &ax;
    platform::AXRef element = ax.applicationElement(dock->pid);
    ax.setMessagingTimeout(element, 1.0);
    dockObserver_ = ax.createObserver(dock->pid, [this](platform::AXRef, const std::string& name) {
        Log::debug("MC AX notification: {}", name);
        missionControlChanged(name == "AXExposeExit");
    });
    if (!dockObserver_) {
        Log::error("MC observer: AXObserverCreate(dock pid={}) failed result={}", dock->pid,
                   static_cast<int>(platform::AXError::failure));
        return;
    }
    for (const char* name :
         {"AXExposeShowAllWindows", "AXExposeShowFrontWindows", "AXExposeShowDesktop", "AXExposeExit"}) {
        auto result = ax.addNotification(dockObserver_, element, name);
        Log::debug("MC observer: add '{}' result={}", name, static_cast<int>(result));
    }
    Log::info("MC observer: attached to Dock pid={}", dock->pid);
}

}  // namespace zelk::spaces
