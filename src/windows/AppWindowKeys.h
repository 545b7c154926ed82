#pragma once
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/Observable.h"
#include "windows/ManagedWindow.h"
#include "windows/WindowKeys.h"

namespace zelk::windows {

// Turns the window list into each app's rows with their keys, under the settings that shape the
// keys (compiling the key patterns again only when they change). Main thread only.
class AppWindowKeys {
  public:
    AppWindowKeys();

    // Every app's rows, by bundle id, from the tracked windows and their digits.
    std::map<std::string, std::vector<AppWindow>> rows(
        const std::vector<ManagedWindow>& windows,
        const std::map<std::string, std::map<std::uint32_t, int>>& numbers);

    // The options the settings give now (exposed for tests).
    static WindowKeyOptions currentOptions();

    // A setting of window keys changed: the owner refreshes.
    ferrow::Signal<> settingsChanged;

  private:
    WindowKeyPatterns& patterns();

    std::optional<std::vector<WindowPatternGroup>> compiledGroups_;
    WindowKeyPatterns patterns_;
    ferrow::Subscription storeSub_;
};

}  // namespace zelk::windows
