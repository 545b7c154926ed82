#pragma once
#include <nlohmann/json.hpp>

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "command/CommandDispatcher.h"

namespace zelk::command {

// Where the debug dump stands, for `debug-dump` with mode "status".
struct DebugDumpStatus {
    bool everStarted = false;
    bool running = false;
    std::string phase;
    bool ok = false;
    std::string archive;  // when the last dump succeeded
    std::string folder;   // the working folder, left in place when it failed
    std::string error;    // the last failure's text
};

// The diagnostics a running agent answers. A record provider gets the request (for `query`,
// `appQuery`, `seconds`, …) and answers the record, or an error text.
struct DebugRecordAnswer {
    std::optional<nlohmann::json> record;
    std::string error;
};
using DebugRecordProvider = std::function<DebugRecordAnswer(const ZelkRequest&)>;

struct DebugProviders {
    // False while a dump runs. `seconds` replaces the live log capture's length.
    std::function<bool(std::optional<double> seconds)> startDump;
    std::function<DebugDumpStatus()> dumpStatus;
    // One provider per `debug-*` command that has one; the others answer "not available yet".
    std::map<ZelkCommand, DebugRecordProvider> records;
};

// The field of the debug record each `debug-*` command fills.
std::optional<nlohmann::json> ZelkDebugInfo::*debugRecordField(ZelkCommand command);

void registerDebugCommands(CommandDispatcher& dispatcher, const DebugProviders& providers);

}  // namespace zelk::command
