#pragma once
#include <nlohmann/json.hpp>

#include <memory>

#include "command/CommandDispatcher.h"

namespace zelk {
class AppDelegate;
}
namespace zelk::command {
class CLIService;
}

namespace zelk::agent {

// The command service of the running program: one dispatcher for the socket and the replay bench,
// the socket itself once launching reaches that step, and the handlers of the commands whose state
// exists in this build.
class CommandWiring {
  public:
    CommandWiring();
    ~CommandWiring();
    CommandWiring(const CommandWiring&) = delete;
    CommandWiring& operator=(const CommandWiring&) = delete;

    // Lets the delegate start the socket at its step of launching and answer the bench's requests.
    void attach(AppDelegate& delegate);
    // Closes the socket; commands still reach the dispatcher.
    void stop();

    command::CommandDispatcher& dispatcher() { return dispatcher_; }
    nlohmann::json handle(const nlohmann::json& request) const { return dispatcher_.handleJson(request); }
    bool serving() const;

  private:
    command::CommandDispatcher dispatcher_;
    std::unique_ptr<command::CLIService> service_;
};

}  // namespace zelk::agent
