#pragma once
#include <nlohmann/json.hpp>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "config/SettingKey.h"
#include "platform/SettingsStore.h"
#include "support/Observable.h"

namespace zelk {

// Typed reads and writes of the settings store. A read gives the stored value or the key's default;
// a stored value of the wrong shape reads as the default and logs one error line (once per bad
// value), without touching any other key. Main thread only.
class Settings {
  public:
    explicit Settings(platform::SettingsStore& store) : store_(&store) {}
    Settings(const Settings&) = delete;
    Settings& operator=(const Settings&) = delete;

    // The program's accessor. Bound to the installed store; without one, to the platform's store, or
    // to a store in memory when there is no platform either.
    static Settings& shared();
    static void install(platform::SettingsStore& store);
    // Forgets the installed accessor (tests).
    static void reset();

    platform::SettingsStore& store() const { return *store_; }

    template <typename T>
    T get(const SettingKey<T>& key) const {
        auto stored = store_->read(key.name);
        if (!stored) return defaultOf(key);
        auto value = SettingCodec<T>::decode(*stored);
        if (value && key.valid && !key.valid(*value)) value.reset();
        if (!value) {
            reportUnreadable(key.name, *stored, SettingCodec<T>::typeName());
            return defaultOf(key);
        }
        return std::move(*value);
    }

    template <typename T>
    T defaultOf(const SettingKey<T>& key) const {
        return key.computedDefault ? key.computedDefault(*this) : key.defaultValue;
    }

    // Stores the value and notifies the key's observers. An empty optional removes the key.
    template <typename T>
    void set(const SettingKey<T>& key, const T& value) {
        nlohmann::json encoded = SettingCodec<T>::encode(value);
        if (encoded.is_null())
            store_->remove(key.name);
        else
            store_->write(key.name, encoded);
    }

    // Back to the default: the key leaves the store.
    template <typename T>
    void reset(const SettingKey<T>& key) {
        store_->remove(key.name);
    }
    void reset(const std::vector<std::string>& names);

    bool isStored(const std::string& name) const { return store_->read(name).has_value(); }

    // Calls back after every change of the named key, from this program or from outside.
    [[nodiscard]] ferrow::Subscription observe(std::string name, std::function<void()> callback);

  private:
    void reportUnreadable(const std::string& key, const nlohmann::json& stored,
                          const std::string& type) const;

    platform::SettingsStore* store_;
    // The bad value last reported per key, so a value that stays bad is reported once.
    mutable std::map<std::string, std::string> reported_;
};

}  // namespace zelk
