#include "stages/WindowCapture.h"

#include <fmt/format.h>

#include <set>

#include "stages/BundleTables.h"
#include "stages/FirefoxCapture.h"
#include "support/Log.h"

namespace zelk::stages {
namespace {

bool isAbsolute(const std::optional<std::string>& value) {
    return value && !value->empty() && value->starts_with("/");
}

bool isWebURL(const std::optional<std::string>& value) {
    return value && (value->starts_with("http://") || value->starts_with("https://"));
}

std::optional<std::string> nonEmpty(std::optional<std::string> value) {
    if (value && value->empty()) return std::nullopt;
    return value;
}

WindowSpec captureTerminal(std::string_view bundleID, std::int32_t pid, std::uint32_t wid,
                           CaptureFacts& facts) {
    if (bundleID == "com.googlecode.iterm2") {
        auto path = facts.runScript(iTermSessionPathScript(wid));
        if (isAbsolute(path)) return TerminalCWDSpec{*path};
    }
    if (bundleID == "net.kovidgoyal.kitty") {
        auto path = facts.kittyCWD(wid);
        if (isAbsolute(path)) return TerminalCWDSpec{*path};
    }
    auto doc = facts.axDocument(pid, wid);
    if (isAbsolute(doc)) return TerminalCWDSpec{*doc};
    return AppSpec{};
}

WindowSpec captureBrowser(std::string_view bundleID, std::int32_t pid, std::uint32_t wid,
                          CaptureFacts& facts) {
    std::optional<std::string> url;
    const BrowserFamily family = *browserFamily(bundleID);
    switch (family) {
        case BrowserFamily::chromium:
            url = nonEmpty(facts.runScript(chromiumURLScript(bundleID, wid)));
            break;
        case BrowserFamily::safari:
            url = nonEmpty(facts.runScript(safariURLScript(bundleID, wid)));
            break;
        case BrowserFamily::firefox:
            url = nonEmpty(facts.firefoxURL(pid, wid));
            break;
    }
    if (url) return BrowserURLSpec{*url};
    auto doc = facts.axDocument(pid, wid);
    if (isWebURL(doc)) return BrowserURLSpec{*doc};
    // A user.js that switches accessibility off explains the missing page; it is only reported.
    if (family == BrowserFamily::firefox) firefoxUserJSBlock(facts.applicationSupportFolder(), bundleID);
    // With several windows an unreadable URL still names one window, matched by its title.
    if (facts.trackedWindowCount(bundleID) > 1) return BrowserURLSpec{""};
    return AppSpec{};
}

}  // namespace

std::string wrapScriptTimeout(const std::string& source, int seconds) {
    return fmt::format("with timeout of {} seconds\n{}\nend timeout", seconds, source);
}

std::string iTermSessionPathScript(std::uint32_t wid) {
    return fmt::format(
        "tell application \"iTerm\"\n    set targetWindow to first window whose id is {}\n    tell current "
        "session of current tab of targetWindow\n        return variable named \"session.path\"\n    end "
        "tell\nend tell",
        wid);
}

std::string chromiumURLScript(std::string_view bundleID, std::uint32_t wid) {
    return fmt::format(
        "tell application id \"{}\"\n    set targetWindow to first window whose id is {}\n    return URL of "
        "active tab of targetWindow\nend tell",
        bundleID, wid);
}

std::string safariURLScript(std::string_view bundleID, std::uint32_t wid) {
    std::string_view name = bundleID == "com.apple.Safari" ? "Safari" : "Safari Technology Preview";
    return fmt::format(
        "tell application \"{}\"\n    set targetWindow to first window whose id is {}\n    return URL of "
        "current tab of targetWindow\nend tell",
        name, wid);
}

std::string finderPathScript(std::uint32_t wid) {
    return fmt::format(
        "tell application \"Finder\"\n    set targetWindow to first window whose id is {}\n    return POSIX "
        "path of (target of targetWindow as alias)\nend tell",
        wid);
}

WindowSpec captureWindowSpec(std::string_view bundleID, std::int32_t pid, std::uint32_t wid,
                             CaptureFacts& facts, const FileView& files) {
    if (bundleID.empty()) return AppSpec{};
    if (isTerminalBundle(bundleID)) return captureTerminal(bundleID, pid, wid, facts);
    if (isBrowserBundle(bundleID)) return captureBrowser(bundleID, pid, wid, facts);
    if (bundleID == "com.apple.finder") {
        auto path = nonEmpty(facts.runScript(finderPathScript(wid)));
        if (path) return DocumentPathSpec{*path};
        return AppSpec{};
    }
    if (isNoCaptureBundle(bundleID)) return AppSpec{};
    auto doc = facts.axDocument(pid, wid);
    if (!isAbsolute(doc)) return AppSpec{};
    if (isEditorBundle(bundleID)) return DocumentPathSpec{projectRoot(*doc, files)};
    return DocumentPathSpec{*doc};
}

std::vector<StageItem> captureItems(
    const std::vector<CaptureSource>& sources, CaptureFacts& facts, const FileView& files,
    const std::function<std::shared_ptr<apps::LaunchableApp>(const windows::ManagedWindow&)>& appFor,
    const std::function<bool(const std::string& bundleID)>& isAppLevel,
    const std::function<std::optional<WindowPlacement>(const Rect&)>& placementFor) {
    std::vector<StageItem> items;
    std::set<std::string> wholeApps;
    for (const auto& source : sources) {
        const auto& w = source.window;
        auto app = appFor(w);
        if (!app) continue;
        StageItem item;
        item.id = makeUUID();
        item.app = app;
        item.windowID = w.id;
        if (source.frame) item.windowPlacement = placementFor(*source.frame);
        if (isAppLevel(w.bundleIdentifier)) {
            // One whole-app item stands for all of the app's windows.
            if (!wholeApps.insert(w.bundleIdentifier).second) continue;
            item.windowSpec = AppSpec{};
        } else {
            item.windowSpec = captureWindowSpec(w.bundleIdentifier, w.appPid, w.id, facts, files);
            item.windowTitle = w.title;
        }
        items.push_back(std::move(item));
    }
    return items;
}

}  // namespace zelk::stages
