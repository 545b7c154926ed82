#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "expose/ExposeInput.h"
#include "expose/ExposeModel.h"
#include "expose/ExposeSnapshot.h"
#include "expose/WindowPictureSource.h"
#include "platform/EventTap.h"
#include "platform/Screens.h"
#include "platform/WindowServer.h"
#include "stages/WindowPlacement.h"
#include "support/MainQueue.h"
#include "support/Observable.h"

namespace zelk::expose {

// What the overview reads and what it asks other subsystems to do. Every entry may be empty: a read
// gives nothing, an action does nothing and answers false.
struct ExposeEnvironment {
    // Window tracking refreshed and read, with the letters and the hidden apps.
    std::function<SnapshotInput()> snapshotInput;
    std::function<std::vector<platform::DisplaySpaces>()> displaySpaces;
    std::function<std::vector<platform::Screen>()> screens;

    // Focus through the focus pipeline, which switches Space first when the window stands elsewhere.
    std::function<bool(std::uint32_t window)> focusWindow;
    std::function<bool(std::uint64_t space)> switchToSpace;
    std::function<bool(std::uint32_t window)> closeWindow;
    std::function<bool(std::uint32_t window, bool minimized)> setMinimized;
    std::function<bool(std::int32_t pid, bool hidden)> setAppHidden;
    std::function<bool(std::int32_t pid)> quitApp;
    std::function<bool(std::uint32_t window, bool fullScreen)> setFullScreen;
    std::function<bool(std::uint32_t window, const stages::WindowPlacement& placement)> placeWindow;
    std::function<bool(std::uint32_t window, const Rect& frame)> setWindowFrame;
    // Moves a window to a Space; the answer is what went wrong, nothing when it moved.
    std::function<std::optional<std::string>(std::uint32_t window, std::uint64_t space)> moveWindowToSpace;
    // A digit treated as an app's key (one Space mode): the app it reaches, if any.
    std::function<std::optional<std::string>(const std::string& key)> bundleForKey;
    std::function<void()> beep;
    // The overview took or gave back the keyboard.
    std::function<void(bool visible)> keyboardTaken;
    std::function<bool()> keyboardIsISO;
    std::function<std::optional<Key>(std::uint16_t keyCode)> keyForCode;
    void fillDefaults();
};

// What the overview reads from the settings at each opening.
struct ExposeSettings {
    ExposeFilter include{0x7};
    bool spacesBar = true;
    bool animations = true;
    bool confirmBlindDestructive = true;
    std::string keyboardLayout = "auto";
    ExposeGrouping grouping = ExposeGrouping::app;
    Key exposeKey = Key::period;
    bool multiSpace = false;
    HotCorner hotCorner = HotCorner::off;
    static ExposeSettings read();
};

// The full-screen overview: gathers every window on every Space, lays out each screen, owns the
// selection and the keys while it is up, and acts on the highlighted window. Main thread.
class ExposeManager {
  public:
    static constexpr std::int64_t kOrderOutMs = 180;
    static constexpr std::int64_t kEntranceMs = 220;
    static constexpr std::int64_t kToastMs = 1400;
    static constexpr std::int64_t kConfirmMs = 2500;
    static constexpr std::int64_t kDragClickGuardMs = 150;
    static constexpr std::int64_t kPlaceAfterSwitchMs = 350;
    // How far a pressed tile must travel before the press becomes a drag, in points.
    static constexpr double kDragStartDistance = 4;

    explicit ExposeManager(ExposeEnvironment env);
    ~ExposeManager();
    ExposeManager(const ExposeManager&) = delete;
    ExposeManager& operator=(const ExposeManager&) = delete;

    // The pictures the tiles draw; the source must outlive the manager. Without one, placeholders.
    void setPictureSource(WindowPictureSource* source);
    const WindowPictureSource& pictures() const { return *pictures_; }

    bool toggle();
    void show();
    void hide(bool keepFocus = true);

