#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "config/Settings.h"
#include "platform/WindowServer.h"
#include "platform/Workspace.h"
#include "spaces/SpacesIndicatorModel.h"
#include "support/Clock.h"
#include "support/Observable.h"
#include "support/Timing.h"

namespace zelk::spaces {

// A saved stage as the strip needs it: its key, the Space it was assigned to, its items' ids.
struct IndicatorStage {
    std::string key;
    std::optional<std::uint64_t> spaceID;
    std::vector<std::string> itemIDs;
};

// Where the strip's outside knowledge comes from. Without stages, no Space shows a stage's key.
struct SpacesIndicatorEnvironment {
    platform::WindowServer* server = nullptr;
    platform::Workspace* workspace = nullptr;
    Settings* settings = nullptr;
    // The key assigned to the app with this process, "" when none.
    std::function<std::string(std::int32_t pid)> keyForProcess;
    // The saved stages, and what announces a change of them.
    std::function<std::vector<IndicatorStage>()> stages;
    std::function<ferrow::Subscription(std::function<void()>)> observeStages;
    // A stage item's live window, if it can be found now.
    std::function<std::optional<std::uint32_t>(const std::string& stageKey, const std::string& itemID)>
        resolveItem;
    // The identifier of the display under the pointer, checked on each periodic refresh.
    std::function<std::optional<std::string>()> displayUnderPointer;
};

// The strip of Spaces in the menu bar: one cell per Space of each display, the current one filled.
// It renders only when its text signature changes, and carries a short prediction of the active Space
// so that this program's own switches show before the system reports them. Main thread only.
class SpacesIndicator {
  public:
    static constexpr ferrow::Nanos kPredictionTTL = 1500 * ferrow::kNanosPerMs;
    static constexpr ferrow::Nanos kRefreshInterval = 5 * ferrow::kNanosPerSecond;
    static constexpr ferrow::Nanos kItemWindowTTL = 30 * ferrow::kNanosPerSecond;
    static constexpr ferrow::Nanos kEventDebounce = 100 * ferrow::kNanosPerMs;

    struct CachedItemWindow {
        std::uint32_t windowID = 0;
        ferrow::Nanos expiry = 0;
    };

    explicit SpacesIndicator(SpacesIndicatorEnvironment env);
    ~SpacesIndicator();
    SpacesIndicator(const SpacesIndicator&) = delete;
    SpacesIndicator& operator=(const SpacesIndicator&) = delete;

    // On with `showSpacesIndicator` in multi-Space mode; a change starts or stops the strip.
    void setEnabledFromSettings();
    bool enabled() const { return enabled_; }

    // Called just before this program switches to the Space; shows it at once.
    void predictActiveSpace(std::uint64_t space);
    // The same, for a switch given as a 0-based position among a display's Spaces.
    void predictActiveSpaceAt(int index, const std::string& display);
    // The system reported its own Space change.
    void clearPrediction();
    void refresh(bool force);
    // The pointer is over this display now; a different display than last time refreshes.
    void checkCursorDisplay(const std::optional<std::string>& display);
    // Recomputes which stage lives on which Space (stage activation and saving call it too).
    void recomputeStageMap();

    // The strip as last rendered; views subscribe to it and never write it.
    const ferrow::Observable<SpacesIndicatorModel>& model() const { return model_; }
    ferrow::Observable<SpacesIndicatorModel>& model() { return model_; }
    const std::string& lastSignature() const { return lastSignature_; }
    std::uint64_t renderCount() const { return renderCount_; }
    std::optional<std::uint64_t> predictedActiveSpaceID() const { return predictedActiveSpaceID_; }
    const std::map<std::uint64_t, std::string>& cachedStageKeyBySpace() const {
        return cachedStageKeyBySpace_;
    }

  private:
    void start();
    void stop();
    IndicatorOptions options() const;
    std::map<std::string, std::uint64_t> activeSpaces(const std::vector<platform::DisplaySpaces>& displays);
    std::string fullScreenKey(std::uint64_t space);
    std::optional<std::uint32_t> itemWindow(const IndicatorStage& stage, const std::string& itemID);
    std::map<std::uint64_t, std::string> computeStageMap();
    void render(std::vector<IndicatorCell> cells);

    SpacesIndicatorEnvironment env_;
    std::optional<std::uint64_t> predictedActiveSpaceID_;
    std::optional<ferrow::Nanos> predictedActiveSpaceExpiry_;
    std::vector<ferrow::Subscription> configObservers_;
    std::vector<ferrow::Subscription> refreshObservers_;
    std::unique_ptr<ferrow::Repeater> refreshTimer_;
    ferrow::Debouncer eventDebounce_{kEventDebounce};
    bool enabled_ = false;
    std::string lastSignature_;
    bool isRefreshing_ = false;
    std::map<std::uint64_t, std::string> cachedStageKeyBySpace_;
    bool isRecomputingStageMap_ = false;
    std::uint64_t stageMapGeneration_ = 0;
    std::map<std::string, CachedItemWindow> resolvedWindowByItemID_;
    ferrow::Observable<SpacesIndicatorModel> model_;
    std::uint64_t renderCount_ = 0;
    std::optional<std::string> lastCursorDisplayUUID_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace zelk::spaces
