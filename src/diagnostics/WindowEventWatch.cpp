#include "diagnostics/WindowEventWatch.h"

namespace zelk::diagnostics {

void WindowEventWatch::start(double seconds, double nowMs, const std::vector<windows::ManagedWindow>& windows,
                             std::optional<std::uint32_t> focused) {
    started_ = true;
    startedAt_ = nowMs;
    seconds_ = seconds > 0 ? seconds : kDefaultSeconds;
    pending_.clear();
    last_.clear();
    for (const auto& w : windows)
        last_[w.id] = w;
    focused_ = focused;
}

void WindowEventWatch::add(double nowMs, const std::string& event, const windows::ManagedWindow& w) {
    if (pending_.size() >= kMaxEvents) pending_.erase(pending_.begin());
    pending_.push_back({nowMs - startedAt_, event, w.id, w.title, w.bundleIdentifier});
}

void WindowEventWatch::windowsChanged(const std::vector<windows::ManagedWindow>& windows, double nowMs) {
    if (!watching(nowMs)) return;
    std::map<std::uint32_t, windows::ManagedWindow> now;
    for (const auto& w : windows) {
        now[w.id] = w;
        auto before = last_.find(w.id);
        if (before == last_.end()) {
            add(nowMs, "created", w);
            continue;
        }
        const auto& old = before->second;
        if (old.title != w.title) add(nowMs, "retitled", w);
        if (old.isMinimized != w.isMinimized) add(nowMs, w.isMinimized ? "minimized" : "unminimized", w);
        if (old.spaceID != w.spaceID) add(nowMs, "space", w);
    }
    for (const auto& [id, w] : last_)
        if (!now.count(id)) add(nowMs, "closed", w);
    last_ = std::move(now);
}

void WindowEventWatch::focusChanged(const std::optional<windows::ManagedWindow>& focused, double nowMs) {
    if (!watching(nowMs)) return;
    std::optional<std::uint32_t> id = focused ? std::optional<std::uint32_t>(focused->id) : std::nullopt;
    if (id == focused_) return;
    focused_ = id;
    if (focused) add(nowMs, "focused", *focused);
}

nlohmann::json WindowEventWatch::fetch(double nowMs) {
    nlohmann::json events = nlohmann::json::array();
    for (const auto& e : pending_) {
        nlohmann::json item{{"t", e.atMs}, {"event", e.event}, {"id", e.id}, {"title", e.title}};
        if (!e.bundleID.empty()) item["bundleID"] = e.bundleID;
        events.push_back(std::move(item));
    }
    pending_.clear();
    return {{"watching", watching(nowMs)}, {"started", started_}, {"events", std::move(events)}};
}

}  // namespace zelk::diagnostics
