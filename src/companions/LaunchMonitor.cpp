#include "companions/LaunchMonitor.h"

#include <fmt/format.h>

#include <algorithm>

#include "support/Log.h"

namespace zelk::companions {

using ferrow::Log;

std::string pillText(const LaunchPill& pill) {
    switch (pill.phase) {
        case LaunchPill::Phase::launching:
            return "Launching " + pill.name;
        case LaunchPill::Phase::launched:
            return pill.name + " launched";
        case LaunchPill::Phase::quit:
            return pill.name + " has quit";
        case LaunchPill::Phase::slow:
            return pill.name + " is taking a while";
    }
    return pill.name;
}

std::string_view phaseName(LaunchPill::Phase phase) {
    switch (phase) {
        case LaunchPill::Phase::launching:
            return "launching";
        case LaunchPill::Phase::launched:
            return "launched";
        case LaunchPill::Phase::quit:
            return "quit";
        case LaunchPill::Phase::slow:
            return "slow";
    }
    return "";
}

Rect launchPillsFrame(const Rect& visibleFrame, std::size_t rows) {
    using G = LaunchPillsGeometry;
    const double n = static_cast<double>(rows);
    const double height = n * G::kRowHeight + (rows > 0 ? (n - 1) * G::kRowGap : 0);
    return {visibleFrame.maxX() - G::kInsetX - G::kWidth, visibleFrame.y + G::kInsetY, G::kWidth, height};
}

LaunchMonitor::LaunchMonitor(platform::Workspace* workspace, platform::Screens* screens)
    : workspace_(workspace), screens_(screens) {
    if (!workspace_) return;
    workspaceSub_ = workspace_->observe([this](const platform::WorkspaceEvent& e) {
        if (!e.app) return;
        if (e.kind == platform::WorkspaceEventKind::didLaunch) didLaunch(e.app->bundleID);
        if (e.kind == platform::WorkspaceEventKind::didTerminate) didTerminate(e.app->bundleID);
    });
}

LaunchMonitor::~LaunchMonitor() {
    workspaceSub_.cancel();
    for (auto& [id, t] : tracking_) {
        t.grace.cancel();
        t.deadline.cancel();
        t.fade.cancel();
    }
}

LaunchMonitor::Tracking* LaunchMonitor::find(const std::string& bundleID) {
    auto it = tracking_.find(bundleID);
    return it == tracking_.end() ? nullptr : &it->second;
}

void LaunchMonitor::track(const apps::LaunchableApp& app) {
    const std::string& bundle = app.bundleIdentifier();
    Log::info("LaunchMonitor: tracking launch of {} [{}]", app.name(), bundle);
    // A second launch of the same app keeps the first entry and its timers.
    if (bundle.empty() || tracking_.count(bundle)) return;
    Tracking& t = tracking_[bundle];
    t.name = app.name();
    t.image = app.path();
    t.grace = ferrow::mainAsyncAfter(kGraceMs, [this, bundle] { graceFired(bundle); });
    t.deadline = ferrow::mainAsyncAfter(kDeadlineMs, [this, bundle] { deadlineFired(bundle); });
}

bool LaunchMonitor::isRunning(const std::string& bundleID) const {
    if (!workspace_) return false;
    auto running = workspace_->runningApplications();
    return std::any_of(running.begin(), running.end(), [&](const platform::RunningApp& a) {
        return a.bundleID == bundleID && !a.terminated && a.finishedLaunching;
    });
}

void LaunchMonitor::graceFired(const std::string& bundleID) {
    Tracking* t = find(bundleID);
    if (!t || t->appeared) return;
    // The launch notification may be late or lost: an app already running counts as launched.
    if (isRunning(bundleID)) {
        didLaunch(bundleID);
        return;
    }
    setPill(bundleID, LaunchPill::Phase::launching);
}

void LaunchMonitor::deadlineFired(const std::string& bundleID) {
    Tracking* t = find(bundleID);
    if (!t) return;
    if (!t->appeared) {
        setPill(bundleID, LaunchPill::Phase::slow);
        removeAfter(bundleID, kSlowStaysMs);
    } else if (!t->shown) {
        remove(bundleID);
    }
    // Appeared and shown: the launched pill's own timer ends the entry.
}

void LaunchMonitor::didLaunch(const std::string& bundleID) {
    Tracking* t = find(bundleID);
    if (!t) return;
    t->appeared = true;
    t->grace.cancel();
    if (t->shown) {
        setPill(bundleID, LaunchPill::Phase::launched);
        removeAfter(bundleID, kLaunchedStaysMs);
    }
}

void LaunchMonitor::didTerminate(const std::string& bundleID) {
    Tracking* t = find(bundleID);
    if (!t || !t->appeared) return;
    setPill(bundleID, LaunchPill::Phase::quit);
    removeAfter(bundleID, kQuitStaysMs);
}

void LaunchMonitor::removeAfter(const std::string& bundleID, std::int64_t ms) {
    Tracking* t = find(bundleID);
    if (!t) return;
    // The latest phase's delay counts.
    t->fade.cancel();
    t->fade = ferrow::mainAsyncAfter(ms, [this, bundleID] { remove(bundleID); });
}

void LaunchMonitor::setPill(const std::string& bundleID, LaunchPill::Phase phase) {
    Tracking* t = find(bundleID);
    if (!t) return;
    t->shown = true;
    auto pills = model_.get().pills;
    auto it = std::find_if(pills.begin(), pills.end(), [&](const LaunchPill& p) { return p.id == bundleID; });
    if (it != pills.end())
        it->phase = phase;
    else
        pills.push_back({bundleID, t->name, t->image, phase});
    Log::info("LaunchMonitor: {} [{}]", pillText({bundleID, t->name, t->image, phase}), bundleID);
    updateOSD(std::move(pills));
}

void LaunchMonitor::remove(const std::string& bundleID) {
    Tracking* t = find(bundleID);
    if (!t) return;
    t->grace.cancel();
    t->deadline.cancel();
    t->fade.cancel();
    tracking_.erase(bundleID);
    auto pills = model_.get().pills;
    std::erase_if(pills, [&](const LaunchPill& p) { return p.id == bundleID; });
    updateOSD(std::move(pills));
}

void LaunchMonitor::updateOSD(std::vector<LaunchPill> pills) {
    LaunchPillsModel next;
    next.visible = !pills.empty();
    if (next.visible) {
        // On the main screen, where the user is looking; the first screen when none is known.
        Rect area{0, 0, 1440, 900};
        if (screens_) {
            if (auto main = screens_->mainScreen())
                area = main->visibleFrame;
            else if (auto all = screens_->screens(); !all.empty())
                area = all.front().visibleFrame;
        }
        next.frame = launchPillsFrame(area, pills.size());
    }
    if (next.visible != model_.get().visible)
        Log::debug("LaunchMonitor: surface {}", next.visible ? "shown" : "hidden");
    next.pills = std::move(pills);
    model_.set(std::move(next));
}

}  // namespace zelk::companions
