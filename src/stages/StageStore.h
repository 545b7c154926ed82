#pragma once
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "config/Settings.h"
#include "stages/StageModel.h"
#include "support/Observable.h"

namespace zelk::stages {

// What other subsystems read about stages: the saved list and the active stage. The tab cycle filters
// by activeStageBundleIDs(); panels list stages(); the configuration file writes stages() first.
class StageDirectory {
  public:
    virtual ~StageDirectory() = default;
    virtual const std::vector<Stage>& stages() const = 0;
    virtual const Stage* stage(std::string_view key) const = 0;
    // The key of the active stage; nothing while no stage is active.
    virtual const std::optional<std::string>& activeStageKey() const = 0;
    // The apps of the active stage; empty while no stage is active.
    virtual const std::set<std::string>& activeStageBundleIDs() const = 0;
    // Fires after the list or the active stage changed.
    virtual ferrow::Signal<>& changed() = 0;
};

// The saved stages and the active one. Every write of the list goes through setStages(), which
// refreshes the index by key and stores the list in the settings; a change of the setting from
// outside (the configuration file, an import) is read back. Main thread only.
class StageStore : public StageDirectory {
  public:
    explicit StageStore(Settings& settings);

    const std::vector<Stage>& stages() const override { return stages_; }
    const Stage* stage(std::string_view key) const override;
    const std::optional<std::string>& activeStageKey() const override { return activeKey_; }
    const std::set<std::string>& activeStageBundleIDs() const override { return activeBundles_; }
    ferrow::Signal<>& changed() override { return changed_; }

    void setStages(std::vector<Stage> stages);
    // Replaces the stage on the same key, or appends it.
    void putStage(const Stage& stage);
    bool removeStage(std::string_view key);

    void setActiveStage(std::optional<std::string> key);
    void setActiveStageBundleIDs(std::set<std::string> bundles);
    // Ends the active stage: no key, no apps.
    void clearActiveStage();

  private:
    void reload();
    void reindex();

    Settings* settings_;
    std::vector<Stage> stages_;
    std::map<std::string, std::size_t, std::less<>> byKey_;
    std::optional<std::string> activeKey_;
    std::set<std::string> activeBundles_;
    nlohmann::json lastWritten_;
    ferrow::Signal<> changed_;
    ferrow::Subscription watch_;
};

// The apps a stage's items belong to.
std::set<std::string> bundlesOf(const Stage& stage);

}  // namespace zelk::stages
