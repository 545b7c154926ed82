#pragma once
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "support/MainQueue.h"

namespace zelk::expose {

// Where capture operations run: at most three at a time, first come first started. Cancelling drops
// the operations that haven't started; those running always finish.
class CaptureQueue {
  public:
    static constexpr int kMaxConcurrent = 3;
    static constexpr const char* kLabel = "com.ferrowlabs.zelk.expose-capture";
    static constexpr int kQualityOfService = 0x21;  // user-interactive

    virtual ~CaptureQueue() = default;
    virtual void add(ferrow::Work operation) = 0;
    virtual void cancelQueued() = 0;
    // Added and not yet started.
    virtual std::size_t queuedCount() const = 0;
    // The most operations seen running at once.
    virtual int peakRunning() const = 0;
};

// The queue on a virtual clock: an operation starts when a slot is free and runs whole on the main
// queue `operationTime()` later, so runs stay deterministic and latency shows as virtual time.
class VirtualCaptureQueue final : public CaptureQueue {
  public:
    explicit VirtualCaptureQueue(std::function<ferrow::Nanos()> operationTime = {});
    void add(ferrow::Work operation) override;
    void cancelQueued() override;
    std::size_t queuedCount() const override { return state_->queued.size(); }
    int peakRunning() const override { return state_->peak; }
    int running() const { return state_->running; }

  private:
    struct State {
        std::deque<ferrow::Work> queued;
        int running = 0;
        int peak = 0;
        std::function<ferrow::Nanos()> operationTime;
    };
    static void pump(const std::shared_ptr<State>& state);
    std::shared_ptr<State> state_;
};

// The queue of the live agent: three worker threads, started on first use. Destroying it waits for
// the running operations and drops the queued ones.
class ThreadPoolCaptureQueue final : public CaptureQueue {
  public:
    explicit ThreadPoolCaptureQueue(int threads = kMaxConcurrent);
    ~ThreadPoolCaptureQueue() override;
    ThreadPoolCaptureQueue(const ThreadPoolCaptureQueue&) = delete;
    ThreadPoolCaptureQueue& operator=(const ThreadPoolCaptureQueue&) = delete;

    void add(ferrow::Work operation) override;
    void cancelQueued() override;
    std::size_t queuedCount() const override;
    int peakRunning() const override;
    // Blocks until nothing is queued or running.
    void waitIdle();

  private:
    void loop();
    const int threadCount_;
    mutable std::mutex mutex_;
    std::condition_variable work_, idle_;
    std::deque<ferrow::Work> queued_;
    std::vector<std::thread> threads_;
    int running_ = 0;
    int peak_ = 0;
    bool stopping_ = false;
};

// The virtual queue on a virtual clock, else the thread pool.
std::unique_ptr<CaptureQueue> makeCaptureQueue(bool virtualClock,
                                               std::function<ferrow::Nanos()> operationTime = {});

}  // namespace zelk::expose
