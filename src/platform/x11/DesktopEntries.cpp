#include "platform/x11/DesktopEntries.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

namespace zelk::x11 {

namespace {
std::string trim(const std::string& s) {
    auto b = s.find_first_not_of(" \t\r");
    if (b == std::string::npos) return {};
    auto e = s.find_last_not_of(" \t\r");
    return s.substr(b, e - b + 1);
}
std::string lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
    return s;
}
}  // namespace

std::optional<DesktopEntry> parseDesktopEntry(const std::string& text, const std::string& path) {
    DesktopEntry e;
    e.path = path;
    std::string file = std::filesystem::path(path).filename().string();
    e.id = file.size() > 8 && file.ends_with(".desktop") ? file.substr(0, file.size() - 8) : file;
    std::istringstream in(text);
    std::string line, group, type;
    while (std::getline(in, line)) {
        line = trim(line);
        if (line.empty() || line[0] == '#') continue;
        if (line.front() == '[') {
            group = line;
            continue;
        }
        if (group != "[Desktop Entry]") continue;
        auto eq = line.find('=');
        if (eq == std::string::npos) continue;
        std::string key = trim(line.substr(0, eq)), value = trim(line.substr(eq + 1));
        if (key == "Type")
            type = value;
        else if (key == "Name")
            e.name = value;
        else if (key == "Exec")
            e.exec = value;
        else if (key == "StartupWMClass")
            e.wmClass = value;
        else if (key == "Categories")
            e.categories = value;
        else if ((key == "NoDisplay" || key == "Hidden") && value == "true")
            e.hidden = true;
    }
    if (type != "Application" || e.name.empty()) return std::nullopt;
    return e;
}

std::vector<std::string> execArguments(const std::string& exec) {
    std::vector<std::string> args;
    std::string current;
    bool inQuotes = false, any = false;
    for (std::size_t i = 0; i < exec.size(); ++i) {
        char c = exec[i];
        if (inQuotes) {
            if (c == '\\' && i + 1 < exec.size()) {
                current.push_back(exec[++i]);
            } else if (c == '"') {
                inQuotes = false;
            } else {
                current.push_back(c);
            }
            continue;
        }
        if (c == '"') {
            inQuotes = any = true;
        } else if (c == ' ' || c == '\t') {
            if (any) args.push_back(current);
            current.clear();
            any = false;
        } else if (c == '%' && i + 1 < exec.size()) {
            char code = exec[++i];
            if (code == '%') {
                current.push_back('%');
                any = true;
            }
            // Every other field code stands for files, URLs or icons zelk never passes.
        } else {
            current.push_back(c);
            any = true;
        }
    }
    if (any) args.push_back(current);
    return args;
}

std::vector<std::string> applicationFolders() {
    std::vector<std::string> out;
    const char* home = std::getenv("HOME");
    const char* dataHome = std::getenv("XDG_DATA_HOME");
    if (dataHome && *dataHome)
        out.push_back(std::string(dataHome) + "/applications");
    else if (home)
        out.push_back(std::string(home) + "/.local/share/applications");
    const char* dirs = std::getenv("XDG_DATA_DIRS");
    std::string list = dirs && *dirs ? dirs : "/usr/local/share:/usr/share";
    std::stringstream ss(list);
    std::string dir;
    while (std::getline(ss, dir, ':'))
        if (!dir.empty()) out.push_back(dir + "/applications");
    return out;
}

std::vector<DesktopEntry> scanDesktopEntries(const std::vector<std::string>& folders) {
    std::vector<DesktopEntry> out;
    std::set<std::string> seen;
    for (auto& folder : folders) {
        std::error_code ec;
        std::vector<std::filesystem::path> files;
        for (auto& f : std::filesystem::directory_iterator(folder, ec))
            if (f.path().extension() == ".desktop") files.push_back(f.path());
        std::sort(files.begin(), files.end());
        for (auto& f : files) {
            std::ifstream in(f);
            std::stringstream text;
            text << in.rdbuf();
            auto entry = parseDesktopEntry(text.str(), f.string());
            if (entry && seen.insert(entry->id).second) out.push_back(std::move(*entry));
        }
    }
    return out;
}

const DesktopEntry* entryForClass(const std::vector<DesktopEntry>& entries, const std::string& cls,
                                  const std::string& instance) {
    std::string c = lower(cls), i = lower(instance);
    for (auto& e : entries)
        if (!e.wmClass.empty() && (lower(e.wmClass) == c || lower(e.wmClass) == i)) return &e;
    for (auto& e : entries)
        if (lower(e.id) == c || lower(e.id) == i) return &e;
    return nullptr;
}

}  // namespace zelk::x11
