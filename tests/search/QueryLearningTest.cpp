// What a pick teaches, what a pin decides, and what ages out.
#include <gtest/gtest.h>

#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "platform/SettingsStore.h"
#include "search/LearnedQueries.h"
#include "search/QueryLearning.h"
#include "search/SearchCacheFlush.h"
#include "support/MainQueue.h"

using namespace zelk;
using namespace zelk::search;

namespace {

constexpr double kDay = 86'400;

class QueryLearningTest : public ::testing::Test {
  protected:
    QueryLearningTest() : settings(store), learning(settings, [this] { return now; }) {
        learning.writeCacheNow = [this] {
            // The file hears of a change before any pin lands.
            cacheWrites.push_back({learning.selections(), learning.pins()});
        };
    }
    SearchSelection entry(const std::string& q) { return learning.selections().at(q); }

    platform::MemorySettingsStore store;
    Settings settings;
    double now = 1'800'000'000;
    QueryLearning learning;
    std::vector<std::pair<LearnedMap, PinMap>> cacheWrites;
};

TEST_F(QueryLearningTest, PicksCreateStrengthenAndHandOverAnEntry) {
    EXPECT_TRUE(learning.recordPick("SA", "app.a", std::nullopt));
    EXPECT_EQ(entry("sa"), (SearchSelection{"app.a", 1, now}));
    now += 10;
    learning.recordPick("sa", "app.b", std::nullopt);
    EXPECT_EQ(entry("sa"), (SearchSelection{"app.b", 1, now}));

    settings.set(keys::searchQueryAppSelections, LearnedMap{{"sa", SearchSelection{"app.a", 7, 0}}});
    learning.recordPick("sa", "app.b", std::nullopt);
    EXPECT_EQ(entry("sa"), (SearchSelection{"app.b", 3, now}));
    learning.recordPick("sa", "app.a", std::nullopt);
    EXPECT_EQ(entry("sa"), (SearchSelection{"app.a", 1, now}));
    learning.recordPick("sa", "app.a", std::nullopt);
    EXPECT_EQ(entry("sa").count, 2);
}

TEST_F(QueryLearningTest, NothingIsLearnedFromAnEmptyOrPinnedQueryOrAStaticLettersOwnApp) {
    EXPECT_FALSE(learning.recordPick("", "app.a", std::nullopt));
    learning.pin("xy", "app.a");
    EXPECT_FALSE(learning.recordPick("xy", "app.b", std::nullopt));
    EXPECT_FALSE(learning.recordPick("s", "app.safari", std::string("app.safari")));
    EXPECT_TRUE(learning.recordPick("s", "app.other", std::string("app.safari")));
    EXPECT_EQ(learning.selections().size(), 1u);
}

TEST_F(QueryLearningTest, APinRemovesTheLearnedEntryAndTheFileIsWrittenBeforeThePinLands) {
    learning.recordPick("sa", "app.a", std::nullopt);
    EXPECT_TRUE(learning.pin("SA", "app.b"));
    EXPECT_TRUE(learning.selections().empty());
    EXPECT_EQ(learning.pins(), (PinMap{{"sa", "app.b"}}));
    ASSERT_EQ(cacheWrites.size(), 1u);
    EXPECT_TRUE(cacheWrites[0].first.empty());
    EXPECT_TRUE(cacheWrites[0].second.empty());
}

TEST_F(QueryLearningTest, TogglingPinsAndUnpinsWithItsFlash) {
    EXPECT_EQ(learning.togglePin("s", "app.a", "Alpha"), std::nullopt);
    EXPECT_TRUE(learning.pins().empty());
    EXPECT_EQ(learning.togglePin("Sa", "app.a", "Alpha"),
              (PinFlash{"Pinned \"sa\" to Alpha", "pin.circle.fill", 0.9}));
    // Toggling to another app replaces the pin and still says Pinned.
    EXPECT_EQ(learning.togglePin("sa", "app.b", ""),
              (PinFlash{"Pinned \"sa\" to app.b", "pin.circle.fill", 0.9}));
    EXPECT_EQ(learning.pins(), (PinMap{{"sa", "app.b"}}));
    EXPECT_EQ(learning.togglePin("sa", "app.b", "Beta")->text, "Unpinned \"sa\"");
    EXPECT_TRUE(learning.pins().empty());
    EXPECT_FALSE(learning.unpin("sa"));
}

TEST_F(QueryLearningTest, StaleEntriesAreOldAndWeakAndOnlyTheyAreForgotten) {
    settings.set(keys::searchQueryAppSelections,
                 LearnedMap{{"ab", SearchSelection{"app.a", 2, now - 4 * kDay}},
                            {"cd", SearchSelection{"app.c", 3, now - 4 * kDay}},
                            {"ef", SearchSelection{"app.e", 1, now - kDay}}});
    learning.pin("gh", "app.g");
    EXPECT_EQ(staleCount(learning.selections(), now), 1u);
    EXPECT_EQ(learning.forgetStale(), 1u);
    EXPECT_EQ(learning.selections().count("ab"), 0u);
    EXPECT_EQ(learning.selections().size(), 2u);
    EXPECT_EQ(learning.forgetAll(), 2u);
    EXPECT_TRUE(learning.selections().empty());
    EXPECT_EQ(learning.pins().size(), 1u);
    EXPECT_EQ(cacheWrites.size(), 2u);
}

TEST_F(QueryLearningTest, FreshnessEndsExactlyAtThreeDays) {
    SearchSelection s{"app.a", 1, now - kFreshnessSeconds};
    EXPECT_FALSE(isFresh(s, now));
    EXPECT_TRUE(isStale(s, now));
    s.lastPickedAt += 1;
    EXPECT_TRUE(isFresh(s, now));
}

TEST_F(QueryLearningTest, LearnedAppForReadsPinsThenEntriesAndALetterOnlyWhileFresh) {
    settings.set(keys::searchQueryAppSelections,
                 LearnedMap{{"s", SearchSelection{"app.s", 9, now - 4 * kDay}},
                            {"t", SearchSelection{"app.t", 1, now - kDay}},
                            {"sa", SearchSelection{"app.sa", 3, now - 9 * kDay}},
                            {"sl", SearchSelection{"app.sl", 1, now - 9 * kDay}}});
    learning.pin("xy", "app.xy");
    EXPECT_EQ(learning.learnedBundleFor("s"), std::nullopt);  // a letter: strong but old
    EXPECT_EQ(learning.learnedBundleFor("T"), "app.t");
    EXPECT_EQ(learning.learnedBundleFor("sa"), "app.sa");  // strong applies at any age
    EXPECT_EQ(learning.learnedBundleFor("sl"), std::nullopt);
    EXPECT_EQ(learning.learnedBundleFor("xy"), "app.xy");
}

TEST(SearchSelectionShape, BothStoredShapesOfALearnedQueryRead) {
    auto one = SearchSelection::fromJson({{"bundleID", "app.a"}, {"count", 2}, {"lastPickedAt", 5.0}});
    ASSERT_TRUE(one);
    EXPECT_EQ(*one, (SearchSelection{"app.a", 2, 5.0}));
    auto list = SearchSelection::fromJson(
        nlohmann::json::array({{{"bundleID", "app.a"}, {"count", 2}, {"lastPickedAt", 5.0}},
                               {{"bundleID", "app.b"}, {"count", 4}, {"lastPickedAt", 1.0}}}));
    ASSERT_TRUE(list);
    EXPECT_EQ(list->bundleID, "app.b");
    // Written back as one record per query.
    EXPECT_TRUE(list->toJson().is_object());
}

}  // namespace

