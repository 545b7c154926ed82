#include "apps/AppRelevance.h"

#include <array>

namespace zelk::apps {

namespace {
bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}
bool endsWith(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

bool excluded(std::string_view path) {
    static constexpr std::array<std::string_view, 6> kParts{
        "/Library/", "/Frameworks/", "/PrivateFrameworks/", ".framework", ".xpc", "BTTRelaunch"};
    for (auto part : kParts)
        if (contains(path, part)) return true;
    return contains(path, "/Applications/") && contains(path, ".app/Contents");
}

bool included(std::string_view path) {
    static constexpr std::array<std::string_view, 6> kParts{"/System/Library/CoreServices/Finder.app",
                                                            "/Users/Shared/Riot",
                                                            ".AppBundle",
                                                            "/Library/Caches/JetBrains",
                                                            "/Library/Application Support/JetBrains/Toolbox",
                                                            "/Applications/Chrome Apps.localized"};
    for (auto part : kParts)
        if (contains(path, part)) return true;
    // Apps shipped inside Xcode (Simulator, Instruments).
    if (endsWith(path, ".app") && contains(path, "/Applications/Xcode")) {
        constexpr std::string_view kContents = ".app/Contents/";
        auto at = path.find(kContents);
        if (at != std::string_view::npos && contains(path.substr(at + kContents.size()), "Applications/"))
            return true;
    }
    return contains(path, "/Applications/Burp") && contains(path, ".app/Contents");
}
}  // namespace

bool isAppPathRelevant(std::string_view path) {
    return !excluded(path) || included(path);
}

bool PathRelevanceCache::operator()(const std::string& path) {
    auto it = cache_.find(path);
    if (it != cache_.end()) return it->second;
    bool relevant = isAppPathRelevant(path);
    cache_.emplace(path, relevant);
    return relevant;
}

}  // namespace zelk::apps
