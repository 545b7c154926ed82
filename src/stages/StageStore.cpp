#include "stages/StageStore.h"

#include <algorithm>

#include "config/SettingsCatalogue.h"

namespace zelk::stages {

StageStore::StageStore(Settings& settings) : settings_(&settings) {
    reload();
    watch_ = settings.observe(keys::stages.name, [this] { reload(); });
}

const Stage* StageStore::stage(std::string_view key) const {
    auto it = byKey_.find(key);
    return it == byKey_.end() ? nullptr : &stages_[it->second];
}

void StageStore::reload() {
    auto stored = settings_->get(keys::stages);
    if (stored == lastWritten_) return;  // our own write coming back
    lastWritten_ = stored;
    stages_ = stagesFromJson(stored);
    reindex();
    changed_.emit();
}

void StageStore::reindex() {
    byKey_.clear();
    for (std::size_t i = 0; i < stages_.size(); ++i)
        byKey_.emplace(stages_[i].key, i);
}

void StageStore::setStages(std::vector<Stage> stages) {
    stages_ = std::move(stages);
    reindex();
    lastWritten_ = toJson(stages_);
    settings_->set(keys::stages, lastWritten_);
    changed_.emit();
}

void StageStore::putStage(const Stage& stage) {
    auto list = stages_;
    auto it = std::find_if(list.begin(), list.end(), [&](const Stage& s) { return s.key == stage.key; });
    if (it != list.end())
        *it = stage;
    else
        list.push_back(stage);
    setStages(std::move(list));
}

bool StageStore::removeStage(std::string_view key) {
    auto list = stages_;
    auto it = std::find_if(list.begin(), list.end(), [&](const Stage& s) { return s.key == key; });
    if (it == list.end()) return false;
    list.erase(it);
    setStages(std::move(list));
    return true;
}

void StageStore::setActiveStage(std::optional<std::string> key) {
    if (activeKey_ == key) return;
    activeKey_ = std::move(key);
    changed_.emit();
}

void StageStore::setActiveStageBundleIDs(std::set<std::string> bundles) {
    if (activeBundles_ == bundles) return;
    activeBundles_ = std::move(bundles);
    changed_.emit();
}

void StageStore::clearActiveStage() {
    bool had = activeKey_ || !activeBundles_.empty();
    activeKey_.reset();
    activeBundles_.clear();
    if (had) changed_.emit();
}

std::set<std::string> bundlesOf(const Stage& stage) {
    std::set<std::string> bundles;
    for (const auto& item : stage.items)
        if (!item.bundleID().empty()) bundles.insert(item.bundleID());
    return bundles;
}

}  // namespace zelk::stages
