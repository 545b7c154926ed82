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

// Owns the coroutine frame; the two Task forms differ only in how a result comes back.
template <typename Promise>
class TaskHandle {
public:
    explicit TaskHandle(std::coroutine_handle<Promise> h) : handle_(h) {}
    TaskHandle(TaskHandle&& o) noexcept : handle_(std::exchange(o.handle_, nullptr)) {}
    TaskHandle& operator=(TaskHandle&& o) noexcept {
        if (this != &o) {
            destroy();
            handle_ = std::exchange(o.handle_, nullptr);
        }
        return *this;
    }
    ~TaskHandle() { destroy(); }

    bool await_ready() const noexcept { return false; }
    std::coroutine_handle<> await_suspend(std::coroutine_handle<> awaiting) noexcept {
        handle_.promise().continuation = awaiting;
        return handle_;
    }
    std::coroutine_handle<Promise> release() { return std::exchange(handle_, nullptr); }

protected:
    void destroy() {
        if (handle_) handle_.destroy();
        handle_ = nullptr;
    }
    std::coroutine_handle<Promise> handle_;
};

template <typename T>
struct TaskPromise : detail::PromiseBase {
    std::optional<T> value;
    Task<T> get_return_object();
    void return_value(T v) { value = std::move(v); }
};

template <>
struct TaskPromise<void> : detail::PromiseBase {
    Task<void> get_return_object();
    void return_void() {}
};

template <typename T>
class Task : public TaskHandle<TaskPromise<T>> {
public:
    using promise_type = TaskPromise<T>;
    using TaskHandle<TaskPromise<T>>::TaskHandle;
    T await_resume() { return std::move(*this->handle_.promise().value); }
};

template <>
class Task<void> : public TaskHandle<TaskPromise<void>> {
public:
    using promise_type = TaskPromise<void>;
    using TaskHandle<TaskPromise<void>>::TaskHandle;
    void await_resume() {}
};

template <typename T>
Task<T> TaskPromise<T>::get_return_object() {
    return Task<T>(std::coroutine_handle<TaskPromise<T>>::from_promise(*this));
}
inline Task<void> TaskPromise<void>::get_return_object() {
    return Task<void>(std::coroutine_handle<TaskPromise<void>>::from_promise(*this));
}

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
