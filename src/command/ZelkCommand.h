#pragma once
#include <optional>
#include <string_view>
#include <vector>

namespace zelk::command {

// Every command the service understands; the wire carries the raw string.
enum class ZelkCommand {
    status,
    listApps,
    listWindows,
    listStages,
    listSpaces,
    focusApp,
    hideApp,
    unhideApp,
    quitApp,
    focusWindow,
    focusLastWindow,
    minimizeWindow,
    minimizeFocused,
    minimizeOthers,
    unminimizeWindow,
    placeWindow,
    moveWindowToSpace,
    activateStage,
    closeStage,
    switchSpace,
    searchLearned,
    searchPin,
    searchUnpin,
    searchLearn,
    searchUnlearn,
    configPath,
    configExport,
    configImport,
    configReset,
    configRestore,
    search,
    debugStage,
    debugCapture,
    debugKeys,
    debugAX,
    debugSpacesTree,
    debugPlace,
    debugLiveWindows,
    debugWatchStart,
    debugWatchFetch,
    debugSendCmdN,
    debugTabCycle,
    debugWindowKeys,
    debugTap,
    debugDump,  // the whole-state archive: starts one, or with mode "status" reports it
    osd,
    expose,
};

std::string_view rawValue(ZelkCommand command);
// Exact match only: the wire is case-sensitive.
std::optional<ZelkCommand> commandFromRaw(std::string_view raw);
// Every case, in declaration order.
const std::vector<ZelkCommand>& allCommands();

}  // namespace zelk::command
