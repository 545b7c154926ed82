#include "expose/WindowPicturesQueue.h"

#include <algorithm>

namespace zelk::expose {

VirtualCaptureQueue::VirtualCaptureQueue(std::function<ferrow::Nanos()> operationTime)
    : state_(std::make_shared<State>()) {
    state_->operationTime = std::move(operationTime);
}

void VirtualCaptureQueue::add(ferrow::Work operation) {
    state_->queued.push_back(std::move(operation));
    pump(state_);
}

void VirtualCaptureQueue::cancelQueued() {
    state_->queued.clear();
}

void VirtualCaptureQueue::pump(const std::shared_ptr<State>& state) {
    while (state->running < kMaxConcurrent && !state->queued.empty()) {
        ferrow::Work op = std::move(state->queued.front());
        state->queued.pop_front();
        ++state->running;
        state->peak = std::max(state->peak, state->running);
        const ferrow::Nanos takes =
            state->operationTime ? std::max<ferrow::Nanos>(0, state->operationTime()) : 0;
        ferrow::MainQueue::shared().asyncAfter(takes, [state, op = std::move(op)] {
            op();
            --state->running;
            pump(state);
        });
    }
}

ThreadPoolCaptureQueue::ThreadPoolCaptureQueue(int threads) : threadCount_(std::max(1, threads)) {}

ThreadPoolCaptureQueue::~ThreadPoolCaptureQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        queued_.clear();
    }
    work_.notify_all();
    for (auto& t : threads_)
        t.join();
}

void ThreadPoolCaptureQueue::add(ferrow::Work operation) {
    {
        std::lock_guard lock(mutex_);
        if (stopping_) return;
        queued_.push_back(std::move(operation));
        if (threads_.size() < static_cast<std::size_t>(threadCount_) &&
            threads_.size() < queued_.size() + static_cast<std::size_t>(running_))
            threads_.emplace_back([this] { loop(); });
    }
    work_.notify_one();
}

void ThreadPoolCaptureQueue::cancelQueued() {
    std::lock_guard lock(mutex_);
    queued_.clear();
    if (running_ == 0) idle_.notify_all();
}

std::size_t ThreadPoolCaptureQueue::queuedCount() const {
    std::lock_guard lock(mutex_);
    return queued_.size();
}

int ThreadPoolCaptureQueue::peakRunning() const {
    std::lock_guard lock(mutex_);
    return peak_;
}

void ThreadPoolCaptureQueue::waitIdle() {
    std::unique_lock lock(mutex_);
    idle_.wait(lock, [&] { return queued_.empty() && running_ == 0; });
}

void ThreadPoolCaptureQueue::loop() {
    std::unique_lock lock(mutex_);
    while (true) {
        work_.wait(lock, [&] { return stopping_ || !queued_.empty(); });
        if (stopping_) return;
        ferrow::Work op = std::move(queued_.front());
        queued_.pop_front();
        ++running_;
        peak_ = std::max(peak_, running_);
        lock.unlock();
        op();
        lock.lock();
        --running_;
        if (running_ == 0 && queued_.empty()) idle_.notify_all();
    }
}

std::unique_ptr<CaptureQueue> makeCaptureQueue(bool virtualClock,
                                               std::function<ferrow::Nanos()> operationTime) {
    if (virtualClock) return std::make_unique<VirtualCaptureQueue>(std::move(operationTime));
    return std::make_unique<ThreadPoolCaptureQueue>();
}

}  // namespace zelk::expose
