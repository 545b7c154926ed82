#include "platform/JsonFileSettingsStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "support/BoundedJson.h"
#include "support/FileRead.h"
#include "support/Log.h"

namespace zelk::platform {

namespace fs = std::filesystem;
using ferrow::Log;
using nlohmann::json;

namespace {

// Moves `from` to `to` unless `to` exists; false with errno set otherwise.
bool renameNoReplace(const fs::path& from, const fs::path& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS) return false;
    // A file system without the flag: a hard link fails the same way on an existing name.
    if (::link(from.c_str(), to.c_str()) != 0) return false;
    ::unlink(from.c_str());
    return true;
}

bool writeAll(int fd, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace

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
    std::optional<std::string> text;
    std::string problem;
    LoadResult result = readText(text, problem);
    if (result == LoadResult::ok) result = decode(*text, values_, problem);
    switch (result) {
        case LoadResult::ok:
        case LoadResult::missing:
            lastSeen_ = text;
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

JsonFileSettingsStore::LoadResult JsonFileSettingsStore::readText(std::optional<std::string>& text,
                                                                  std::string& problem) const {
    text.reset();
    std::error_code ec;
    auto status = fs::status(path_, ec);
    if (status.type() == fs::file_type::not_found) return LoadResult::missing;
    if (ec) {
        problem = ec.message();
        return LoadResult::unreadable;
    }
    if (status.type() == fs::file_type::regular && fs::file_size(path_, ec) > kMaxFileBytes && !ec) {
        problem = "longer than " + std::to_string(kMaxFileBytes) + " bytes";
        return LoadResult::corrupt;
    }
    text = ferrow::readFileCapped(path_.string(), kMaxFileBytes, problem);
    return text ? LoadResult::ok : LoadResult::unreadable;
}

JsonFileSettingsStore::LoadResult JsonFileSettingsStore::decode(const std::string& text,
                                                                std::map<std::string, json>& out,
                                                                std::string& problem) {
    auto document = ferrow::parseJsonBounded(text, kMaxDepth, problem);
    if (!document) return LoadResult::corrupt;
    if (!document->is_object()) {
        problem = std::string("a JSON ") + document->type_name() + ", not an object";
        return LoadResult::corrupt;
    }
    out.clear();
    for (auto& [key, value] : document->items())
        out.emplace(key, std::move(value));
    return LoadResult::ok;
}

void JsonFileSettingsStore::setAside(const char* operation, const std::string& problem, const char* outcome) {
    std::error_code ec;
    for (int n = 1; n <= 1000; ++n) {
        fs::path aside = path_;
        aside += n == 1 ? std::string(".corrupt") : ".corrupt-" + std::to_string(n);
        if (renameNoReplace(path_, aside)) {
            Log::error("{}: settings at {} are corrupt ({}); set aside as {}, {}", operation, path_.string(),
                       problem, aside.string(), outcome);
            lastSeen_.reset();
            return;
        }
        if (errno != EEXIST) {
            ec = std::error_code(errno, std::generic_category());
            break;
        }
    }
    if (!ec) ec = std::make_error_code(std::errc::file_exists);
    Log::error("{}: settings at {} are corrupt ({}) and could not be set aside: {}; {}", operation,
               path_.string(), problem, ec.message(), outcome);
}

bool JsonFileSettingsStore::createFolder() const {
    const fs::path folder = path_.parent_path();
    std::error_code ec;
    if (folder.empty() || fs::exists(folder, ec)) return true;
    fs::create_directories(folder, ec);
    // Settings name the user's apps and windows: the folder is the user's alone.
    if (!ec) fs::permissions(folder, fs::perms::owner_all, fs::perm_options::replace, ec);
    if (ec) {
        Log::error("write: can't create {}: {}", folder.string(), ec.message());
        return false;
    }
    return true;
}

bool JsonFileSettingsStore::writeDocument(const std::string& text) {
    if (!createFolder()) return false;
    std::error_code ec;
    fs::path temporary = path_;
    temporary += ".tmp-" + std::to_string(::getpid());
    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) {
        Log::error("write: can't write {}: {}", temporary.string(), std::strerror(errno));
        return false;
    }
    const bool written = writeAll(fd, text);
    const int savedErrno = errno;
    if (::close(fd) != 0 || !written) {
        Log::error("write: can't write {}: {}", temporary.string(),
                   std::strerror(written ? errno : savedErrno));
        fs::remove(temporary, ec);
        return false;
    }
    fs::rename(temporary, path_, ec);
    if (ec) {
        Log::error("write: can't replace {}: {}", path_.string(), ec.message());
        fs::remove(temporary, ec);
        return false;
    }
    return true;
}

// The file is written indented for the user to read, and without the indentation when that would
// pass the size the store reads back (deep or long lists grow most with it). A document that passes
// it even so is not written at all: the file on disk stays as it was, and the change in memory.
std::optional<std::string> JsonFileSettingsStore::serialise(const json& document) const {
    // Invalid UTF-8 in a string must not lose the whole document.
    std::string text = document.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
    if (text.size() <= kMaxFileBytes) return text;
    text = document.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
    if (text.size() <= kMaxFileBytes) return text;
    Log::error(
        "write: settings would take {} bytes, more than the {} a settings file may hold; not "
        "written to {}, the change stays in memory",
        text.size(), kMaxFileBytes, path_.string());
    return std::nullopt;
}

bool JsonFileSettingsStore::persist() {
    json document = json::object();
    for (auto& [key, value] : values_)
        document[key] = value;
    auto text = serialise(document);
    if (!text) {
        dirty_ = true;
        return false;
    }
    if (!writeDocument(*text)) {
        dirty_ = true;
        return false;
    }
    lastSeen_ = std::move(*text);
    unsaved_.clear();
    dirty_ = false;
    return true;
}

bool JsonFileSettingsStore::takeInOutsideChange(const char* operation) {
    std::optional<std::string> text;
    std::string problem;
    if (readText(text, problem) == LoadResult::unreadable) {
        // A file that can't be read can't be merged with: it is left as it is, and so are the changes.
        Log::error("{}: can't read settings at {}: {}; the change stays in memory", operation, path_.string(),
                   problem);
        return false;
    }
    if (text != lastSeen_) reload();
    return true;
}

bool JsonFileSettingsStore::save(const char* operation) {
    if (takeInOutsideChange(operation)) return persist();
    dirty_ = true;
    return false;
}

std::optional<json> JsonFileSettingsStore::read(const std::string& key) const {
    auto it = values_.find(key);
    if (it == values_.end()) return std::nullopt;
    return it->second;
}

// An outside edit is taken in before the change is applied, so the change lands on top of it.
void JsonFileSettingsStore::write(const std::string& key, const json& value) {
    const bool readable = batchDepth_ > 0 || takeInOutsideChange("write");
    values_[key] = value;
    apply(key, readable);
}

void JsonFileSettingsStore::remove(const std::string& key) {
    const bool readable = batchDepth_ > 0 || takeInOutsideChange("write");
    if (!values_.erase(key)) return;
    apply(key, readable);
}

void JsonFileSettingsStore::apply(const std::string& key, bool readable) {
    unsaved_.insert(key);
    if (readable && batchDepth_ == 0)
        persist();
    else
        dirty_ = true;
    notifyChanged(key);
}

// An outside edit is taken in once, when the batch begins; the batch's changes land on top of it.
void JsonFileSettingsStore::beginBatch() {
    if (batchDepth_++ == 0) takeInOutsideChange("write");
}

// The file is looked at again before the one save: an edit made while the batch ran is taken in, not
// replaced. A save that fails keeps every change in memory (dirty) for the next write or synchronize.
void JsonFileSettingsStore::endBatch() {
    if (--batchDepth_ > 0 || !dirty_) return;
    save("write");
}

std::vector<std::string> JsonFileSettingsStore::keys() const {
    std::vector<std::string> out;
    out.reserve(values_.size());
    for (auto& [key, _] : values_)
        out.push_back(key);
    return out;
}

bool JsonFileSettingsStore::synchronize() {
    return dirty_ ? save("synchronize") : true;
}

bool JsonFileSettingsStore::reload() {
    std::optional<std::string> text;
    std::string problem;
    LoadResult result = readText(text, problem);
    if (result != LoadResult::unreadable && text == lastSeen_) return true;  // our own write, or no change
    std::map<std::string, json> fresh;
    if (result == LoadResult::ok) result = decode(*text, fresh, problem);
    switch (result) {
        case LoadResult::ok:
        case LoadResult::missing:  // deleted: every key is back to its default
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
    // What was changed here and not yet saved stays as it is here.
    for (auto& key : unsaved_) {
        if (auto it = values_.find(key); it != values_.end())
            fresh[key] = it->second;
        else
            fresh.erase(key);
    }
    std::vector<std::string> changed;
    for (auto& [key, value] : fresh) {
        auto it = values_.find(key);
        if (it == values_.end() || it->second != value) changed.push_back(key);
    }
    for (auto& [key, _] : values_)
        if (!fresh.count(key)) changed.push_back(key);
    values_ = std::move(fresh);
    lastSeen_ = std::move(text);
    if (!changed.empty()) Log::info("reload: {} key(s) changed outside", changed.size());
    for (auto& key : changed)
        notifyChanged(key);
    return true;
}

}  // namespace zelk::platform
