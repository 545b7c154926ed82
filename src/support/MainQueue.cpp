#include "support/MainQueue.h"

#include <future>

namespace ferrow {

void WorkItem::cancel() {
    if (state_) state_->cancelled.store(true);
}
bool WorkItem::isCancelled() const {
    return state_ && state_->cancelled.load();
}
bool WorkItem::isPending() const {
    return state_ && !state_->cancelled.load() && !state_->done.load();
}

namespace {
std::unique_ptr<MainQueue>& sharedSlot() {
    static std::unique_ptr<MainQueue> slot;
    return slot;
}
}  // namespace

MainQueue::MainQueue(std::shared_ptr<Clock> clock) : clock_(std::move(clock)) {
    adoptCurrentThread();
}
MainQueue::~MainQueue() = default;

MainQueue& MainQueue::shared() {
    auto& slot = sharedSlot();
    if (!slot) slot = std::make_unique<MainQueue>(std::make_shared<VirtualClock>());
    return *slot;
}

MainQueue& MainQueue::install(std::shared_ptr<Clock> clock) {
    sharedSlot() = std::make_unique<MainQueue>(std::move(clock));
    return *sharedSlot();
}

void MainQueue::reset() {
    sharedSlot().reset();
}

void MainQueue::push(Nanos due, Work work, std::shared_ptr<WorkItem::State> state) {
    {
        std::lock_guard lock(mutex_);
        heap_.push(Item{due, nextSeq_++, std::move(work), std::move(state)});
    }
    cv_.notify_one();
}

void MainQueue::async(Work work) {
    push(now(), std::move(work), nullptr);
}

WorkItem MainQueue::asyncAfter(Nanos delay, Work work) {
    WorkItem item;
    item.state_ = std::make_shared<WorkItem::State>();
    push(now() + std::max<Nanos>(delay, 0), std::move(work), item.state_);
    return item;
}

void MainQueue::sync(const Work& work) {
    syncCount_.fetch_add(1, std::memory_order_relaxed);
    if (isVirtual() || onMainThread()) {
        work();
        return;
    }
    std::promise<void> done;
    auto future = done.get_future();
    async([&] {
        work();
        done.set_value();
    });
    future.wait();
}

std::optional<MainQueue::Item> MainQueue::popDue(Nanos limit) {
    std::lock_guard lock(mutex_);
    while (!heap_.empty()) {
        const Item& top = heap_.top();
        if (top.state && top.state->cancelled.load()) {
            heap_.pop();
            continue;
        }
        if (top.due > limit) return std::nullopt;
        Item item = std::move(const_cast<Item&>(top));
        heap_.pop();
        return item;
    }
    return std::nullopt;
}

void MainQueue::runItem(Item& item) {
    if (item.state) {
        if (item.state->cancelled.load()) return;
        item.state->done.store(true);
    }
    item.work();
}

void MainQueue::runUntil(Nanos t) {
    auto* vclock = dynamic_cast<VirtualClock*>(clock_.get());
    while (auto item = popDue(t)) {
        if (vclock) vclock->advanceTo(item->due);
        runItem(*item);
    }
    if (vclock) vclock->advanceTo(t);
}

std::size_t MainQueue::drain(Nanos horizon) {
    std::size_t ran = 0;
    auto* vclock = dynamic_cast<VirtualClock*>(clock_.get());
    while (true) {
        auto next = nextDue();
        if (!next || *next > now() + horizon) break;
        auto item = popDue(*next);
        if (!item) continue;
        if (vclock) vclock->advanceTo(item->due);
        runItem(*item);
        ++ran;
    }
    return ran;
}

std::optional<Nanos> MainQueue::nextDue() const {
    std::lock_guard lock(mutex_);
    // Cancelled items may sit on top; report them anyway, runUntil skips them.
    if (heap_.empty()) return std::nullopt;
    return heap_.top().due;
}

std::size_t MainQueue::pendingCount() const {
    std::lock_guard lock(mutex_);
    return heap_.size();
}

void MainQueue::run() {
    adoptCurrentThread();
    while (true) {
        std::optional<Item> item;
        {
            std::unique_lock lock(mutex_);
            if (stopped_) return;
            if (heap_.empty()) {
                cv_.wait(lock);
                continue;
            }
            Nanos due = heap_.top().due;
            Nanos current = now();
            if (due > current) {
                cv_.wait_for(lock, std::chrono::nanoseconds(due - current));
                continue;
            }
        }
        item = popDue(now());
        if (item) runItem(*item);
    }
}

void MainQueue::stop() {
    {
        std::lock_guard lock(mutex_);
        stopped_ = true;
    }
    cv_.notify_all();
}

BackgroundQueue::BackgroundQueue(std::string label) : label_(std::move(label)) {}

BackgroundQueue::~BackgroundQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    cv_.notify_all();
    if (thread_.joinable()) thread_.join();
}

void BackgroundQueue::async(Work work) {
    auto& main = MainQueue::shared();
    if (main.isVirtual()) {
        main.async(std::move(work));
        return;
    }
    std::lock_guard lock(mutex_);
    items_.push(std::move(work));
    if (!thread_.joinable()) thread_ = std::thread([this] { loop(); });
    cv_.notify_one();
}

void BackgroundQueue::loop() {
    while (true) {
        Work work;
        {
            std::unique_lock lock(mutex_);
            cv_.wait(lock, [&] { return stopping_ || !items_.empty(); });
            if (items_.empty()) return;
            work = std::move(items_.front());
            items_.pop();
        }
        work();
    }
}

}  // namespace ferrow
