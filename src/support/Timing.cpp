#include "support/Timing.h"

namespace ferrow {

void Debouncer::call(Work work) {
    pending_.cancel();
    pending_ = MainQueue::shared().asyncAfter(interval_, std::move(work));
}

void Throttler::fire(Work work) {
    lastRun_ = MainQueue::shared().now();
    ranOnce_ = true;
    work();
}

void Throttler::call(Work work) {
    auto& queue = MainQueue::shared();
    Nanos now = queue.now();
    if (trailing_.isPending()) {
        pendingWork_ = std::move(work);
        return;
    }
    if (!ranOnce_ || now - lastRun_ >= interval_) {
        fire(std::move(work));
        return;
    }
    pendingWork_ = std::move(work);
    trailing_ = queue.asyncAfter(lastRun_ + interval_ - now, [this] {
        Work w = std::move(pendingWork_);
        pendingWork_ = nullptr;
        if (w) fire(std::move(w));
    });
}

Repeater::Repeater(std::string name, Nanos interval, int times, std::function<void()> work)
    : name_(std::move(name)), interval_(interval), times_(times), work_(std::move(work)) {
    if (times_ == 0) {
        running_ = false;
        return;
    }
    schedule();
}

void Repeater::schedule() {
    std::weak_ptr<bool> alive = alive_;
    next_ = MainQueue::shared().asyncAfter(interval_, [this, alive] {
        if (!alive.lock() || !running_) return;
        ++fired_;
        bool last = times_ > 0 && fired_ >= times_;
        if (last) running_ = false;
        work_();
        if (!alive.lock()) return;  // the work destroyed us
        if (running_) schedule();
    });
}

void Repeater::stop() {
    running_ = false;
    next_.cancel();
}

}  // namespace ferrow
