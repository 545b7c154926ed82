#include "config/Settings.h"

#include <memory>

#include "platform/Platform.h"
#include "support/Log.h"

namespace zelk {
namespace {
struct Shared {
    std::unique_ptr<Settings> settings;
    bool installed = false;  // false: bound to the platform's store or the memory store below
    std::unique_ptr<platform::MemorySettingsStore> memory;
};
Shared& state() {
    static Shared s;
    return s;
}

platform::SettingsStore& fallbackStore() {
    auto& s = state();
    if (auto* store = platform::Platform::current().settings) return *store;
    if (!s.memory) s.memory = std::make_unique<platform::MemorySettingsStore>();
    return *s.memory;
}
}  // namespace

Settings& Settings::shared() {
    auto& s = state();
    if (s.installed) return *s.settings;
    // Follow the platform: tests install and reset it, so its store may change between calls.
    auto& store = fallbackStore();
    if (!s.settings || &s.settings->store() != &store) s.settings = std::make_unique<Settings>(store);
    return *s.settings;
}

void Settings::install(platform::SettingsStore& store) {
    auto& s = state();
    s.settings = std::make_unique<Settings>(store);
    s.installed = true;
}

void Settings::reset() {
    auto& s = state();
    s.settings.reset();
    s.installed = false;
    s.memory.reset();
}

void Settings::reset(const std::vector<std::string>& names) {
    for (auto& name : names)
        store_->remove(name);
}

ferrow::Subscription Settings::observe(std::string name, std::function<void()> callback) {
    return store_->observe([name = std::move(name), callback = std::move(callback)](const std::string& key) {
        if (key == name) callback();
    });
}

void Settings::reportUnreadable(const std::string& key, const nlohmann::json& stored,
                                const std::string& type) const {
    std::string text = stored.dump();
    auto it = reported_.find(key);
    if (it != reported_.end() && it->second == text) return;
    reported_[key] = text;
    ferrow::Log::error("read: {} holds {}, not a {}; using the default", key, text, type);
}

}  // namespace zelk
