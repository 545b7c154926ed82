#pragma once
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Accessibility.h"

// The Firefox family tells its page only through its accessibility tree, and a user.js setting can
// switch that tree off; both reads live here.
namespace zelk::stages {

// At most this many elements are taken from the walk's queue; page trees can be huge.
inline constexpr std::size_t kWebAreaWalkLimit = 5000;

// The page URL of a window: a breadth-first walk over "AXChildren" from the window, ended by the
// first element whose role is "AXWebArea"; its "AXURL" (empty counts as nothing).
std::optional<std::string> firefoxWebAreaURL(platform::Accessibility& ax, std::int32_t pid,
                                             std::uint32_t windowID);

// Looks for a user.js in every profile of the browser's profile root (below `applicationSupport`)
// that turns accessibility off. The first active setting is logged at error level and returned as
// that log line; nothing when there is none, the bundle is not of the family, or the folder is
// missing. It only reports.
std::optional<std::string> firefoxUserJSBlock(const std::filesystem::path& applicationSupport,
                                              std::string_view bundleID);

// The user's application-support folder: $XDG_DATA_HOME when it is an absolute path, else
// ~/.local/share; empty when neither is known.
std::filesystem::path userApplicationSupportFolder();

}  // namespace zelk::stages
