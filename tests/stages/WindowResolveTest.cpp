#include <gtest/gtest.h>
#include <filesystem>

#include "stages/StageFakes.h"
#include "stages/WindowResolve.h"

using namespace zelk;
using namespace zelk::stages;
using namespace zelk::stages::testing;
using windows::ManagedWindow;

namespace {

ManagedWindow win(std::uint32_t id, std::string bundle, std::string title, bool minimized = false) {
    ManagedWindow w;
    w.id = id;
    w.bundleIdentifier = std::move(bundle);
    w.title = std::move(title);
    w.isMinimized = minimized;
    return w;
}

StageItem item(std::string bundle, WindowSpec spec, std::string title = "") {
    StageItem i;
    i.id = makeUUID();
    i.app = std::make_shared<apps::LaunchableApp>("/Applications/X.app", "X", 0, bundle);
    i.windowSpec = std::move(spec);
    i.windowTitle = std::move(title);
    return i;
}

constexpr auto kChrome = "com.google.Chrome";
constexpr auto kCode = "com.microsoft.VSCode";
constexpr auto kFinder = "com.apple.finder";
constexpr auto kKitty = "net.kovidgoyal.kitty";

struct Resolve : ::testing::Test {
    FakeWindowFacts facts;
    FakeFileView files;
    std::vector<ManagedWindow> windows;
    std::optional<std::uint32_t> resolve(const StageItem& i) {
        auto w = resolveWindow(i, windows, facts, files);
        return w ? std::optional(w->id) : std::nullopt;
    }
};

}  // namespace

TEST(StagePaths, ProjectRootWalksUpToTheNearestMarkerBelowHome) {
    FakeFileView files;
    files.entries = {"/Users/ada/src/app/",     "/Users/ada/src/app/package.json",
                     "/Users/ada/src/app/src/", "/Users/ada/src/app/src/main.c",
                     "/Users/ada/.git/",        "/Users/ada/loose/",
                     "/Users/ada/loose/a.txt"};
    EXPECT_EQ(projectRoot("/Users/ada/src/app/src/main.c", files), "/Users/ada/src/app");
    EXPECT_EQ(projectRoot("/Users/ada/src/app/src", files), "/Users/ada/src/app");
    // The walk stops at home, so a marker there doesn't make home the project.
    EXPECT_EQ(projectRoot("/Users/ada/loose/a.txt", files), "/Users/ada/loose");
    EXPECT_EQ(projectRoot("~/loose/a.txt", files), "/Users/ada/loose");
    // A path that doesn't exist starts from itself.
    EXPECT_EQ(projectRoot("/tmp/gone/file.c", files), "/tmp/gone/file.c");
}

TEST(StagePaths, StandardisingHostsAndFolderOverlap) {
    FakeFileView files;
    EXPECT_EQ(standardizedPath("/a/./b/../c/", files), "/a/c");
    EXPECT_EQ(standardizedPath("/", files), "/");
    EXPECT_EQ(standardizedPath("~", files), "/Users/ada");
    // Paths that need no folding come back as they are, less a trailing slash; the others fold.
    for (const char* path : {"/a/b", "/a/b/", "a/b", "/a//b", "//a", "/a/b/..", "/..", "/a/.b/c", "/a/..b",
                             "/a/b/.", "./a", "a/../.."})
        EXPECT_EQ(standardizedPath(path, files), [&] {
            std::string normal = std::filesystem::path(path).lexically_normal().string();
            while (normal.size() > 1 && normal.back() == '/')
                normal.pop_back();
            return normal;
        }()) << path;
    EXPECT_EQ(urlHost("https://user@Docs.Example.org:8443/x?y#z"), "docs.example.org");
    EXPECT_EQ(urlHost("http://[::1]:80/"), "[::1]");
    EXPECT_FALSE(urlHost("about:blank"));
    EXPECT_FALSE(urlHost("file:///tmp/a"));
    EXPECT_TRUE(foldersOverlap("/a/b", "/a/b/c"));
    EXPECT_TRUE(foldersOverlap("/a/b", "/a"));
    EXPECT_FALSE(foldersOverlap("/a/b", "/a/bc"));
}

TEST_F(Resolve, NoCandidatesOfTheBundleGiveNothing) {
    windows = {win(1, kChrome, "A")};
    facts.running = {kChrome};
    EXPECT_FALSE(resolve(item("com.apple.Safari", AppSpec{})));
}

TEST_F(Resolve, WholeAppTakesTheFirstVisibleWindow) {
    windows = {win(1, kChrome, "A", true), win(2, kChrome, "B"), win(3, kChrome, "C")};
    EXPECT_EQ(resolve(item(kChrome, AppSpec{})), 2u);
    windows = {win(1, kChrome, "A", true), win(4, kChrome, "D", true)};
    EXPECT_EQ(resolve(item(kChrome, AppSpec{})), 1u);
}

