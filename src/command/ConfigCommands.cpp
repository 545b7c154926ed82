#include "command/ConfigCommands.h"

#include <fmt/format.h>

#include "config/ConfigFileManager.h"

namespace zelk::command {

using configfile::ConfigFileManager;

void registerConfigCommands(CommandDispatcher& d, ConfigFileManager& config) {
    ConfigFileManager* c = &config;
    d.registerHandler(ZelkCommand::configPath, [c](const ZelkRequest&) {
        auto response = ZelkResponse::success();
        response.config = ZelkConfigInfo{c->configPath().string(), c->backupPath().string(), c->hasBackup()};
        return response;
    });
    d.registerHandler(ZelkCommand::configExport, [c](const ZelkRequest&) {
        auto json = c->exportJSON();
        if (!json) return ZelkResponse::failure("failed to serialize settings to JSON");
        auto response = ZelkResponse::success();
        response.body = std::move(*json);
        return response;
    });
    d.registerHandler(ZelkCommand::configImport, [c](const ZelkRequest& r) {
        if (!r.body || r.body->empty()) return ZelkResponse::failure("missing JSON payload");
        std::string error;
        if (!c->importJSON(*r.body, error))
            return ZelkResponse::failure(fmt::format("invalid settings JSON: {}", error));
        return ZelkResponse::success(fmt::format("imported settings ({} bytes)", r.body->size()));
    });
    d.registerHandler(ZelkCommand::configReset, [c](const ZelkRequest&) {
        std::string error;
        if (!c->resetConfig(error))
            return ZelkResponse::failure(fmt::format("config reset failed: {}", error));
        return ZelkResponse::success(
            fmt::format("config reset (previous saved to {})", c->backupPath().string()));
    });
    d.registerHandler(ZelkCommand::configRestore, [c](const ZelkRequest&) {
        switch (c->restoreFromBackup()) {
            case ConfigFileManager::RestoreResult::restored:
                return ZelkResponse::success(
                    fmt::format("config restored from {}", c->backupPath().string()));
            case ConfigFileManager::RestoreResult::noBackup:
                return ZelkResponse::failure(
                    fmt::format("no backup to restore ({} not found)", c->backupPath().string()));
            case ConfigFileManager::RestoreResult::failed:
                break;
        }
        return ZelkResponse::failure("restore failed");
    });
}

}  // namespace zelk::command
