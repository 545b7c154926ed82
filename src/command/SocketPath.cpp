#include "command/SocketPath.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace zelk::command {

std::optional<std::string> processEnv(const char* name) {
    const char* v = std::getenv(name);
    if (!v || !*v) return std::nullopt;
    return std::string(v);
}

SocketLocation resolveSocketLocation(const EnvLookup& env, uid_t uid) {
    if (auto explicitPath = env("ZELK_SOCKET")) return {*explicitPath, false};
    if (auto runtime = env("XDG_RUNTIME_DIR")) return {*runtime + "/zelk/cli.sock", true};
    return {"/tmp/zelk-" + std::to_string(uid) + "/cli.sock", true};
}

bool prepareSocketFolder(const SocketLocation& location, std::string& error) {
    namespace fs = std::filesystem;
    fs::path folder = fs::path(location.path).parent_path();
    if (folder.empty()) folder = ".";
    struct stat st {};
    if (::lstat(folder.c_str(), &st) != 0) {
        if (errno != ENOENT) {
            error = folder.string() + ": " + std::strerror(errno);
            return false;
        }
        // Parents are made as usual; the folder that holds the socket is private.
        std::error_code ec;
        if (folder.has_parent_path()) fs::create_directories(folder.parent_path(), ec);
        if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
            error = folder.string() + ": " + std::strerror(errno);
            return false;
        }
        if (::lstat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
            error = folder.string() + ": not a folder";
            return false;
        }
        // mkdir's mode passes through the umask, which never adds bits; set it exactly anyway.
        ::chmod(folder.c_str(), 0700);
        return true;
    }
    if (!S_ISDIR(st.st_mode)) {
        error = folder.string() + ": not a folder";
        return false;
    }
    if (location.ownFolder) {
        if (st.st_uid != ::geteuid()) {
            error = folder.string() + ": belongs to another user";
            return false;
        }
        if ((st.st_mode & 0777) != 0700 && ::chmod(folder.c_str(), 0700) != 0) {
            error = folder.string() + ": " + std::strerror(errno);
            return false;
        }
    }
    return true;
}

}  // namespace zelk::command
