#include "command/StageCommands.h"

#include <fmt/format.h>

#include "stages/WindowPlacer.h"

namespace zelk::command {
namespace {

ZelkResponse listStages(const StageProviders& p, const ZelkRequest& r) {
    std::optional<std::string> key;
    if (r.stageKey && !r.stageKey->empty()) {
        key = *r.stageKey;
        if (!p.stageExists(*key))
            return ZelkResponse::failure(fmt::format("no stage assigned to '{}'", *key));
    }
    auto response = ZelkResponse::success();
    response.stages = p.listStages(key, r.includeWindows);
    return response;
}

ZelkResponse placeWindow(const StageProviders& p, const ZelkRequest& r) {
    std::string position = r.position.value_or("");
    auto placement = stages::placementFromText(position, r.screen, r.padding);
    if (!placement)
        return ZelkResponse::failure(fmt::format(
            "invalid position '{}'. See `zelk window place --help` for valid positions.", position));
    bool hasScreen = r.screen && !r.screen->empty();
    if (hasScreen && !p.screenMatches(*r.screen))
        return ZelkResponse::failure(fmt::format("no screen matches '{}'", *r.screen));
    auto target = p.placeTarget(r);
    if (!target) return ZelkResponse::failure("no target window");
    if (!p.knowsApp(target->bundleID))
        return ZelkResponse::failure(fmt::format("no LaunchableApp for {}", target->appName));
    if (!p.placeWindow(target->windowID, *placement)) return ZelkResponse::failure("placement failed");
    std::string text = fmt::format("placed window #{} at {}", target->windowID, position);
    if (hasScreen) text += " on " + *r.screen;
    if (r.padding && *r.padding > 0) text += fmt::format(" (padding {})", *r.padding);
    return ZelkResponse::success(text);
}

ZelkResponse activateStage(const StageProviders& p, const ZelkRequest& r) {
    if (!r.stageKey || r.stageKey->empty()) return ZelkResponse::failure("missing stage key");
    if (!p.stageExists(*r.stageKey))
        return ZelkResponse::failure(fmt::format("no stage assigned to '{}'", *r.stageKey));
    p.activateStage(*r.stageKey);
    return ZelkResponse::success(fmt::format("activated stage '{}'", *r.stageKey));
}

ZelkResponse closeStage(const StageProviders& p, const ZelkRequest& r) {
    if (r.stageKey && !r.stageKey->empty()) {
        if (!p.stageExists(*r.stageKey))
            return ZelkResponse::failure(fmt::format("no stage assigned to '{}'", *r.stageKey));
        p.closeStage(*r.stageKey);
        return ZelkResponse::success(fmt::format("close requested for stage '{}'", *r.stageKey));
    }
    auto active = p.activeStageKey();
    if (!active) return ZelkResponse::failure("no active stage");
    p.closeStage(*active);
    return ZelkResponse::success("close requested for active stage");
}

}  // namespace

void registerStageCommands(CommandDispatcher& d, const StageProviders& providers) {
    const auto& p = providers;
    if (p.listStages && p.stageExists)
        d.registerHandler(ZelkCommand::listStages, [p](const ZelkRequest& r) { return listStages(p, r); });
    if (p.placeTarget && p.screenMatches && p.knowsApp && p.placeWindow)
        d.registerHandler(ZelkCommand::placeWindow, [p](const ZelkRequest& r) { return placeWindow(p, r); });
    if (p.activateStage && p.stageExists)
        d.registerHandler(ZelkCommand::activateStage,
                          [p](const ZelkRequest& r) { return activateStage(p, r); });
    if (p.closeStage && p.activeStageKey && p.stageExists)
        d.registerHandler(ZelkCommand::closeStage, [p](const ZelkRequest& r) { return closeStage(p, r); });
    if (p.captureDebug)
        d.registerHandler(ZelkCommand::debugCapture, [p](const ZelkRequest& r) {
            auto response = ZelkResponse::success();
            response.debug = ZelkDebugInfo{};
            response.debug->capture = p.captureDebug(r);
            return response;
        });
    if (p.stageDebug)
        d.registerHandler(ZelkCommand::debugStage, [p](const ZelkRequest& r) {
            if (r.stageKey && !r.stageKey->empty() && !p.stageExists(*r.stageKey))
                return ZelkResponse::failure(fmt::format("no stage assigned to '{}'", *r.stageKey));
            auto response = ZelkResponse::success();
            response.debug = ZelkDebugInfo{};
            response.debug->stage = p.stageDebug(r);
            return response;
        });
}

}  // namespace zelk::command
