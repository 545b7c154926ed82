#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "StageFakes.h"
#include "stages/WindowCapture.h"
#include "support/Log.h"

using namespace zelk::stages;
using zelk::Rect;
using zelk::stages::testing::FakeFileView;

namespace {

// Scripts answered by their text (already wrapped by the caller's helper, so the bare text here),
// documents and Firefox pages by window number, window counts by app.
struct FakeCaptureFacts : CaptureFacts {
    std::map<std::string, std::string> scripts;
    std::map<std::uint32_t, std::string> documents, pages, kitty;
    std::filesystem::path support;
    std::vector<std::uint32_t> walked;
    std::map<std::string, std::size_t> counts;
    std::vector<std::string> ran;

    std::optional<std::string> runScript(const std::string& source) override {
        ran.push_back(source);
        auto it = scripts.find(source);
        return it == scripts.end() ? std::nullopt : std::optional(it->second);
    }
    std::optional<std::string> axDocument(std::int32_t, std::uint32_t wid) override {
        auto it = documents.find(wid);
        return it == documents.end() ? std::nullopt : std::optional(it->second);
    }
    std::size_t trackedWindowCount(std::string_view bundle) override {
        auto it = counts.find(std::string(bundle));
        return it == counts.end() ? 1 : it->second;
    }
    std::optional<std::string> firefoxURL(std::int32_t, std::uint32_t wid) override {
        walked.push_back(wid);
        auto it = pages.find(wid);
        return it == pages.end() ? std::nullopt : std::optional(it->second);
    }
    std::optional<std::string> kittyCWD(std::uint32_t wid) override {
        auto it = kitty.find(wid);
        return it == kitty.end() ? std::nullopt : std::optional(it->second);
    }
    std::filesystem::path applicationSupportFolder() override { return support; }
};

WindowSpec capture(std::string_view bundle, std::uint32_t wid, FakeCaptureFacts& facts) {
    FakeFileView files;
    files.entries = {"/Users/ada/src/site/package.json", "/Users/ada/src/site/lib/main.ts"};
    return captureWindowSpec(bundle, 42, wid, facts, files);
}

}  // namespace

TEST(WindowCaptureScripts, TextsAndTheTimeOutWrapperAreExact) {
    EXPECT_EQ(
        chromiumURLScript("com.google.Chrome", 7),
        "tell application id \"com.google.Chrome\"\n    set targetWindow to first window whose id is 7\n"
        "    return URL of active tab of targetWindow\nend tell");
    EXPECT_EQ(
        safariURLScript("com.apple.SafariTechnologyPreview", 7),
        "tell application \"Safari Technology Preview\"\n    set targetWindow to first window whose id is "
        "7\n    return URL of current tab of targetWindow\nend tell");
    EXPECT_EQ(safariURLScript("com.apple.Safari", 7).substr(0, 26), "tell application \"Safari\"\n");
    EXPECT_EQ(
        iTermSessionPathScript(9),
        "tell application \"iTerm\"\n    set targetWindow to first window whose id is 9\n    tell current "
        "session of current tab of targetWindow\n        return variable named \"session.path\"\n    end "
        "tell\nend tell");
    EXPECT_EQ(
        finderPathScript(3),
        "tell application \"Finder\"\n    set targetWindow to first window whose id is 3\n    return POSIX "
        "path of (target of targetWindow as alias)\nend tell");
    EXPECT_EQ(wrapScriptTimeout("return 1", 2), "with timeout of 2 seconds\nreturn 1\nend timeout");
}

