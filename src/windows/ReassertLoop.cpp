#include "windows/ReassertLoop.h"

#include "support/Log.h"

namespace zelk::windows {

using ferrow::Log;

void ReassertLoop::start(std::int32_t pid, std::uint32_t windowID, std::optional<std::uint64_t> targetSpace) {
    cancel();
    state_ = State{pid, windowID, targetSpace, 0, 0, false, ++generation_};
    next_ = ferrow::MainQueue::shared().asyncAfter(0, [this] { tick(); });
}

void ReassertLoop::cancel() {
    next_.cancel();
    next_ = {};
}

bool ReassertLoop::raise(std::int32_t pid, std::uint32_t windowID, bool setMain, platform::AXError* error) {
    if (!workspace_.runningApp(pid)) return false;
    platform::AXRef app = ax_.application(pid);
    platform::AXError e = platform::AXError::success;
    auto windows = ax_.windows(app, e);
    if (!windows) {
        if (error) *error = e;
        return false;
    }
    for (auto w : *windows) {
        if (ax_.ax().windowNumber(w) != windowID) continue;
        ax_.ax().setMessagingTimeout(w, AXReader::kMessagingTimeout);
        platform::AXError result = platform::AXError::success;
        if (setMain) result = ax_.ax().setAttribute(w, "AXMain", true);
        platform::AXError raised = ax_.ax().performAction(w, "AXRaise");
        if (error) *error = result != platform::AXError::success ? result : raised;
        return true;
    }
    if (error) *error = platform::AXError::invalidUIElement;
    return false;
}

void ReassertLoop::tick() {
    State& s = state_;
    route_.run(s.pid, s.windowID);
    std::uint64_t active = server_.activeSpace();
    auto front = workspace_.frontmostApplication();
    std::int32_t frontPid = front ? front->pid : 0;
    if (!s.target || active == *s.target) {
        if (!s.sawSwitch) {
            s.sawSwitch = true;
            platform::AXError err = platform::AXError::success;
            if (workspace_.runningApp(s.pid)) {
                raise(s.pid, s.windowID, true, &err);
                Log::debug("focus: cross-space reassert AXMain rebind wid={} err={}", s.windowID,
                           static_cast<int>(err));
            }
        }
    }
    s.wins = s.sawSwitch && frontPid == s.pid ? s.wins + 1 : 0;
    Log::debug(
        "focus: cross-space reassert tick={} activeSpace={} target={} frontmost={} wantPid={} sawSwitch={} "
        "wins={}",
        s.tick, active, s.target ? std::to_string(*s.target) : "nil", frontPid, s.pid, s.sawSwitch, s.wins);
    if (s.wins >= kWinsToLock) {
        finalise(fmt::format("locked in after {}ms", (s.tick + 1) * 50));
        return;
    }
    if (s.tick == kMaxTicks - 1) {
        finalise(fmt::format("exhausted 1000ms (sawSwitch={}, lastWins={})", s.sawSwitch, s.wins));
        return;
    }
    ++s.tick;
    std::uint64_t generation = s.generation;
    next_ = ferrow::MainQueue::shared().asyncAfter(kTick, [this, generation] {
        if (state_.generation == generation) tick();
    });
}

void ReassertLoop::finalise(const std::string& reason) {
    next_ = {};
    lastReason_ = reason;
    route_.run(state_.pid, state_.windowID);
    if (!workspace_.runningApp(state_.pid)) return;
    std::string title;
    if (auto w = server_.windowTitle(state_.windowID)) title = *w;
    Log::info("focus: cross-space finalize ({}) wid={} title='{}'", reason, state_.windowID, title);
    if (raise(state_.pid, state_.windowID, false, nullptr))
        Log::debug("focus: cross-space finalize AX raise OK for wid={}", state_.windowID);
}

}  // namespace zelk::windows
