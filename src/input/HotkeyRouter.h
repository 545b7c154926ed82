#pragma once
#include "input/TriggerSets.h"
#include "platform/EventTap.h"
#include "platform/Key.h"

namespace zelk {

// What one key does while a trigger is held, and the commit when the trigger comes up.
class HotkeyRouter {
  public:
    virtual ~HotkeyRouter() = default;
    virtual platform::TapDecision routeKeyDown(Key key, const platform::KeyEvent& event,
                                               const TriggerList& keys, bool isAutoRepeat) = 0;
    virtual void commitOnTriggerUp() = 0;
    // The stage trigger went down: show the stage panel when stages exist.
    virtual void showStagePanelIfAny() {}
    // The overlay opens: drop grace and pending work.
    virtual void cancelForOverlay() {}
    // The tab cycle is there to take keys: without it the take-over of Cmd-Tab and Cmd-backtick
    // claims nothing and leaves the system's shortcut alone.
    virtual bool tabCycleBuilt() const { return false; }
};

}  // namespace zelk