TEST(WindowCaptureLadder, BrowsersReadTheirURLOrFallBackByWindowCount) {
    FakeCaptureFacts facts;
    facts.scripts[chromiumURLScript("com.google.Chrome", 1)] = "https://a.example/x";
    EXPECT_EQ(capture("com.google.Chrome", 1, facts), WindowSpec(BrowserURLSpec{"https://a.example/x"}));
    // No script answer: the accessibility document, when it is a web address.
    facts.documents[2] = "https://b.example/";
    EXPECT_EQ(capture("com.apple.Safari", 2, facts), WindowSpec(BrowserURLSpec{"https://b.example/"}));
    facts.documents[3] = "/Users/ada/file.html";
    EXPECT_EQ(capture("com.apple.Safari", 3, facts), WindowSpec(AppSpec{}));
    // An unreadable URL names one window of several by an empty URL; of one window, the whole app.
    facts.counts["org.mozilla.firefox"] = 2;
    EXPECT_EQ(capture("org.mozilla.firefox", 4, facts), WindowSpec(BrowserURLSpec{""}));
    facts.counts["org.mozilla.firefox"] = 1;
    EXPECT_EQ(capture("org.mozilla.firefox", 4, facts), WindowSpec(AppSpec{}));
    // The Firefox family runs no script.
    facts.ran.clear();
    capture("org.mozilla.firefox", 4, facts);
    EXPECT_TRUE(facts.ran.empty());
}

TEST(WindowCaptureLadder, TheFirefoxFamilyReadsItsPageFromTheTreeThenTheDocument) {
    FakeCaptureFacts facts;
    facts.pages[5] = "https://tree.example/page";
    facts.documents[5] = "https://document.example/";
    EXPECT_EQ(capture("app.zen-browser.zen", 5, facts),
              WindowSpec(BrowserURLSpec{"https://tree.example/page"}));
    // An empty page counts as none: the document comes next.
    facts.pages[5] = "";
    EXPECT_EQ(capture("app.zen-browser.zen", 5, facts),
              WindowSpec(BrowserURLSpec{"https://document.example/"}));
    // Only the Firefox family walks the tree.
    facts.walked.clear();
    facts.documents[6] = "https://safari.example/";
    capture("com.apple.Safari", 6, facts);
    capture("com.google.Chrome", 6, facts);
    EXPECT_TRUE(facts.walked.empty());
}

TEST(WindowCaptureLadder, AFirefoxWindowWithoutAPageReportsAUserJSThatDisablesTheTree) {
    namespace fs = std::filesystem;
    FakeCaptureFacts facts;
    facts.support = fs::temp_directory_path() / ("zelk-capture-userjs-" + std::to_string(::getpid()));
    fs::create_directories(facts.support / "Floorp/Profiles/p1");
    std::ofstream(facts.support / "Floorp/Profiles/p1/user.js")
        << "user_pref(\"accessibility.force_disabled\", 1);\n";
    ferrow::LogCapture log;
    facts.pages[4] = "https://tree.example/";
    capture("org.mozilla.floorp", 4, facts);
    EXPECT_FALSE(log.containsSubstring("Firefox URL capture disabled by user.js"));  // a page: no check
    // No page: the report, and the window count still decides.
    facts.counts["org.mozilla.floorp"] = 2;
    EXPECT_EQ(capture("org.mozilla.floorp", 7, facts), WindowSpec(BrowserURLSpec{""}));
    EXPECT_EQ(log.count("Firefox URL capture disabled by user.js: " +
                        (facts.support / "Floorp/Profiles/p1/user.js").string() +
                        " — line: user_pref(\"accessibility.force_disabled\", 1);"),
              1u);
    // Other browsers never look.
    log.clear();
    capture("com.google.Chrome", 7, facts);
    EXPECT_TRUE(log.lines().empty());
    fs::remove_all(facts.support);
}

