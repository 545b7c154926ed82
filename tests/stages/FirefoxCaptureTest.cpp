#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "stages/FirefoxCapture.h"
#include "support/Log.h"

using namespace zelk::stages;
using zelk::platform::AXError;
using zelk::platform::AXRef;
using zelk::platform::AXResult;
using zelk::platform::AXValue;
namespace fs = std::filesystem;

namespace {

// An accessibility tree of numbered elements: the app is element 1, its windows are listed by
// number, every read is counted.
struct TreeAccessibility : zelk::platform::Accessibility {
    struct Node {
        std::string role;
        std::optional<AXValue> url;
        std::vector<AXRef> children;
        std::uint32_t windowNumber = 0;
    };
    std::map<AXRef, Node> nodes;
    std::vector<AXRef> windows;
    std::map<AXRef, int> roleReads;
    double timeout = 0;

    bool isProcessTrusted() override { return true; }
    bool isProcessTrustedWithPrompt(bool) override { return true; }
    AXRef applicationElement(std::int32_t pid) override { return pid == 42 ? 1 : 0; }
    AXRef systemWideElement() override { return 0; }
    void setMessagingTimeout(AXRef, double seconds) override { timeout = seconds; }
    AXResult<AXValue> copyAttribute(AXRef element, const std::string& attr) override {
        if (element == 1) {
            if (attr == "AXRole") return {AXError::success, AXValue(std::string("AXApplication"))};
            if (attr == "AXWindows") return {AXError::success, AXValue(windows)};
            return {AXError::noValue, std::nullopt};
        }
        auto it = nodes.find(element);
        if (it == nodes.end()) return {AXError::invalidUIElement, std::nullopt};
        if (attr == "AXRole") {
            ++roleReads[element];
            return {AXError::success, AXValue(it->second.role)};
        }
        if (attr == "AXChildren") return {AXError::success, AXValue(it->second.children)};
        if (attr == "AXURL" && it->second.url) return {AXError::success, *it->second.url};
        return {AXError::noValue, std::nullopt};
    }
    AXError setAttribute(AXRef, const std::string&, const AXValue&) override { return AXError::failure; }
    AXError performAction(AXRef, const std::string&) override { return AXError::failure; }
    AXResult<AXRef> elementAtPosition(AXRef, zelk::Point) override { return {AXError::failure, {}}; }
    std::uint32_t windowNumber(AXRef window) override {
        auto it = nodes.find(window);
        return it == nodes.end() ? 0 : it->second.windowNumber;
    }
    std::int32_t pidOf(AXRef) override { return 42; }
    std::uint64_t createObserver(std::int32_t, ObserverCallback) override { return 0; }
    AXError addNotification(std::uint64_t, AXRef, const std::string&) override { return AXError::failure; }
    AXError removeNotification(std::uint64_t, AXRef, const std::string&) override { return AXError::failure; }
    void destroyObserver(std::uint64_t) override {}

    // Two windows (7 and 8); window 8 holds the tree under test.
    TreeAccessibility() {
        nodes[10] = {"AXWindow", {}, {}, 7};
        nodes[20] = {"AXWindow", {}, {}, 8};
        windows = {10, 20};
    }
    void add(AXRef parent, AXRef id, std::string role, std::optional<AXValue> url = {}) {
        nodes[id] = {std::move(role), std::move(url), {}, 0};
        nodes[parent].children.push_back(id);
    }
};

}  // namespace

TEST(FirefoxWebAreaWalk, TheShallowestWebAreaOfTheChosenWindowGivesItsURL) {
    TreeAccessibility ax;
    ax.add(10, 11, "AXWebArea", AXValue(std::string("https://other.window/")));
    // Window 8: a deep page inside a toolbar branch, and a shallower one found first breadth-first.
    ax.add(20, 21, "AXToolbar");
    ax.add(20, 22, "AXGroup");
    ax.add(21, 23, "AXGroup");
    ax.add(23, 24, "AXWebArea", AXValue(std::string("https://deep.example/")));
    ax.add(22, 25, "AXWebArea", AXValue(std::string("https://example.org/docs")));
    EXPECT_EQ(firefoxWebAreaURL(ax, 42, 8), "https://example.org/docs");
    EXPECT_EQ(ax.timeout, 1.0);
    // The walk ends at the first web area: nothing below the deeper branch is read.
    EXPECT_EQ(ax.roleReads[24], 0);
    EXPECT_EQ(firefoxWebAreaURL(ax, 42, 7), "https://other.window/");
}