namespace {

using ferrow::MainQueue;

class SearchCacheFlushTest : public QueryLearningTest {
  protected:
    SearchCacheFlushTest() {
        clock = std::make_shared<ferrow::VirtualClock>();
        MainQueue::install(clock);
        flush = std::make_unique<SearchCacheFlush>(settings, [this] {
            writes.push_back(clock->now());
            return writeSucceeds;
        });
        learning.writeCacheNow = [this] { flush->writeNow(); };
    }
    ~SearchCacheFlushTest() override { flush.reset(); }
    void at(ferrow::Nanos t) { MainQueue::shared().runUntil(start + t); }

    std::shared_ptr<ferrow::VirtualClock> clock;
    ferrow::Nanos start = ferrow::kVirtualUptimeBase;
    std::unique_ptr<SearchCacheFlush> flush;
    std::vector<ferrow::Nanos> writes;
    bool writeSucceeds = true;
};

constexpr ferrow::Nanos kSecond = ferrow::kNanosPerSecond;

TEST_F(SearchCacheFlushTest, ABurstOfPicksIsWrittenOnceFiveMinutesAfterTheLast) {
    learning.recordPick("sa", "app.a", std::nullopt);
    at(200 * kSecond);
    learning.recordPick("sa", "app.a", std::nullopt);
    at(499 * kSecond);
    EXPECT_TRUE(writes.empty());
    at(500 * kSecond);
    EXPECT_EQ(writes, (std::vector<ferrow::Nanos>{start + 500 * kSecond}));
    EXPECT_FALSE(flush->dirty());
    // Nothing changed since: quitting writes nothing.
    flush->flushIfDirty();
    EXPECT_EQ(writes.size(), 1u);
}

TEST_F(SearchCacheFlushTest, CleanUpsWriteAtOnceAndAFailedWriteStaysDirty) {
    learning.recordPick("sa", "app.a", std::nullopt);
    writeSucceeds = false;
    learning.forgetAll();
    ASSERT_EQ(writes.size(), 1u);
    EXPECT_TRUE(flush->dirty());
    EXPECT_FALSE(flush->flushPending());  // the write at once replaced the waiting one
    writeSucceeds = true;
    flush->flushIfDirty();
    EXPECT_EQ(writes.size(), 2u);
    EXPECT_FALSE(flush->dirty());
}

}  // namespace

// Another store plugged in takes every read and whole write; the settings store is left alone.
TEST(LearnedStoreTest, AnotherStoreTakesThePicksAndPins) {
    struct CountingStore final : LearnedStore {
        LearnedMap learned;
        PinMap pinned;
        int writes = 0;
        LearnedMap selections() const override { return learned; }
        void setSelections(const LearnedMap& map) override {
            learned = map;
            ++writes;
        }
        PinMap pins() const override { return pinned; }
        void setPins(const PinMap& map) override {
            pinned = map;
            ++writes;
        }
    };
    auto store = std::make_shared<CountingStore>();
    platform::MemorySettingsStore memory;
    Settings settings(memory);
    QueryLearning learning(store, [] { return 1'800'000'000.0; });
    learning.recordPick("sa", "app.a", std::nullopt);
    learning.pin("sa", "app.b");
    EXPECT_TRUE(store->learned.empty());  // the pin replaced the learned entry
    EXPECT_EQ(store->pinned, (PinMap{{"sa", "app.b"}}));
    EXPECT_EQ(store->writes, 3);
    EXPECT_EQ(learning.learnedBundleFor("sa"), "app.b");
    EXPECT_TRUE(settings.get(keys::searchQueryPins).empty());
    EXPECT_TRUE(settings.get(keys::searchQueryAppSelections).empty());
}
