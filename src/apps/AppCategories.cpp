#include "apps/AppCategories.h"

#include <algorithm>
#include <array>
#include <string>
#include <unordered_set>

namespace zelk::apps {

namespace {
const std::unordered_set<std::string_view> kCommunicationAndUtility{
    "com.tinyspeck.slackmacgap",
    "com.hnc.Discord",
    "com.apple.MobileSMS",
    "net.whatsapp.WhatsApp",
    "ru.keepcoder.Telegram",
    "org.pqrs.Signal",
    "com.facebook.archon.developerID",
    "com.skype.skype",
    "com.viber.osx",
    "is.workflow.my.app.element",
    "com.apple.FaceTime",
    "us.zoom.xos",
    "com.microsoft.teams2",
    "com.webex.meetingmanager",
    "com.apple.mail",
    "com.mimestream.Mimestream",
    "com.readdle.smartemail-macos",
    "it.bloop.airmail2",
    "com.postbox-inc.postbox",
    "com.freron.MailMate",
    "com.canarymail.mac",
    "com.microsoft.Outlook",
    "com.superhuman.app",
    "com.spotify.client",
    "com.apple.Music",
    "com.apple.podcasts",
    "com.roon.Roon",
    "com.coppertino.Vox",
    "com.plexapp.plexamp",
    "com.tidal.desktop",
    "com.apple.iCal",
    "com.apple.reminders",
    "com.flexibits.fantastical2.mac",
    "com.busymac.busycal3",
    "com.apple.Notes",
    "md.obsidian",
    "com.lukilabs.lukiapp",
    "com.apple.iBooks",
    "com.notion.Notion",
    "com.reederapp.5.macOS",
    "com.reederapp.macOS",
    "com.apple.news",
    "com.netnewswire.NetNewsWire-AppStore",
    "com.ranchero.NetNewsWire-Evergreen",
    "com.1password.1password",
    "com.apple.Passwords",
    "com.lastpass.LastPass",
    "com.bitwarden.desktop",
    "com.dashlane.dashlanephonefinal",
    "com.apple.Photos",
    "com.apple.iBooksX",
    "com.apple.systempreferences",
    "com.apple.AddressBook",
    "com.apple.calculator",
    "com.apple.Dictionary",
    "com.apple.Maps",
    "com.apple.weather",
    "com.apple.Stocks",
    "com.apple.Home",
    "com.apple.shortcuts",
    "com.apple.VoiceMemos",
    "com.apple.ScreenSharing",
    "com.apple.ActivityMonitor",
    "com.apple.Console",
    "com.apple.DiskUtility",
    "com.apple.KeychainAccess",
    "com.apple.CaptiveNetworkAssistant",
    "com.apple.ScreenTime",
    "com.apple.Stickies",
    "com.apple.ScriptEditor2",
    "com.apple.MigrateAssistant",
    "com.acqualia.soulver3",
    "com.acqualia.soulver",
    "com.creaceed.numi",
    "com.objective-see.lulu.app",
    "com.manytricks.Moom",
    "com.hegenberg.BetterTouchTool",
    "com.hegenberg.BetterSnapTool",
    "com.raycast.macos",
    "com.runningwithcrayons.Alfred-3",
    "com.apple.AppStore",
    "com.apple.FindMy",
    "com.apple.AccessibilityInspector",
    "com.tinyapp.TablePlus",
    "com.apple.PhotoBooth",
    "com.apple.freeform",
    "com.apple.Chess",
};
const std::unordered_set<std::string_view> kBrowsers{
    "com.google.Chrome",
    "com.google.Chrome.beta",
    "com.google.Chrome.dev",
    "com.google.Chrome.canary",
    "com.apple.Safari",
    "com.apple.SafariTechnologyPreview",
    "org.mozilla.firefox",
    "org.mozilla.firefoxdeveloperedition",
    "org.mozilla.nightly",
    "org.mozilla.nightlydebug",
    "io.gitlab.librewolf-community",
    "net.waterfox.waterfox",
    "app.zen-browser.zen",
    "org.mozilla.floorp",
    "org.torproject.torbrowser",
    "net.mullvad.MullvadBrowser",
    "com.microsoft.edgemac",
    "com.microsoft.edgemac.Beta",
    "com.brave.Browser",
    "com.brave.Browser.beta",
    "company.thebrowser.Browser",
    "com.vivaldi.Vivaldi",
    "com.operasoftware.Opera",
};
const std::unordered_set<std::string_view> kTerminals{
    "net.kovidgoyal.kitty",   "com.googlecode.iterm2", "com.apple.Terminal", "io.alacritty",
    "com.github.wez.wezterm", "dev.warp.Warp-Stable",  "co.zeit.hyper",      "com.brave.Browser.nightly",
};
const std::array<std::string_view, 11> kDeveloperPrefixes{
    "com.apple.dt.Xcode",
    "com.microsoft.VSCode",
    "com.microsoft.VSCodeInsiders",
    "com.visualstudio.code.oss",
    "com.microsoft.VSCodiumInsiders",
    "com.todesktop.",
    "com.sublimetext.",
    "com.jetbrains.",
    "com.panic.Nova",
    "com.barebones.bbedit",
    "com.macromates.TextMate",
};
const std::unordered_set<std::string_view> kLowDocumentCategories{
    "public.app-category.board-games",
    "public.app-category.business",
    "public.app-category.games",
    "public.app-category.healthcare-fitness",
    "public.app-category.news",
    "public.app-category.reference",
    "public.app-category.social-networking",
    "public.app-category.travel",
    "public.app-category.utilities",
    "public.app-category.music",
};
}  // namespace

const std::unordered_set<std::string_view>& communicationAndUtilityApps() {
    return kCommunicationAndUtility;
}

bool isLowDocumentApp(std::string_view bundleIdentifier, std::string_view category) {
    std::string_view bare = bundleIdentifier;
    constexpr std::string_view kSetapp = "-setapp";
    if (bare.size() > kSetapp.size() && bare.substr(bare.size() - kSetapp.size()) == kSetapp)
        bare.remove_suffix(kSetapp.size());
    if (kCommunicationAndUtility.count(bundleIdentifier) || kCommunicationAndUtility.count(bare)) return true;
    if (kBrowsers.count(bundleIdentifier) || kTerminals.count(bundleIdentifier) ||
        bundleIdentifier == "com.apple.finder")
        return false;
    if (std::any_of(kDeveloperPrefixes.begin(), kDeveloperPrefixes.end(),
                    [&](std::string_view p) { return bundleIdentifier.substr(0, p.size()) == p; }))
        return false;
    return kLowDocumentCategories.count(category) > 0;
}

}  // namespace zelk::apps
