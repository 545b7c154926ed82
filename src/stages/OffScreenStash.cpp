#include "stages/OffScreenStash.h"

#include <algorithm>

#include "config/SettingsCatalogue.h"
#include "support/Log.h"

namespace zelk::stages {
namespace {

using windows::ManagedWindow;
constexpr std::int64_t kPersistDelayMs = 1500;

}  // namespace

nlohmann::json toJson(const StashedWindowRecord& r) {
    return {
        {"windowID", r.windowID}, {"bundleID", r.bundleID}, {"x", r.x}, {"y", r.y}, {"w", r.w}, {"h", r.h}};
}

std::optional<StashedWindowRecord> stashedWindowRecordFromJson(const nlohmann::json& j) {
    if (!j.is_object()) return std::nullopt;
    auto id = j.find("windowID");
    auto bundle = j.find("bundleID");
    if (id == j.end() || !id->is_number_integer() || bundle == j.end() || !bundle->is_string())
        return std::nullopt;
    StashedWindowRecord r;
    auto wid = id->get<std::int64_t>();
    if (wid <= 0 || wid > 0xFFFFFFFFLL) return std::nullopt;
    r.windowID = static_cast<std::uint32_t>(wid);
    r.bundleID = bundle->get<std::string>();
    for (auto [key, field] : {std::pair{"x", &r.x}, {"y", &r.y}, {"w", &r.w}, {"h", &r.h}}) {
        auto it = j.find(key);
        if (it == j.end() || !it->is_number()) return std::nullopt;
        *field = it->get<double>();
    }
    return r;
}

OffScreenStash::OffScreenStash(Sources sources) : s_(std::move(sources)) {}

OffScreenStash::~OffScreenStash() {
    stashPersistTask_.cancel();
}

void OffScreenStash::load() {
    records_.clear();
    for (const auto& entry : s_.settings->get(keys::stashedOffScreenWindows))
        if (auto r = stashedWindowRecordFromJson(entry)) records_[r->windowID] = *r;
}

void OffScreenStash::schedulePersist() {
    stashPersistTask_.cancel();
    stashPersistTask_ = ferrow::mainAsyncAfter(kPersistDelayMs, [this] {
        nlohmann::json list = nlohmann::json::array();
        for (const auto& [id, r] : records_)
            list.push_back(toJson(r));
        s_.settings->set(keys::stashedOffScreenWindows, list);
    });
}

std::optional<platform::RunningApp> OffScreenStash::runningApp(const std::string& bundleID) const {
    for (auto& app : s_.platform.workspace->runningApplications())
        if (app.bundleID == bundleID && !app.terminated) return app;
    return std::nullopt;
}

platform::AXRef OffScreenStash::windowElement(std::int32_t pid, std::uint32_t windowID) const {
    auto* ax = s_.platform.accessibility;
    platform::AXRef app = ax->applicationElement(pid);
    if (!app) return 0;
    ax->setMessagingTimeout(app, 1.0);
    auto list = ax->copyAttribute(app, "AXWindows");
    if (!list.ok() || !list.value) return 0;
    auto* elements = std::get_if<std::vector<platform::AXRef>>(&*list.value);
    if (!elements) return 0;
    for (auto element : *elements)
        if (ax->windowNumber(element) == windowID) return element;
    return 0;
}

bool OffScreenStash::moveWindowOffScreen(const ManagedWindow& window) {
    ferrow::Log::info("Attempting to move window {} '{}' off-screen", window.id, window.title);
    if (records_.contains(window.id)) return true;  // keep the first rectangle
    auto* ws = s_.platform.windowServer;
    auto rows = ws->windowList(platform::windowlist::includingWindow, window.id);
    auto row = std::find_if(rows.begin(), rows.end(), [&](auto& r) { return r.number == window.id; });
    if (row == rows.end() || !row->isOnscreen || row->ownerPID != window.appPid) return false;
    auto bounds = ws->windowBounds(window.id);
    if (!bounds || bounds->width <= 0 || bounds->height <= 0) return false;
    auto app = runningApp(window.bundleIdentifier);
    if (!app) return false;
    platform::AXRef element = windowElement(app->pid, window.id);
    if (!element) return false;
    // The record goes in first, so a restart mid-move still knows where the window belongs.
    records_[window.id] = {window.id, window.bundleIdentifier, bounds->x,
                           bounds->y, bounds->width,           bounds->height};
    schedulePersist();
    auto screens = s_.platform.screens->screens();
    Point centre{bounds->x + bounds->width / 2, bounds->y + bounds->height / 2};
    std::optional<platform::Screen> screen;
    for (auto& s : screens)
        if (s.frame.contains(centre)) {
            screen = s;
            break;
        }
    if (!screen) screen = s_.platform.screens->mainScreen();
    if (!screen && !screens.empty()) screen = screens.front();
    Rect f = screen ? screen->frame : Rect{};
    Point target{f.x + f.width + bounds->width - 5, f.y + f.height + bounds->height - 5};
    ferrow::Log::debug("offscreen-stash position: wid={} to ({}, {})", window.id, target.x, target.y);
    auto error = s_.platform.accessibility->setAttribute(element, "AXPosition", target);
    if (error != platform::AXError::success) {
        records_.erase(window.id);
        schedulePersist();
        ferrow::Log::error("Error moving window off-screen: {}", static_cast<int>(error));
        return false;
    }
    return true;
}

bool OffScreenStash::restoreWindowFromOffScreen(std::uint32_t windowID) {
    ferrow::Log::info("Attempting to restore window {} from off-screen", windowID);
    auto it = records_.find(windowID);
    if (it == records_.end()) return false;
    auto tracked = s_.windows();
    if (std::none_of(tracked.begin(), tracked.end(), [&](auto& w) { return w.id == windowID; })) return false;
    StashedWindowRecord record = it->second;
    auto app = runningApp(record.bundleID);
    if (!app) return false;
    platform::AXRef element = windowElement(app->pid, windowID);
    if (!element) return false;
    ferrow::Log::debug("offscreen-restore: wid={} to ({}, {}) {}x{}", windowID, record.x, record.y, record.w,
                       record.h);
    auto* ax = s_.platform.accessibility;
    auto error = ax->setAttribute(element, "AXPosition", Point{record.x, record.y});
    if (error == platform::AXError::success)
        error = ax->setAttribute(element, "AXSize", Size{record.w, record.h});
    if (error != platform::AXError::success) {
        ferrow::Log::error("Error restoring window from off-screen: {}", static_cast<int>(error));
        return false;
    }
    records_.erase(windowID);
    schedulePersist();
    return true;
}

void OffScreenStash::restoreOffScreenWindows(const std::string& bundleID) {
    auto tracked = s_.windows();
    std::vector<std::uint32_t> ids;
    for (const auto& [id, r] : records_)
        for (const auto& w : tracked)
            if (w.id == id && w.bundleIdentifier == bundleID) ids.push_back(id);
    for (auto id : ids)
        restoreWindowFromOffScreen(id);
}

void OffScreenStash::restoreAllOffScreenWindows() {
    std::vector<std::uint32_t> ids;
    for (const auto& [id, r] : records_)
        ids.push_back(id);
    for (auto id : ids)
        restoreWindowFromOffScreen(id);
}

void OffScreenStash::reconcilePersistedStashes() {
    auto* ws = s_.platform.windowServer;
    std::vector<std::uint32_t> stale;
    for (const auto& [id, r] : records_) {
        auto rows = ws->windowList(platform::windowlist::includingWindow, id);
        auto row = std::find_if(rows.begin(), rows.end(), [&](auto& w) { return w.number == id; });
        bool ok = row != rows.end() && row->bounds.width > 0 && row->isOnscreen;
        if (ok) {
            auto owner = s_.platform.workspace->runningApp(row->ownerPID);
            ok = owner && owner->bundleID == r.bundleID;
        }
        if (!ok) stale.push_back(id);
    }
    for (auto id : stale) {
        ferrow::Log::info("reconcilePersistedStashes: dropping stale stash for window {} ({})", id,
                          records_[id].bundleID);
        records_.erase(id);
    }
    if (!stale.empty()) schedulePersist();
}

}  // namespace zelk::stages
