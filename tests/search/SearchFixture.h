#pragma once
#include <string>
#include <vector>

#include "search/Graphemes.h"
#include "search/SearchEngine.h"

namespace zelk::search::testing {

inline SearchApp app(std::string name, std::string bundle, bool running, double usage) {
    SearchApp a;
    a.identifier = bundle;
    a.bundleID = std::move(bundle);
    a.lowercasedName = lowercased(name);
    a.name = std::move(name);
    a.running = running;
    a.usageScore = usage;
    return a;
}

inline SearchWindow window(std::uint32_t id, std::string bundle, std::string title, std::string key = "",
                           std::string appName = "") {
    return SearchWindow{id, std::move(title), std::move(bundle), false, std::move(key), std::move(appName)};
}

// A fixed desktop: running apps first, then installed ones; Safari has a static s, Chrome, Terminal
// and Mail dynamic letters.
inline SearchWorld fixedWorld() {
    SearchWorld w;
    w.candidates = {
        app("Safari", "com.apple.Safari", true, 50),
        app("Slack", "com.tinyspeck.slackmacgap", true, 40),
        app("Chrome", "com.google.Chrome", true, 30),
        app("Terminal", "com.apple.Terminal", true, 35),
        app("Mail", "com.apple.mail", true, 20),
        app("Visual Studio Code", "com.microsoft.VSCode", true, 25),
        app("Chess", "com.apple.Chess", false, 5),
        app("System Settings", "com.apple.systempreferences", false, 8),
        app("Notes", "com.apple.Notes", false, 12),
        app("Sublime Text", "com.sublimetext.4", false, 3),
    };
    w.catalogue = w.candidates;
    w.catalogue.push_back(app("Calculator", "com.apple.calculator", false, 1));
    w.staticByKey["s"] = {"s", "com.apple.Safari", true};
    w.dynamicByKey["c"] = {"c", "com.google.Chrome", true};
    w.dynamicByKey["t"] = {"t", "com.apple.Terminal", true};
    w.dynamicByKey["m"] = {"m", "com.apple.mail", true};
    w.relatedByKey["c"] = {"com.google.Chrome", "com.apple.Chess", "com.apple.calculator"};
    w.relatedByKey["t"] = {"com.apple.Terminal"};
    w.windowsByBundle["com.apple.Safari"] = {
        window(11, "com.apple.Safari", "Apple — Start Page", "a", "Safari"),
        window(12, "com.apple.Safari", "GitHub Pull Request", "g", "Safari"),
        window(13, "com.apple.Safari", "Résumé draft", "r", "Safari")};
    w.windowsByBundle["com.google.Chrome"] = {window(21, "com.google.Chrome", "Inbox - Gmail", "i", "Chrome"),
                                              window(22, "com.google.Chrome", "Calendar", "c", "Chrome")};
    w.windowsByBundle["com.apple.Terminal"] = {
        window(31, "com.apple.Terminal", "zsh — build", "z", "Terminal"),
        window(32, "com.apple.Terminal", "vim notes.txt", "v", "Terminal")};
    w.windowsByBundle["com.tinyspeck.slackmacgap"] = {
        window(41, "com.tinyspeck.slackmacgap", "Slack | general", "", "Slack")};
    return w;
}

// Rows as short labels: "app:Safari", "win:Calendar", "closed:Title".
inline std::vector<std::string> labels(const std::vector<SearchResult>& rows) {
    std::vector<std::string> out;
    for (const auto& r : rows) {
        switch (r.kind) {
            case SearchResultKind::app:
                out.push_back("app:" + r.app().name);
                break;
            case SearchResultKind::window:
                out.push_back("win:" + r.window().title);
                break;
            case SearchResultKind::closedWindow:
                out.push_back("closed:" + r.closed().title);
                break;
        }
    }
    return out;
}

}  // namespace zelk::search::testing