    // A key down while the overview is up: true when it is taken, false to let it through.
    bool handleKey(Key key, const platform::KeyEvent& event);
    void handleScroll(const ScrollEvent& event);
    // The pointer moved (global point): hover while up, and the hot corner.
    void pointerMoved(Point global);
    // A tile dragged with the mouse: picked up, moved, dropped (global points).
    bool beginDrag(std::uint32_t window, Point global);
    void dragMoved(Point global);
    void endDrag(Point global);
    // The mouse on the overview's panels (global points). A press on a tile that travels becomes a
    // drag; released where it went down, it is a click: a tile focuses its window, a Spaces bar cell
    // shows its Space, the empty background closes the overview.
    void mouseDown(Point global);
    void mouseDragged(Point global);
    void mouseUp(Point global);
    // The active Space changed: re-read the Spaces and lay out again.
    void spacesChanged();
    // Settings re-read (the hot corner, the include filter at the next opening).
    void reloadSettings() { settings_ = ExposeSettings::read(); }

    // Published state.
    bool isVisible() const { return visible_; }
    ExposePhase phase() const { return phase_; }
    const std::vector<ExposeGroup>& groups() const { return groups_; }
    const std::vector<ExposeWindow>& flatWindows() const { return flatWindows_; }
    const std::vector<ExposeSpaceInfo>& spaces() const { return spaces_; }
    // Per screen, by the screen's display identifier, in the order of the screens.
    const std::vector<std::pair<std::string, ExposeLayoutSnapshot>>& layouts() const { return layouts_; }
    const ExposeLayoutSnapshot* layout(const std::string& screenKey) const;
    std::optional<std::uint32_t> selectedWindowID() const { return selected_; }
    std::optional<std::uint32_t> hoveredWindowID() const { return hovered_; }
    std::optional<std::string> hoveredGroupID() const { return hoveredGroup_; }
    std::optional<std::uint64_t> hoveredBarSpaceID() const { return hoveredBarSpace_; }
    ExposeGrouping grouping() const { return grouping_; }
    const std::optional<std::string>& filterBundleID() const { return filterBundleID_; }
    const std::optional<std::string>& filterLetter() const { return filterLetter_; }
    std::optional<std::uint64_t> filterSpaceID() const { return filterSpaceID_; }
    const std::optional<ExposeToast>& toast() const { return toast_; }
    const std::optional<ExposeConfirm>& confirm() const { return confirm_; }
    const std::optional<ExposeDrag>& drag() const { return drag_; }
    bool screenRecordingMissing() const { return !pictures_->permitted(); }
    const std::vector<std::uint32_t>& navOrder() const { return navOrder_; }
    const std::map<std::uint32_t, Rect>& entranceFrames() const { return entranceFrames_; }
    const std::map<std::uint32_t, Rect>& exitFrames() const { return exitFrames_; }
    const std::vector<platform::Screen>& panelScreens() const { return screens_; }
    const ExposeWindow* window(std::uint32_t id) const;
    bool hotCornerArmed() const { return hotCorner_.armed(); }
    HotCorner hotCorner() const { return settings_.hotCorner; }

    // After every change of what the overview shows.
    ferrow::Signal<> changed;

  private:
    struct KeyPress {
        Key key;
        std::uint16_t keyCode = 0;
        ExposeModifiers mods;
        bool repeat = false;
    };
    // A step of the key table: true when it decided the key (which is then taken).
    using KeyStep = bool (ExposeManager::*)(const KeyPress&);
    static const std::vector<KeyStep>& keySteps();

    // Opening, in order.
    void takeSnapshot();
    void readSpaces();
    void resetSelection();
    void relayout();
    void orderPanelsIn();
    void startPicturesAndEntrance();

    // The key table.
    bool escapeClearsOrHides(const KeyPress& k);
    bool overviewKeyHides(const KeyPress& k);
    bool commandWCloses(const KeyPress& k);
    bool commandMMinimizes(const KeyPress& k);
    bool commandHHides(const KeyPress& k);
    bool commandQQuits(const KeyPress& k);
    bool commandEqualEntersFullScreen(const KeyPress& k);
    bool commandMinusLeavesFullScreen(const KeyPress& k);
    bool commandDigitMovesOnDisplay(const KeyPress& k);
    bool optionDigitMovesToUserSpace(const KeyPress& k);
    bool tabSteps(const KeyPress& k);
    bool arrowsMove(const KeyPress& k);
    bool deleteClearsFilter(const KeyPress& k);
    bool spaceSelectsHovered(const KeyPress& k);
    bool returnFocuses(const KeyPress& k);
    bool clusterPlaces(const KeyPress& k);
    bool commaCyclesGrouping(const KeyPress& k);
    bool digitByContext(const KeyPress& k);
    bool letterFilters(const KeyPress& k);

