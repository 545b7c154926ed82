#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Fixed sets of bundle identifiers that decide how a window of an app is identified in a stage and
// how it is reopened. Built once; lookups are by exact identifier unless named as prefixes.
namespace zelk::stages {

enum class BrowserFamily { chromium, safari, firefox };

bool isTerminalBundle(std::string_view bundleID);
bool isBrowserBundle(std::string_view bundleID);
std::optional<BrowserFamily> browserFamily(std::string_view bundleID);
// The profile folder below the user's Application Support folder, for the Firefox family.
std::optional<std::string_view> firefoxProfileRoot(std::string_view bundleID);
// Apps whose windows are always stored as the whole app.
bool isNoCaptureBundle(std::string_view bundleID);
// Matched as a prefix of the identifier.
bool isEditorBundle(std::string_view bundleID);
bool isAppLevelBundleID(std::string_view bundleID);
bool isAppLevelCategory(std::string_view category);

// The project markers in the order they are tried.
const std::vector<std::string_view>& projectMarkerFiles();

// Counts of the tables, for tests that guard against a lost row.
struct BundleTableSizes {
    std::size_t terminals, chromium, safari, firefox, browsers, noCapture, editors, markers, appLevel,
        categories;
};
BundleTableSizes bundleTableSizes();

// Whether an app gets no per-window identity by default: listed apps (also as "-setapp" builds),
// never terminals, browsers, editors or the file browser, else by the bundle's category (empty when
// unreadable).
bool isAppLevelApp(std::string_view bundleID, std::string_view category);

}  // namespace zelk::stages
