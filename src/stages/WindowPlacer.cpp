#include "stages/WindowPlacer.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "support/Format.h"
#include "support/Log.h"

namespace zelk::stages {
namespace {

using windows::ManagedWindow;

std::string_view trim(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())))
        text.remove_prefix(1);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
        text.remove_suffix(1);
    return text;
}

std::optional<double> number(std::string_view text) {
    text = trim(text);
    if (text.starts_with('+')) text.remove_prefix(1);
    double value = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
    return value;
}

std::string shortNumber(double v) {
    return fmt::format("{}", v);
}

bool isNativeFullscreen(const WindowPlacement& placement) {
    auto* s = std::get_if<SemanticPlacement>(&placement);
    return s && s->position == SemanticPosition::fullscreen;
}

const std::optional<std::string>& screenOf(const WindowPlacement& placement) {
    return std::visit([](const auto& p) -> const std::optional<std::string>& { return p.screen; }, placement);
}

}  // namespace

ScreenList screenListFrom(const std::vector<platform::Screen>& screens,
                          const std::optional<platform::Screen>& main) {
    ScreenList list;
    if (screens.empty()) return list;
    double primaryHeight = screens.front().frame.height + screens.front().frame.y;
    auto flip = [&](const Rect& r) { return Rect{r.x, primaryHeight - (r.y + r.height), r.width, r.height}; };
    for (std::size_t i = 0; i < screens.size(); ++i) {
        const auto& s = screens[i];
        list.screens.push_back({s.displayID, s.name, s.uuid, flip(s.frame), flip(s.visibleFrame)});
        if (main && main->displayID == s.displayID) list.main = i;
    }
    return list;
}

bool screenNameMatches(std::string_view name, const ScreenList& list) {
    if (list.screens.empty()) return false;
    auto normal = [](std::string_view text) {
        std::string out;
        for (char c : text)
            if (!std::isspace(static_cast<unsigned char>(c)) && c != '-' && c != '_')
                out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        return out;
    };
    auto builtin = [&](const ScreenRecord& s) {
        return normal(s.localizedName).find("builtin") != std::string::npos;
    };
    std::string wanted = normal(name);
    if (wanted.empty() || wanted == "primary" || wanted == "main") return true;
    if (wanted == "builtin" || wanted == "internal")
        return std::any_of(list.screens.begin(), list.screens.end(), builtin);
    if (wanted == "external")
        return std::any_of(list.screens.begin(), list.screens.end(), [&](auto& s) { return !builtin(s); });
    std::string upper(trim(name));
    for (auto& c : upper)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    for (const auto& s : list.screens) {
        if (std::to_string(s.number) == std::string(trim(name)) || s.uuid == upper) return true;
        if (normal(s.localizedName).find(wanted) != std::string::npos) return true;
    }
    return false;
}

std::optional<Rect> parsePixelPosition(std::string_view text) {
    std::vector<double> parts;
    while (true) {
        auto comma = text.find(',');
        auto value = number(text.substr(0, comma));
        if (!value) return std::nullopt;
        parts.push_back(*value);
        if (comma == std::string_view::npos) break;
        text.remove_prefix(comma + 1);
    }
    if (parts.size() != 4 || parts[2] <= 0 || parts[3] <= 0) return std::nullopt;
    return Rect{parts[0], parts[1], parts[2], parts[3]};
}

std::string formatPixelPosition(const Rect& r) {
    return fmt::format("{},{},{},{}", shortNumber(r.x), shortNumber(r.y), shortNumber(r.width),
                       shortNumber(r.height));
}

std::optional<WindowPlacement> placementFromText(std::string_view position,
                                                 const std::optional<std::string>& screen,
                                                 const std::optional<double>& padding) {
    std::optional<std::string> screenName;
    if (screen && !trim(*screen).empty()) screenName = std::string(trim(*screen));
    std::optional<double> pad;
    if (padding && *padding > 0) pad = *padding;
    if (auto named = semanticPositionFromRaw(trim(position)))
        return SemanticPlacement{*named, screenName, pad, std::nullopt};
    if (auto rect = parsePixelPosition(position)) return PixelsPlacement{*rect, screenName};
    return std::nullopt;
}