TEST(FirefoxWebAreaWalk, NoWindowNoPageOrAnEmptyURLGiveNothing) {
    TreeAccessibility ax;
    EXPECT_EQ(firefoxWebAreaURL(ax, 42, 9), std::nullopt);  // no such window
    EXPECT_EQ(firefoxWebAreaURL(ax, 43, 8), std::nullopt);  // no such app
    ax.add(20, 21, "AXGroup");
    EXPECT_EQ(firefoxWebAreaURL(ax, 42, 8), std::nullopt);  // no web area at all
    ax.add(21, 22, "AXWebArea", AXValue(std::string()));
    ax.add(21, 23, "AXWebArea", AXValue(std::string("https://second.example/")));
    EXPECT_EQ(firefoxWebAreaURL(ax, 42, 8), std::nullopt);  // the first web area ends it, empty
    TreeAccessibility other;
    other.add(20, 21, "AXWebArea", AXValue(std::int64_t{5}));  // not a string
    EXPECT_EQ(firefoxWebAreaURL(other, 42, 8), std::nullopt);
}

TEST(FirefoxWebAreaWalk, TakesAtMostFiveThousandElements) {
    // A wide page: the window's children come first in the queue, the web area after them.
    auto build = [](std::size_t before) {
        TreeAccessibility ax;
        ax.add(20, 30, "AXGroup");
        for (std::size_t i = 0; i < before; ++i)
            ax.add(30, 1000 + i, "AXStaticText");
        ax.add(30, 999, "AXWebArea", AXValue(std::string("https://wide.example/")));
        return ax;
    };
    // Window, group, then `before` texts: the web area is element number before + 3.
    auto fits = build(kWebAreaWalkLimit - 3);
    EXPECT_EQ(firefoxWebAreaURL(fits, 42, 8), "https://wide.example/");
    auto beyond = build(kWebAreaWalkLimit - 2);
    EXPECT_EQ(firefoxWebAreaURL(beyond, 42, 8), std::nullopt);
    EXPECT_EQ(beyond.roleReads[999], 0);
}

namespace {

// A fresh folder under the system's temporary folder, removed afterwards.
struct TempFolder {
    fs::path path;
    TempFolder() {
        path = fs::temp_directory_path() / ("zelk-userjs-" + std::to_string(::getpid()) + "-" +
                                            std::to_string(reinterpret_cast<std::uintptr_t>(this)));
        fs::create_directories(path);
    }
    ~TempFolder() {
        std::error_code ec;
        fs::remove_all(path, ec);
    }
    void write(const fs::path& relative, const std::string& text) const {
        fs::create_directories((path / relative).parent_path());
        std::ofstream(path / relative, std::ios::binary) << text;
    }
};

}  // namespace

TEST(FirefoxUserJSCheck, AnActiveSettingInAnyProfileIsReportedWithItsExactLine) {
    TempFolder support;
    support.write("Firefox/Profiles/a1.default/prefs.js",
                  "user_pref(\"accessibility.force_disabled\", 1);\n");
    support.write("Firefox/Profiles/b2.work/user.js",
                  "// user_pref(\"accessibility.force_disabled\", 1);\n"
                  "   # accessibility.force_disabled off\n"
                  "user_pref(\"browser.startup.page\", 3);\r\n"
                  "   user_pref(\"accessibility.force_disabled\", 1);   \r\n");
    ferrow::LogCapture log;
    auto line = firefoxUserJSBlock(support.path, "org.mozilla.firefox");
    const std::string expected = "Firefox URL capture disabled by user.js: " +
                                 (support.path / "Firefox/Profiles/b2.work/user.js").string() +
                                 " — line: user_pref(\"accessibility.force_disabled\", 1);";
    EXPECT_EQ(line, expected);
    ASSERT_EQ(log.count(expected), 1u);
    for (auto& l : log.lines()) {
        if (l.message == expected) {
            EXPECT_EQ(l.level, ferrow::LogLevel::error);
        }
    }
}

TEST(FirefoxUserJSCheck, CommentedSettingsOtherBrowsersAndMissingFoldersReportNothing) {
    TempFolder support;
    support.write("Firefox/Profiles/a1/user.js",
                  "//user_pref(\"accessibility.force_disabled\", 1);\n#accessibility.force_disabled\n");
    support.write("librewolf/Profiles/x/user.js", "user_pref(\"accessibility.force_disabled\", 1);\n");
    ferrow::LogCapture log;
    EXPECT_EQ(firefoxUserJSBlock(support.path, "org.mozilla.firefox"), std::nullopt);
    EXPECT_EQ(firefoxUserJSBlock(support.path, "net.waterfox.waterfox"), std::nullopt);  // no folder
    EXPECT_EQ(firefoxUserJSBlock(support.path, "com.google.Chrome"), std::nullopt);      // not the family
    EXPECT_EQ(firefoxUserJSBlock(fs::path(), "org.mozilla.firefox"), std::nullopt);
    EXPECT_TRUE(log.lines().empty());
    // Each browser looks below its own profile root.
    EXPECT_TRUE(firefoxUserJSBlock(support.path, "io.gitlab.librewolf-community").has_value());
}
