#pragma once
#include <filesystem>
#include <memory>
#include <optional>

#include "command/DebugCommands.h"
#include "diagnostics/DebugDump.h"

namespace zelk::platform {
class Processes;
}

namespace zelk::agent {

class Subsystems;

// The agent's diagnostics: the debug dump of its whole state and the records of the `debug-*`
// commands, built from the live managers on the main thread.
class DebugService {
  public:
    struct Options {
        std::filesystem::path outputFolder;  // default: the system's temporary folder
        std::optional<std::filesystem::path> configFile, searchCacheFile;
        platform::Processes* processes = nullptr;  // default: the installed platform's
    };
    DebugService(Subsystems& subsystems, Options options);
    ~DebugService();

    diagnostics::DebugDump& dump() { return *dump_; }
    command::DebugProviders providers();
    // The snapshot a dump writes.
    diagnostics::DebugDumpSnapshot snapshot();

  private:
    Subsystems& subsystems_;
    std::unique_ptr<diagnostics::DebugDump> dump_;
    bool everStarted_ = false;
};

}  // namespace zelk::agent
