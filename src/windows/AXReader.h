#pragma once
#include <optional>
#include <string>
#include <vector>

#include "platform/Accessibility.h"

namespace zelk::windows {

// Typed reads over the accessibility interface: no value (the two no-value codes) is nullopt, any other
// failure is reported in `error`.
class AXReader {
  public:
    static constexpr double kMessagingTimeout = 1.0;

    explicit AXReader(platform::Accessibility& ax) : ax_(ax) {}
    platform::Accessibility& ax() { return ax_; }

    // The application element with the 1.0 s messaging time-out already set.
    platform::AXRef application(std::int32_t pid);
    std::optional<std::string> string(platform::AXRef e, const std::string& name,
                                      platform::AXError* error = nullptr);
    std::optional<bool> boolean(platform::AXRef e, const std::string& name,
                                platform::AXError* error = nullptr);
    std::optional<Size> size(platform::AXRef e, platform::AXError* error = nullptr);
    // "AXWindows": nullopt and `error` set on failure; an app without the attribute gives an empty list.
    std::optional<std::vector<platform::AXRef>> windows(platform::AXRef app, platform::AXError& error);
    // The app's focused window; with `noSheets`, a sheet gives the window that owns it.
    std::optional<platform::AXRef> focusedWindow(platform::AXRef app, bool noSheets = true);
    std::optional<platform::AXRef> element(platform::AXRef e, const std::string& name);

    static bool isNoValue(platform::AXError e) {
        return e == platform::AXError::noValue || e == platform::AXError::attributeUnsupported;
    }

  private:
    platform::Accessibility& ax_;
};

// "cannotComplete (-25204)" and the like, for log lines.
std::string errorText(platform::AXError error);

}  // namespace zelk::windows
