#pragma once
#include <map>
#include <string>
#include <vector>

namespace ferrow {

struct ShellCommand {
    std::string program;
    std::vector<std::string> arguments;
    double timeoutSeconds = 10;
    std::map<std::string, std::string> environment;  // added to the inherited environment
    bool wait = true;                                // false: start it and return at once
};

struct ShellResult {
    bool started = false;
    int exitCode = -1;  // -1 when it did not exit by itself
    bool timedOut = false;
    std::string output;
    std::string errorOutput;
};

// Runs a program directly (no shell in between). With `wait`, collects its output until it exits or
// the time-out passes (then it is killed); without, the child is left to run and reaped in the background.
ShellResult runShell(const ShellCommand& command);

}  // namespace ferrow
