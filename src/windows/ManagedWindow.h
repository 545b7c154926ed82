#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Geometry.h"

namespace zelk::windows {

enum class Role { window, sheet, drawer, unknown };
enum class Subrole { standardWindow, dialog, systemDialog, floatingWindow, systemFloatingWindow, unknown };

// The accessibility strings ("AXWindow", "AXStandardWindow", ...); nullopt for a value outside them.
std::optional<Role> roleFromAX(std::string_view value);
std::optional<Subrole> subroleFromAX(std::string_view value);
std::string_view roleName(Role role);
std::string_view subroleName(Subrole subrole);
// The five subroles a tracked window may have.
bool isAllowedSubrole(Subrole subrole);

// One tracked window. `spaceID` nil means not stamped yet and reads as the active Space.
struct ManagedWindow {
    std::uint32_t id = 0;
    std::string title;
    std::string bundleIdentifier;
    Role role = Role::unknown;
    Subrole subrole = Subrole::unknown;
    std::string appName = "Unknown";
    std::int32_t appPid = 0;
    bool isMinimized = false;
    bool isFocused = false;
    std::optional<std::uint64_t> spaceID;
    bool operator==(const ManagedWindow&) const = default;
};

// A window as the window server reports it, on any Space.
struct CrossSpaceWindow {
    std::uint32_t windowID = 0;
    std::int32_t pid = 0;
    std::optional<std::string> title;
    std::uint64_t spaceID = 0;
    bool isOnActiveSpace = false;
    std::optional<Rect> bounds;
    std::int32_t level = 0;
    bool operator==(const CrossSpaceWindow&) const = default;
};

// "#12[com.apple.Safari]" for log lines; "nil" without a window.
std::string describe(const ManagedWindow& window);
std::string describe(const std::optional<ManagedWindow>& window);

}  // namespace zelk::windows
