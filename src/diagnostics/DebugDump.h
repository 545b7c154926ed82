#pragma once
#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/Processes.h"
#include "support/Observable.h"
#include "support/Timing.h"

namespace zelk::diagnostics {

// The state taken at one moment on the main thread, so later file work doesn't race live objects.
struct DebugDumpSnapshot {
    std::string cgWindowsData;    // "cg-windows.json"
    std::string axWindowsData;    // "ax-windows.json"
    std::string crossSpaceData;   // "cross-space-windows.json"
    std::string appsText;         // "apps.txt"
    std::string assignmentsText;  // "assignments.txt"
    std::string tapHealthText;    // "tap-health.txt"
};

// What the user sees of a dump: the phase's text, and whether one runs. Main thread only.
struct DebugDumpProgress {
    std::string phase;
    bool isRunning = false;
    ferrow::Signal<> changed;
};

// How the last dump ended.
struct DebugDumpOutcome {
    bool ok = false;
    std::string archive;  // the zip, when ok
    std::string folder;   // the working folder: removed when ok, left in place on a failure
    std::string error;    // the failure's text
};

struct DebugDumpOptions {
    std::filesystem::path outputFolder;  // receives the working folder and the archive
    std::optional<std::filesystem::path> configFile;
    std::optional<std::filesystem::path> searchCacheFile;
    double liveLogSeconds = 30;
    // The file work and child processes run on a thread of their own; on a virtual clock, where one
    // thread drives everything, they run in line.
    bool offMainThread = true;
};

// The one-action bundle of everything a developer asks for, zipped: the job and its progress.
class DebugDump {
  public:
    static constexpr const char* kPredicate = "subsystem == \"com.ferrowlabs.zelk\"";

    DebugDump(std::function<DebugDumpSnapshot()> snapshot, platform::Processes& processes,
              DebugDumpOptions options);
    ~DebugDump();
    DebugDump(const DebugDump&) = delete;
    DebugDump& operator=(const DebugDump&) = delete;

    // Starts a dump on the main thread; false while one runs. `liveSeconds` replaces the capture's
    // length for this dump.
    bool start(std::optional<double> liveSeconds = std::nullopt);
    const DebugDumpProgress& progress() const { return progress_; }
    std::optional<DebugDumpOutcome> lastOutcome() const;

    // The child processes of a dump, argument for argument.
    static platform::ProcessRequest liveLogRequest(double seconds);
    static platform::ProcessRequest historyLogRequest();
    static platform::ProcessRequest zipRequest(const std::filesystem::path& folder);
    static platform::ProcessRequest revealRequest(const std::filesystem::path& archive);
    // "zelk-debug-dump-" and the UTC time stamp of `wallSeconds`.
    static std::string folderName(double wallSeconds);

  private:
    struct Job;
    void run(std::shared_ptr<Job> job);
    void setPhase(std::string phase);
    void finish(DebugDumpOutcome outcome);
    void startCountdown(double seconds);
    void stopCountdown();

    std::function<DebugDumpSnapshot()> snapshot_;
    platform::Processes& processes_;
    DebugDumpOptions options_;
    DebugDumpProgress progress_;
    mutable std::mutex mutex_;
    std::optional<DebugDumpOutcome> outcome_;
    std::thread worker_;
    std::atomic<bool> cancel_{false};
    std::atomic<bool> offThread_{false};
    std::unique_ptr<ferrow::Repeater> countdown_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace zelk::diagnostics
