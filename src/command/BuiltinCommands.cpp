#include "command/BuiltinCommands.h"

#include <unistd.h>

#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "input/TriggerKey.h"
#include "platform/Platform.h"
#include "support/Format.h"
#include "support/Log.h"

namespace zelk::command {

namespace {

std::string triggerText(const SettingKey<TriggerKeyList>& key) {
    std::vector<std::string> names;
    for (TriggerKey k : Settings::shared().get(key))
        names.emplace_back(shortReadableStr(k));
    return ferrow::join(names, " + ");
}

// The display the user is looking at: the one whose current Space is the active one, else the
// menu-bar display, else the first.
std::optional<platform::DisplaySpaces> activeDisplay() {
    auto* ws = platform::Platform::current().windowServer;
    if (!ws) return std::nullopt;
    auto displays = ws->managedDisplaySpaces();
    if (!displays || displays->empty()) return std::nullopt;
    std::uint64_t active = ws->activeSpace();
    for (auto& d : *displays)
        if (d.currentSpace.id64 == active) return d;
    if (auto menuBar = ws->activeMenuBarDisplayIdentifier())
        for (auto& d : *displays)
            if (d.displayIdentifier == *menuBar) return d;
    return displays->front();
}

}  // namespace

StatusProviders platformStatusProviders() {
    StatusProviders p;
    p.version = [] { return std::string(kZelkVersion); };
    p.pid = [] {
        auto* ws = platform::Platform::current().workspace;
        return ws ? ws->ownPID() : static_cast<std::int32_t>(::getpid());
    };
    p.triggerKeysApp = [] { return triggerText(keys::triggerKeys); };
    p.triggerKeysWindow = [] { return triggerText(keys::windowTriggerKeys); };
    p.triggerKeysStage = [] { return triggerText(keys::stageTriggerKeys); };
    p.frontmostApp = []() -> std::optional<FrontmostAppInfo> {
        auto* ws = platform::Platform::current().workspace;
        if (!ws) return std::nullopt;
        auto app = ws->frontmostApplication();
        if (!app) return std::nullopt;
        return FrontmostAppInfo{app->name, app->bundleID};
    };
    p.activeSpace = []() -> std::optional<ZelkSpaceInfo> {
        auto display = activeDisplay();
        if (!display) return std::nullopt;
        for (std::size_t i = 0; i < display->spaces.size(); ++i)
            if (display->spaces[i].id64 == display->currentSpace.id64)
                return ZelkSpaceInfo{static_cast<std::int64_t>(i) + 1, display->currentSpace.id64, true};
        return std::nullopt;
    };
    p.totalSpaces = []() -> std::int64_t {
        auto display = activeDisplay();
        return display ? static_cast<std::int64_t>(display->spaces.size()) : 0;
    };
    return p;
}

ZelkStatusInfo collectStatus(const StatusProviders& p) {
    ZelkStatusInfo s;
    if (p.version) s.version = p.version();
    if (p.pid) s.pid = p.pid();
    if (p.triggerKeysApp) s.triggerKeysApp = p.triggerKeysApp();
    if (p.triggerKeysWindow) s.triggerKeysWindow = p.triggerKeysWindow();
    if (p.triggerKeysStage) s.triggerKeysStage = p.triggerKeysStage();
    if (p.frontmostApp) {
        if (auto app = p.frontmostApp()) {
            // An app without a name or bundle identifier leaves that field out rather than empty.
            if (!app->name.empty()) s.frontmostApp = app->name;
            if (!app->bundleID.empty()) s.frontmostBundleID = app->bundleID;
        }
    }
    if (p.focusedWindow) s.focusedWindow = p.focusedWindow();
    if (p.activeSpace) s.activeSpace = p.activeSpace();
    if (p.totalSpaces) s.totalSpaces = p.totalSpaces();
    if (p.activeStage) s.activeStage = p.activeStage();
    return s;
}

ZelkResponse handleOsd(const ZelkRequest& request) {
    std::string surface = ferrow::toLowerAscii(request.surface.value_or(""));
    if (surface != "app" && surface != "window" && surface != "hide")
        return ZelkResponse::failure("osd: expected one of app | window | hide");
    auto* notifications = platform::Platform::current().notifications;
    if (!notifications) return ZelkResponse::failure("osd: notifications unavailable");
    notifications->postDistributed("com.ferrowlabs.zelk.osd", {{"surface", surface}});
    return ZelkResponse::success("osd " + surface);
}

void registerBuiltinCommands(CommandDispatcher& dispatcher, StatusProviders providers) {
    dispatcher.registerHandler(ZelkCommand::status, [providers = std::move(providers)](const ZelkRequest&) {
        auto response = ZelkResponse::success();
        response.status = collectStatus(providers);
        return response;
    });
    dispatcher.registerHandler(ZelkCommand::osd, handleOsd);
}

}  // namespace zelk::command
