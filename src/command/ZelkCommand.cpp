#include "command/ZelkCommand.h"

#include <array>
#include <utility>

namespace zelk::command {

namespace {
using Entry = std::pair<ZelkCommand, std::string_view>;
constexpr std::array kTable{
    Entry{ZelkCommand::status, "status"},
    Entry{ZelkCommand::listApps, "list-apps"},
    Entry{ZelkCommand::listWindows, "list-windows"},
    Entry{ZelkCommand::listStages, "list-stages"},
    Entry{ZelkCommand::listSpaces, "list-spaces"},
    Entry{ZelkCommand::focusApp, "focus-app"},
    Entry{ZelkCommand::hideApp, "hide-app"},
    Entry{ZelkCommand::unhideApp, "unhide-app"},
    Entry{ZelkCommand::quitApp, "quit-app"},
    Entry{ZelkCommand::focusWindow, "focus-window"},
    Entry{ZelkCommand::focusLastWindow, "focus-last-window"},
    Entry{ZelkCommand::minimizeWindow, "minimize-window"},
    Entry{ZelkCommand::minimizeFocused, "minimize-focused"},
    Entry{ZelkCommand::minimizeOthers, "minimize-others"},
    Entry{ZelkCommand::unminimizeWindow, "unminimize-window"},
    Entry{ZelkCommand::placeWindow, "place-window"},
    Entry{ZelkCommand::moveWindowToSpace, "move-window-to-space"},
    Entry{ZelkCommand::activateStage, "activate-stage"},
    Entry{ZelkCommand::closeStage, "close-stage"},
    Entry{ZelkCommand::switchSpace, "switch-space"},
    Entry{ZelkCommand::searchLearned, "search-learned"},
    Entry{ZelkCommand::searchPin, "search-pin"},
    Entry{ZelkCommand::searchUnpin, "search-unpin"},
    Entry{ZelkCommand::searchLearn, "search-learn"},
    Entry{ZelkCommand::searchUnlearn, "search-unlearn"},
    Entry{ZelkCommand::configPath, "config-path"},
    Entry{ZelkCommand::configExport, "config-export"},
    Entry{ZelkCommand::configImport, "config-import"},
    Entry{ZelkCommand::configReset, "config-reset"},
    Entry{ZelkCommand::configRestore, "config-restore"},
    Entry{ZelkCommand::search, "search"},
    Entry{ZelkCommand::debugStage, "debug-stage"},
    Entry{ZelkCommand::debugCapture, "debug-capture"},
    Entry{ZelkCommand::debugKeys, "debug-keys"},
    Entry{ZelkCommand::debugAX, "debug-ax"},
    Entry{ZelkCommand::debugSpacesTree, "debug-spaces-tree"},
    Entry{ZelkCommand::debugPlace, "debug-place"},
    Entry{ZelkCommand::debugLiveWindows, "debug-live-windows"},
    Entry{ZelkCommand::debugWatchStart, "debug-watch-start"},
    Entry{ZelkCommand::debugWatchFetch, "debug-watch-fetch"},
    Entry{ZelkCommand::debugSendCmdN, "debug-send-cmd-n"},
    Entry{ZelkCommand::debugTabCycle, "debug-tab-cycle"},
    Entry{ZelkCommand::debugWindowKeys, "debug-window-keys"},
    Entry{ZelkCommand::debugTap, "debug-tap"},
    Entry{ZelkCommand::debugDump, "debug-dump"},
    Entry{ZelkCommand::osd, "osd"},
    Entry{ZelkCommand::expose, "expose"},
};
}  // namespace

std::string_view rawValue(ZelkCommand command) {
    for (auto& [c, raw] : kTable)
        if (c == command) return raw;
    return {};
}

std::optional<ZelkCommand> commandFromRaw(std::string_view raw) {
    for (auto& [c, r] : kTable)
        if (r == raw) return c;
    return std::nullopt;
}

const std::vector<ZelkCommand>& allCommands() {
    static const std::vector<ZelkCommand> all = [] {
        std::vector<ZelkCommand> v;
        for (auto& [c, raw] : kTable)
            v.push_back(c);
        return v;
    }();
    return all;
}

}  // namespace zelk::command
