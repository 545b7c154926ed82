#include "../input/AgentFixture.h"
#include "RecentlyClosedService.h"
#include "SearchService.h"
#include "Subsystems.h"
#include "TabCycleService.h"
#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "windows/RecentlyClosed.h"
#include "windows/WindowManager.h"

#include <gtest/gtest.h>

using namespace zelk;
using namespace zelk::testing;

namespace {

// TextEdit has two documents open; Safari one page. Documents are told apart by their titles here.
const char* kWorld = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}], currentSpace: 1}
apps:
  - bundleID: com.apple.TextEdit
    name: TextEdit
    running:
      pid: 201
      windows:
        - {id: 2001, title: "notes.txt", frame: [100, 100, 600, 400], space: 1}
        - {id: 2002, title: "plan.txt", frame: [200, 150, 600, 400], space: 1}
  - bundleID: com.apple.Safari
    name: Safari
    running: {pid: 101, windows: [{id: 1001, title: "Apple", space: 1}]}
frontmost: com.apple.Safari
focusedWindow: 1001
)";

struct RecentlyClosedTest : AgentFixture {
    void SetUp() override {
        start(kWorld);
        closed().setSpecReader([](const windows::ManagedWindow& w) -> stages::WindowSpec {
            if (w.bundleIdentifier == "com.apple.TextEdit")
                return stages::DocumentPathSpec{"/Users/me/" + w.title};
            return stages::AppSpec{};
        });
    }
    agent::RecentlyClosedService& closed() { return agent->subsystems().recentlyClosed(); }
    windows::RecentlyClosedWindows& list() { return closed().list(); }
    std::size_t windowsOf(const std::string& bundle) { return world().app(bundle)->windowOrder.size(); }
    void focus(std::uint32_t id) {
        agent->subsystems().windows().focusWindow(id);
        runFor(50);
    }
    std::vector<std::string> titles() {
        std::vector<std::string> out;
        for (auto& e : list().entries())
            out.push_back(e.windowTitle);
        return out;
    }
    std::vector<std::string> closedSearchRows(const std::string& q) {
        std::vector<std::string> out;
        for (auto& r : agent->subsystems().search().commandProviders().search(q, false))
            if (r.kind == "window" && !r.windowID) out.push_back(r.name);
        return out;
    }
    std::vector<std::string> closedCycleRows() {
        auto& cycle = agent->tabCycle().cycle();
        cycle.handleTabCycle(false, TabCycleScope::allWindows);
        std::vector<std::string> out;
        for (auto& e : cycle.tabCycleEntries.get())
            if (e.isClosed()) out.push_back(e.title);
        cycle.resetTabCycle(false, true);
        runFor(50);
        return out;
    }
};

}  // namespace

TEST_F(RecentlyClosedTest, AWindowClosedByItsAppIsRecordedAndOfferedBySearchAndTheTabCycle) {
    focus(2001);
    runFor(700);
    EXPECT_EQ(list().liveWindowSpecCache().count(2001), 1u);
    world().closeWindow(2001);
    runFor(500);
    ASSERT_EQ(titles(), (std::vector<std::string>{"notes.txt"}));
    auto entry = list().entries().front();
    EXPECT_EQ(entry.originalWindowID, 2001u);
    EXPECT_EQ(entry.bundleID(), "com.apple.TextEdit");
    EXPECT_EQ(entry.windowSpec, stages::WindowSpec{stages::DocumentPathSpec{"/Users/me/notes.txt"}});
    EXPECT_TRUE(entry.lastFocusedAt.has_value());
    EXPECT_TRUE(entry.windowPlacement.has_value());
    EXPECT_TRUE(logs->contains("recordClosedWindow: notes.txt spec=doc:/Users/me/notes.txt total=1"));
    EXPECT_EQ(closedSearchRows("notes"), (std::vector<std::string>{"notes.txt"}));
    EXPECT_EQ(closedCycleRows(), (std::vector<std::string>{"notes.txt"}));

    // The tab cycle leaves closed windows out while the setting is off.
    Settings::shared().set(keys::enableRecentlyClosedWindows, false);
    EXPECT_TRUE(closedCycleRows().empty());
}

TEST_F(RecentlyClosedTest, ReopeningOpensTheDocumentWithItsAppAndRemovesTheEntry) {
    focus(2001);
    runFor(700);
    world().closeWindow(2001);
    runFor(500);
    ASSERT_EQ(list().entries().size(), 1u);
    ASSERT_TRUE(list().reopenRecentlyClosedWindow(list().entries().front().id));
    runFor(500);
    EXPECT_TRUE(list().entries().empty());
    ASSERT_FALSE(desktop.workspace().opened.empty());
    EXPECT_EQ(desktop.workspace().opened.back().first, "file:///Users/me/notes.txt");
    // The document's window is back beside the other one.
    EXPECT_EQ(windowsOf("com.apple.TextEdit"), 2u);
    EXPECT_TRUE(closedSearchRows("notes").empty());
    EXPECT_FALSE(list().reopenRecentlyClosedWindow("NO-SUCH-ID"));
}

TEST_F(RecentlyClosedTest, SearchCommitReopensAClosedRow) {
    focus(2002);
    runFor(700);
    world().closeWindow(2002);
    runFor(500);
    auto& search = agent->subsystems().search();
    search.session().rerunSearch("plan");
    const auto& rows = search.session().searchResults.get();
    auto at = std::find_if(rows.begin(), rows.end(), [](const search::SearchResult& r) {
        return r.kind == search::SearchResultKind::closedWindow;
    });
    ASSERT_NE(at, rows.end());
    search.session().select(static_cast<std::size_t>(at - rows.begin()));
    ASSERT_TRUE(search.commitSelection(true));
    runFor(500);
    EXPECT_TRUE(list().entries().empty());
    EXPECT_EQ(desktop.workspace().opened.back().first, "file:///Users/me/plan.txt");
}

TEST_F(RecentlyClosedTest, OnlyAWindowFocusedForTheCaptureDelayIsRecorded) {
    // Passing through a window on the way to another captures nothing for it.
    focus(2001);
    runFor(300);
    focus(2002);
    runFor(700);
    EXPECT_EQ(list().liveWindowSpecCache().count(2001), 0u);
    EXPECT_EQ(list().liveWindowSpecCache().count(2002), 1u);
    // Closed before its capture ran: no entry.
    focus(2001);
    runFor(300);
    world().closeWindow(2001);
    runFor(800);
    EXPECT_TRUE(list().entries().empty());
    // A whole-app window is never recorded.
    focus(1001);
    runFor(700);
    world().closeWindow(1001);
    runFor(500);
    EXPECT_TRUE(list().entries().empty());
}

TEST_F(RecentlyClosedTest, RemovingAnEntryAndAnUnreadableStoredList) {
    focus(2002);
    runFor(700);
    world().closeWindow(2002);
    runFor(500);
    auto id = list().entries().front().id;
    EXPECT_TRUE(list().removeRecentlyClosedWindow(id));
    EXPECT_TRUE(logs->contains("removeRecentlyClosedWindow: plan.txt total=0"));
    EXPECT_FALSE(list().removeRecentlyClosedWindow(id));
    desktop.settings().write("recentlyClosedWindows", nlohmann::json::array({{{"id", 3}}}));
    EXPECT_TRUE(list().entries().empty());
    EXPECT_TRUE(closedSearchRows("plan").empty());
}
