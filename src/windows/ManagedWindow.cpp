#include "windows/ManagedWindow.h"

#include <fmt/format.h>

#include <array>
#include <utility>

namespace zelk::windows {

namespace {
constexpr std::array<std::pair<Role, std::string_view>, 3> kRoles{{
    {Role::window, "AXWindow"},
    {Role::sheet, "AXSheet"},
    {Role::drawer, "AXDrawer"},
}};
constexpr std::array<std::pair<Subrole, std::string_view>, 5> kSubroles{{
    {Subrole::standardWindow, "AXStandardWindow"},
    {Subrole::dialog, "AXDialog"},
    {Subrole::systemDialog, "AXSystemDialog"},
    {Subrole::floatingWindow, "AXFloatingWindow"},
    {Subrole::systemFloatingWindow, "AXSystemFloatingWindow"},
}};
}  // namespace

std::optional<Role> roleFromAX(std::string_view value) {
    for (auto& [role, name] : kRoles)
        if (name == value) return role;
    return std::nullopt;
}

std::optional<Subrole> subroleFromAX(std::string_view value) {
    for (auto& [subrole, name] : kSubroles)
        if (name == value) return subrole;
    return std::nullopt;
}

std::string_view roleName(Role role) {
    switch (role) {
        case Role::window:
            return "window";
        case Role::sheet:
            return "sheet";
        case Role::drawer:
            return "drawer";
        case Role::unknown:
            break;
    }
    return "unknown";
}

std::string_view subroleName(Subrole subrole) {
    switch (subrole) {
        case Subrole::standardWindow:
            return "standardWindow";
        case Subrole::dialog:
            return "dialog";
        case Subrole::systemDialog:
            return "systemDialog";
        case Subrole::floatingWindow:
            return "floatingWindow";
        case Subrole::systemFloatingWindow:
            return "systemFloatingWindow";
        case Subrole::unknown:
            break;
    }
    return "unknown";
}

bool isAllowedSubrole(Subrole subrole) {
    return subrole != Subrole::unknown;
}

std::string describe(const ManagedWindow& w) {
    return fmt::format("#{}[{}]", w.id, w.bundleIdentifier);
}

std::string describe(const std::optional<ManagedWindow>& w) {
    return w ? describe(*w) : std::string("nil");
}

}  // namespace zelk::windows
