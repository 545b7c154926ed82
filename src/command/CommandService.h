#pragma once
#include <memory>

#include "command/BuiltinCommands.h"
#include "command/CLIService.h"
#include "command/CommandDispatcher.h"
#include "command/ManagerCommands.h"
#include "command/SearchCommands.h"
#include "command/StageCommands.h"

namespace zelk {
class AppDelegate;
}

namespace zelk::command {

// The command service as the agent runs it: one dispatcher behind both the socket and the replay
// bench's `command` events, with the commands that need no manager registered from the start.
class CommandService {
  public:
    explicit CommandService(StatusProviders status = platformStatusProviders(),
                            CLIServiceOptions options = {});
    ~CommandService();
    CommandService(const CommandService&) = delete;
    CommandService& operator=(const CommandService&) = delete;

    CommandDispatcher& dispatcher() { return dispatcher_; }
    // Adds the app, window and Space commands as their managers join.
    void registerManagers(const ManagerProviders& providers) {
        registerManagerCommands(dispatcher_, providers);
    }
    void registerSearch(const SearchProviders& providers) { registerSearchCommands(dispatcher_, providers); }
    void registerStages(const StageProviders& providers) { registerStageCommands(dispatcher_, providers); }

    // Hooks the delegate: its start step opens the socket, and its command entry (the replay bench)
    // answers through the same dispatcher. Detach before the service goes away.
    void attach(AppDelegate& delegate);
    void detach(AppDelegate& delegate);

    // Opens the socket (also what the delegate's start step does); false when it can't be made.
    bool startSocket();
    void stopSocket();
    CLIService* socket() { return socket_.get(); }

  private:
    CommandDispatcher dispatcher_;
    CLIServiceOptions options_;
    std::unique_ptr<CLIService> socket_;
};

}  // namespace zelk::command
