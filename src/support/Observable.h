#pragma once
#include <functional>
#include <map>
#include <memory>
#include <utility>

namespace ferrow {

// Ends a subscription when destroyed (or on cancel()). Safe to outlive what it subscribed to.
class Subscription {
  public:
    Subscription() = default;
    explicit Subscription(std::function<void()> cancel) : cancel_(std::move(cancel)) {}
    Subscription(Subscription&& other) noexcept : cancel_(std::exchange(other.cancel_, nullptr)) {}
    Subscription& operator=(Subscription&& other) noexcept {
        if (this != &other) {
            cancel();
            cancel_ = std::exchange(other.cancel_, nullptr);
        }
        return *this;
    }
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    ~Subscription() { cancel(); }
    void cancel() {
        if (cancel_) std::exchange(cancel_, nullptr)();
    }
    explicit operator bool() const { return cancel_ != nullptr; }

  private:
    std::function<void()> cancel_;
};

// A list of callbacks; subscribers may unsubscribe (or subscribe) from inside a callback.
template <typename... Args>
class Signal {
  public:
    using Callback = std::function<void(const Args&...)>;
    Signal() : subs_(std::make_shared<Subs>()) {}

    [[nodiscard]] Subscription subscribe(Callback callback) {
        int id = subs_->next++;
        subs_->callbacks.emplace(id, std::make_shared<Callback>(std::move(callback)));
        std::weak_ptr<Subs> weak = subs_;
        return Subscription([weak, id] {
            if (auto s = weak.lock()) s->callbacks.erase(id);
        });
    }

    void emit(const Args&... args) const {
        // Copy so callbacks can change the subscriber list.
        std::vector<std::pair<int, std::shared_ptr<Callback>>> snapshot(subs_->callbacks.begin(),
                                                                        subs_->callbacks.end());
        for (auto& [id, cb] : snapshot)
            if (subs_->callbacks.count(id)) (*cb)(args...);
    }
    std::size_t subscriberCount() const { return subs_->callbacks.size(); }

  private:
    struct Subs {
        int next = 0;
        std::map<int, std::shared_ptr<Callback>> callbacks;
    };
    std::shared_ptr<Subs> subs_;
};

// A value with change subscriptions. set() notifies only when the value changes.
template <typename T>
class Observable {
  public:
    Observable() = default;
    explicit Observable(T initial) : value_(std::move(initial)) {}
    const T& get() const { return value_; }
    operator const T&() const { return value_; }
    void set(T value) {
        if (value == value_) return;
        value_ = std::move(value);
        changed_.emit(value_);
    }
    Observable& operator=(T value) {
        set(std::move(value));
        return *this;
    }
    [[nodiscard]] Subscription subscribe(std::function<void(const T&)> callback) {
        return changed_.subscribe(std::move(callback));
    }

  private:
    T value_{};
    Signal<T> changed_;
};

}  // namespace ferrow
