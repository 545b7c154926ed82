#include "platform/JsonFileSettingsStore.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "../config/SettingsFixture.h"
#include "platform/SettingsFileWatch.h"
#include "support/MainQueue.h"

namespace zelk::platform {
namespace {
namespace fs = std::filesystem;
using nlohmann::json;
using zelk::testing::TempDir;

std::string fileText(const fs::path& path) {
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

void writeFile(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path) << text;
}

class JsonFileSettingsStoreTest : public zelk::testing::SettingsTestBase {
  protected:
    TempDir dir;
    fs::path file = dir.path() / "zelk" / "com.ferrowlabs.zelk.json";
};

TEST_F(JsonFileSettingsStoreTest, WritesReadBackThroughAFreshStoreOnTheSameFile) {
    {
        JsonFileSettingsStore store(file);
        EXPECT_TRUE(store.keys().empty());
        store.write("triggerKeys", json::array({4, 5}));
        store.write("appSort", "score");
        store.write("osdLook", json{{"density", "clean"}});
        store.write("gone", true);
        store.remove("gone");
    }
    JsonFileSettingsStore fresh(file);
    EXPECT_EQ(fresh.read("triggerKeys"), json::array({4, 5}));
    EXPECT_EQ(fresh.read("appSort"), json("score"));
    EXPECT_EQ(fresh.read("osdLook"), (json{{"density", "clean"}}));
    EXPECT_FALSE(fresh.read("gone"));
    EXPECT_EQ(fresh.keys(), (std::vector<std::string>{"appSort", "osdLook", "triggerKeys"}));
}

TEST_F(JsonFileSettingsStoreTest, WritesAreAtomicAndLeaveNoTemporaryFiles) {
    JsonFileSettingsStore store(file);
    for (int i = 0; i < 5; ++i)
        store.write("launchCount", i);
    std::vector<std::string> names;
    for (auto& entry : fs::directory_iterator(file.parent_path()))
        names.push_back(entry.path().filename().string());
    EXPECT_EQ(names, std::vector<std::string>{"com.ferrowlabs.zelk.json"});
    EXPECT_EQ(json::parse(fileText(file)), (json{{"launchCount", 4}}));
    EXPECT_TRUE(store.synchronize());
}

// A batch (the migrations at start) saves once when it ends, on top of an edit made outside before
// it began; observers hear of each change as it is made.
TEST_F(JsonFileSettingsStoreTest, ABatchSavesOnceWhenItEndsOnTopOfAnOutsideEdit) {
    JsonFileSettingsStore store(file);
    store.write("a", 1);
    writeFile(file, R"({"a": 1, "user": "edit"})");
    std::vector<std::string> heard;
    auto sub = store.observe([&](const std::string& key) { heard.push_back(key); });
    {
        SettingsStore::Batch batch(store);
        {
            SettingsStore::Batch inner(store);
            store.write("b", 2);
        }
        store.write("c", 3);
        store.remove("a");
        EXPECT_EQ(json::parse(fileText(file)), (json{{"a", 1}, {"user", "edit"}}))
            << "nothing is saved inside the batch";
        EXPECT_EQ(store.read("b"), json(2));
    }
    EXPECT_EQ(json::parse(fileText(file)), (json{{"b", 2}, {"c", 3}, {"user", "edit"}}));
    EXPECT_EQ(heard, (std::vector<std::string>{"user", "b", "c", "a"}));
    EXPECT_TRUE(store.synchronize());
}

// A batch whose one save fails loses none of its changes, and an edit made outside while it ran is
// taken in rather than replaced when the save is tried again.
TEST_F(JsonFileSettingsStoreTest, ABatchWhoseSaveFailsKeepsEveryChangeAndTakesInALaterEdit) {
    JsonFileSettingsStore store(file);
    store.write("a", 1);
    const fs::path blocker = file.string() + ".tmp-" + std::to_string(::getpid());
    {
        SettingsStore::Batch batch(store);
        store.write("b", 2);
        store.write("a", 3);
        writeFile(file, R"({"a": 1, "user": "edit"})");
        fs::create_directories(blocker);  // the save at the end of the batch fails
    }
    EXPECT_EQ(json::parse(fileText(file)), (json{{"a", 1}, {"user", "edit"}}));
    EXPECT_EQ(store.read("a"), json(3));
    EXPECT_EQ(store.read("b"), json(2));
    EXPECT_FALSE(store.synchronize());
    fs::remove(blocker);
    EXPECT_TRUE(store.synchronize());
    EXPECT_EQ(json::parse(fileText(file)), (json{{"a", 3}, {"b", 2}, {"user", "edit"}}));
    JsonFileSettingsStore fresh(file);
    EXPECT_EQ(fresh.read("b"), json(2));
}

// The store never writes a file it would refuse to read back: indentation is dropped when it would
// pass the size bound, and a document past the bound even so is not written (nothing on disk is lost).
TEST_F(JsonFileSettingsStoreTest, AFileTooLongToReadBackIsNeverWritten) {
    JsonFileSettingsStore store(file);
    store.write("appSort", "name");
    // Forty levels around a long list: indented, each element takes a line of eighty spaces.
    json deep = json(std::vector<int>(220000, 0));
    for (int level = 0; level < 40; ++level)
        deep = json::array({deep});
    store.write("deep", deep);
    EXPECT_TRUE(store.synchronize());
    EXPECT_LE(fs::file_size(file), JsonFileSettingsStore::kMaxFileBytes);
    EXPECT_EQ(JsonFileSettingsStore(file).read("deep"), deep);

    const std::string before = fileText(file);
    store.write("huge", std::string(JsonFileSettingsStore::kMaxFileBytes, 'x'));
    EXPECT_FALSE(store.synchronize());
    EXPECT_EQ(fileText(file), before);
    EXPECT_EQ(store.read("huge")->get<std::string>().size(), JsonFileSettingsStore::kMaxFileBytes);
    store.remove("huge");
    EXPECT_TRUE(store.synchronize());
    JsonFileSettingsStore fresh(file);
    EXPECT_EQ(fresh.read("appSort"), json("name"));
    EXPECT_FALSE(fresh.read("huge"));
}

TEST_F(JsonFileSettingsStoreTest, CorruptFileIsSetAsideAndTheProgramStartsOnDefaults) {
    for (std::string bad : {"{\"triggerKeys\": [4", "[1, 2, 3]", "\"text\"", ""}) {
        SCOPED_TRACE(bad);
        fs::remove(fs::path(file.string() + ".corrupt"));
        writeFile(file, bad);
        ferrow::LogCapture log;
        JsonFileSettingsStore store(file);
        EXPECT_TRUE(store.keys().empty());
        EXPECT_FALSE(fs::exists(file));
        ASSERT_TRUE(fs::exists(file.string() + ".corrupt"));
        EXPECT_EQ(fileText(file.string() + ".corrupt"), bad);  // kept for the user, byte for byte
        ASSERT_EQ(log.lines().size(), 1u);
        EXPECT_EQ(log.lines()[0].level, ferrow::LogLevel::error);
        EXPECT_TRUE(log.containsSubstring("read: settings at "));
        EXPECT_TRUE(log.containsSubstring("set aside as "));

        // The program goes on and its next write makes a sound document again.
        store.write("spaceMode", "multi");
        EXPECT_EQ(JsonFileSettingsStore(file).read("spaceMode"), json("multi"));
    }
}

TEST_F(JsonFileSettingsStoreTest, MissingFileIsAnEmptyStoreWithoutErrors) {
    ferrow::LogCapture log;
    JsonFileSettingsStore store(file);
    EXPECT_TRUE(store.keys().empty());
    EXPECT_TRUE(log.lines().empty());
    EXPECT_FALSE(fs::exists(file));  // nothing written until something changes
}

TEST_F(JsonFileSettingsStoreTest, ReloadNotifiesExactlyTheKeysThatChangedOutside) {
    JsonFileSettingsStore store(file);
    store.write("same", 1);
    store.write("changed", 1);
    store.write("removed", 1);
    std::vector<std::string> seen;
    auto sub = store.observe([&](const std::string& key) { seen.push_back(key); });

    writeFile(file, R"({"same": 1, "changed": 2, "added": true})");
    EXPECT_TRUE(store.reload());
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(seen, (std::vector<std::string>{"added", "changed", "removed"}));
    EXPECT_EQ(store.read("changed"), json(2));
    EXPECT_FALSE(store.read("removed"));

    seen.clear();
    EXPECT_TRUE(store.reload());  // nothing new
    EXPECT_TRUE(seen.empty());

    fs::remove(file);  // deleted outside: every key back to its default
    EXPECT_TRUE(store.reload());
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(seen, (std::vector<std::string>{"added", "changed", "same"}));
    EXPECT_TRUE(store.keys().empty());
}

TEST_F(JsonFileSettingsStoreTest, ReloadOfACorruptFileKeepsTheValuesAndWritesThemBack) {
    JsonFileSettingsStore store(file);
    store.write("spaceMode", "multi");
    writeFile(file, "{ not json");
    ferrow::LogCapture log;
    int notified = 0;
    auto sub = store.observe([&](const std::string&) { ++notified; });
    EXPECT_FALSE(store.reload());
    EXPECT_EQ(notified, 0);
    EXPECT_EQ(store.read("spaceMode"), json("multi"));
    EXPECT_EQ(fileText(file.string() + ".corrupt"), "{ not json");
    EXPECT_EQ(JsonFileSettingsStore(file).read("spaceMode"), json("multi"));
    EXPECT_TRUE(log.containsSubstring("reload: settings at "));
}

TEST_F(JsonFileSettingsStoreTest, DefaultPathFollowsXdgStateHomeThenHome) {
    auto saved = [](const char* name) -> std::optional<std::string> {
        const char* v = std::getenv(name);
        return v ? std::optional<std::string>(v) : std::nullopt;
    };
    auto restore = [](const char* name, const std::optional<std::string>& value) {
        if (value)
            ::setenv(name, value->c_str(), 1);
        else
            ::unsetenv(name);
    };
    auto state = saved("XDG_STATE_HOME"), home = saved("HOME");
    ::setenv("XDG_STATE_HOME", "/srv/state", 1);
    ::setenv("HOME", "/home/ada", 1);
    EXPECT_EQ(JsonFileSettingsStore::defaultPath(), fs::path("/srv/state/zelk/com.ferrowlabs.zelk.json"));
    ::setenv("XDG_STATE_HOME", "relative/dir", 1);  // not absolute: ignored
    EXPECT_EQ(JsonFileSettingsStore::defaultPath(),
              fs::path("/home/ada/.local/state/zelk/com.ferrowlabs.zelk.json"));
    ::unsetenv("XDG_STATE_HOME");
    EXPECT_EQ(JsonFileSettingsStore::defaultPath(),
              fs::path("/home/ada/.local/state/zelk/com.ferrowlabs.zelk.json"));
    restore("XDG_STATE_HOME", state);
    restore("HOME", home);
}

TEST_F(JsonFileSettingsStoreTest, ASecondCorruptFileNeverReplacesTheFirstOneSetAside) {
    const std::vector<std::string> bad{"{ first", "[\"second\"]", "third"};
    for (std::size_t i = 0; i < bad.size(); ++i) {
        writeFile(file, bad[i]);
        ferrow::LogCapture log;
        JsonFileSettingsStore store(file);
        std::string aside = file.string() + (i == 0 ? ".corrupt" : ".corrupt-" + std::to_string(i + 1));
        EXPECT_TRUE(log.containsSubstring("set aside as " + aside + ", starting on defaults"));
    }
    EXPECT_EQ(fileText(file.string() + ".corrupt"), "{ first");
    EXPECT_EQ(fileText(file.string() + ".corrupt-2"), "[\"second\"]");
    EXPECT_EQ(fileText(file.string() + ".corrupt-3"), "third");
}

TEST_F(JsonFileSettingsStoreTest, FilesPastTheDepthOrSizeBoundAreCorruptAndTheProgramStartsOnDefaults) {
    std::string deep = std::string(100'000, '[') + std::string(100'000, ']');
    std::string deepValue = "{\"stages\": " + std::string(10'000, '[') + std::string(10'000, ']') + "}";
    for (const std::string& text : {deep, deepValue}) {
        writeFile(file, text);
        ferrow::LogCapture log;
        JsonFileSettingsStore store(file);
        EXPECT_TRUE(store.keys().empty());
        EXPECT_TRUE(log.containsSubstring("(nested deeper than 64 levels); set aside as "));
        store.write("spaceMode", "multi");  // written back small and sound
        EXPECT_EQ(json::parse(fileText(file)), (json{{"spaceMode", "multi"}}));
        fs::remove(file.string() + ".corrupt");
    }

    writeFile(file, "{}");
    fs::resize_file(file, JsonFileSettingsStore::kMaxFileBytes + 1);
    ferrow::LogCapture log;
    JsonFileSettingsStore store(file);
    EXPECT_TRUE(store.keys().empty());
    EXPECT_TRUE(log.containsSubstring("(longer than 16777216 bytes); set aside as "));
    EXPECT_EQ(fs::file_size(file.string() + ".corrupt"), JsonFileSettingsStore::kMaxFileBytes + 1);
}

TEST_F(JsonFileSettingsStoreTest, AWriteTakesInAnEditMadeOutsideInsteadOfReplacingIt) {
    JsonFileSettingsStore store(file);
    store.write("appSort", "name");
    std::vector<std::string> seen;
    auto sub = store.observe([&](const std::string& key) { seen.push_back(key); });

    writeFile(file, R"({"appSort": "score", "spaceMode": "multi"})");  // the user's edit
    store.write("launchCount", 3);
    EXPECT_EQ(json::parse(fileText(file)),
              (json{{"appSort", "score"}, {"spaceMode", "multi"}, {"launchCount", 3}}));
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(seen, (std::vector<std::string>{"appSort", "launchCount", "spaceMode"}));
    EXPECT_EQ(store.read("appSort"), json("score"));

    // A broken edit is kept aside, never overwritten, and the write still lands.
    writeFile(file, R"({"appSort": "sc)");
    ferrow::LogCapture log;
    store.remove("launchCount");
    EXPECT_EQ(fileText(file.string() + ".corrupt"), R"({"appSort": "sc)");
    EXPECT_TRUE(log.containsSubstring("reload: settings at "));
    EXPECT_EQ(json::parse(fileText(file)), (json{{"appSort", "score"}, {"spaceMode", "multi"}}));
}

TEST_F(JsonFileSettingsStoreTest, ChangesThatCouldNotBeSavedSurviveAnOutsideEdit) {
    JsonFileSettingsStore store(file);
    store.write("appSort", "name");
    // A folder where the temporary file goes makes the write fail, whoever runs the test.
    const fs::path blocker = file.string() + ".tmp-" + std::to_string(::getpid());
    fs::create_directories(blocker);
    store.write("appSort", "key");  // fails: kept in memory
    EXPECT_FALSE(store.synchronize());
    fs::remove(blocker);
    writeFile(file, R"({"appSort": "score", "spaceMode": "multi"})");
    EXPECT_TRUE(store.reload());
    EXPECT_EQ(store.read("appSort"), json("key"));
    EXPECT_EQ(store.read("spaceMode"), json("multi"));
    EXPECT_TRUE(store.synchronize());
    EXPECT_EQ(json::parse(fileText(file)), (json{{"appSort", "key"}, {"spaceMode", "multi"}}));
}

TEST_F(JsonFileSettingsStoreTest, TheFolderAndTheFileAreTheUsersAlone) {
    JsonFileSettingsStore store(file);
    store.write("appSort", "name");
    struct stat info {};
    ASSERT_EQ(::stat(file.parent_path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);
    ASSERT_EQ(::stat(file.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
}

class SettingsFileWatchTest : public JsonFileSettingsStoreTest {
  protected:
    void SetUp() override {
        JsonFileSettingsStoreTest::SetUp();
        clock = std::make_shared<ferrow::VirtualClock>();
        ferrow::MainQueue::install(clock);
    }
    void TearDown() override {
        ferrow::MainQueue::reset();
        JsonFileSettingsStoreTest::TearDown();
    }
    // Hands the file events the kernel holds to the queue, then lets the settle time pass.
    void settle(SettingsFileWatch& watch) {
        watch.poll();
        auto& queue = ferrow::MainQueue::shared();
        queue.runUntil(queue.now() + SettingsFileWatch::kSettle);
    }
    std::shared_ptr<ferrow::VirtualClock> clock;
};

TEST_F(SettingsFileWatchTest, AnOutsideEditReachesObserversAndTheStoresOwnWritesDoNotEcho) {
    JsonFileSettingsStore store(file);
    SettingsFileWatch watch(store, /*background=*/false);
    ASSERT_TRUE(watch.isWatching());
    std::vector<std::string> seen;
    auto sub = store.observe([&](const std::string& key) { seen.push_back(key); });

    store.write("appSort", "name");
    seen.clear();
    settle(watch);
    EXPECT_TRUE(seen.empty());  // the echo of its own write

    writeFile(file, R"({"appSort": "score"})");
    watch.poll();
    auto& queue = ferrow::MainQueue::shared();
    queue.runUntil(queue.now() + SettingsFileWatch::kSettle - ferrow::ms(1));
    EXPECT_TRUE(seen.empty());  // still settling
    queue.runUntil(queue.now() + ferrow::ms(1));
    EXPECT_EQ(seen, std::vector<std::string>{"appSort"});
    EXPECT_EQ(store.read("appSort"), json("score"));

    seen.clear();
    writeFile(file.parent_path() / "notes.txt", "not the settings");
    settle(watch);
    EXPECT_TRUE(seen.empty());
}

TEST_F(SettingsFileWatchTest, ABrokenEditWhileRunningIsSetAsideAndTheSettingsStay) {
    JsonFileSettingsStore store(file);
    store.write("spaceMode", "multi");
    SettingsFileWatch watch(store, /*background=*/false);
    ferrow::LogCapture log;
    writeFile(file, "{ oops");
    settle(watch);
    EXPECT_EQ(store.read("spaceMode"), json("multi"));
    EXPECT_EQ(fileText(file.string() + ".corrupt"), "{ oops");
    EXPECT_TRUE(log.containsSubstring("keeping the values in memory"));
    EXPECT_EQ(json::parse(fileText(file)), (json{{"spaceMode", "multi"}}));
}

}  // namespace
}  // namespace zelk::platform
