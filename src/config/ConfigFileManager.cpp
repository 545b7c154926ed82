#include "config/ConfigFileManager.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "config/SearchCacheFile.h"
#include "config/SettingsCatalogue.h"
#include "platform/Platform.h"
#include "search/SearchCacheFlush.h"
#include "support/FileRead.h"
#include "support/Log.h"

namespace zelk::configfile {

namespace fs = std::filesystem;
using ferrow::Log;

namespace {

// Follows symbolic links to the file they name, also a link whose target doesn't exist yet, so a
// write replaces the target and the link stays.
fs::path resolveLinks(fs::path path) {
    std::error_code ec;
    for (int hops = 0; hops < 40 && fs::is_symlink(fs::symlink_status(path, ec)); ++hops) {
        fs::path target = fs::read_symlink(path, ec);
        if (ec) break;
        path = target.is_absolute() ? target : path.parent_path() / target;
    }
    fs::path canonical = fs::weakly_canonical(path, ec);
    return ec ? path : canonical;
}

bool writeAll(int fd, std::string_view text) {
    std::size_t done = 0;
    while (done < text.size()) {
        ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

// Replaces the file a path names (through its links) with `text` in one rename: a reader sees the old
// bytes or the new ones, never a mix. The file keeps its permissions.
bool writeAtomically(const fs::path& path, std::string_view text, std::string& error) {
    const fs::path target = resolveLinks(path);
    fs::path temporary =
        target.parent_path() / fmt::format(".{}.tmp-{}", target.filename().string(), ::getpid());
    struct stat info {};
    const mode_t mode = ::stat(target.c_str(), &info) == 0 ? (info.st_mode & 07777) : 0644;
    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    if (fd < 0) {
        error = fmt::format("can't write {}: {}", temporary.string(), std::strerror(errno));
        return false;
    }
    const bool written = writeAll(fd, text);
    const int savedErrno = errno;
    std::error_code ec;
    if (::close(fd) != 0 || !written) {
        error = fmt::format("can't write {}: {}", temporary.string(),
                            std::strerror(written ? errno : savedErrno));
        fs::remove(temporary, ec);
        return false;
    }
    ::chmod(temporary.c_str(), mode);
    fs::rename(temporary, target, ec);
    if (ec) {
        error = fmt::format("can't replace {}: {}", target.string(), ec.message());
        fs::remove(temporary, ec);
        return false;
    }
    return true;
}

// Characters, not bytes, as the length of a text.
std::size_t characters(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

}  // namespace

fs::path ConfigFileManager::defaultFolder() {
    if (const char* config = std::getenv("XDG_CONFIG_HOME");
        config && *config && fs::path(config).is_absolute())
        return fs::path(config) / "zelk";
    if (const char* home = std::getenv("HOME"); home && *home) return fs::path(home) / ".config" / "zelk";
    return fs::temp_directory_path() / "zelk-config";
}

ConfigFileManager::ConfigFileManager(Settings& settings, Options options)
    : settings_(settings),
      folder_(std::move(options.folder)),
      apps_(std::move(options.apps)),
      stages_(options.stages ? options.stages : &storedStagesCodec()),
      backgroundWatch_(options.backgroundWatch) {}

ConfigFileManager::~ConfigFileManager() {
    alive_.reset();
    settingsSub_.cancel();
    writeDebounce_.cancel();
    fileChangedDebounce_.cancel();
    cacheChangedDebounce_.cancel();
    readHold_.cancel();
    cacheReadHold_.cancel();
    watch_.reset();
    cacheFlush_.reset();
}

void ConfigFileManager::setup() {
    if (setUp_) return;
    setUp_ = true;
    std::error_code ec;
    fs::create_directories(folder_, ec);
    if (ec) Log::error("setup: can't create {}: {}", folder_.string(), ec.message());
    if (fs::exists(configPath(), ec))
        readSettingsFromFile();
    else
        writeConfig(true);
    if (fs::exists(searchCachePath(), ec))
        readSearchCache();
    else
        writeSearchCache();
    startWatcher();
    // The store reports every change by key; the first value a subscription would deliver isn't one.
    settingsSub_ = settings_.store().observe([this](const std::string& key) { settingsChanged(key); });
    cacheFlush_ =
        std::make_unique<search::SearchCacheFlush>(settings_, [this] { return writeSearchCache(); });
}

void ConfigFileManager::settingsChanged(const std::string& key) {
    const auto& managed = configManagedKeys();
    if (std::find(managed.begin(), managed.end(), key) == managed.end()) return;
    // A change made while an apply holds writes back, but not by the apply, still reaches the file
    // once the hold ends.
    if (isReading_ && !applying_) changedDuringHold_ = true;
    std::weak_ptr<bool> alive = alive_;
    writeDebounce_.call([this, alive] {
        if (alive.lock()) writeSettingsToFile();
    });
}

// ---------------------------------------------------------------------------------------------------
// The watch.

void ConfigFileManager::startWatcher() {
    // Events name the folder as it was watched, so the folder and every link target are watched by
    // their resolved paths: an edit at a link's target is seen where it happens.
    std::vector<std::string> folders;
    auto addFolder = [&](const fs::path& folder) {
        if (std::find(folders.begin(), folders.end(), folder.string()) == folders.end())
            folders.push_back(folder.string());
    };
    const fs::path folder = resolveLinks(folder_);
    addFolder(folder);
    configEventPaths_ = {(folder / kConfigName).string()};
    cacheEventPaths_ = {(folder / kSearchCacheName).string()};
    for (auto [path, list] :
         {std::pair{configPath(), &configEventPaths_}, std::pair{searchCachePath(), &cacheEventPaths_}}) {
        const fs::path target = resolveLinks(path);
        if (target.string() != list->front()) {
            list->push_back(target.string());
            addFolder(target.parent_path());
        }
    }
    std::weak_ptr<bool> alive = alive_;
    watch_ = std::make_unique<ferrow::FolderWatch>(
        folders,
        [this, alive](const std::string& path) {
            if (alive.lock()) onFileEvent(path);
        },
        backgroundWatch_);
    if (watch_->isWatching()) {
        Log::info("watcher: started on {}", folder.string());
        return;
    }
    const std::string why = std::string("inotify: ") + std::strerror(errno);
    Log::error("watcher: start failed: {}", why);
    Log::error("Failed to start config file watcher: {}", why);
    watch_.reset();
}

void ConfigFileManager::onFileEvent(const std::string& path) {
    Log::debug("fsevent: {} flags=changed", path);
    std::weak_ptr<bool> alive = alive_;
    if (std::find(configEventPaths_.begin(), configEventPaths_.end(), path) != configEventPaths_.end()) {
        fileChangedDebounce_.call([this, alive] {
            if (!alive.lock()) return;
            Log::info("subject: 1s debounce flushed -> calling readSettingsFromFile");
            readSettingsFromFile();
        });
    } else if (std::find(cacheEventPaths_.begin(), cacheEventPaths_.end(), path) != cacheEventPaths_.end()) {
        cacheChangedDebounce_.call([this, alive] {
            if (alive.lock()) readSearchCache();
        });
    }
}

// ---------------------------------------------------------------------------------------------------
// The configuration file.

void ConfigFileManager::reportBadFile(const std::string& what, const std::string& error) {
    if (!platform::Platform::installed()) return;
    if (auto* n = platform::Platform::current().notifications)
        n->postUserNotification("configFileError", fmt::format("zelk: {} not applied", what), error);
}

bool ConfigFileManager::readSettingsFromFile() {
    Log::info("read: triggered");
    std::string error;
    auto text = ferrow::readFileCapped(configPath().string(), kMaxFileBytes, error);
    if (!text) {
        Log::error("Failed to read config file: {}", error);
        Log::error("read: failed: {}", error);
        reportBadFile(kConfigName, error);
        return false;
    }
    if (text == lastWrittenContent_) {
        Log::info("read: skipped (self-echo, content matches last write)");
        return false;
    }
    Log::info("read: parsing bytes={}", text->size());
    auto update = decodeConfig(*text, settings_, error, apps_, *stages_);
    if (!update) {
        Log::error("Failed to read config file: {}", error);
        Log::error("read: failed: {}", error);
        reportBadFile(kConfigName, error);
        return false;
    }
    Log::info("read: decoded ok, applying to Defaults");
    isReading_ = true;
    if (update->overrideUserDefaults)
        Log::info("read: overrideUserDefaults on -> resetting config-managed keys before apply");
    for (auto& note : update->notes)
        Log::info("read: {}", note);
    applying_ = true;
    applyConfig(settings_, *update);
    applying_ = false;
    lastSeenContent_ = std::move(*text);
    Log::info("read: apply done (isReading hold for 3s to suppress write-back loop)");
    readHold_.cancel();
    std::weak_ptr<bool> alive = alive_;
    readHold_ = ferrow::MainQueue::shared().asyncAfter(kReadHold, [this, alive] {
        if (!alive.lock()) return;
        isReading_ = false;
        Log::info("read: isReading hold released");
        if (std::exchange(changedDuringHold_, false))
            writeDebounce_.call([this, alive] {
                if (alive.lock()) writeSettingsToFile();
            });
    });
    return true;
}

bool ConfigFileManager::writeSettingsToFile() {
    return writeConfig(false);
}

bool ConfigFileManager::writeConfig(bool force) {
    if (isReading_ && !force) {
        Log::info("write: skipped (currently applying a read)");
        return false;
    }
    writeDebounce_.cancel();
    const std::string text = configText(configTree(settings_, apps_, *stages_));
    std::error_code ec;
    if (!force && fs::exists(configPath(), ec)) {
        // Bytes nobody has read yet are the user's newest word: they are taken in, not replaced.
        std::string error;
        auto onDisk = ferrow::readFileCapped(configPath().string(), kMaxFileBytes, error);
        if (onDisk != lastSeenContent_) {
            Log::info("write: held ({} changed on disk since it was last read or written; reading it first)",
                      kConfigName);
            readSettingsFromFile();
            return false;
        }
        if (onDisk == text) {
            lastWrittenContent_ = text;
            Log::info("write: unchanged bytes={}", text.size());
            return true;
        }
    }
    std::string error;
    if (!writeAtomically(configPath(), text, error)) {
        Log::error("Failed to write config file: {}", error);
        Log::error("write: failed: {}", error);
        return false;
    }
    lastWrittenContent_ = text;
    lastSeenContent_ = text;
    Log::info("write: ok bytes={}", text.size());
    return true;
}

void ConfigFileManager::flushAtTermination() {
    if (writeDebounce_.isPending()) writeSettingsToFile();
    flushSearchCacheIfDirty();
}

bool ConfigFileManager::hasBackup() const {
    std::error_code ec;
    return fs::exists(backupPath(), ec);
}

// The backup is a plain copy of the configuration's bytes (through its links), never a link.
bool ConfigFileManager::keepBackup(std::string& error) {
    std::error_code ec;
    if (!fs::exists(configPath(), ec)) return true;
    auto bytes = ferrow::readFileCapped(configPath().string(), kMaxFileBytes, error);
    if (!bytes) return false;
    const fs::path backup = resolveLinks(folder_) / kBackupName;
    fs::remove(backup, ec);
    return writeAtomically(backup, *bytes, error);
}

bool ConfigFileManager::resetConfig(std::string& error) {
    if (!keepBackup(error)) {
        Log::error("reset: can't keep the backup: {}", error);
        return false;
    }
    settings_.reset(configManagedKeys());
    if (!writeConfig(true)) {
        error = fmt::format("can't write {}", configPath().string());
        return false;
    }
    Log::info("reset: config-managed settings back to their defaults, previous file at {}",
              backupPath().string());
    return true;
}

ConfigFileManager::RestoreResult ConfigFileManager::restoreFromBackup() {
    if (!hasBackup()) return RestoreResult::noBackup;
    std::string error;
    auto bytes = ferrow::readFileCapped(backupPath().string(), kMaxFileBytes, error);
    if (bytes && !decodeConfig(*bytes, settings_, error, apps_, *stages_)) bytes.reset();
    if (!bytes || !writeAtomically(configPath(), *bytes, error)) {
        Log::error("Failed to restore config from backup: {}", error);
        return RestoreResult::failed;
    }
    // What is in place now has not been read; the read takes it in and the watch's echo is skipped.
    lastSeenContent_ = *bytes;
    lastWrittenContent_.reset();
    if (!readSettingsFromFile()) {
        Log::error("Failed to restore config from backup: the restored file didn't apply");
        return RestoreResult::failed;
    }
    lastWrittenContent_ = *bytes;
    return RestoreResult::restored;
}

std::optional<std::string> ConfigFileManager::exportJSON() const {
    try {
        return exportSettingsRecord(settings_).dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
    } catch (const std::exception& e) {
        Log::error("Error encoding settings to JSON: {}", e.what());
        return std::nullopt;
    }
}

bool ConfigFileManager::importJSON(std::string_view body, std::string& error) {
    auto writes = decodeSettingsRecord(body, error);
    if (!writes) {
        Log::error("Failed to decode settings from JSON: {}", error);
        return false;
    }
    if (!keepBackup(error)) {
        Log::error("import: can't keep the backup: {}", error);
        return false;
    }
    auto& store = settings_.store();
    for (auto& [key, value] : *writes) {
        if (value.is_null()) {
            store.remove(key);
            continue;
        }
        if (store.read(key) != std::optional<nlohmann::json>(value)) store.write(key, value);
    }
    Log::info("import: stored {} setting(s)", writes->size());
    // The file follows at once; the backup holds what it said before.
    writeConfig(true);
    return true;
}

// ---------------------------------------------------------------------------------------------------
// The search cache.

bool ConfigFileManager::searchCacheDirty() const {
    return cacheFlush_ && cacheFlush_->dirty();
}

void ConfigFileManager::flushSearchCacheIfDirty() {
    if (cacheFlush_) cacheFlush_->flushIfDirty();
}

void ConfigFileManager::writeSearchCacheNow() {
    if (cacheFlush_)
        cacheFlush_->writeNow();
    else
        writeSearchCache();
}

bool ConfigFileManager::writeSearchCache() {
    if (isReadingSearchCache_) {
        Log::info("search-cache write: skipped (currently applying a read)");
        return false;
    }
    const std::string text =
        std::string(kSearchCacheHeader) + searchCacheBody(settings_.get(keys::searchQueryAppSelections));
    std::error_code ec;
    fs::create_directories(folder_, ec);
    std::string error;
    if (!writeAtomically(searchCachePath(), text, error)) {
        Log::error("Failed to write search cache: {}", error);
        return false;
    }
    lastWrittenSearchCache_ = text;
    Log::info("search-cache write: ok bytes={}", characters(text));
    return true;
}

bool ConfigFileManager::readSearchCache() {
    std::string error;
    auto text = ferrow::readFileCapped(searchCachePath().string(), kMaxFileBytes, error);
    if (!text) {
        Log::error("Failed to read search cache: {}", error);
        return false;
    }
    if (lastWrittenSearchCache_ && text == lastWrittenSearchCache_) {
        Log::info("search-cache read: skipped (self-echo)");
        return false;
    }
    auto selections = decodeSearchCache(*text, error);
    if (!selections) {
        Log::error("Failed to read search cache: {}", error);
        return false;
    }
    isReadingSearchCache_ = true;
    settings_.set(keys::searchQueryAppSelections, *selections);
    Log::info("search-cache read: applied {} entries", selections->size());
    cacheReadHold_.cancel();
    std::weak_ptr<bool> alive = alive_;
    cacheReadHold_ = ferrow::MainQueue::shared().asyncAfter(kReadHold, [this, alive] {
        if (alive.lock()) isReadingSearchCache_ = false;
    });
    return true;
}

}  // namespace zelk::configfile
