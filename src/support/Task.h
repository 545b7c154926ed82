#pragma once
#include <coroutine>
#include <exception>
#include <optional>
#include <utility>

#include "support/MainQueue.h"

namespace ferrow {

// A small awaitable task so that long flows are written as bounded polls on the main queue
// (`co_await sleepMs(50)`), never as a blocking wait. Tasks start lazily: co_await one from another
// task, or hand it to spawn() to run detached.
template <typename T = void>
class Task;

namespace detail {
struct PromiseBase {
    std::coroutine_handle<> continuation;
    bool detached = false;
    std::suspend_always initial_suspend() noexcept { return {}; }
    struct FinalAwaiter {
        bool await_ready() noexcept { return false; }
        template <typename P>
        std::coroutine_handle<> await_suspend(std::coroutine_handle<P> h) noexcept {
            auto& p = h.promise();
            if (p.detached) {
                h.destroy();
                return std::noop_coroutine();
            }
            return p.continuation ? p.continuation : std::noop_coroutine();
        }
        void await_resume() noexcept {}
    };
    FinalAwaiter final_suspend() noexcept { return {}; }
    void unhandled_exception() { std::terminate(); }
};
}  // namespace detail

template <typename T>
class Task {
  public:
    struct promise_type : detail::PromiseBase {
        std::optional<T> value;
        Task get_return_object() { return Task(std::coroutine_handle<promise_type>::from_promise(*this)); }
        void return_value(T v) { value = std::move(v); }
    };
    explicit Task(std::coroutine_handle<promise_type> h) : handle_(h) {}
    Task(Task&& o) noexcept : handle_(std::exchange(o.handle_, nullptr)) {}
    Task& operator=(Task&& o) noexcept {
        if (this != &o) {
            destroy();
            handle_ = std::exchange(o.handle_, nullptr);
        }
        return *this;
    }
    ~Task() { destroy(); }

    bool await_ready() const noexcept { return false; }
    std::coroutine_handle<> await_suspend(std::coroutine_handle<> awaiting) noexcept {
        handle_.promise().continuation = awaiting;
        return handle_;
    }
    T await_resume() { return std::move(*handle_.promise().value); }

    std::coroutine_handle<promise_type> release() { return std::exchange(handle_, nullptr); }

  private:
    void destroy() {
        if (handle_) handle_.destroy();
        handle_ = nullptr;
    }
    std::coroutine_handle<promise_type> handle_;
};

template <>
class Task<void> {
  public:
    struct promise_type : detail::PromiseBase {
        Task get_return_object() { return Task(std::coroutine_handle<promise_type>::from_promise(*this)); }
        void return_void() {}
    };
    explicit Task(std::coroutine_handle<promise_type> h) : handle_(h) {}
    Task(Task&& o) noexcept : handle_(std::exchange(o.handle_, nullptr)) {}
    Task& operator=(Task&& o) noexcept {
        if (this != &o) {
            destroy();
            handle_ = std::exchange(o.handle_, nullptr);
        }
        return *this;
    }
    ~Task() { destroy(); }

    bool await_ready() const noexcept { return false; }
    std::coroutine_handle<> await_suspend(std::coroutine_handle<> awaiting) noexcept {
        handle_.promise().continuation = awaiting;
        return handle_;
    }
    void await_resume() {}

    std::coroutine_handle<promise_type> release() { return std::exchange(handle_, nullptr); }

  private:
    void destroy() {
        if (handle_) handle_.destroy();
        handle_ = nullptr;
    }
    std::coroutine_handle<promise_type> handle_;
};

// Starts a task now, detached: it frees itself when it finishes.
template <typename T>
void spawn(Task<T> task) {
    auto h = task.release();
    if (!h) return;
    h.promise().detached = true;
    h.resume();
}

// Suspends the running task; the rest runs on the main queue after the delay. Other work runs meanwhile.
struct SleepAwaiter {
    Nanos delay;
    bool await_ready() const noexcept { return false; }
    void await_suspend(std::coroutine_handle<> h) const {
        MainQueue::shared().asyncAfter(delay, [h] { h.resume(); });
    }
    void await_resume() const noexcept {}
};
inline SleepAwaiter sleepMs(std::int64_t milliseconds) {
    return SleepAwaiter{ms(milliseconds)};
}
inline SleepAwaiter sleepFor(Nanos delay) {
    return SleepAwaiter{delay};
}

}  // namespace ferrow