TEST_F(Resolve, BrowserMatchesByHostThenByTitle) {
    windows = {win(1, kChrome, "Docs"), win(2, kChrome, "Mail"), win(3, kChrome, "Mail 2")};
    facts.urls = {{1, "https://docs.example.org/a"},
                  {2, "https://mail.example.org/inbox"},
                  {3, "https://mail.example.org/other"}};
    // Two windows on one host: the first wins; the path doesn't matter.
    EXPECT_EQ(resolve(item(kChrome, BrowserURLSpec{"https://mail.example.org/zzz"}, "Docs")), 2u);
    // No window on the host: the title decides.
    EXPECT_EQ(resolve(item(kChrome, BrowserURLSpec{"https://news.example.org/"}, "Mail 2")), 3u);
    // An empty URL never reads the windows.
    facts.reads = 0;
    EXPECT_EQ(resolve(item(kChrome, BrowserURLSpec{""}, "Docs")), 1u);
    EXPECT_EQ(facts.reads, 0);
    EXPECT_FALSE(resolve(item(kChrome, BrowserURLSpec{""}, "")));
}

TEST_F(Resolve, TitleFallbackPrefersAVisibleWindow) {
    windows = {win(1, kChrome, "Same", true), win(2, kChrome, "Same")};
    EXPECT_EQ(resolve(item(kChrome, BrowserURLSpec{""}, "Same")), 2u);
    windows = {win(1, kChrome, "Same", true), win(2, kChrome, "Other")};
    EXPECT_EQ(resolve(item(kChrome, BrowserURLSpec{""}, "Same")), 1u);
}

TEST_F(Resolve, EditorDocumentMatchesByProjectOrByTitle) {
    files.entries = {"/Users/ada/src/app/", "/Users/ada/src/app/package.json",
                     "/Users/ada/src/app/src/main.c"};
    windows = {win(1, kCode, "notes.txt"), win(2, kCode, "src/main.c \u2014 app"), win(3, kCode, "readme")};
    facts.running = {kCode};
    facts.documents = {{1, "/Users/ada/notes.txt"}, {3, "/Users/ada/src/app/src/main.c"}};
    auto project = item(kCode, DocumentPathSpec{"/Users/ada/src/app"});
    // Window 2 exposes no document but names the project in its title, before window 3's path.
    EXPECT_EQ(resolve(project), 2u);
    facts.documents[2] = "/Users/ada/elsewhere.c";
    EXPECT_EQ(resolve(project), 3u);
    // A stopped app resolves nothing, whatever the windows say.
    facts.running.clear();
    EXPECT_FALSE(resolve(project));
}

TEST_F(Resolve, FinderFolderMatchesByStandardisedPathWithoutProjectLogic) {
    files.entries = {"/.git/"};
    windows = {win(1, kFinder, "Macintosh HD"), win(2, kFinder, "tmp")};
    facts.running = {kFinder};
    facts.documents = {{1, "/"}, {2, "/private/tmp/"}};
    EXPECT_EQ(resolve(item(kFinder, DocumentPathSpec{"/"})), 1u);
    EXPECT_EQ(resolve(item(kFinder, DocumentPathSpec{"/private/tmp"})), 2u);
    EXPECT_FALSE(resolve(item(kFinder, DocumentPathSpec{"/Users"})));
}

TEST_F(Resolve, TerminalFolderMatchesInsideOrAbove) {
    windows = {win(1, kKitty, "vim"), win(2, kKitty, "zsh")};
    facts.running = {kKitty};
    facts.cwds = {{1, "/a/bc"}, {2, "/a/b/c"}};
    EXPECT_EQ(resolve(item(kKitty, TerminalCWDSpec{"/a/b"})), 2u);
    facts.cwds = {{1, "/a"}};
    EXPECT_EQ(resolve(item(kKitty, TerminalCWDSpec{"/a/b"})), 1u);
    facts.cwds.clear();
    EXPECT_EQ(resolve(item(kKitty, TerminalCWDSpec{"/a/b"}, "zsh")), 2u);
}

TEST(StageDedupe, WholeAppItemsGiveWayToPerWindowItemsAndToEachOther) {
    auto doc = item(kCode, DocumentPathSpec{"/p"});
    auto codeApp = item(kCode, AppSpec{});
    auto chromeApp = item(kChrome, AppSpec{});
    auto chromeAgain = item(kChrome, AppSpec{});
    auto finderApp = item(kFinder, AppSpec{});
    auto kept = dedupeItems({codeApp, chromeApp, doc, chromeAgain, finderApp});
    ASSERT_EQ(kept.size(), 3u);
    EXPECT_EQ(kept[0].id, chromeApp.id);
    EXPECT_EQ(kept[1].id, doc.id);
    EXPECT_EQ(kept[2].id, finderApp.id);
}
