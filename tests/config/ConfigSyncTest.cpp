#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "config/ConfigFileManager.h"
#include "config/SettingsCatalogue.h"
#include "config/SettingsFixture.h"
#include "platform/SettingsStore.h"
#include "support/Log.h"
#include "support/MainQueue.h"

namespace zelk::testing {
namespace {

namespace fs = std::filesystem;
using configfile::ConfigFileManager;

std::string slurp(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

void spit(const fs::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
}

// A configuration folder on disk, the settings in memory and the main queue on a virtual clock. File
// events are read by hand (poll) and then delivered by moving the clock.
class ConfigSyncTest : public SettingsTestBase {
  protected:
    std::shared_ptr<ferrow::VirtualClock> clock = std::make_shared<ferrow::VirtualClock>();
    ferrow::MainQueue& queue = ferrow::MainQueue::install(clock);
    TempDir dir;
    platform::MemorySettingsStore store;
    Settings settings{store};
    std::unique_ptr<ConfigFileManager> manager;
    ferrow::LogCapture log;

    void TearDown() override {
        manager.reset();
        ferrow::MainQueue::reset();
        SettingsTestBase::TearDown();
    }

    fs::path folder() const { return dir.path() / "zelk"; }
    fs::path config() const { return folder() / "config.yaml"; }

    void start(fs::path where = {}) {
        ConfigFileManager::Options options;
        options.folder = where.empty() ? folder() : where;
        options.backgroundWatch = false;
        manager = std::make_unique<ConfigFileManager>(settings, options);
        manager->setup();
    }
    // Takes in the file events so far, then lets `ms` of virtual time pass.
    void after(std::int64_t milliseconds) {
        manager->pollWatch();
        queue.runUntil(queue.now() + ferrow::ms(milliseconds));
    }
    std::size_t writes() const {
        return log.count("write: ok bytes=" + std::to_string(slurp(config()).size()));
    }
    std::size_t countPrefix(std::string_view prefix) const {
        return static_cast<std::size_t>(std::count_if(log.lines().begin(), log.lines().end(), [&](auto& l) {
            return l.message.rfind(prefix, 0) == 0;
        }));
    }
    // The file as it stands with one line replaced.
    void edit(const std::string& from, const std::string& to) {
        std::string text = slurp(config());
        auto at = text.find(from);
        ASSERT_NE(at, std::string::npos) << from;
        spit(config(), text.replace(at, from.size(), to));
    }
};

TEST_F(ConfigSyncTest, StartWritesAMissingFileAndReadsAnExistingOne) {
    start();
    ASSERT_TRUE(fs::exists(config()));
    EXPECT_TRUE(fs::exists(folder() / "search-cache.yaml"));
    EXPECT_TRUE(log.contains("watcher: started on " + fs::weakly_canonical(folder()).string()));
    EXPECT_EQ(slurp(config()), configfile::configText(settings));

    // A second start finds the file and applies what it says.
    manager.reset();
    edit("appSort: name", "appSort: score");
    start();
    EXPECT_EQ(settings.get(keys::appSort), AppSort::score);
    EXPECT_TRUE(log.contains("read: decoded ok, applying to Defaults"));
}

TEST_F(ConfigSyncTest, ABurstOfSettingChangesWritesTheFileOnceTwoSecondsAfterTheLast) {
    start();
    log.clear();
    settings.set(keys::appSort, AppSort::score);
    queue.runUntil(queue.now() + ferrow::ms(1500));
    settings.set(keys::windowSwitchOSDDelay, 90);
    queue.runUntil(queue.now() + ferrow::ms(1500));
    settings.set(keys::windowSwitchOSDDelay, 95);
    queue.runUntil(queue.now() + ferrow::ms(1999));
    EXPECT_EQ(countPrefix("write: ok"), 0u);
    queue.runUntil(queue.now() + ferrow::ms(1));
    EXPECT_EQ(countPrefix("write: ok"), 1u);
    EXPECT_NE(slurp(config()).find("appSwitcherOSDDelay: 95"), std::string::npos);
    // A setting the file doesn't carry writes nothing.
    settings.set(keys::capsLockTapToggles, false);
    queue.runUntil(queue.now() + ferrow::ms(5000));
    EXPECT_EQ(countPrefix("write: ok"), 1u);

    // The watch's echo of the program's own write applies nothing.
    after(1000);
    EXPECT_TRUE(log.contains("read: skipped (self-echo, content matches last write)"));
    EXPECT_FALSE(log.contains("read: decoded ok, applying to Defaults"));
}

TEST_F(ConfigSyncTest, AHandEditIsAppliedOneSecondAfterItLandsAndWritesNothingBack) {
    start();
    log.clear();
    edit("appSort: name", "appSort: key");
    after(999);
    EXPECT_EQ(settings.get(keys::appSort), AppSort::name);
    after(1);
    EXPECT_EQ(settings.get(keys::appSort), AppSort::key);
    EXPECT_TRUE(log.contains("subject: 1s debounce flushed -> calling readSettingsFromFile"));
    EXPECT_TRUE(manager->isReading());
    // The apply's own change would write 2 s later; the 3 s hold keeps it from echoing.
    const std::string edited = slurp(config());
    after(5000);
    EXPECT_TRUE(log.contains("write: skipped (currently applying a read)"));
    EXPECT_TRUE(log.contains("read: isReading hold released"));
    EXPECT_EQ(countPrefix("write: ok"), 0u);
    EXPECT_EQ(slurp(config()), edited);
}

TEST_F(ConfigSyncTest, AChangeOfTheUsersOwnDuringTheReadHoldStillReachesTheFile) {
    start();
    edit("appSort: name", "appSort: key");
    after(1000);
    ASSERT_TRUE(manager->isReading());
    settings.set(keys::appSortReverse, true);  // from a settings pane, 1 s into the hold
    after(2000);
    EXPECT_EQ(slurp(config()).find("appSortReverse: true"), std::string::npos);
    after(1000);  // the hold ends; the write follows 2 s later
    EXPECT_EQ(slurp(config()).find("appSortReverse: true"), std::string::npos);
    after(2000);
    EXPECT_NE(slurp(config()).find("appSortReverse: true"), std::string::npos);
    EXPECT_NE(slurp(config()).find("appSort: key"), std::string::npos);
}

TEST_F(ConfigSyncTest, BadFilesLeaveEverySettingAndTheFileAsTheyWere) {
    start();
    settings.set(keys::appSort, AppSort::score);
    after(2000);
    const std::string good = slurp(config());
    auto snapshot = [&] {
        std::map<std::string, nlohmann::json> all;
        for (auto& key : store.keys())
            all[key] = *store.read(key);
        return all;
    };
    std::string missingSection = good;
    missingSection.erase(missingSection.find("spaces:"),
                         missingSection.find("general:") - missingSection.find("spaces:"));
    struct Case {
        std::string text;
        std::string message;
    };
    const std::vector<Case> cases{
        {good.substr(0, good.size() / 2) + "  [\n", "line "},
        {std::string(good).replace(good.find("appSort: score"), 14, "appSort: [score]"),
         "appSwitcher.appSort: expected a string, found a list"},
        {missingSection, "missing required key 'spaces'"},
        {std::string(10 * 1024 * 1024, '#'), "is longer than 2097152 bytes"},
        {std::string(40000, '['), "nesting deeper than"},
        {"a: &a [x, x, x, x, x, x, x, x, x, x]\nb: &b [*a, *a, *a, *a, *a, *a, *a, *a, *a, *a]\n"
         "c: &c [*b, *b, *b, *b, *b, *b, *b, *b, *b, *b]\nd: &d [*c, *c, *c, *c, *c, *c, *c, *c, *c, *c]\n"
         "e: &e [*d, *d, *d, *d, *d, *d, *d, *d, *d, *d]\nf: [*e, *e, *e, *e, *e, *e, *e, *e, *e, *e]\n",
         "more than"},
    };
    for (auto& c : cases) {
        log.clear();
        const auto before = snapshot();
        spit(config(), c.text);
        after(1000);
        EXPECT_TRUE(log.containsSubstring("read: failed: ")) << c.message;
        EXPECT_TRUE(log.containsSubstring(c.message)) << c.message;
        EXPECT_EQ(snapshot(), before);
        EXPECT_EQ(settings.get(keys::appSort), AppSort::score);
        // A settings change now doesn't write over the user's broken file.
        settings.set(keys::appSortReverse, !settings.get(keys::appSortReverse));
        after(2000);
        EXPECT_EQ(slurp(config()), c.text);
        EXPECT_TRUE(log.containsSubstring("write: held"));
    }
    // Fixed, the file is applied and the program writes again.
    spit(config(), good);
    after(1000);
    EXPECT_EQ(settings.get(keys::appSortReverse), false);
    after(3000);
    settings.set(keys::appSort, AppSort::key);
    after(2000);
    EXPECT_NE(slurp(config()).find("appSort: key"), std::string::npos);
}

TEST_F(ConfigSyncTest, AUserSaveJustBeforeAPendingWriteIsReadNotOverwritten) {
    start();
    after(3000);
    settings.set(keys::appSort, AppSort::score);  // the write is due in 2 s
    after(1500);
    edit("hideOnlyFocusedAppOnMinus: false", "hideOnlyFocusedAppOnMinus: true");  // saved 0.5 s before it
    queue.runUntil(queue.now() + ferrow::ms(500));  // the write fires before the watch's read
    EXPECT_TRUE(settings.get(keys::hideOnlyFocusedAppOnMinus));
    EXPECT_NE(slurp(config()).find("hideOnlyFocusedAppOnMinus: true"), std::string::npos);
    // The later save wins: the file (which still names `name`) decided the sort.
    EXPECT_EQ(settings.get(keys::appSort), AppSort::name);
}

TEST_F(ConfigSyncTest, OverrideUserDefaultsReturnsKeysTheFileDropsToTheirDefaults) {
    start();
    settings.set(keys::activationMode, ActivationMode::onPress);
    after(2000);
    after(3000);
    edit("  activationMode: onPress\n", "");
    after(1000);
    EXPECT_EQ(settings.get(keys::activationMode), ActivationMode::onPress);
    after(3000);
    edit("overrideUserDefaults: false", "overrideUserDefaults: true");
    after(1000);
    EXPECT_TRUE(log.contains("read: overrideUserDefaults on -> resetting config-managed keys before apply"));
    EXPECT_EQ(settings.get(keys::activationMode), ActivationMode::adaptive);
}

TEST_F(ConfigSyncTest, ResetKeepsABackupAndRestorePutsItBack) {
    start();
    EXPECT_EQ(manager->restoreFromBackup(), ConfigFileManager::RestoreResult::noBackup);
    settings.set(keys::appSort, AppSort::score);
    settings.set(keys::capsLockTapToggles, false);
    after(2000);
    const std::string customised = slurp(config());
    std::string error;
    ASSERT_TRUE(manager->resetConfig(error)) << error;
    EXPECT_EQ(slurp(manager->backupPath()), customised);
    EXPECT_EQ(settings.get(keys::appSort), AppSort::name);
    EXPECT_FALSE(settings.get(keys::capsLockTapToggles));  // not the file's
    EXPECT_NE(slurp(config()).find("appSort: name"), std::string::npos);

    EXPECT_EQ(manager->restoreFromBackup(), ConfigFileManager::RestoreResult::restored);
    EXPECT_EQ(settings.get(keys::appSort), AppSort::score);
    EXPECT_EQ(slurp(config()), customised);
    // The watch's echo of the restore applies nothing more.
    log.clear();
    after(1000);
    EXPECT_FALSE(log.contains("read: decoded ok, applying to Defaults"));

    // A backup that doesn't read is refused and changes nothing.
    spit(manager->backupPath(), "triggers: [");
    EXPECT_EQ(manager->restoreFromBackup(), ConfigFileManager::RestoreResult::failed);
    EXPECT_EQ(slurp(config()), customised);
    EXPECT_TRUE(log.containsSubstring("Failed to restore config from backup: "));
}

TEST_F(ConfigSyncTest, SymlinkedFolderAndFileStayLinksThroughWritesBackupsAndReset) {
    // ~/.config/zelk -> dotfiles/zelk, and config.yaml -> dotfiles/shared/zelk.yaml
    const fs::path dotfiles = dir.path() / "dotfiles";
    fs::create_directories(dotfiles / "zelk");
    fs::create_directories(dotfiles / "shared");
    fs::create_directory_symlink(dotfiles / "zelk", folder());
    fs::create_symlink(dotfiles / "shared" / "zelk.yaml", dotfiles / "zelk" / "config.yaml");
    start();
    EXPECT_TRUE(fs::is_symlink(folder()));
    EXPECT_TRUE(fs::is_symlink(config()));
    ASSERT_TRUE(fs::exists(dotfiles / "shared" / "zelk.yaml"));

    settings.set(keys::appSort, AppSort::score);
    after(2000);
    EXPECT_TRUE(fs::is_symlink(config()));
    EXPECT_NE(slurp(dotfiles / "shared" / "zelk.yaml").find("appSort: score"), std::string::npos);

    // An edit at the link's target is seen where it happens.
    after(3000);
    std::string text = slurp(dotfiles / "shared" / "zelk.yaml");
    text.replace(text.find("appSort: score"), 14, "appSort: key");
    spit(dotfiles / "shared" / "zelk.yaml", text);
    after(1000);
    EXPECT_EQ(settings.get(keys::appSort), AppSort::key);

    std::string error;
    after(3000);
    ASSERT_TRUE(manager->resetConfig(error)) << error;
    EXPECT_TRUE(fs::is_symlink(config()));
    EXPECT_TRUE(fs::is_symlink(folder()));
    EXPECT_FALSE(fs::is_symlink(manager->backupPath()));
    EXPECT_EQ(slurp(manager->backupPath()), text);
    EXPECT_NE(slurp(dotfiles / "shared" / "zelk.yaml").find("appSort: name"), std::string::npos);
}

TEST_F(ConfigSyncTest, ImportKeepsABackupAndExportGivesTheRecord) {
    start();
    const std::string before = slurp(config());
    std::string error;
    EXPECT_FALSE(manager->importJSON(R"({"appSort": 3})", error));
    EXPECT_EQ(settings.get(keys::appSort), AppSort::name);
    EXPECT_FALSE(manager->hasBackup());
    ASSERT_TRUE(manager->importJSON(R"({"appSort": "score", "hideKey": "grave"})", error)) << error;
    EXPECT_EQ(settings.get(keys::appSort), AppSort::score);
    EXPECT_EQ(settings.get(keys::minimizeKey), Key::grave);
    EXPECT_EQ(slurp(manager->backupPath()), before);
    EXPECT_NE(slurp(config()).find("hideKey: grave"), std::string::npos);
    auto exported = nlohmann::json::parse(*manager->exportJSON());
    EXPECT_EQ(exported["appSort"], "score");
    EXPECT_EQ(exported["hideKey"], "grave");
}

TEST_F(ConfigSyncTest, SearchCacheWritesSortedWholeSecondsAndReadsHandEdits) {
    std::map<std::string, SearchSelection> learned{{"sa", {"com.apple.Safari", 2, 1767603600.75}},
                                                   {"ab", {"com.example.Ab", 1, 1767600000.2}}};
    settings.set(keys::searchQueryAppSelections, learned);
    start();
    const fs::path cache = folder() / "search-cache.yaml";
    EXPECT_EQ(slurp(cache),
              "# zelk search cache\n"
              "# Learned query -> app overrides, written automatically when you pick an app in\n"
              "# the switcher. Safe to delete or edit. Values are bundle identifiers.\n"
              "searchQueryAppSelections:\n"
              "  ab:\n    bundleID: com.example.Ab\n    count: 1\n    lastPickedAt: 1767600000\n"
              "  sa:\n    bundleID: com.apple.Safari\n    count: 2\n    lastPickedAt: 1767603600\n");
    // A pick is written 300 s after the change, once; quitting writes a dirty cache at once.
    learned["sa"].count = 3;
    settings.set(keys::searchQueryAppSelections, learned);
    after(299'000);
    EXPECT_EQ(slurp(cache).find("count: 3"), std::string::npos);
    after(1000);
    EXPECT_NE(slurp(cache).find("count: 3"), std::string::npos);
    after(1000);
    EXPECT_TRUE(log.contains("search-cache read: skipped (self-echo)"));
    learned["sa"].count = 4;
    settings.set(keys::searchQueryAppSelections, learned);
    manager->flushAtTermination();
    EXPECT_NE(slurp(cache).find("count: 4"), std::string::npos);

    // A hand edit is applied 1 s later; a broken one leaves the picks as they were.
    std::string text = slurp(cache);
    text.replace(text.find("com.example.Ab"), 14, "com.example.Other");
    spit(cache, text);
    after(1000);
    EXPECT_EQ(settings.get(keys::searchQueryAppSelections).at("ab").bundleID, "com.example.Other");
    EXPECT_TRUE(log.contains("search-cache read: applied 2 entries"));
    after(3000);
    spit(cache, "searchQueryAppSelections:\n  ab: [\n");
    after(1000);
    EXPECT_TRUE(log.containsSubstring("Failed to read search cache: line "));
    EXPECT_EQ(settings.get(keys::searchQueryAppSelections).size(), 2u);
    spit(cache, "searchQueryAppSelections:\n  ab:\n    count: 2\n");
    after(1000);
    EXPECT_EQ(settings.get(keys::searchQueryAppSelections).at("ab").bundleID, "com.example.Other");

    // Within 3 s of applying a read, a write would only echo it.
    spit(
        cache,
        "searchQueryAppSelections:\n  ab: {bundleID: com.example.Third, count: 1, lastPickedAt: 1767600000}\n"
        "  sa: {bundleID: com.apple.Safari, count: 4, lastPickedAt: 1767603600}\n");
    after(1000);
    manager->writeSearchCacheNow();
    EXPECT_TRUE(log.contains("search-cache write: skipped (currently applying a read)"));

    // Deleted by hand: the picks stay, and the next flush writes the file again.
    after(3000);
    fs::remove(cache);
    after(1000);
    EXPECT_EQ(settings.get(keys::searchQueryAppSelections).size(), 2u);
    learned = settings.get(keys::searchQueryAppSelections);
    learned["new"] = {"com.example.New", 1, 1767603600};
    settings.set(keys::searchQueryAppSelections, learned);
    after(300'000);
    EXPECT_NE(slurp(cache).find("com.example.New"), std::string::npos);
}

TEST_F(ConfigSyncTest, ADeletedFileLeavesTheSettingsAndIsWrittenAgainAtTheNextChange) {
    start();
    settings.set(keys::appSort, AppSort::score);
    after(2000);
    fs::remove(config());
    after(1000);
    EXPECT_TRUE(log.containsSubstring("Failed to read config file: "));
    EXPECT_EQ(settings.get(keys::appSort), AppSort::score);
    settings.set(keys::appSortReverse, true);
    after(2000);
    EXPECT_NE(slurp(config()).find("appSort: score"), std::string::npos);
    EXPECT_NE(slurp(config()).find("appSortReverse: true"), std::string::npos);
}

}  // namespace
}  // namespace zelk::testing
