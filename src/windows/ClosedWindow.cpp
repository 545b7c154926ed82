#include "windows/ClosedWindow.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace zelk::windows {

using nlohmann::json;

const std::string& ClosedWindow::bundleID() const {
    static const std::string none;
    return app ? app->bundleIdentifier() : none;
}

json toJson(const ClosedWindow& e) {
    json j{{"id", e.id},
           {"app", e.app ? e.app->toJson() : json::object()},
           {"windowSpec", stages::toJson(e.windowSpec)},
           {"windowTitle", e.windowTitle},
           {"originalWindowID", e.originalWindowID},
           {"closedAt", e.closedAt}};
    if (e.windowPlacement) j["windowPlacement"] = stages::toJson(*e.windowPlacement);
    if (e.lastFocusedAt) j["lastFocusedAt"] = *e.lastFocusedAt;
    return j;
}

namespace {

std::optional<std::string> stringField(const json& j, const char* key) {
    auto it = j.find(key);
    if (it == j.end() || !it->is_string()) return std::nullopt;
    return it->get<std::string>();
}

std::optional<double> numberField(const json& j, const char* key) {
    auto it = j.find(key);
    if (it == j.end() || !it->is_number()) return std::nullopt;
    return it->get<double>();
}

}  // namespace

std::optional<ClosedWindow> closedWindowFromJson(const json& j, std::string& error) {
    if (!j.is_object()) {
        error = "ClosedWindow is not an object";
        return std::nullopt;
    }
    ClosedWindow e;
    auto id = stringField(j, "id");
    if (!id || id->empty()) {
        error = "id is missing";
        return std::nullopt;
    }
    e.id = *id;
    auto appIt = j.find("app");
    if (appIt == j.end() || !(e.app = apps::LaunchableApp::fromJson(*appIt))) {
        error = "app is missing or unreadable";
        return std::nullopt;
    }
    auto specIt = j.find("windowSpec");
    if (specIt == j.end()) {
        error = "windowSpec is missing";
        return std::nullopt;
    }
    auto spec = stages::windowSpecFromJson(*specIt, error);
    if (!spec) return std::nullopt;
    e.windowSpec = *spec;
    auto title = stringField(j, "windowTitle");
    auto closedAt = numberField(j, "closedAt");
    auto wid = numberField(j, "originalWindowID");
    if (!title || !closedAt || !wid || *wid < 0 || *wid > 4294967295.0) {
        error = "windowTitle, originalWindowID or closedAt is missing";
        return std::nullopt;
    }
    e.windowTitle = *title;
    e.closedAt = *closedAt;
    e.originalWindowID = static_cast<std::uint32_t>(*wid);
    e.lastFocusedAt = numberField(j, "lastFocusedAt");
    // A placement written by another build must not cost the entry.
    if (auto it = j.find("windowPlacement"); it != j.end() && !it->is_null()) {
        std::string placementError;
        e.windowPlacement = stages::windowPlacementFromJson(*it, placementError);
    }
    return e;
}

json toJson(const std::vector<ClosedWindow>& list) {
    json out = json::array();
    for (const auto& e : list)
        out.push_back(toJson(e));
    return out;
}

std::vector<ClosedWindow> closedWindowsFromJson(const json& j, std::string& error) {
    if (!j.is_array()) {
        error = "the list is not an array";
        return {};
    }
    std::vector<ClosedWindow> out;
    for (std::size_t i = 0; i < j.size(); ++i) {
        std::string why;
        auto e = closedWindowFromJson(j[i], why);
        if (!e) {
            error = fmt::format("entry {}: {}", i, why);
            return {};
        }
        out.push_back(std::move(*e));
    }
    return out;
}

bool sameClosedWindow(const ClosedWindow& a, const ClosedWindow& b) {
    return a.bundleID() == b.bundleID() && a.windowSpec == b.windowSpec;
}

std::vector<ClosedWindow> withRecorded(std::vector<ClosedWindow> list, ClosedWindow entry, double now) {
    std::erase_if(list, [&](const ClosedWindow& e) { return sameClosedWindow(e, entry); });
    std::erase_if(list,
                  [&](const ClosedWindow& e) { return now - e.closedAt > kClosedWindowRetentionSeconds; });
    list.insert(list.begin(), std::move(entry));
    if (list.size() > kClosedWindowLimit) list.resize(kClosedWindowLimit);
    return list;
}

std::string closedAgo(double closedAt, double now) {
    const double s = std::max(0.0, now - closedAt);
    if (s < 60) return "just now";
    if (s < 3600) return fmt::format("{}m ago", static_cast<int>(s / 60));
    if (s < 86'400) return fmt::format("{}h ago", static_cast<int>(s / 3600));
    return fmt::format("{}d ago", static_cast<int>(s / 86'400));
}

}  // namespace zelk::windows
