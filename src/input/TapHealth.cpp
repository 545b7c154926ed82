#include "input/TapHealth.h"

#include <fmt/format.h>

#include <cmath>

#include "platform/Platform.h"
#include "support/Format.h"
#include "support/Log.h"

namespace zelk {

namespace {
constexpr ferrow::Nanos kFirstTick = ferrow::seconds(2.0);
constexpr ferrow::Nanos kInterval = ferrow::ms(500);
constexpr double kWarnAfterSeconds = 10.0;

double uptime() {
    return ferrow::toSeconds(ferrow::MainQueue::shared().now());
}
}  // namespace

TapHealth::TapHealth(std::function<bool()> warn) : warnOnSecureInput_(std::move(warn)) {}
TapHealth::~TapHealth() {
    next_.cancel();
}

void TapHealth::start() {
    if (started_) return;
    started_ = true;
    schedule(kFirstTick);
}

void TapHealth::schedule(ferrow::Nanos delay) {
    std::weak_ptr<bool> alive = alive_;
    next_ = ferrow::MainQueue::shared().asyncAfter(delay, [this, alive] {
        if (!alive.lock()) return;
        tick();
        schedule(kInterval);
    });
}

std::string TapHealth::holderDescription() const {
    if (!holderPID_) return "an unknown process";
    auto& p = platform::Platform::current();
    if (p.workspace)
        if (auto app = p.workspace->runningApp(*holderPID_); app && !app->name.empty())
            return fmt::format("{} (pid {})", app->name, *holderPID_);
    return fmt::format("pid {}", *holderPID_);
}

void TapHealth::tick() {
    auto& p = platform::Platform::current();
    if (!p.accessibility || !p.eventTap || !p.accessibility->isProcessTrusted()) return;
    auto& tap = *p.eventTap;
    bool secure = tap.secureEventInputEnabled();
    if (tap.tapExists() && !tap.isTapEnabled()) {
        tap.enableTap(true);
        if (!secure) ferrow::Log::info("tap health: key tap was disabled by the system, re-enabled");
    }
    if (secure && secureInputSince_ == 0) {
        secureInputSince_ = uptime();
        holderPID_ = tap.secureInputPID();
        ferrow::Log::info(
            "tap health: macOS Secure Keyboard Entry engaged by {}; key taps are blind until it is released",
            holderDescription());
    } else if (!secure && secureInputSince_ > 0) {
        double held = uptime() - secureInputSince_;
        ferrow::Log::info(
            "tap health: Secure Keyboard Entry released after {}s, key taps can see events again",
            ferrow::decimal(std::round(held * 10) / 10));
        secureInputSince_ = 0;
        holderPID_.reset();
        return;
    }
    if (!secure || uptime() - secureInputSince_ < kWarnAfterSeconds) return;
    std::int32_t pid = holderPID_.value_or(0);
    if (warnedPIDs_.count(pid)) return;
    if (!warnOnSecureInput_() || tap.screenLocked()) return;
    warnedPIDs_.insert(pid);
    std::string name = "Another app";
    if (holderPID_ && p.workspace)
        if (auto app = p.workspace->runningApp(*holderPID_); app && !app->name.empty()) name = app->name;
    std::string body =
        name +
        " turned on Secure Keyboard Entry, hiding key presses from zelk. Close its password field or "
        "turn its secure input off.";
    // The notification hops to the main thread; here the tick already runs there.
    if (p.notifications)
        p.notifications->postUserNotification("secureInputBlocksTap", "zelk can't receive key events", body);
}

}  // namespace zelk
