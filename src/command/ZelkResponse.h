#pragma once
#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zelk::command {

struct ZelkAppInfo {
    std::string name;
    std::string bundleID;
    std::int32_t pid = 0;
    bool isActive = false;
    bool isHidden = false;
    std::int64_t windowCount = 0;
    std::vector<std::int64_t> spaceIndices;
};

struct ZelkWindowInfo {
    std::uint32_t id = 0;
    std::string title;
    std::string appName;
    std::string bundleID;
    std::int32_t pid = 0;
    std::optional<std::uint64_t> spaceID;
    std::optional<std::int64_t> spaceIndex;
    std::optional<std::string> displayName;
    bool isFocused = false;
    bool isMinimized = false;
};

struct ZelkStageItemInfo {
    std::string appName;
    std::string bundleID;
    std::string spec;
    std::optional<std::string> windowTitle;
    std::optional<std::string> placement;
    std::optional<std::uint32_t> resolvedWindowID;
    std::optional<std::string> resolvedTitle;
    std::optional<std::int64_t> resolvedSpaceIndex;
    std::optional<std::string> resolvedDisplayName;
    std::optional<bool> resolvedIsMinimized;
};

struct ZelkStageInfo {
    std::string key;
    std::string name;
    std::vector<ZelkStageItemInfo> items;
    std::optional<std::uint64_t> spaceID;
    bool isActive = false;
};

struct ZelkSpaceInfo {
    std::int64_t index = 0;
    std::uint64_t id = 0;
    bool isActive = false;
};

struct ZelkStatusInfo {
    std::string version;
    std::int32_t pid = 0;
    std::string triggerKeysApp;
    std::string triggerKeysWindow;
    std::string triggerKeysStage;
    std::optional<std::string> frontmostApp;
    std::optional<std::string> frontmostBundleID;
    std::optional<ZelkWindowInfo> focusedWindow;
    std::optional<ZelkSpaceInfo> activeSpace;
    std::int64_t totalSpaces = 0;
    std::optional<ZelkStageInfo> activeStage;
};

struct ZelkSearchResult {
    std::string kind;  // "app" or "window"
    std::int64_t rank = 0;
    std::string name;
    std::string bundleID;
    std::optional<std::string> key;
    std::optional<std::uint32_t> windowID;
    bool isFocused = false;
    bool isRunning = false;
    std::vector<std::string> reasons;
};

struct ZelkConfigInfo {
    std::string configPath;
    std::string backupPath;
    bool hasBackup = false;
};

struct ZelkLearnedQueryInfo {
    std::string query;
    std::string bundleID;
    std::optional<std::string> appName;
    bool pinned = false;
    std::int64_t count = 0;
    std::optional<double> lastPickedAt;
    bool stale = false;
};

// The diagnostic records are owned by the debug dump; here each is carried as its JSON.
struct ZelkDebugInfo {
    std::optional<nlohmann::json> stage, capture, keys, ax, spacesTree, placePreview, drift, windowEvents,
        tabCycle, windowKeys, tap;
};

struct ZelkResponse {
    bool ok = false;
    std::optional<std::string> error;
    std::optional<std::string> message;
    std::optional<std::vector<ZelkAppInfo>> apps;
    std::optional<std::vector<ZelkWindowInfo>> windows;
    std::optional<std::vector<ZelkStageInfo>> stages;
    std::optional<std::vector<ZelkSpaceInfo>> spaces;
    std::optional<ZelkStatusInfo> status;
    std::optional<ZelkConfigInfo> config;
    std::optional<std::string> body;
    std::optional<std::vector<ZelkSearchResult>> searchResults;
    std::optional<std::vector<ZelkLearnedQueryInfo>> learnedQueries;
    std::optional<ZelkDebugInfo> debug;

    static ZelkResponse success(std::optional<std::string> message = std::nullopt);
    static ZelkResponse failure(std::string error);
};

// Error texts the service itself gives.
inline constexpr const char* kInvalidRequest = "invalid request";
// Sent, unasked, to a client the service can't take because every connection has a message or a
// reply under way; the connection then closes.
inline constexpr const char* kAgentBusy = "the agent is busy";
inline constexpr const char* kNotAvailableYet = "not available yet";

// JSON in field order, optionals left out. Text that isn't well-formed UTF-8 (a window title read
// from another app) is repaired rather than failing the reply.
nlohmann::json toJson(const ZelkResponse& response);
// The same with the keys in the records' field order, as replies go on the wire.
nlohmann::ordered_json toOrderedJson(const ZelkResponse& response);
nlohmann::json toJson(const ZelkAppInfo& info);
nlohmann::json toJson(const ZelkWindowInfo& info);
nlohmann::json toJson(const ZelkStageInfo& info);
nlohmann::json toJson(const ZelkSpaceInfo& info);
nlohmann::json toJson(const ZelkStatusInfo& info);
// The message bytes of a reply: compact UTF-8 JSON.
std::string encodeResponse(const ZelkResponse& response);

}  // namespace zelk::command