std::string describePlacement(const WindowPlacement& placement) {
    std::string text;
    if (auto* s = std::get_if<SemanticPlacement>(&placement)) {
        text = std::string(rawValue(s->position));
        if (s->size) text += fmt::format(" {}x{}", shortNumber(s->size->width), shortNumber(s->size->height));
    } else {
        text = formatPixelPosition(std::get<PixelsPlacement>(placement).rect);
    }
    if (const auto& screen = screenOf(placement)) text += " on " + *screen;
    if (auto* s = std::get_if<SemanticPlacement>(&placement); s && s->padding)
        text += " (padding " + shortNumber(*s->padding) + ")";
    return text;
}

std::optional<Rect> WindowPlacer::targetRect(const WindowPlacement& placement) const {
    auto list = screenListFrom(s_.screens->screens(), s_.screens->mainScreen());
    return placementRect(placement, list);
}

std::optional<platform::RunningApp> WindowPlacer::runningApp(const std::string& bundleID) const {
    for (auto& app : s_.workspace->runningApplications())
        if (app.bundleID == bundleID && !app.terminated) return app;
    return std::nullopt;
}

platform::AXRef WindowPlacer::windowElement(std::int32_t pid, std::uint32_t windowID) const {
    platform::AXRef app = s_.ax->applicationElement(pid);
    if (!app) return 0;
    s_.ax->setMessagingTimeout(app, 1.0);
    auto list = s_.ax->copyAttribute(app, "AXWindows");
    if (!list.ok() || !list.value) return 0;
    auto* elements = std::get_if<std::vector<platform::AXRef>>(&*list.value);
    if (!elements) return 0;
    for (auto element : *elements)
        if (s_.ax->windowNumber(element) == windowID) return element;
    return 0;
}

bool WindowPlacer::apply(const platform::RunningApp& app, std::uint32_t windowID,
                         const WindowPlacement& placement, const Rect& target, const std::string& appName) {
    platform::AXRef element = windowElement(app.pid, windowID);
    if (!element) return false;
    auto fail = [&](platform::AXError error) {
        ferrow::Log::error("Error restoring window placement for {}: {}", appName, static_cast<int>(error));
        return false;
    };
    if (isNativeFullscreen(placement)) {
        ferrow::Log::debug("restoreWindowPlacement[native-fullscreen]: wid={}", windowID);
        if (auto e = s_.ax->setAttribute(element, "AXFullScreen", true); e != platform::AXError::success)
            return fail(e);
        return true;
    }
    ferrow::Log::debug("restoreWindowPlacement: wid={} to ({}, {}) {}x{}", windowID, target.x, target.y,
                       target.width, target.height);
    // Position first: a size that fits only at the new origin would otherwise be clipped.
    if (auto e = s_.ax->setAttribute(element, "AXPosition", Point{target.x, target.y});
        e != platform::AXError::success)
        return fail(e);
    if (auto e = s_.ax->setAttribute(element, "AXSize", Size{target.width, target.height});
        e != platform::AXError::success)
        return fail(e);
    return true;
}

bool WindowPlacer::placeWindow(const ManagedWindow& window, const WindowPlacement& placement) {
    auto target = targetRect(placement);
    if (!target) return false;
    auto app = runningApp(window.bundleIdentifier);
    if (!app) return false;
    return apply(*app, window.id, placement, *target, window.appName);
}

std::optional<std::uint32_t> WindowPlacer::restoreWindowPlacement(
    const StageItem& item, const std::optional<std::set<std::uint32_t>>& knownWindowIDs) {
    if (!item.windowPlacement) return std::nullopt;
    auto target = targetRect(*item.windowPlacement);
    if (!target) return std::nullopt;
    auto app = runningApp(item.bundleID());
    if (!app) return std::nullopt;
    auto tracked = s_.windows();
    std::optional<std::uint32_t> wid;
    if (item.windowID && std::any_of(tracked.begin(), tracked.end(),
                                     [&](const ManagedWindow& w) { return w.id == *item.windowID; }))
        wid = item.windowID;
    if (!wid && s_.resolve)
        if (auto w = s_.resolve(item)) wid = w->id;
    if (!wid && knownWindowIDs) {
        for (const auto& w : tracked)
            if (w.bundleIdentifier == item.bundleID() && !knownWindowIDs->contains(w.id) &&
                (!wid || w.id > *wid))
                wid = w.id;
    }
    if (!wid) return std::nullopt;
    std::string appName = item.app ? item.app->name() : item.bundleID();
    if (!apply(*app, *wid, *item.windowPlacement, *target, appName)) return std::nullopt;
    return wid;
}

}  // namespace zelk::stages
