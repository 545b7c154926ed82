// Resolving a 12-item stage against 400 tracked windows, with the desktop answering at once: the cost
// of resolution itself (the bound is under 100 us).
#include <benchmark/benchmark.h>

#include <map>
#include <set>

#include "stages/WindowResolve.h"
#include "support/Log.h"

namespace {

using zelk::windows::ManagedWindow;
using namespace zelk::stages;

struct InstantFacts : WindowFacts {
    std::map<std::uint32_t, std::string> documents, urls, cwds;
    bool isAppRunning(std::string_view) override { return true; }
    std::optional<std::string> documentOf(const ManagedWindow& w) override { return read(documents, w); }
    std::optional<std::string> browserURLOf(const ManagedWindow& w) override { return read(urls, w); }
    std::optional<std::string> terminalCWDOf(const ManagedWindow& w) override { return read(cwds, w); }
    static std::optional<std::string> read(const std::map<std::uint32_t, std::string>& t,
                                           const ManagedWindow& w) {
        auto it = t.find(w.id);
        return it == t.end() ? std::nullopt : std::optional(it->second);
    }
};

struct MemoryFiles : FileView {
    std::set<std::string> entries;
    bool exists(const std::string& p) const override { return entries.contains(p); }
    bool isDirectory(const std::string&) const override { return false; }
    std::string homeFolder() const override { return "/Users/bench"; }
};

struct Desk {
    std::vector<ManagedWindow> windows;
    std::vector<StageItem> items;
    InstantFacts facts;
    MemoryFiles files;

    static StageItem item(const std::string& bundle, WindowSpec spec, std::string title) {
        StageItem i;
        i.id = makeUUID();
        i.app = std::make_shared<zelk::apps::LaunchableApp>("/Applications/B.app", "B", 0, bundle);
        i.windowSpec = std::move(spec);
        i.windowTitle = std::move(title);
        return i;
    }

    Desk() {
        ferrow::Log::setConsole(false);
        // 20 apps with 20 windows each: a browser, a terminal, an editor, and whole apps.
        const std::vector<std::string> bundles{"com.google.Chrome", "net.kovidgoyal.kitty",
                                               "com.microsoft.VSCode"};
        std::uint32_t id = 1000;
        for (int a = 0; a < 20; ++a) {
            std::string bundle = a < 3 ? bundles[a] : "bench.app" + std::to_string(a);
            for (int w = 0; w < 20; ++w) {
                ManagedWindow win;
                win.id = ++id;
                win.bundleIdentifier = bundle;
                win.title = bundle + " window " + std::to_string(w);
                win.isMinimized = w % 5 == 0;
                windows.push_back(win);
                if (a == 0) facts.urls[id] = "https://site" + std::to_string(w) + ".example.org/page";
                if (a == 1) facts.cwds[id] = "/Users/bench/src/p" + std::to_string(w);
                if (a == 2) facts.documents[id] = "/Users/bench/src/p" + std::to_string(w) + "/main.c";
            }
        }
        for (int p = 0; p < 20; ++p)
            files.entries.insert("/Users/bench/src/p" + std::to_string(p) + "/.git");
        // Matches late in each app's list, so resolution reads most candidates.
        for (int k : {17, 18, 19, 3})
            items.push_back(item("com.google.Chrome",
                                 BrowserURLSpec{"https://site" + std::to_string(k) + ".example.org/"}, ""));
        items.push_back(item("net.kovidgoyal.kitty", TerminalCWDSpec{"/Users/bench/src/p18"}, ""));
        items.push_back(
            item("net.kovidgoyal.kitty", TerminalCWDSpec{"/nowhere"}, "net.kovidgoyal.kitty window 19"));
        items.push_back(item("com.microsoft.VSCode", DocumentPathSpec{"/Users/bench/src/p19"}, ""));
        items.push_back(item("com.microsoft.VSCode", DocumentPathSpec{"/Users/bench/src/p16"}, ""));
        for (int a : {5, 9, 13, 19})
            items.push_back(item("bench.app" + std::to_string(a), AppSpec{}, ""));
    }
};

void BM_ResolveTwelveItemStage(benchmark::State& state) {
    Desk desk;
    for (auto _ : state) {
        int found = 0;
        for (const auto& item : desk.items)
            found += resolveWindow(item, desk.windows, desk.facts, desk.files) ? 1 : 0;
        if (found != 12) state.SkipWithError("a stage item did not resolve");
        benchmark::DoNotOptimize(found);
    }
}
BENCHMARK(BM_ResolveTwelveItemStage)->Unit(benchmark::kMicrosecond);

// As activation resolves: one pass over the desktop for the whole stage.
void BM_ResolveTwelveItemStageInOnePass(benchmark::State& state) {
    Desk desk;
    for (auto _ : state) {
        ResolvePass pass(desk.windows, desk.facts, desk.files);
        int found = 0;
        for (const auto& item : desk.items)
            found += pass.resolve(item) ? 1 : 0;
        if (found != 12) state.SkipWithError("a stage item did not resolve");
        benchmark::DoNotOptimize(found);
    }
}
BENCHMARK(BM_ResolveTwelveItemStageInOnePass)->Unit(benchmark::kMicrosecond);

}  // namespace
