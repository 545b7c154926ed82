#include "platform/SettingsStore.h"

namespace zelk::platform {

std::optional<nlohmann::json> MemorySettingsStore::read(const std::string& key) const {
    auto it = values_.find(key);
    if (it == values_.end()) return std::nullopt;
    return it->second;
}

void MemorySettingsStore::write(const std::string& key, const nlohmann::json& value) {
    values_[key] = value;
    notifyChanged(key);
}

void MemorySettingsStore::remove(const std::string& key) {
    if (values_.erase(key)) notifyChanged(key);
}

std::vector<std::string> MemorySettingsStore::keys() const {
    std::vector<std::string> out;
    out.reserve(values_.size());
    for (auto& [k, _] : values_)
        out.push_back(k);
    return out;
}

}  // namespace zelk::platform
