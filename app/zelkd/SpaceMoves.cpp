// Moving windows between Spaces and the one Space numbering the tool lists and switches by.
#include <algorithm>

#include <fmt/format.h>

#include "Subsystems.h"
#include "platform/Platform.h"
#include "spaces/ISSManager.h"
#include "spaces/SpaceNumbering.h"
#include "spaces/SpacesIndicator.h"
#include "spaces/WindowMover.h"
#include "stages/StageService.h"
#include "windows/WindowManager.h"

namespace zelk::agent {

namespace {

std::vector<spaces::NumberedSpace> numberedNow(windows::WindowManager& windows) {
    return spaces::numberUserSpaces(windows.displaySpaces());
}

}  // namespace

void Subsystems::wireSpaceMoves(RoutingServices& s) {
    s.built.spaceMoves = true;
    s.moveFocusedWindowToSpace = [this](int digit) {
        return mover_->moveFocusedWindowToSpace(digit) == spaces::MoveResult::moved;
    };
    s.moveFocusedWindowToPreviousSpace = [this] {
        return mover_->moveFocusedWindowToPreviousSpace() == spaces::MoveResult::moved;
    };
    s.moveFocusedWindowAdjacent = [this](int delta) {
        return mover_->moveFocusedWindowToAdjacentSpace(delta) == spaces::MoveResult::moved;
    };
    // A move changes what the strip of Spaces shows (a stage's Space, a Space made anew).
    mover_->movesChanged = [this] {
        if (spacesIndicator_) spacesIndicator_->refresh(false);
    };
    s.moveActiveStageToSpace = [this](int digit) {
        return mover_->moveActiveStageWindowsToSpace(digit) == spaces::MoveResult::moved;
    };
    // The windows of the active stage, as the stage's activation found them.
    mover_->activeStageWindows = [this]() -> std::optional<spaces::ActiveStageWindows> {
        auto& directory = stages_->directory();
        const auto& key = directory.activeStageKey();
        if (!key) return std::nullopt;
        spaces::ActiveStageWindows out;
        const auto* stage = directory.stage(*key);
        out.name = stage && !stage->name.empty() ? stage->name : *key;
        for (const auto& w : stages_->activeStageWindows())
            out.windowIDs.push_back(w.id);
        return out;
    };
}

void Subsystems::addSpaceCommands(command::ManagerProviders& p) {
    p.listSpaces = [this] {
        std::vector<command::ZelkSpaceInfo> out;
        auto* server = platform::Platform::current().windowServer;
        const std::uint64_t live = server ? server->activeSpace() : 0;
        for (auto& s : numberedNow(*windows_))
            out.push_back({s.number, s.id, s.id == live});
        return out;
    };
    p.switchSpace = [this](std::int64_t index) -> std::int64_t {
        auto list = numberedNow(*windows_);
        std::optional<spaces::NumberedSpace> target;
        if (index == 0) {
            auto previous = windows_->previousSpaceID();
            if (previous) target = spaces::numberedSpaceByID(list, *previous);
        } else {
            target = spaces::numberedSpace(list, static_cast<int>(index));
        }
        if (!target) return 0;
        if (!windows_->switchToSpaceIndex(target->indexOnDisplay, target->display)) return 0;
        return target->number;
    };
    p.moveWindowToSpace = [this](const command::ZelkRequest& r, std::int64_t index) {
        const int n = static_cast<int>(index);
        // A named window moves as it is; without a name the focused one does.
        if (r.windowID || (r.query && !r.query->empty())) {
            auto ids = commandProviders().findWindows(r);
            if (ids.empty()) return command::ZelkResponse::failure("no matching window");
            std::string title;
            for (auto& w : windows_->windows())
                if (w.id == ids.front()) title = w.title;
            const std::string name = title.empty() ? fmt::format("window {}", ids.front()) : title;
            switch (mover_->moveWindow(ids.front(), title, n)) {
                case spaces::MoveResult::moved:
                    return command::ZelkResponse::success(fmt::format("moved {} to Space #{}", name, n));
                case spaces::MoveResult::alreadyThere:
                    return command::ZelkResponse::failure(fmt::format("{} already on Space #{}", name, n));
                default:
                    return command::ZelkResponse::failure(
                        fmt::format("could not move {} to Space #{}", name, n));
            }
        }
        switch (mover_->moveFocusedWindowToSpace(n)) {
            case spaces::MoveResult::moved:
                return command::ZelkResponse::success(fmt::format("moved focused window to Space #{}", n));
            case spaces::MoveResult::alreadyThere:
                return command::ZelkResponse::failure(fmt::format("focused window already on Space #{}", n));
            case spaces::MoveResult::noWindow:
                return command::ZelkResponse::failure("no matching window");
            default:
                return command::ZelkResponse::failure(
                    fmt::format("could not move focused window to Space #{}", n));
        }
    };
}

void Subsystems::numberSpacesForStatus(command::StatusProviders& p) {
    p.activeSpace = [this]() -> std::optional<command::ZelkSpaceInfo> {
        auto* server = platform::Platform::current().windowServer;
        if (!server) return std::nullopt;
        auto s = spaces::numberedSpaceByID(numberedNow(*windows_), server->activeSpace());
        if (!s) return std::nullopt;
        return command::ZelkSpaceInfo{s->number, s->id, true};
    };
    p.totalSpaces = [this]() -> std::int64_t {
        return static_cast<std::int64_t>(numberedNow(*windows_).size());
    };
}

}  // namespace zelk::agent
