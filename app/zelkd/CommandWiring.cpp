#include "CommandWiring.h"

#include "command/BuiltinCommands.h"
#include "command/CLIService.h"
#include "input/AppDelegate.h"

namespace zelk::agent {

CommandWiring::CommandWiring() {
    command::registerBuiltinCommands(dispatcher_, command::platformStatusProviders());
}

CommandWiring::~CommandWiring() {
    stop();
}

void CommandWiring::attach(AppDelegate& delegate) {
    delegate.startCommandServiceHook = [this] {
        if (service_) return;
        service_ = std::make_unique<command::CLIService>(dispatcher_);
        // A socket that can't be made is logged by the service; the program goes on without it.
        if (!service_->start()) service_.reset();
    };
    delegate.commandHandlerHook = [this](const nlohmann::json& request) { return handle(request); };
}

void CommandWiring::stop() {
    if (service_) service_->stop();
    service_.reset();
}

bool CommandWiring::serving() const {
    return service_ && service_->running();
}

}  // namespace zelk::agent
