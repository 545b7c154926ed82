#include "command/DebugCommands.h"

#include <fmt/format.h>

namespace zelk::command {

std::optional<nlohmann::json> ZelkDebugInfo::*debugRecordField(ZelkCommand command) {
    switch (command) {
        case ZelkCommand::debugStage:
            return &ZelkDebugInfo::stage;
        case ZelkCommand::debugCapture:
            return &ZelkDebugInfo::capture;
        case ZelkCommand::debugKeys:
            return &ZelkDebugInfo::keys;
        case ZelkCommand::debugAX:
            return &ZelkDebugInfo::ax;
        case ZelkCommand::debugSpacesTree:
            return &ZelkDebugInfo::spacesTree;
        case ZelkCommand::debugPlace:
            return &ZelkDebugInfo::placePreview;
        case ZelkCommand::debugLiveWindows:
            return &ZelkDebugInfo::drift;
        case ZelkCommand::debugWatchStart:
        case ZelkCommand::debugWatchFetch:
        case ZelkCommand::debugSendCmdN:
            return &ZelkDebugInfo::windowEvents;
        case ZelkCommand::debugTabCycle:
            return &ZelkDebugInfo::tabCycle;
        case ZelkCommand::debugWindowKeys:
            return &ZelkDebugInfo::windowKeys;
        case ZelkCommand::debugTap:
            return &ZelkDebugInfo::tap;
        default:
            return nullptr;
    }
}

namespace {
ZelkResponse dumpStatusResponse(const DebugDumpStatus& s) {
    if (!s.everStarted) return ZelkResponse::failure("no debug dump has run");
    if (s.running) return ZelkResponse::success(s.phase.empty() ? "debug dump running" : s.phase);
    if (!s.ok)
        return ZelkResponse::failure(
            fmt::format("Debug dump failed: {} (what was written stays in {})", s.error, s.folder));
    auto response = ZelkResponse::success(fmt::format("debug dump written to {}", s.archive));
    response.body = s.archive;
    return response;
}
}  // namespace

void registerDebugCommands(CommandDispatcher& d, const DebugProviders& providers) {
    if (providers.startDump && providers.dumpStatus) {
        d.registerHandler(ZelkCommand::debugDump, [providers](const ZelkRequest& r) {
            if (r.mode && *r.mode == "status") return dumpStatusResponse(providers.dumpStatus());
            if (r.mode) return ZelkResponse::failure("debug-dump: expected no mode or \"status\"");
            if (r.seconds && !(*r.seconds >= 0 && *r.seconds <= 600))
                return ZelkResponse::failure("debug-dump: seconds must be 0-600");
            if (!providers.startDump(r.seconds))
                return ZelkResponse::failure("a debug dump is already running");
            return ZelkResponse::success("debug dump started");
        });
    }
    for (const auto& [command, provider] : providers.records) {
        auto field = debugRecordField(command);
        if (!field || !provider) continue;
        d.registerHandler(command, [field, provider](const ZelkRequest& r) {
            auto answer = provider(r);
            if (!answer.record) return ZelkResponse::failure(answer.error);
            auto response = ZelkResponse::success();
            response.debug = ZelkDebugInfo{};
            (*response.debug).*field = std::move(answer.record);
            return response;
        });
    }
}

}  // namespace zelk::command
