#include <gtest/gtest.h>

#include "WindowsFixture.h"
#include "platform/Platform.h"

namespace zelk::testing {
namespace {

// The desktop's settings, counting how often each key is read.
class CountingStore final : public platform::SettingsStore {
  public:
    std::optional<nlohmann::json> read(const std::string& key) const override {
        ++reads[key];
        return inner.read(key);
    }
    void write(const std::string& key, const nlohmann::json& value) override {
        inner.write(key, value);
        notifyChanged(key);
    }
    void remove(const std::string& key) override {
        inner.remove(key);
        notifyChanged(key);
    }
    std::vector<std::string> keys() const override { return inner.keys(); }
    bool synchronize() override { return true; }

    mutable std::map<std::string, int> reads;
    platform::MemorySettingsStore inner;
};

struct IgnoredAppsTest : WindowsFixture {
    CountingStore store;

    void startCounting(const nlohmann::json& ignored) {
        load(kThreeSpaces);
        store.write("ignoredApps", ignored);
        platform::Platform::install(desktop.platform(&store));
        auto p = desktop.platform(&store);
        iss = std::make_unique<spaces::ISSManager>(*p.windowServer, p.screens, p.pointer);
        wm = std::make_unique<windows::WindowManager>(windows::WindowEnvironment::fromPlatform(p), *iss);
        wm->start();
        runFor(0);
    }
};

TEST_F(IgnoredAppsTest, ALongListIsDecodedOncePerChangeNotPerLookUp) {
    // A long list, as a hand-edited settings file may hold; a look-up must not decode or scan it.
    nlohmann::json ignored = nlohmann::json::array({"a.mail"});
    for (int i = 0; i < 20'000; ++i)
        ignored.push_back("com.example.app" + std::to_string(i));
    startCounting(ignored);
    auto listed = ids();
    EXPECT_EQ(std::count(listed.begin(), listed.end(), 21u), 0);  // Mail's window is left out
    int afterStart = store.reads["ignoredApps"];
    for (int i = 0; i < 20; ++i) {
        wm->refreshWindows(true);
        runFor(0);
    }
    EXPECT_EQ(store.reads["ignoredApps"], afterStart);

    // A change is taken in once, and applies from the next refresh.
    store.write("ignoredApps", nlohmann::json::array({"a.notes"}));
    wm->refreshWindows(true);
    runFor(0);
    auto now = ids();
    EXPECT_NE(std::find(now.begin(), now.end(), 21u), now.end());
    EXPECT_EQ(std::find(now.begin(), now.end(), 31u), now.end());
    EXPECT_LE(store.reads["ignoredApps"], afterStart + 2);
}

}  // namespace
}  // namespace zelk::testing
