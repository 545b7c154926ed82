#include "command/CommandService.h"

#include "input/AppDelegate.h"

namespace zelk::command {

CommandService::CommandService(StatusProviders status, CLIServiceOptions options)
    : options_(std::move(options)) {
    registerBuiltinCommands(dispatcher_, std::move(status));
}

CommandService::~CommandService() {
    stopSocket();
}

void CommandService::attach(AppDelegate& delegate) {
    delegate.startCommandServiceHook = [this] { startSocket(); };
    delegate.commandHandlerHook = [this](const nlohmann::json& request) {
        return dispatcher_.handleJson(request);
    };
}

void CommandService::detach(AppDelegate& delegate) {
    delegate.startCommandServiceHook = nullptr;
    delegate.commandHandlerHook = nullptr;
}

bool CommandService::startSocket() {
    if (socket_ && socket_->running()) return true;
    socket_ = std::make_unique<CLIService>(dispatcher_, options_);
    if (socket_->start()) return true;
    socket_.reset();
    return false;
}

void CommandService::stopSocket() {
    if (socket_) socket_->stop();
    socket_.reset();
}

}  // namespace zelk::command
