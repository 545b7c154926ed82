#include "platform/JsonFileSettingsStore.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <system_error>

#include "support/Log.h"

namespace zelk::platform {

namespace fs = std::filesystem;
using ferrow::Log;
using nlohmann::json;

fs::path JsonFileSettingsStore::defaultPath() {
    fs::path base;
    if (const char* state = std::getenv("XDG_STATE_HOME"); state && *state && fs::path(state).is_absolute())
        base = state;
    else if (const char* home = std::getenv("HOME"); home && *home)
        base = fs::path(home) / ".local" / "state";
    else
        base = fs::temp_directory_path();
    return base / "zelk" / (std::string(kDomain) + ".json");
}

JsonFileSettingsStore::JsonFileSettingsStore(fs::path path) : path_(std::move(path)) {
    std::string problem;
    switch (load(values_, problem)) {
        case LoadResult::ok:
        case LoadResult::missing:
            break;
        case LoadResult::corrupt:
            values_.clear();
            setAside("read", problem, "starting on defaults");
            break;
        case LoadResult::unreadable:
            values_.clear();
            Log::error("read: can't read settings at {}: {}; starting on defaults", path_.string(), problem);
            break;
    }
}

JsonFileSettingsStore::LoadResult JsonFileSettingsStore::load(std::map<std::string, json>& out,
                                                              std::string& problem) const {
    std::error_code ec;
    if (!fs::exists(path_, ec)) {
        if (ec) {
            problem = ec.message();
            return LoadResult::unreadable;
        }
        return LoadResult::missing;
    }
    std::ifstream in(path_, std::ios::binary);
    if (!in) {
        problem = "can't open the file";
        return LoadResult::unreadable;
    }
    std::stringstream text;
    text << in.rdbuf();
    json document = json::parse(text.str(), nullptr, /*allow_exceptions=*/false);
    if (document.is_discarded()) {
        problem = "not valid JSON";
        return LoadResult::corrupt;
    }
    if (!document.is_object()) {
        problem = std::string("a JSON ") + document.type_name() + ", not an object";
        return LoadResult::corrupt;
    }
    out.clear();
    for (auto& [key, value] : document.items())
        out.emplace(key, value);
    return LoadResult::ok;
}

void JsonFileSettingsStore::setAside(const char* operation, const std::string& problem, const char* outcome) {
    fs::path aside = path_;
    aside += ".corrupt";
    std::error_code ec;
    fs::rename(path_, aside, ec);
    if (ec)
        Log::error("{}: settings at {} are corrupt ({}) and could not be set aside: {}; {}", operation,
                   path_.string(), problem, ec.message(), outcome);
    else
        Log::error("{}: settings at {} are corrupt ({}); set aside as {}, {}", operation, path_.string(),
                   problem, aside.string(), outcome);
}

bool JsonFileSettingsStore::persist() {
    json document = json::object();
    for (auto& [key, value] : values_)
        document[key] = value;
    // Invalid UTF-8 in a string must not lose the whole document.
    std::string text = document.dump(2, ' ', false, json::error_handler_t::replace) + "\n";

    std::error_code ec;
    fs::create_directories(path_.parent_path(), ec);
    if (ec) {
        Log::error("write: can't create {}: {}", path_.parent_path().string(), ec.message());
        dirty_ = true;
        return false;
    }
    fs::path temporary = path_;
    temporary += ".tmp-" + std::to_string(::getpid());
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << text;
        out.flush();
        if (!out) {
            Log::error("write: can't write {}", temporary.string());
            out.close();
            fs::remove(temporary, ec);
            dirty_ = true;
            return false;
        }
    }
    fs::rename(temporary, path_, ec);
    if (ec) {
        Log::error("write: can't replace {}: {}", path_.string(), ec.message());
        fs::remove(temporary, ec);
        dirty_ = true;
        return false;
    }
    dirty_ = false;
    return true;
}

std::optional<json> JsonFileSettingsStore::read(const std::string& key) const {
    auto it = values_.find(key);
    if (it == values_.end()) return std::nullopt;
    return it->second;
}

void JsonFileSettingsStore::write(const std::string& key, const json& value) {
    values_[key] = value;
    persist();
    notifyChanged(key);
}

void JsonFileSettingsStore::remove(const std::string& key) {
    if (!values_.erase(key)) return;
    persist();
    notifyChanged(key);
}

std::vector<std::string> JsonFileSettingsStore::keys() const {
    std::vector<std::string> out;
    out.reserve(values_.size());
    for (auto& [key, _] : values_)
        out.push_back(key);
    return out;
}

bool JsonFileSettingsStore::synchronize() {
    return dirty_ ? persist() : true;
}

bool JsonFileSettingsStore::reload() {
    std::map<std::string, json> fresh;
    std::string problem;
    switch (load(fresh, problem)) {
        case LoadResult::ok:
            break;
        case LoadResult::missing:
            fresh.clear();  // the file was deleted: every key is back to its default
            break;
        case LoadResult::corrupt:
            setAside("reload", problem, "keeping the values in memory");
            persist();
            return false;
        case LoadResult::unreadable:
            Log::error("reload: can't read settings at {}: {}; keeping the values in memory", path_.string(),
                       problem);
            return false;
    }
    std::vector<std::string> changed;
    for (auto& [key, value] : fresh) {
        auto it = values_.find(key);
        if (it == values_.end() || it->second != value) changed.push_back(key);
    }
    for (auto& [key, _] : values_)
        if (!fresh.count(key)) changed.push_back(key);
    values_ = std::move(fresh);
    dirty_ = false;
    if (!changed.empty()) Log::info("reload: {} key(s) changed outside", changed.size());
    for (auto& key : changed)
        notifyChanged(key);
    return true;
}

}  // namespace zelk::platform
