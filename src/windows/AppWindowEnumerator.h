#pragma once
#include <optional>
#include <vector>

#include "config/Setting.h"
#include "config/SettingsCatalogue.h"
#include "platform/Workspace.h"
#include "windows/AXHealth.h"
#include "windows/AXReader.h"
#include "windows/ManagedWindow.h"
#include "windows/SpaceWalk.h"

namespace zelk::windows {

// The windows of one app: accessibility on the active Space, the window server for the others.
class AppWindowEnumerator {
  public:
    AppWindowEnumerator(platform::Accessibility& ax, platform::WindowServer& server,
                        platform::Workspace& workspace, SpaceWalk& walk, AXHealth& health)
        : ax_(ax), server_(server), workspace_(workspace), walk_(walk), health_(health) {}

    // The `ignoredApps` setting, as a set kept in step with the store: a look-up never decodes
    // or scans the stored list.
    bool isIgnored(const std::string& bundleID) const {
        return !bundleID.empty() && ignoredApps_.get().count(bundleID) > 0;
    }

    // nil: the app could not be asked and the caller keeps what it has. Empty: asked, or skipped on purpose.
    std::optional<std::vector<ManagedWindow>> getWindowsForApp(
        const platform::RunningApp& app, const std::optional<std::vector<CrossSpaceWindow>>& crossSpace);

    // One accessibility window, or nullopt when it isn't a window the switcher lists.
    std::optional<ManagedWindow> parseWindow(platform::AXRef window, const platform::RunningApp& app,
                                             std::uint32_t focusedNumber);

    AXReader& reader() { return ax_; }

  private:
    AXReader ax_;
    platform::WindowServer& server_;
    platform::Workspace& workspace_;
    SpaceWalk& walk_;
    AXHealth& health_;
    Setting<StringSet> ignoredApps_{keys::ignoredApps};
};

}  // namespace zelk::windows
