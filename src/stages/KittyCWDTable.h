#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Processes.h"
#include "platform/Workspace.h"
#include "support/Clock.h"

// The working folders of the kitty terminal's windows, asked of kitty itself over its control socket.
namespace zelk::stages {

// Window number to working folder, from the JSON that "kitty @ ls" prints: per OS window its
// active tab (else the first), in it the active window (else the first), whose first foreground
// process's folder counts, else the window's own. Nothing when the text is not such a list.
std::optional<std::map<std::uint32_t, std::string>> parseKittyWindowList(std::string_view json);

// The socket kitty listens on, from lsof's field output ("-F n"): the first "n/" line, less its "n".
std::optional<std::string> kittySocketFromLsof(std::string_view output);

// Cached for two seconds, because every capture and resolve of a kitty window asks. Any failure gives
// an empty table and leaves the cache empty, so the next call asks again.
class KittyCWDTable {
  public:
    struct Sources {
        // The running kitty, if any.
        std::function<std::optional<platform::RunningApp>()> runningKitty;
        std::function<bool(const std::string& path)> isExecutable;
        std::function<platform::ProcessResult(const platform::ProcessRequest&)> run;
        std::function<ferrow::Nanos()> now;
    };
    explicit KittyCWDTable(Sources sources) : s_(std::move(sources)) {}

    // kittyCWDByWindow: window number to working folder.
    std::map<std::uint32_t, std::string> byWindow();

  private:
    std::optional<std::string> socketFor(std::int32_t pid);

    Sources s_;
    std::map<std::uint32_t, std::string> table_;
    std::optional<ferrow::Nanos> stamp_;
    std::map<std::int32_t, std::string> sockets_;  // by process, found once
};

}  // namespace zelk::stages
