#include "windows/WindowMinimizer.h"

namespace zelk::windows {

namespace {
constexpr double kTimeout = 1.0;

std::vector<platform::AXRef> windowsOf(platform::Accessibility& ax, platform::AXRef app) {
    auto list = ax.copyAttribute(app, "AXWindows");
    if (!list.ok() || !list.value) return {};
    if (auto* refs = std::get_if<std::vector<platform::AXRef>>(&*list.value)) return *refs;
    return {};
}

bool isMinimized(platform::Accessibility& ax, platform::AXRef window) {
    auto v = ax.copyAttribute(window, "AXMinimized");
    auto* b = v.value ? std::get_if<bool>(&*v.value) : nullptr;
    return b && *b;
}
}  // namespace

std::optional<platform::AXRef> WindowMinimizer::element(std::int32_t pid, std::uint32_t windowID) {
    auto app = ax_.applicationElement(pid);
    if (!app) return std::nullopt;
    ax_.setMessagingTimeout(app, kTimeout);
    for (auto w : windowsOf(ax_, app))
        if (ax_.windowNumber(w) == windowID) return w;
    return std::nullopt;
}

bool WindowMinimizer::setMinimized(std::int32_t pid, std::uint32_t windowID, bool minimized) {
    auto w = element(pid, windowID);
    if (!w) return false;
    if (!minimized && !isMinimized(ax_, *w)) return true;
    if (ax_.setAttribute(*w, "AXMinimized", minimized) != platform::AXError::success) return false;
    // A restored window is also brought forward, as a click in the Dock would.
    if (!minimized) ax_.performAction(*w, "AXRaise");
    return true;
}

bool WindowMinimizer::minimizeFocusedWindow(std::int32_t pid) {
    auto app = ax_.applicationElement(pid);
    if (!app) return false;
    ax_.setMessagingTimeout(app, kTimeout);
    auto focused = ax_.copyAttribute(app, "AXFocusedWindow");
    auto* ref = focused.value ? std::get_if<platform::AXRef>(&*focused.value) : nullptr;
    if (!ref || !*ref) return false;
    return ax_.setAttribute(*ref, "AXMinimized", true) == platform::AXError::success;
}

int WindowMinimizer::minimizeOthers(std::int32_t pid, std::uint32_t keptWindowID) {
    auto app = ax_.applicationElement(pid);
    if (!app) return 0;
    ax_.setMessagingTimeout(app, kTimeout);
    int count = 0;
    for (auto w : windowsOf(ax_, app)) {
        if (ax_.windowNumber(w) == keptWindowID || isMinimized(ax_, w)) continue;
        if (ax_.setAttribute(w, "AXMinimized", true) == platform::AXError::success) ++count;
    }
    return count;
}

}  // namespace zelk::windows
