#pragma once
#include <functional>
#include <memory>
#include <string>

#include "support/MainQueue.h"

namespace ferrow {

// Debounce: every call restarts the wait; the action runs once, `interval` after the last call,
// with the latest call's work. Like a timer held in a field, cancelled before it is replaced.
class Debouncer {
  public:
    explicit Debouncer(Nanos interval) : interval_(interval) {}
    ~Debouncer() { cancel(); }
    void call(Work work);
    void cancel() { pending_.cancel(); }
    bool isPending() const { return pending_.isPending(); }

  private:
    Nanos interval_;
    WorkItem pending_;
};

// Throttle with latest value: the first call in a quiet period runs at once; calls during the
// interval that follows are folded into one run, with the latest work, at the interval's end; that
// run opens a new interval. So at most one run per interval, and the last call is never lost.
class Throttler {
  public:
    explicit Throttler(Nanos interval) : interval_(interval) {}
    ~Throttler() { trailing_.cancel(); }
    void call(Work work);
    void cancel() {
        trailing_.cancel();
        pendingWork_ = nullptr;
    }
    bool hasPending() const { return trailing_.isPending(); }

  private:
    void fire(Work work);
    Nanos interval_;
    Nanos lastRun_ = -1;
    bool ranOnce_ = false;
    Work pendingWork_;
    WorkItem trailing_;
};

// Runs a closure `times` times (or forever with times < 0), every `interval`, first after one
// interval. stop() ends it; the closure may stop it from inside.
class Repeater {
  public:
    Repeater(std::string name, Nanos interval, int times, std::function<void()> work);
    ~Repeater() { stop(); }
    void stop();
    bool isRunning() const { return running_; }
    const std::string& name() const { return name_; }
    int firedCount() const { return fired_; }

  private:
    void schedule();
    std::string name_;
    Nanos interval_;
    int times_;
    int fired_ = 0;
    bool running_ = true;
    std::function<void()> work_;
    WorkItem next_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace ferrow
