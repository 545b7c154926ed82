#include "stages/FirefoxCapture.h"

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <sstream>
#include <system_error>

#include "stages/BundleTables.h"
#include "support/Log.h"

namespace zelk::stages {
namespace {

std::optional<std::string> stringAttribute(platform::Accessibility& ax, platform::AXRef element,
                                           const std::string& name) {
    auto result = ax.copyAttribute(element, name);
    if (!result.ok() || !result.value) return std::nullopt;
    if (auto* text = std::get_if<std::string>(&*result.value)) return *text;
    return std::nullopt;
}

std::vector<platform::AXRef> elementList(platform::Accessibility& ax, platform::AXRef element,
                                         const std::string& name) {
    auto result = ax.copyAttribute(element, name);
    if (!result.ok() || !result.value) return {};
    if (auto* list = std::get_if<std::vector<platform::AXRef>>(&*result.value)) return *list;
    return {};
}

platform::AXRef windowElement(platform::Accessibility& ax, platform::AXRef app, std::uint32_t windowID) {
    for (auto element : elementList(ax, app, "AXWindows"))
        if (ax.windowNumber(element) == windowID) return element;
    return 0;
}

std::string trimmed(std::string_view line) {
    const auto first = line.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return {};
    const auto last = line.find_last_not_of(" \t\r");
    return std::string(line.substr(first, last - first + 1));
}

// A line that names the setting and is not commented out.
bool isActiveForceDisable(const std::string& line) {
    if (line.find("accessibility.force_disabled") == std::string::npos) return false;
    return !line.starts_with("//") && !line.starts_with("#");
}

}  // namespace

std::optional<std::string> firefoxWebAreaURL(platform::Accessibility& ax, std::int32_t pid,
                                             std::uint32_t windowID) {
    platform::AXRef app = ax.applicationElement(pid);
    if (!app) return std::nullopt;
    ax.setMessagingTimeout(app, 1.0);
    // The role is read first: the browser builds its tree for a client that asks.
    (void)stringAttribute(ax, app, "AXRole");
    platform::AXRef window = windowElement(ax, app, windowID);
    if (!window) return std::nullopt;
    std::deque<platform::AXRef> queue{window};
    for (std::size_t taken = 0; !queue.empty() && taken < kWebAreaWalkLimit; ++taken) {
        platform::AXRef element = queue.front();
        queue.pop_front();
        if (stringAttribute(ax, element, "AXRole") == "AXWebArea") {
            auto url = stringAttribute(ax, element, "AXURL");
            if (!url || url->empty()) return std::nullopt;
            return url;
        }
        for (auto child : elementList(ax, element, "AXChildren"))
            queue.push_back(child);
    }
    return std::nullopt;
}

std::optional<std::string> firefoxUserJSBlock(const std::filesystem::path& applicationSupport,
                                              std::string_view bundleID) {
    namespace fs = std::filesystem;
    auto root = firefoxProfileRoot(bundleID);
    if (!root || applicationSupport.empty()) return std::nullopt;
    const fs::path profiles = applicationSupport / std::string(*root);
    std::error_code ec;
    fs::directory_iterator it(profiles, ec);
    if (ec) return std::nullopt;
    // Profiles in name order, so that the report does not depend on the directory's own order.
    std::vector<fs::path> entries;
    for (; it != fs::directory_iterator(); it.increment(ec)) {
        if (ec) break;
        entries.push_back(it->path());
    }
    std::sort(entries.begin(), entries.end());
    for (const auto& entry : entries) {
        const fs::path userJS = entry / "user.js";
        if (!fs::is_regular_file(userJS, ec)) continue;
        std::ifstream in(userJS, std::ios::binary);
        if (!in) continue;
        std::string raw;
        while (std::getline(in, raw)) {
            const std::string line = trimmed(raw);
            if (!isActiveForceDisable(line)) continue;
            std::string message =
                fmt::format("Firefox URL capture disabled by user.js: {} — line: {}", userJS.string(), line);
            ferrow::Log::error("{}", message);
            return message;
        }
    }
    return std::nullopt;
}

std::filesystem::path userApplicationSupportFolder() {
    if (const char* data = std::getenv("XDG_DATA_HOME");
        data && *data && std::filesystem::path(data).is_absolute())
        return data;
    if (const char* home = std::getenv("HOME"); home && *home)
        return std::filesystem::path(home) / ".local" / "share";
    return {};
}

}  // namespace zelk::stages
