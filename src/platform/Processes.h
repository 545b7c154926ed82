#pragma once
#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace zelk::platform {

struct ProcessRequest {
    std::string program;
    std::vector<std::string> arguments;
    double timeoutSeconds = 10;
    std::map<std::string, std::string> environment;  // added to the inherited one
    bool wait = true;
};

struct ProcessResult {
    int exitCode = -1;
    std::string output;
    std::string errorOutput;
    bool timedOut = false;
    bool started = false;
};

// Child processes and scripts.
class Processes {
  public:
    virtual ~Processes() = default;
    virtual ProcessResult run(const ProcessRequest& request) = 0;
    // Runs a script in the system's scripting language; the result text, or nothing on error.
    virtual std::optional<std::string> runScript(const std::string& source, std::string* error) = 0;
};

}  // namespace zelk::platform
