#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "config/OSDLook.h"
#include "config/SwitcherOptions.h"
#include "input/OSDModel.h"
#include "platform/Screens.h"
#include "support/MainQueue.h"
#include "support/Observable.h"
#include "support/Timing.h"

namespace zelk {
class InputManager;
class KeyRouter;
class Settings;
}  // namespace zelk

namespace zelk::osd {

// The settings the panel reads, as one snapshot re-read when any of them changes.
struct PanelSettings {
    struct Group {
        ScreenCorner corner = ScreenCorner::bottomRight;
        double offsetX = 0, offsetY = 0, referenceHeight = 0;
        bool mirrorsApp = true;
    };
    int appDelay = 150, windowDelay = 0, stageDelay = 80, searchDwell = 400;
    bool showApp = false, showWindow = true, showStage = true;
    Group app, window, stage;
    double appWidth = 400, appHeight = 600, windowWidth = 480, windowHeight = 420;
    std::uint64_t appFeatures = 0x26, windowFeatures = 0x39;
    bool switcherAppsOnly = false, osdCurrentSpaceOnly = false;
    bool showMenubarAppsInSearch = true, searchRunningAndStaticOnly = false;
    bool enableSelectionActionHotkeys = true, hideOnlyFocusedAppOnMinus = false;
    OSDLook look;

    static PanelSettings load(const Settings& settings);
};

// Feature bits of the panels.
inline constexpr std::uint64_t kAssignedAppsBit = 0x2;
inline constexpr std::uint64_t kRunningAppsBit = 0x4;
inline constexpr std::uint64_t kOpenWindowsBit = 0x8;
inline constexpr std::uint64_t kSavedWindowsBit = 0x10;
inline constexpr std::uint64_t kBottomActionsBit = 0x20;

// What the panel shows, from the subsystems that own it. Each entry has an empty default, so the
// panel works before every subsystem is in place.
struct OSDEnvironment {
    std::function<std::vector<OSDSection>(const PanelSettings&)> appPanel;
    std::function<std::vector<OSDSection>(const PanelSettings&)> windowPanel;
    std::function<std::vector<OSDSection>()> stagePanel;
    // The saved stages, which fill the stage panel when `stagePanel` is left empty; none until stages
    // exist.
    std::function<std::vector<StageListing>()> stages;
    std::function<std::vector<OSDSection>()> tabCyclePanel;
    std::function<std::string()> tabCycleFilter;  // what is typed into a running tab cycle
    std::function<SearchContent()> searchResults;
    std::function<void(const std::string& query)> runSearch;
    // Whether any static or dynamic assignment exists; whether a letter is bound.
    std::function<bool()> hasAnyAssignment;
    std::function<bool(const std::string& key)> isAssignedKey;
    // The overlay of the full-screen overview.
    std::function<bool()> overlayVisible;
    std::function<void()> dismissOverlay;
    // The onboarding flow: open, and whether it is past its permission step.
    std::function<bool()> onboardingOpen;
    std::function<bool()> onboardingPastPermissions;
    // A hide ends a walk through a shared window key: its order becomes the key's rows.
    std::function<void()> clearReorderedAppWindows;
    void fillDefaults();
};

// When the one panel appears and disappears, where it stands, and how it stays open with no key
// held. Owns the panel's state (hidden, pending work, watchdog, placement) and publishes it as one
// `OSDModel`; drawings read only that. Main thread.
class OSDController {
  public:
    OSDController(InputManager& input, KeyRouter& router, OSDEnvironment env);
    ~OSDController();
    OSDController(const OSDController&) = delete;
    OSDController& operator=(const OSDController&) = delete;

    // Show and hide.
    void showOSD(bool immediate);
    void hideOSD(bool immediate);
    void presentOSD();

    // Latching.
    void latchSearchSurface(const std::string& surface);
    void latchSearchWithBuffer(const std::string& text);
    void latchTabCycle();
    void toggleLatchedSearch(const std::string& surface);
    void unlatch();
    bool anythingLatched() const;
    // The router latched a search itself (Space during a hold): the latch's monitor and panel.
    void searchLatchedByRouter();
    // A mouse button went down at this point, outside any of this program's windows or inside the panel.
    void mouseDown(Point at);

    // The flash of an action on a row; cleared after its duration or when the panel goes away.
    void showActionFlash(const std::string& icon, const std::string& label, std::int64_t durationMs);
    void clearActionFlash();

    // Theme and mode.
    void applySwitcherMode(SwitcherMode mode);
    bool applyThemeByID(const std::string& id);

    // The model, rebuilt when the state it reads may have changed; `changed` fires when it differs.
    const OSDModel& model() const { return model_; }
    void refresh();
    ferrow::Signal<OSDModel> changed;

    const PanelSettings& settings() const { return settings_; }
    void reloadSettings();
    bool osdHidden() const { return hidden_; }
    // When the panel last became visible; none while hidden.
    std::optional<ferrow::Nanos> appSwitcherPaintedAt() const { return paintedAt_; }
    std::optional<std::uint32_t> osdAnchorDisplayID;

  private:
    // showOSD's gates and delays, in order; each answers the delay to use, or none to stop.
    bool onboardingAllows() const;
    void prepareOnce();
    std::optional<std::int64_t> delayFor(bool immediate, bool& presentNow) const;
    std::optional<std::int64_t> appTriggerDelay(bool immediate, bool& presentNow) const;
    std::int64_t floorMs() const;
    void scheduleShow(std::int64_t delayMs, PendingKind kind);
    void delayedShow(bool isRetry);
    void startWatchdog();
    void stopWatchdog();
    void watchdogTick();
    void forceHide();
    void hideNow();
    void place();
    void startReplacement();
    void screensChanged();
    void startOutsideClickMonitor();
    void stopOutsideClickMonitor();

    // Model inputs.
    ViewInputs viewInputs() const;
    PlacementGroup effectiveGroup() const;
    std::optional<platform::Screen> osdScreen() const;
    bool windowHeight() const;
    std::vector<OSDSection> contentFor(OSDView view) const;
    PanelTexts texts() const;
    ferrow::Nanos now() const;
    std::int64_t sinceStartMs(ferrow::Nanos t) const;
    void scheduleRefresh();

    InputManager& input_;
    KeyRouter& router_;
    OSDEnvironment env_;
    PanelSettings settings_;
    OSDModel model_;

    ferrow::Nanos epoch_ = 0;  // due times count from here, the program's start
    bool refreshQueued_ = false;
    bool hidden_ = true;
    bool prepared_ = false;
    bool orderedIn_ = false;
    double alpha_ = 0;
    ferrow::WorkItem showOSDTask_;
    std::optional<OSDPending> pending_;
    ferrow::WorkItem watchdog_;
    bool watchdogRunning_ = false;
    int strikes_ = 0;
    std::unique_ptr<ferrow::Repeater> moveWindowTask_;
    std::optional<ferrow::Nanos> paintedAt_;
    OSDPlacement placement_;
    Size screenSize_;
    bool clickMonitor_ = false;
    std::optional<OSDFlash> flash_;
    std::uint64_t flashSeq_ = 0;
    ferrow::WorkItem flashWork_;
    std::vector<ferrow::Subscription> subscriptions_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace zelk::osd