TEST(WindowCaptureLadder, TerminalsFinderEditorsAndOtherApps) {
    FakeCaptureFacts facts;
    facts.scripts[iTermSessionPathScript(1)] = "/Users/ada/src";
    EXPECT_EQ(capture("com.googlecode.iterm2", 1, facts), WindowSpec(TerminalCWDSpec{"/Users/ada/src"}));
    facts.documents[2] = "/Users/ada/docs";
    EXPECT_EQ(capture("com.apple.Terminal", 2, facts), WindowSpec(TerminalCWDSpec{"/Users/ada/docs"}));
    facts.documents[3] = "relative/path";
    EXPECT_EQ(capture("net.kovidgoyal.kitty", 3, facts), WindowSpec(AppSpec{}));
    // kitty's own table comes before the document; a relative entry falls through to it.
    facts.kitty[3] = "/Users/ada/kitty";
    EXPECT_EQ(capture("net.kovidgoyal.kitty", 3, facts), WindowSpec(TerminalCWDSpec{"/Users/ada/kitty"}));
    facts.kitty[3] = "elsewhere";
    facts.documents[3] = "/Users/ada/doc";
    EXPECT_EQ(capture("net.kovidgoyal.kitty", 3, facts), WindowSpec(TerminalCWDSpec{"/Users/ada/doc"}));
    facts.kitty[2] = "/Users/ada/not-kitty";  // other terminals never ask kitty
    EXPECT_EQ(capture("com.apple.Terminal", 2, facts), WindowSpec(TerminalCWDSpec{"/Users/ada/docs"}));
    // The nightly browser build stands in the terminal table.
    facts.documents[4] = "/tmp";
    EXPECT_EQ(capture("com.brave.Browser.nightly", 4, facts), WindowSpec(TerminalCWDSpec{"/tmp"}));

    facts.scripts[finderPathScript(5)] = "/Users/ada/Downloads/";
    EXPECT_EQ(capture("com.apple.finder", 5, facts), WindowSpec(DocumentPathSpec{"/Users/ada/Downloads/"}));
    EXPECT_EQ(capture("com.apple.finder", 6, facts), WindowSpec(AppSpec{}));

    // An editor's document stands for its project folder.
    facts.documents[7] = "/Users/ada/src/site/lib/main.ts";
    EXPECT_EQ(capture("com.microsoft.VSCode", 7, facts), WindowSpec(DocumentPathSpec{"/Users/ada/src/site"}));
    EXPECT_EQ(capture("com.apple.TextEdit", 7, facts),
              WindowSpec(DocumentPathSpec{"/Users/ada/src/site/lib/main.ts"}));
    facts.documents[8] = "/Users/ada/song.mp3";
    EXPECT_EQ(capture("com.spotify.client", 8, facts), WindowSpec(AppSpec{}));
    EXPECT_EQ(capture("", 8, facts), WindowSpec(AppSpec{}));
}

TEST(WindowCaptureItems, OneItemPerWindowAndOneForAWholeApp) {
    FakeCaptureFacts facts;
    facts.documents[1] = "/Users/ada/a.txt";
    FakeFileView files;
    auto app = [](const zelk::windows::ManagedWindow& w) {
        return std::make_shared<zelk::apps::LaunchableApp>("/Applications/X.app", "X", 0, w.bundleIdentifier);
    };
    auto win = [](std::uint32_t id, std::string bundle, std::string title) {
        zelk::windows::ManagedWindow w;
        w.id = id;
        w.bundleIdentifier = std::move(bundle);
        w.title = std::move(title);
        return w;
    };
    std::vector<CaptureSource> sources{{win(1, "com.apple.TextEdit", "a.txt"), Rect{0, 25, 720, 875}},
                                       {win(2, "com.apple.mail", "Inbox"), Rect{10, 10, 100, 100}},
                                       {win(3, "com.apple.mail", "Draft"), std::nullopt}};
    int placed = 0;
    auto items = captureItems(
        sources, facts, files, app, [](const std::string& b) { return b == "com.apple.mail"; },
        [&placed](const Rect&) -> std::optional<WindowPlacement> {
            ++placed;
            return SemanticPlacement{SemanticPosition::leftHalf};
        });
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].windowSpec, WindowSpec(DocumentPathSpec{"/Users/ada/a.txt"}));
    EXPECT_EQ(items[0].windowTitle, "a.txt");
    EXPECT_EQ(items[0].windowID, 1u);
    EXPECT_TRUE(items[0].windowPlacement.has_value());
    EXPECT_EQ(items[1].windowSpec, WindowSpec(AppSpec{}));
    EXPECT_EQ(items[1].windowTitle, "");
    EXPECT_NE(items[0].id, items[1].id);
}
