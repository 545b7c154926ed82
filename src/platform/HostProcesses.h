#pragma once
#include <atomic>
#include <filesystem>

#include "platform/Processes.h"

namespace zelk::platform {

// Child processes on this machine, for the live agent. Linux has no system log tool: the log
// commands ("/usr/bin/log stream …" and "… show … --last 24h …") read the agent's own log file
// instead, so the logic keeps one set of argument lists on every platform. Standard output comes back
// in the result; standard error is dropped; a child starts in the folder its environment's PWD names.
class HostProcesses final : public Processes {
  public:
    // `logFile`: the agent's log file; empty when it keeps none (the log commands then fail).
    explicit HostProcesses(std::filesystem::path logFile) : logFile_(std::move(logFile)) {}
    ProcessResult run(const ProcessRequest& request) override;
    std::optional<std::string> runScript(const std::string& source, std::string* error) override;

    // The lines of a log file written at or after `sinceWallSeconds`; a line without a time stamp goes
    // with the line before it.
    static std::string linesSince(const std::string& text, double sinceWallSeconds);
    // Ends the waits of running log captures early (the program is quitting).
    void interrupt() { interrupted_ = true; }

  private:
    ProcessResult runLogCommand(const ProcessRequest& request);
    ProcessResult spawn(const ProcessRequest& request);
    std::filesystem::path logFile_;
    std::atomic<bool> interrupted_{false};
};

}  // namespace zelk::platform
