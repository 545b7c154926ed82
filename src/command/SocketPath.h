#pragma once
#include <sys/types.h>
#include <unistd.h>

#include <functional>
#include <optional>
#include <string>

namespace zelk::command {

using EnvLookup = std::function<std::optional<std::string>(const char* name)>;
// The process environment; empty values count as unset.
std::optional<std::string> processEnv(const char* name);

struct SocketLocation {
    std::string path;
    // The folder is ours (not one the user named through $ZELK_SOCKET), so its mode is enforced.
    bool ownFolder = true;
};

// $ZELK_SOCKET, else $XDG_RUNTIME_DIR/zelk/cli.sock, else /tmp/zelk-$UID/cli.sock.
SocketLocation resolveSocketLocation(const EnvLookup& env = processEnv, uid_t uid = ::geteuid());

// Creates the socket's folder (missing folders with mode 0700). An existing folder of our own is
// tightened to 0700; one that belongs to another user, or isn't a folder, is refused.
bool prepareSocketFolder(const SocketLocation& location, std::string& error);

}  // namespace zelk::command
