#include "stages/BundleTables.h"

#include "apps/AppCategories.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

namespace zelk::stages {
namespace {

using Set = std::unordered_set<std::string_view>;

const Set& terminals() {
    static const Set set{"net.kovidgoyal.kitty", "com.googlecode.iterm2",    "com.apple.Terminal",
                         "io.alacritty",         "com.github.wez.wezterm",   "dev.warp.Warp-Stable",
                         "co.zeit.hyper",        "com.brave.Browser.nightly"};
    return set;
}

const Set& chromium() {
    static const Set set{"com.google.Chrome",        "com.google.Chrome.beta", "com.google.Chrome.dev",
                         "com.google.Chrome.canary", "com.microsoft.edgemac",  "com.microsoft.edgemac.Beta",
                         "com.brave.Browser",        "com.brave.Browser.beta", "company.thebrowser.Browser",
                         "com.vivaldi.Vivaldi",      "com.operasoftware.Opera"};
    return set;
}

const Set& safari() {
    static const Set set{"com.apple.Safari", "com.apple.SafariTechnologyPreview"};
    return set;
}

const std::unordered_map<std::string_view, std::string_view>& firefox() {
    static const std::unordered_map<std::string_view, std::string_view> map{
        {"org.mozilla.firefox", "Firefox/Profiles"},
        {"org.mozilla.firefoxdeveloperedition", "Firefox/Profiles"},
        {"org.mozilla.nightly", "Firefox/Profiles"},
        {"org.mozilla.nightlydebug", "Firefox/Profiles"},
        {"io.gitlab.librewolf-community", "librewolf/Profiles"},
        {"net.waterfox.waterfox", "Waterfox/Profiles"},
        {"app.zen-browser.zen", "zen/Profiles"},
        {"org.mozilla.floorp", "Floorp/Profiles"},
        {"org.torproject.torbrowser", "TorBrowser-Data/Browser"},
        {"net.mullvad.MullvadBrowser", "MullvadBrowser/Profiles"},
    };
    return map;
}

const Set& noCapture() {
    static const Set set{"com.spotify.client", "com.hnc.Discord"};
    return set;
}

const std::vector<std::string_view>& editorPrefixes() {
    static const std::vector<std::string_view> list{"com.apple.dt.Xcode",
                                                    "com.microsoft.VSCode",
                                                    "com.microsoft.VSCodeInsiders",
                                                    "com.visualstudio.code.oss",
                                                    "com.microsoft.VSCodiumInsiders",
                                                    "com.todesktop.",
                                                    "com.sublimetext.",
                                                    "com.jetbrains.",
                                                    "com.panic.Nova",
                                                    "com.barebones.bbedit",
                                                    "com.macromates.TextMate"};
    return list;
}

const Set& appLevel() {
    return apps::communicationAndUtilityApps();
}

const Set& categories() {
    static const Set set{"public.app-category.board-games",
                         "public.app-category.business",
                         "public.app-category.games",
                         "public.app-category.healthcare-fitness",
                         "public.app-category.news",
                         "public.app-category.reference",
                         "public.app-category.social-networking",
                         "public.app-category.travel",
                         "public.app-category.utilities",
                         "public.app-category.music"};
    return set;
}

}  // namespace

bool isTerminalBundle(std::string_view bundleID) {
    return terminals().contains(bundleID);
}

std::optional<BrowserFamily> browserFamily(std::string_view bundleID) {
    if (chromium().contains(bundleID)) return BrowserFamily::chromium;
    if (safari().contains(bundleID)) return BrowserFamily::safari;
    if (firefox().contains(bundleID)) return BrowserFamily::firefox;
    return std::nullopt;
}

bool isBrowserBundle(std::string_view bundleID) {
    return browserFamily(bundleID).has_value();
}

std::optional<std::string_view> firefoxProfileRoot(std::string_view bundleID) {
    auto it = firefox().find(bundleID);
    if (it == firefox().end()) return std::nullopt;
    return it->second;
}

bool isNoCaptureBundle(std::string_view bundleID) {
    return noCapture().contains(bundleID);
}

bool isEditorBundle(std::string_view bundleID) {
    return std::any_of(editorPrefixes().begin(), editorPrefixes().end(),
                       [&](std::string_view prefix) { return bundleID.starts_with(prefix); });
}

bool isAppLevelBundleID(std::string_view bundleID) {
    return appLevel().contains(bundleID);
}

bool isAppLevelCategory(std::string_view category) {
    return categories().contains(category);
}

const std::vector<std::string_view>& projectMarkerFiles() {
    static const std::vector<std::string_view> list{
        ".git",    ".xcodeproj",     ".xcworkspace",     ".vscode",        ".cursor",
        ".nova",   ".idea",          ".sublime-project", "package.json",   "Cargo.toml",
        "go.mod",  "pyproject.toml", "Makefile",         "CMakeLists.txt", "build.gradle",
        "pom.xml", ".sln",           "Gemfile",          "mix.exs",        "flake.nix"};
    return list;
}

BundleTableSizes bundleTableSizes() {
    return {terminals().size(),
            chromium().size(),
            safari().size(),
            firefox().size(),
            chromium().size() + safari().size() + firefox().size(),
            noCapture().size(),
            editorPrefixes().size(),
            projectMarkerFiles().size(),
            appLevel().size(),
            categories().size()};
}

bool isAppLevelApp(std::string_view bundleID, std::string_view category) {
    if (isAppLevelBundleID(bundleID)) return true;
    std::string withoutSetapp(bundleID);
    if (auto at = withoutSetapp.find("-setapp"); at != std::string::npos) {
        withoutSetapp.erase(at, 7);
        if (isAppLevelBundleID(withoutSetapp)) return true;
    }
    if (isTerminalBundle(bundleID) || isBrowserBundle(bundleID) || isEditorBundle(bundleID) ||
        bundleID == "com.apple.finder")
        return false;
    return isAppLevelCategory(category);
}

}  // namespace zelk::stages
