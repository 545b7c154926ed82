#pragma once
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <queue>
#include <thread>
#include <vector>

#include "support/Clock.h"

namespace ferrow {

using Work = std::function<void()>;

// A handle on scheduled work. Cancelling it before it runs means it never runs; a default
// WorkItem is empty and cancelling it does nothing.
class WorkItem {
  public:
    WorkItem() = default;
    void cancel();
    bool isCancelled() const;
    // Scheduled and neither run nor cancelled.
    bool isPending() const;
    explicit operator bool() const { return state_ != nullptr; }

  private:
    friend class MainQueue;
    struct State {
        std::atomic<bool> cancelled{false};
        std::atomic<bool> done{false};
    };
    std::shared_ptr<State> state_;
};

// The one queue that carries all logic. On a virtual clock it is driven by runUntil() from the thread
// that owns it, deterministically; on the real clock run() blocks and serves it until stop().
class MainQueue {
  public:
    explicit MainQueue(std::shared_ptr<Clock> clock);
    ~MainQueue();
    MainQueue(const MainQueue&) = delete;
    MainQueue& operator=(const MainQueue&) = delete;

    // The process-wide queue. install() replaces it (tests and the replay bench install a fresh one).
    static MainQueue& shared();
    static MainQueue& install(std::shared_ptr<Clock> clock);
    static void reset();

    Clock& clock() { return *clock_; }
    const Clock& clock() const { return *clock_; }
    std::shared_ptr<Clock> clockPtr() const { return clock_; }
    bool isVirtual() const { return clock_->isVirtual(); }
    Nanos now() const { return clock_->now(); }

    void async(Work work);
    WorkItem asyncAfter(Nanos delay, Work work);
    // Runs work on the main queue and waits for it. On the main thread (and always on a virtual clock,
    // where one thread drives everything) it runs inline. Counts hops for tests and benchmarks.
    void sync(const Work& work);
    std::uint64_t syncCount() const { return syncCount_.load(std::memory_order_relaxed); }

    // The calling thread becomes the main thread.
    void adoptCurrentThread() { mainThread_ = std::this_thread::get_id(); }
    bool onMainThread() const { return std::this_thread::get_id() == mainThread_; }

    // Virtual clock: runs every item due at or before t in due order (moving the clock to each
    // item's due time), then moves the clock to t.
    void runUntil(Nanos t);
    // Runs everything already due now.
    void runDue() { runUntil(now()); }
    // Runs items until none is due within `horizon` of the clock; returns how many ran.
    std::size_t drain(Nanos horizon = ms(60'000));
    std::optional<Nanos> nextDue() const;
    std::size_t pendingCount() const;

    // Real clock: serve the queue until stop().
    void run();
    void stop();

  private:
    struct Item {
        Nanos due;
        std::uint64_t seq;
        Work work;
        std::shared_ptr<WorkItem::State> state;
    };
    struct Later {
        bool operator()(const Item& a, const Item& b) const {
            return a.due != b.due ? a.due > b.due : a.seq > b.seq;
        }
    };
    void push(Nanos due, Work work, std::shared_ptr<WorkItem::State> state);
    std::optional<Item> popDue(Nanos limit);
    static void runItem(Item& item);

    std::shared_ptr<Clock> clock_;
    mutable std::mutex mutex_;
    std::condition_variable cv_;
    std::priority_queue<Item, std::vector<Item>, Later> heap_;
    std::uint64_t nextSeq_ = 0;
    std::thread::id mainThread_;
    bool stopped_ = false;
    std::atomic<std::uint64_t> syncCount_{0};
};

// Shorthands on the shared queue.
inline void mainAsync(Work work) {
    MainQueue::shared().async(std::move(work));
}
inline WorkItem mainAsyncAfter(std::int64_t milliseconds, Work work) {
    return MainQueue::shared().asyncAfter(ms(milliseconds), std::move(work));
}
inline Nanos now() {
    return MainQueue::shared().now();
}

// Work the system runs off the main thread (metadata queries, policy reads, captures). On a virtual
// clock it is drained in order with the main queue, so runs stay deterministic.
class BackgroundQueue {
  public:
    explicit BackgroundQueue(std::string label);
    ~BackgroundQueue();
    void async(Work work);
    const std::string& label() const { return label_; }

  private:
    void loop();
    std::string label_;
    std::mutex mutex_;
    std::condition_variable cv_;
    std::queue<Work> items_;
    std::thread thread_;
    bool stopping_ = false;
};

}  // namespace ferrow
