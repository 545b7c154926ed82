#pragma once
#include <functional>
#include <utility>

#include "config/Settings.h"
#include "support/Observable.h"

namespace zelk {

// The live value of one key. It follows the store, whether the change came from this program or
// from outside (another process, a reload of the file), and tells subscribers when the value really
// changed: rewriting the same value, or a trigger list in another order, is no change.
// Must not outlive the store its accessor is bound to.
template <typename T>
class Setting {
  public:
    explicit Setting(SettingKey<T> key, Settings& settings = Settings::shared())
        : key_(std::move(key)), settings_(&settings), value_(settings.get(key_)) {
        // A computed default may follow another key, so such keys check every change.
        storeSub_ = settings.store().observe([this](const std::string& changed) {
            if (changed == key_.name || key_.computedDefault) refresh();
        });
    }
    Setting(const Setting&) = delete;
    Setting& operator=(const Setting&) = delete;

    const T& get() const { return value_; }
    operator const T&() const { return value_; }
    const T* operator->() const { return &value_; }
    const std::string& name() const { return key_.name; }

    void set(const T& value) { settings_->set(key_, value); }
    void reset() { settings_->reset(key_); }

    // Calls back with the current value at once when `initial`, then after every change.
    [[nodiscard]] ferrow::Subscription subscribe(std::function<void(const T&)> callback,
                                                 bool initial = true) {
        if (initial) callback(value_);
        return changed_.subscribe(std::move(callback));
    }

  private:
    void refresh() {
        T fresh = settings_->get(key_);
        if (SettingCodec<T>::same(fresh, value_)) return;
        value_ = std::move(fresh);
        changed_.emit(value_);
    }

    SettingKey<T> key_;
    Settings* settings_;
    T value_;
    ferrow::Signal<T> changed_;
    ferrow::Subscription storeSub_;
};

}  // namespace zelk
