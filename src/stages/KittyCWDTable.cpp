#include "stages/KittyCWDTable.h"

#include <nlohmann/json.hpp>

#include <fmt/format.h>

#include "support/Log.h"

namespace zelk::stages {
namespace {

using json = nlohmann::json;

constexpr ferrow::Nanos kTableLifetime = 2 * ferrow::kNanosPerSecond;
constexpr double kListTimeoutSeconds = 5.0;

// The active entry of a list, else its first; null when the list is empty or not a list.
const json* activeOrFirst(const json& list) {
    if (!list.is_array() || list.empty()) return nullptr;
    for (const auto& entry : list)
        if (entry.is_object() && entry.value("is_active", false) == true) return &entry;
    return &list.front();
}

std::optional<std::string> stringField(const json& object, const char* key) {
    if (!object.is_object() || !object.contains(key) || !object[key].is_string()) return std::nullopt;
    return object[key].get<std::string>();
}

// The folder of one kitty window: its first foreground process's, else its own.
std::optional<std::string> windowFolder(const json& window) {
    if (window.contains("foreground_processes")) {
        const json& processes = window["foreground_processes"];
        if (processes.is_array() && !processes.empty())
            if (auto cwd = stringField(processes.front(), "cwd"); cwd && !cwd->empty()) return cwd;
    }
    return stringField(window, "cwd");
}

std::string trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) return {};
    const auto last = text.find_last_not_of(" \t\r\n");
    return std::string(text.substr(first, last - first + 1));
}

}  // namespace

std::optional<std::map<std::uint32_t, std::string>> parseKittyWindowList(std::string_view text) {
    json list = json::parse(text, nullptr, false);
    if (list.is_discarded() || !list.is_array()) return std::nullopt;
    std::map<std::uint32_t, std::string> table;
    for (const auto& osWindow : list) {
        if (!osWindow.is_object() || !osWindow.contains("platform_window_id")) continue;
        const json& id = osWindow["platform_window_id"];
        if (!id.is_number_unsigned() && !id.is_number_integer()) continue;
        if (id.is_number_integer() && id.get<std::int64_t>() < 0) continue;
        const std::uint64_t number = id.get<std::uint64_t>();
        if (number > 0xFFFFFFFFu) continue;  // not a window-server number
        const json* tab = osWindow.contains("tabs") ? activeOrFirst(osWindow["tabs"]) : nullptr;
        if (!tab || !tab->is_object() || !tab->contains("windows")) continue;
        const json* window = activeOrFirst((*tab)["windows"]);
        if (!window) continue;
        if (auto folder = windowFolder(*window)) table[static_cast<std::uint32_t>(number)] = *folder;
    }
    return table;
}

std::optional<std::string> kittySocketFromLsof(std::string_view output) {
    const std::string text = trimmed(output);
    std::string_view rest = text;
    while (!rest.empty()) {
        const auto end = rest.find('\n');
        std::string_view line = rest.substr(0, end);
        if (line.starts_with("n/")) return std::string(line.substr(1));
        if (end == std::string_view::npos) break;
        rest.remove_prefix(end + 1);
    }
    return std::nullopt;
}

std::optional<std::string> KittyCWDTable::socketFor(std::int32_t pid) {
    if (auto it = sockets_.find(pid); it != sockets_.end()) return it->second;
    platform::ProcessRequest lsof;
    lsof.program = "/usr/sbin/lsof";
    lsof.arguments = {"-U", "-a", "-p", std::to_string(pid), "-F", "n"};
    // lsof is given no bound of its own; the process layer's default keeps a hung one from blocking.
    auto result = s_.run(lsof);
    if (!result.started || result.timedOut) return std::nullopt;
    auto socket = kittySocketFromLsof(result.output);
    if (socket) sockets_[pid] = *socket;
    return socket;
}

std::map<std::uint32_t, std::string> KittyCWDTable::byWindow() {
    const ferrow::Nanos now = s_.now();
    if (stamp_ && now - *stamp_ < kTableLifetime) return table_;
    stamp_.reset();
    table_.clear();
    auto kitty = s_.runningKitty ? s_.runningKitty() : std::nullopt;
    if (!kitty || kitty->bundlePath.empty()) return {};
    const std::string binary = kitty->bundlePath + "/Contents/MacOS/kitty";
    if (!s_.isExecutable(binary)) return {};
    auto socket = socketFor(kitty->pid);
    if (!socket) return {};
    platform::ProcessRequest ls;
    ls.program = binary;
    ls.arguments = {"@", "--to", "unix:" + *socket, "ls"};
    ls.timeoutSeconds = kListTimeoutSeconds;
    auto result = s_.run(ls);
    if (!result.started || result.timedOut || result.exitCode != 0) {
        ferrow::Log::debug("kittyCWDByWindow: ls failed exit={} timedOut={}", result.exitCode,
                           result.timedOut);
        return {};
    }
    auto parsed = parseKittyWindowList(result.output);
    if (!parsed) {
        ferrow::Log::debug("kittyCWDByWindow: ls printed no window list");
        return {};
    }
    table_ = std::move(*parsed);
    stamp_ = now;
    return table_;
}

}  // namespace zelk::stages
