#pragma once
#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "config/Settings.h"
#include "platform/Platform.h"
#include "support/MainQueue.h"
#include "windows/ManagedWindow.h"

namespace zelk::stages {

// A window parked just past the bottom-right corner of its screen, with where it was.
struct StashedWindowRecord {
    std::uint32_t windowID = 0;
    std::string bundleID;
    double x = 0, y = 0, w = 0, h = 0;
    bool operator==(const StashedWindowRecord&) const = default;
};
nlohmann::json toJson(const StashedWindowRecord& record);
std::optional<StashedWindowRecord> stashedWindowRecordFromJson(const nlohmann::json& json);

// Windows hidden without minimising, by moving them off-screen. The records survive a restart through
// the `stashedOffScreenWindows` setting, written 1.5 s after the last change. Main thread only.
class OffScreenStash {
  public:
    struct Sources {
        platform::Platform platform;
        Settings* settings = nullptr;
        std::function<std::vector<windows::ManagedWindow>()> windows;
    };
    explicit OffScreenStash(Sources sources);
    ~OffScreenStash();

    const std::map<std::uint32_t, StashedWindowRecord>& windowsMovedOffScreen() const { return records_; }
    bool isStashed(std::uint32_t windowID) const { return records_.contains(windowID); }

    bool moveWindowOffScreen(const windows::ManagedWindow& window);
    bool restoreWindowFromOffScreen(std::uint32_t windowID);
    void restoreOffScreenWindows(const std::string& bundleID);
    void restoreAllOffScreenWindows();
    // Drops records whose window is gone, moved to another owner, or not on screen; run after loading.
    void reconcilePersistedStashes();
    // Reads the persisted records (at start).
    void load();

  private:
    std::optional<platform::RunningApp> runningApp(const std::string& bundleID) const;
    platform::AXRef windowElement(std::int32_t pid, std::uint32_t windowID) const;
    void schedulePersist();

    Sources s_;
    std::map<std::uint32_t, StashedWindowRecord> records_;
    ferrow::WorkItem stashPersistTask_;
};

}  // namespace zelk::stages
