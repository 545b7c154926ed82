#pragma once
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "config/ConfigSchema.h"
#include "config/Settings.h"
#include "support/Clock.h"
#include "support/FolderWatch.h"
#include "support/MainQueue.h"
#include "support/Observable.h"
#include "support/Timing.h"

namespace zelk::search {
class SearchCacheFlush;
}

namespace zelk::configfile {

// The one owner of the YAML files in the configuration folder: `config.yaml`, its backup
// `config.yaml.bak` and `search-cache.yaml`. It keeps the file and the stored settings in step both
// ways without echoing: a settings change writes the file once, 2 s after the last change of a burst;
// an edit of the file is applied 1 s after its last file event. The program's own writes come back
// from the watch and are recognised by their content; an apply holds writes back for 3 s, longer than
// the write's debounce, so the apply's own changes write nothing.
//
// The file is the user's and is never clobbered: a write goes through symbolic links (a linked file or
// folder stays a link) and replaces the target atomically, and it never replaces bytes that were not
// read successfully first: a file edited on disk since the last read or write is read first, and a file
// that doesn't read stays as it is until it is fixed. Main thread only.
class ConfigFileManager {
  public:
    static constexpr ferrow::Nanos kWriteDebounce = ferrow::ms(2000);
    static constexpr ferrow::Nanos kFileDebounce = ferrow::ms(1000);
    static constexpr ferrow::Nanos kReadHold = ferrow::ms(3000);
    // A configuration of a few hundred entries is tens of kilobytes; anything past this is a mistake.
    static constexpr std::size_t kMaxFileBytes = 2u * 1024 * 1024;

    static constexpr const char* kConfigName = "config.yaml";
    static constexpr const char* kBackupName = "config.yaml.bak";
    static constexpr const char* kSearchCacheName = "search-cache.yaml";
    static constexpr std::string_view kSearchCacheHeader =
        "# zelk search cache\n"
        "# Learned query -> app overrides, written automatically when you pick an app in\n"
        "# the switcher. Safe to delete or edit. Values are bundle identifiers.\n";

    // `$XDG_CONFIG_HOME/zelk` (when absolute), else `~/.config/zelk`.
    static std::filesystem::path defaultFolder();

    struct Options {
        std::filesystem::path folder = defaultFolder();
        // With false no thread reads the watch: the owner calls pollWatch() (tests).
        bool backgroundWatch = true;
        ConfigApps apps;
        const StageCodec* stages = &storedStagesCodec();
    };

    ConfigFileManager(Settings& settings, Options options);
    ~ConfigFileManager();
    ConfigFileManager(const ConfigFileManager&) = delete;
    ConfigFileManager& operator=(const ConfigFileManager&) = delete;

    // At launch: the folder, then each file read when present or written when not, the watch, and the
    // subscriptions that keep them in step.
    void setup();

    // False when nothing was applied or written (the reason is logged).
    bool readSettingsFromFile();
    bool writeSettingsToFile();
    bool readSearchCache();
    bool writeSearchCache();
    // At termination: a pending settings write happens now, and a changed cache is written.
    void flushAtTermination();
    void flushSearchCacheIfDirty();
    // A change of the learned picks that must reach the file now (a pin, a clean-up).
    void writeSearchCacheNow();

    // The settings record as JSON; nothing when it can't be encoded.
    std::optional<std::string> exportJSON() const;
    // Stores every field of a settings record, after keeping the file as the backup. False with the
    // reason when the record doesn't decode; nothing is changed then.
    bool importJSON(std::string_view body, std::string& error);
    // Keeps the file as the backup, returns every file-managed setting to its default and writes the
    // file afresh.
    bool resetConfig(std::string& error);
    enum class RestoreResult { restored, noBackup, failed };
    // Puts the backup's bytes back in place and applies them. A backup that doesn't read is refused
    // and nothing changes.
    RestoreResult restoreFromBackup();

    const std::filesystem::path& folder() const { return folder_; }
    std::filesystem::path configPath() const { return folder_ / kConfigName; }
    std::filesystem::path backupPath() const { return folder_ / kBackupName; }
    std::filesystem::path searchCachePath() const { return folder_ / kSearchCacheName; }
    bool hasBackup() const;

    bool isReading() const { return isReading_; }
    bool isReadingSearchCache() const { return isReadingSearchCache_; }
    bool searchCacheDirty() const;
    bool writePending() const { return writeDebounce_.isPending(); }
    bool watching() const { return watch_ && watch_->isWatching(); }
    const std::optional<std::string>& lastWrittenContent() const { return lastWrittenContent_; }
    const std::optional<std::string>& lastWrittenSearchCache() const { return lastWrittenSearchCache_; }
    // Reads the file events waiting now and posts them to the main queue; returns how many.
    int pollWatch() { return watch_ ? watch_->processEvents(0) : 0; }

  private:
    void startWatcher();
    void onFileEvent(const std::string& path);
    void settingsChanged(const std::string& key);
    bool writeConfig(bool force);
    bool keepBackup(std::string& error);
    void reportBadFile(const std::string& what, const std::string& error);

    Settings& settings_;
    std::filesystem::path folder_;
    ConfigApps apps_;
    const StageCodec* stages_;
    bool backgroundWatch_;

    bool isReadingSearchCache_ = false;
    bool isReading_ = false;
    bool applying_ = false;           // the apply itself is storing values
    bool changedDuringHold_ = false;  // a change of the user's own came while writes were held
    std::optional<std::string> lastWrittenContent_;
    std::optional<std::string> lastWrittenSearchCache_;
    // The file's bytes as last read successfully or written: the only bytes a write may replace.
    std::optional<std::string> lastSeenContent_;
    std::vector<std::string> configEventPaths_, cacheEventPaths_;

    ferrow::Debouncer writeDebounce_{kWriteDebounce};
    ferrow::Debouncer fileChangedDebounce_{kFileDebounce};
    ferrow::Debouncer cacheChangedDebounce_{kFileDebounce};
    ferrow::WorkItem readHold_, cacheReadHold_;
    std::unique_ptr<search::SearchCacheFlush> cacheFlush_;
    ferrow::Subscription settingsSub_;
    std::unique_ptr<ferrow::FolderWatch> watch_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    bool setUp_ = false;
};

}  // namespace zelk::configfile
