#pragma once
#include "command/CommandDispatcher.h"

namespace zelk::configfile {
class ConfigFileManager;
}

namespace zelk::command {

// `config-path`, `config-export`, `config-import`, `config-reset` and `config-restore` over the
// configuration folder's owner, which must outlive the dispatcher's use of them.
void registerConfigCommands(CommandDispatcher& dispatcher, configfile::ConfigFileManager& config);

}  // namespace zelk::command
