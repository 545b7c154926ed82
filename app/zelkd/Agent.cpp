#include "Agent.h"

#include "SearchService.h"
#include "Subsystems.h"
#include "command/CommandService.h"
#include "input/AppDelegate.h"
#include "input/InputManager.h"
#include "input/KeyRouter.h"

namespace zelk::agent {

Agent::Agent(bool commandService)
    : delegate_(std::make_unique<AppDelegate>(AppDelegate::Options{commandService})),
      subsystems_(std::make_unique<Subsystems>()),
      router_(std::make_unique<KeyRouter>(InputManager::shared(), subsystems_->routingServices())),
      commands_(std::make_unique<command::CommandService>(subsystems_->statusProviders())) {
    subsystems_->attach(*delegate_);
    commands_->attach(*delegate_);
    commands_->registerManagers(subsystems_->commandProviders());
    subsystems_->search().attachRouter(router_.get());
    commands_->registerSearch(subsystems_->search().commandProviders());
}

Agent::~Agent() {
    if (running()) terminate();
    commands_->detach(*delegate_);
    commands_.reset();
    router_.reset();
    subsystems_.reset();
    delegate_.reset();
    InputManager::reset();
}

void Agent::start() {
    if (started_) return;
    started_ = true;
    delegate_->applicationWillFinishLaunching();
    delegate_->applicationDidFinishLaunching();
}

void Agent::terminate() {
    if (!started_ || terminated_) return;
    terminated_ = true;
    delegate_->applicationWillTerminate();
    commands_->stopSocket();
}

nlohmann::ordered_json Agent::handleCommand(const nlohmann::json& request) {
    return delegate_->handleCommand(request);
}

}  // namespace zelk::agent
