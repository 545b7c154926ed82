#pragma once
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>

#include "support/MainQueue.h"

namespace zelk {

// The health watch of the event tap: re-enables a tap the system disabled, and tracks Secure Keyboard
// Entry (which blinds the tap) with its log lines and a one-time warning per holding process.
class TapHealth {
  public:
    // `warnOnSecureInput` is read at each tick.
    explicit TapHealth(std::function<bool()> warnOnSecureInput);
    ~TapHealth();
    // Starts the timer once: first tick 2.0 s from now, then every 500 ms. It outlives tap restarts.
    void start();
    void tick();
    bool started() const { return started_; }

    // Holder text: "{name} (pid {n})", "pid {n}", or "an unknown process".
    std::string holderDescription() const;
    bool secureInputEngaged() const { return secureInputSince_ > 0; }

  private:
    void schedule(ferrow::Nanos delay);
    std::function<bool()> warnOnSecureInput_;
    bool started_ = false;
    ferrow::WorkItem next_;
    double secureInputSince_ = 0;
    std::optional<std::int32_t> holderPID_;
    std::set<std::int32_t> warnedPIDs_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace zelk
