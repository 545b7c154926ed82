// The window watch's comparison of one window list with the next.
#include <gtest/gtest.h>

#include "diagnostics/WindowEventWatch.h"

namespace zelk::diagnostics {
namespace {

windows::ManagedWindow window(std::uint32_t id, const std::string& title, bool minimised = false,
                              std::uint64_t space = 1) {
    windows::ManagedWindow w;
    w.id = id;
    w.title = title;
    w.bundleIdentifier = "com.example.app";
    w.isMinimized = minimised;
    w.spaceID = space;
    return w;
}

std::vector<std::string> kinds(const nlohmann::json& fetched) {
    std::vector<std::string> out;
    for (auto& e : fetched["events"])
        out.push_back(e["event"].get<std::string>() + " " + e["id"].dump() + " @" + e["t"].dump());
    return out;
}

TEST(WindowEventWatch, EachDifferenceIsOneEventTimedFromTheStart) {
    WindowEventWatch watch;
    watch.start(10, 1000, {window(1, "a"), window(2, "b")}, 1);
    watch.windowsChanged({window(1, "a2"), window(2, "b", true), window(3, "c")}, 1500);
    watch.windowsChanged({window(1, "a2", false, 2), window(3, "c")}, 2000);
    watch.focusChanged(window(3, "c"), 2500);
    watch.focusChanged(window(3, "c"), 2600);  // no change of focus
    EXPECT_EQ(kinds(watch.fetch(3000)),
              (std::vector<std::string>{"retitled 1 @500.0", "minimized 2 @500.0", "created 3 @500.0",
                                        "space 1 @1000.0", "closed 2 @1000.0", "focused 3 @1500.0"}));
    EXPECT_TRUE(watch.fetch(3000)["events"].empty());
}

TEST(WindowEventWatch, NothingIsSeenBeforeTheStartOrAfterTheSeconds) {
    WindowEventWatch watch;
    watch.windowsChanged({window(1, "a")}, 0);
    EXPECT_FALSE(watch.fetch(0)["started"].get<bool>());
    watch.start(1, 0, {}, std::nullopt);
    watch.windowsChanged({window(1, "a")}, 1001);
    auto fetched = watch.fetch(1001);
    EXPECT_TRUE(fetched["events"].empty());
    EXPECT_FALSE(fetched["watching"].get<bool>());
}

}  // namespace
}  // namespace zelk::diagnostics