    // Actions on the target.
    std::optional<std::uint32_t> target() const;
    ExposeWindow* mutableWindow(std::uint32_t id);
    void destructive(ExposeConfirmKind kind);
    void closeTarget(const ExposeWindow& w);
    void quitTarget(const ExposeWindow& w);
    void toggleMinimized(ExposeWindow& w);
    void toggleAppHidden(const ExposeWindow& w);
    void place(stages::SemanticPosition position);
    void pad();
    void moveToSpace(std::uint32_t window, const ExposeSpaceInfo& space);
    void focusAndHide(std::uint32_t window);
    void switchAdjacentSpace(int delta, std::uint64_t fromBarSpace);
    void showToast(std::uint32_t window, std::string text);
    void removeWindow(std::uint32_t id);
    void removeApp(std::int32_t pid);
    std::optional<platform::Screen> screenOf(const ExposeWindow& w) const;
    std::optional<platform::Screen> screenAt(Point global) const;
    // What lies under a global point: a tile, else a Spaces bar cell.
    std::optional<std::uint32_t> tileAt(Point global) const;
    std::optional<std::uint64_t> barCellAt(Point global) const;
    void click(Point global);
    std::vector<const ExposeWindow*> filteredWindows() const;
    void finishHide();
    void publish() { changed.emit(); }

    ExposeEnvironment env_;
    ExposeSettings settings_;
    WindowPictureSource defaultPictures_;
    WindowPictureSource* pictures_ = &defaultPictures_;

    bool visible_ = false;
    ExposePhase phase_ = ExposePhase::hidden;
    std::vector<ExposeWindow> flatWindows_;
    std::vector<ExposeGroup> groups_;
    std::vector<ExposeSpaceInfo> spaces_;
    std::set<std::uint64_t> activeSpaceIDs_;
    std::vector<platform::Screen> screens_;
    std::vector<std::pair<std::string, ExposeLayoutSnapshot>> layouts_;
    std::uint64_t layoutVersion_ = 0;
    std::optional<std::uint32_t> selected_, hovered_;
    std::optional<std::string> hoveredGroup_;
    std::optional<std::uint64_t> hoveredBarSpace_;
    ExposeGrouping grouping_ = ExposeGrouping::app;
    std::optional<std::string> filterBundleID_, filterLetter_;
    std::optional<std::uint64_t> filterSpaceID_;
    std::optional<ExposeToast> toast_;
    std::optional<ExposeConfirm> confirm_;
    std::optional<ExposeDrag> drag_;
    std::map<std::string, std::map<std::string, Point>> pinnedClusters_;  // by screen
    std::vector<std::uint32_t> navOrder_;
    std::vector<std::pair<std::uint32_t, Rect>> navFrames_;  // global
    std::map<std::uint32_t, Rect> entranceFrames_, exitFrames_;
    // The fling in progress: the accumulated scroll and what it acts on.
    Point flingAccum_;
    std::optional<std::uint32_t> flingWindow_;
    std::optional<std::string> flingGroup_;
    std::optional<std::uint64_t> flingBarSpace_;
    HotCornerTracker hotCorner_;
    std::uint64_t toastToken_ = 0, confirmToken_ = 0;
    ferrow::WorkItem toastTimer_, confirmTimer_, orderOutTimer_, entranceTimer_, placeTimer_;
    std::optional<ferrow::Nanos> dragEndedAt_;
    // The mouse button held on a panel: where it went down and the tile under it, if any.
    struct Press {
        Point at;
        std::optional<std::uint32_t> tile;
    };
    std::optional<Press> press_;
};

}  // namespace zelk::expose
