#include "command/ResponseText.h"

#include <fmt/format.h>

#include <algorithm>

namespace zelk::command {

using nlohmann::json;

namespace {

std::size_t displayWidth(const std::string& s) {
    // Code points: continuation bytes don't count.
    return static_cast<std::size_t>(std::count_if(
        s.begin(), s.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string str(const json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) return "";
    if (it->is_string()) return it->get<std::string>();
    if (it->is_boolean()) return it->get<bool>() ? "yes" : "no";
    return it->dump();
}

bool flag(const json& object, const char* key) {
    auto it = object.find(key);
    return it != object.end() && it->is_boolean() && it->get<bool>();
}

std::string flags(const json& object, std::initializer_list<std::pair<const char*, const char*>> names) {
    std::vector<std::string> on;
    for (auto& [key, label] : names)
        if (flag(object, key)) on.emplace_back(label);
    return fmt::format("{}", fmt::join(on, ","));
}

std::string joinArray(const json& object, const char* key, const char* sep) {
    auto it = object.find(key);
    if (it == object.end() || !it->is_array()) return "";
    std::vector<std::string> parts;
    for (auto& v : *it)
        parts.push_back(v.is_string() ? v.get<std::string>() : v.dump());
    return fmt::format("{}", fmt::join(parts, sep));
}

std::string quoted(const std::string& s) {
    return fmt::format("\"{}\"", s);
}

std::string windowLine(const json& w) {
    std::string line = fmt::format("#{} {}", str(w, "id"), quoted(str(w, "title")));
    if (!str(w, "appName").empty()) line += " (" + str(w, "appName") + ")";
    return line;
}

std::string apps(const json& list) {
    std::vector<std::vector<std::string>> rows;
    for (auto& a : list)
        rows.push_back({str(a, "name"), str(a, "bundleID"), str(a, "pid"), str(a, "windowCount"),
                        joinArray(a, "spaceIndices", ","),
                        flags(a, {{"isActive", "active"}, {"isHidden", "hidden"}})});
    return formatTable({"NAME", "BUNDLE ID", "PID", "WINDOWS", "SPACES", "STATE"}, rows);
}

std::string windows(const json& list) {
    std::vector<std::vector<std::string>> rows;
    for (auto& w : list)
        rows.push_back({str(w, "id"), str(w, "appName"), str(w, "title"), str(w, "spaceIndex"),
                        str(w, "displayName"),
                        flags(w, {{"isFocused", "focused"}, {"isMinimized", "minimized"}})});
    return formatTable({"ID", "APP", "TITLE", "SPACE", "DISPLAY", "STATE"}, rows);
}

std::string spaces(const json& list) {
    std::vector<std::vector<std::string>> rows;
    for (auto& s : list)
        rows.push_back({str(s, "index"), str(s, "id"), flag(s, "isActive") ? "active" : ""});
    return formatTable({"INDEX", "ID", "STATE"}, rows);
}

std::string stages(const json& list) {
    std::string out;
    for (auto& s : list) {
        out += fmt::format("[{}] {}{}\n", str(s, "key"), str(s, "name"),
                           flag(s, "isActive") ? "  (active)" : "");
        std::vector<std::vector<std::string>> rows;
        if (auto items = s.find("items"); items != s.end() && items->is_array())
            for (auto& i : *items) {
                std::string resolved;
                if (i.contains("resolvedWindowID"))
                    resolved =
                        fmt::format("#{} {}", str(i, "resolvedWindowID"), quoted(str(i, "resolvedTitle")));
                rows.push_back(
                    {fmt::format("  {}", str(i, "appName")), str(i, "spec"), str(i, "placement"), resolved});
            }
        if (!rows.empty()) out += formatTable({"  APP", "WINDOW", "PLACEMENT", "RESOLVED"}, rows);
    }
    return out;
}

std::string searchResults(const json& list) {
    std::vector<std::vector<std::string>> rows;
    for (auto& r : list)
        rows.push_back({str(r, "rank"), str(r, "kind"), str(r, "name"), str(r, "key"), str(r, "windowID"),
                        flags(r, {{"isFocused", "focused"}, {"isRunning", "running"}}),
                        joinArray(r, "reasons", ", ")});
    return formatTable({"RANK", "KIND", "NAME", "KEY", "WINDOW", "STATE", "REASONS"}, rows);
}

std::string learned(const json& list) {
    std::vector<std::vector<std::string>> rows;
    for (auto& q : list) {
        std::string app = str(q, "appName").empty() ? str(q, "bundleID") : str(q, "appName");
        rows.push_back(
            {str(q, "query"), app, str(q, "count"), flags(q, {{"pinned", "pinned"}, {"stale", "stale"}})});
    }
    return formatTable({"QUERY", "APP", "COUNT", "STATE"}, rows);
}

std::string status(const json& s) {
    std::vector<std::vector<std::string>> rows;
    rows.push_back({"version", str(s, "version")});
    rows.push_back({"pid", str(s, "pid")});
    rows.push_back({"app trigger", str(s, "triggerKeysApp")});
    rows.push_back({"window trigger", str(s, "triggerKeysWindow")});
    rows.push_back({"stage trigger", str(s, "triggerKeysStage")});
    if (s.contains("frontmostApp") || s.contains("frontmostBundleID"))
        rows.push_back({"frontmost app", str(s, "frontmostApp") + " (" + str(s, "frontmostBundleID") + ")"});
    if (auto w = s.find("focusedWindow"); w != s.end() && w->is_object())
        rows.push_back({"focused window", windowLine(*w)});
    std::string space = s.contains("activeSpace") ? str(s["activeSpace"], "index") : "?";
    rows.push_back({"space", space + " of " + str(s, "totalSpaces")});
    if (auto st = s.find("activeStage"); st != s.end() && st->is_object())
        rows.push_back({"active stage", fmt::format("[{}] {}", str(*st, "key"), str(*st, "name"))});
    std::string out;
    for (auto& r : rows)
        out += fmt::format("{:<16}{}\n", r[0] + ":", r[1]);
    return out;
}

std::string config(const json& c) {
    std::string out = fmt::format("{:<13}{}\n", "config:", str(c, "configPath"));
    out += fmt::format("{:<13}{}{}\n", "backup:", str(c, "backupPath"),
                       flag(c, "hasBackup") ? "" : " (none yet)");
    return out;
}

}  // namespace

std::string formatTable(const std::vector<std::string>& headers,
                        const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> widths(headers.size(), 0);
    auto measure = [&](const std::vector<std::string>& row) {
        for (std::size_t i = 0; i < row.size() && i < widths.size(); ++i)
            widths[i] = std::max(widths[i], displayWidth(row[i]));
    };
    measure(headers);
    for (auto& r : rows)
        measure(r);
    auto line = [&](const std::vector<std::string>& row) {
        std::string out;
        for (std::size_t i = 0; i < widths.size(); ++i) {
            std::string cell = i < row.size() ? row[i] : "";
            out += cell;
            if (i + 1 < widths.size()) out += std::string(widths[i] - displayWidth(cell) + 2, ' ');
        }
        while (!out.empty() && out.back() == ' ')
            out.pop_back();
        return out + "\n";
    };
    std::string out = line(headers);
    for (auto& r : rows)
        out += line(r);
    return out;
}

std::string formatReply(const json& reply) {
    if (!reply.is_object()) return reply.dump(2) + "\n";
    std::string out;
    if (auto m = reply.find("message"); m != reply.end() && m->is_string())
        out += m->get<std::string>() + "\n";
    auto section = [&](const char* key, std::string (*render)(const json&), bool wantArray) {
        auto it = reply.find(key);
        if (it == reply.end() || it->is_null()) return;
        if (wantArray ? it->is_array() : it->is_object())
            out += render(*it);
        else
            out += it->dump(2) + "\n";
    };
    section("status", status, false);
    section("apps", apps, true);
    section("windows", windows, true);
    section("stages", stages, true);
    section("spaces", spaces, true);
    section("config", config, false);
    section("searchResults", searchResults, true);
    section("learnedQueries", learned, true);
    if (auto b = reply.find("body"); b != reply.end() && b->is_string()) {
        out += b->get<std::string>();
        if (!out.empty() && out.back() != '\n') out += "\n";
    }
    if (auto d = reply.find("debug"); d != reply.end() && !d->is_null()) out += d->dump(2) + "\n";
    return out;
}

}  // namespace zelk::command
