#include "diagnostics/DebugDump.h"

#include <fmt/format.h>

#include <cmath>
#include <ctime>
#include <fstream>

#include "support/Log.h"
#include "support/MainQueue.h"

namespace zelk::diagnostics {

namespace fs = std::filesystem;
using ferrow::Log;

struct DebugDump::Job {
    DebugDumpSnapshot snapshot;
    fs::path folder;
    double liveSeconds = 30;
};

namespace {
using StepError = std::optional<std::string>;

StepError writeFile(const fs::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    if (!out) return fmt::format("can't write {}", path.string());
    return std::nullopt;
}

// A child process that ends with a status other than 0 is an error naming it; its standard output
// goes to `outputTo` when one is named (standard error is dropped).
StepError runProcess(platform::Processes& processes, const platform::ProcessRequest& request,
                     const std::optional<fs::path>& outputTo = std::nullopt, bool endsByTimeout = false) {
    auto result = processes.run(request);
    if (!result.started) return fmt::format("{} could not be started", request.program);
    if (!(endsByTimeout && result.timedOut) && result.exitCode != 0)
        return fmt::format("{} exited with status {}", request.program, result.exitCode);
    if (outputTo) return writeFile(*outputTo, result.output);
    return std::nullopt;
}

StepError copyIfPresent(const std::optional<fs::path>& from, const fs::path& to) {
    std::error_code ec;
    if (!from || !fs::is_regular_file(*from, ec)) return std::nullopt;  // a missing source is skipped
    if (!fs::copy_file(*from, to, fs::copy_options::overwrite_existing, ec))
        return fmt::format("can't copy {}: {}", from->string(), ec.message());
    return std::nullopt;
}
}  // namespace

DebugDump::DebugDump(std::function<DebugDumpSnapshot()> snapshot, platform::Processes& processes,
                     DebugDumpOptions options)
    : snapshot_(std::move(snapshot)), processes_(processes), options_(std::move(options)) {}

DebugDump::~DebugDump() {
    cancel_ = true;
    *alive_ = false;
    if (worker_.joinable()) worker_.join();
    countdown_.reset();
}

std::optional<DebugDumpOutcome> DebugDump::lastOutcome() const {
    std::lock_guard lock(mutex_);
    return outcome_;
}

std::string DebugDump::folderName(double wallSeconds) {
    std::time_t t = static_cast<std::time_t>(std::floor(wallSeconds));
    std::tm tm{};
    ::gmtime_r(&t, &tm);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &tm);
    return std::string("zelk-debug-dump-") + stamp;
}

platform::ProcessRequest DebugDump::liveLogRequest(double seconds) {
    platform::ProcessRequest r;
    r.program = "/usr/bin/log";
    r.arguments = {"stream", "--predicate", kPredicate, "--level", "debug", "--style", "compact"};
    r.timeoutSeconds = seconds;  // the capture is ended after this long
    return r;
}

platform::ProcessRequest DebugDump::historyLogRequest() {
    platform::ProcessRequest r;
    r.program = "/usr/bin/log";
    r.arguments = {"show",   "--predicate", kPredicate, "--last", "24h",
                   "--info", "--debug",     "--style",  "compact"};
    r.timeoutSeconds = 120;
    return r;
}

platform::ProcessRequest DebugDump::zipRequest(const fs::path& folder) {
    platform::ProcessRequest r;
    r.program = "/usr/bin/zip";
    const std::string name = folder.filename().string();
    r.arguments = {"-q", "-r", name + ".zip", name};
    r.environment["PWD"] = folder.parent_path().string();  // the child starts in the folder's parent
    r.timeoutSeconds = 120;
    return r;
}

platform::ProcessRequest DebugDump::revealRequest(const fs::path& archive) {
    platform::ProcessRequest r;
    r.program = "xdg-open";
    r.arguments = {archive.parent_path().string()};
    r.wait = false;
    return r;
}

bool DebugDump::start(std::optional<double> liveSeconds) {
    if (progress_.isRunning) return false;
    if (worker_.joinable()) worker_.join();  // the last dump's thread has finished its work
    progress_.isRunning = true;
    offThread_ = false;  // the snapshot is taken here, on the main thread
    setPhase("Snapshotting state…");
    auto job = std::make_shared<Job>();
    job->snapshot = snapshot_ ? snapshot_() : DebugDumpSnapshot{};
    job->folder = options_.outputFolder / folderName(ferrow::MainQueue::shared().clock().wallSeconds());
    job->liveSeconds = std::max(0.0, liveSeconds.value_or(options_.liveLogSeconds));
    offThread_ = options_.offMainThread && !ferrow::MainQueue::shared().isVirtual();
    if (offThread_)
        worker_ = std::thread([this, job] { run(job); });
    else
        run(job);
    return true;
}

// The phases in order; the first error ends the dump and leaves the folder as it is.
void DebugDump::run(std::shared_ptr<Job> job) {
    Job& j = *job;
    using Step = std::function<StepError()>;
    const std::vector<std::pair<std::string, Step>> steps{
        {"",
         [&]() -> StepError {
             std::error_code ec;
             fs::create_directories(j.folder, ec);
             if (ec) return fmt::format("can't make {}: {}", j.folder.string(), ec.message());
             return std::nullopt;
         }},
        {"Writing window snapshots…",
         [&]() -> StepError {
             for (auto [name, text] : {std::pair{"cg-windows.json", &j.snapshot.cgWindowsData},
                                       std::pair{"ax-windows.json", &j.snapshot.axWindowsData},
                                       std::pair{"cross-space-windows.json", &j.snapshot.crossSpaceData}})
                 if (auto e = writeFile(j.folder / name, *text)) return e;
             return std::nullopt;
         }},
        {"Writing apps and assignments…",
         [&]() -> StepError {
             for (auto [name, text] : {std::pair{"apps.txt", &j.snapshot.appsText},
                                       std::pair{"assignments.txt", &j.snapshot.assignmentsText},
                                       std::pair{"tap-health.txt", &j.snapshot.tapHealthText}})
                 if (auto e = writeFile(j.folder / name, *text)) return e;
             return std::nullopt;
         }},
        {"Copying config and search cache…",
         [&]() -> StepError {
             if (auto e = copyIfPresent(options_.configFile, j.folder / "config.yaml")) return e;
             return copyIfPresent(options_.searchCacheFile, j.folder / "search-cache.yaml");
         }},
        {fmt::format("Capturing live logs… {}", static_cast<int>(std::ceil(j.liveSeconds))),
         [&]() -> StepError {
             startCountdown(j.liveSeconds);
             auto e = runProcess(processes_, liveLogRequest(j.liveSeconds), j.folder / "oslog-live-30s.log",
                                 /*endsByTimeout=*/true);
             stopCountdown();
             return e;
         }},
        {"Reading 24h of logs…",
         [&]() -> StepError {
             return runProcess(processes_, historyLogRequest(), j.folder / "oslog-historic-24h.log");
         }},
        {"",
         [&]() -> StepError {
             if (auto e = runProcess(processes_, zipRequest(j.folder))) return e;
             std::error_code ec;
             fs::remove_all(j.folder, ec);
             return std::nullopt;
         }},
    };
    DebugDumpOutcome outcome;
    outcome.folder = j.folder.string();
    for (const auto& [phase, step] : steps) {
        if (!phase.empty()) setPhase(phase);
        if (cancel_) return;
        if (auto error = step()) {
            outcome.error = *error;
            Log::error("Debug dump failed: {}", *error);
            finish(std::move(outcome));
            return;
        }
    }
    outcome.ok = true;
    outcome.archive = j.folder.string() + ".zip";
    processes_.run(revealRequest(outcome.archive));  // a desktop without a file viewer just skips it
    Log::info("debug dump: wrote {}", outcome.archive);
    finish(std::move(outcome));
}

// Progress belongs to the main thread: from the worker, changes travel there.
void DebugDump::setPhase(std::string phase) {
    auto apply = [this, phase = std::move(phase)] {
        progress_.phase = phase;
        progress_.changed.emit();
    };
    if (!offThread_) {
        apply();
        return;
    }
    ferrow::MainQueue::shared().async([alive = std::weak_ptr<bool>(alive_), apply] {
        if (auto a = alive.lock(); a && *a) apply();
    });
}

void DebugDump::finish(DebugDumpOutcome outcome) {
    {
        std::lock_guard lock(mutex_);
        outcome_ = std::move(outcome);
    }
    auto apply = [this] {
        progress_.isRunning = false;
        progress_.phase.clear();
        progress_.changed.emit();
    };
    if (!offThread_) {
        apply();
        return;
    }
    ferrow::MainQueue::shared().async([alive = std::weak_ptr<bool>(alive_), apply] {
        if (auto a = alive.lock(); a && *a) apply();
    });
}

// The capture's phase counts its seconds down, once a second, on the main thread.
void DebugDump::startCountdown(double seconds) {
    auto begin = [this, seconds] {
        int left = static_cast<int>(std::ceil(seconds));
        if (left <= 0) return;
        auto remaining = std::make_shared<int>(left);
        countdown_ = std::make_unique<ferrow::Repeater>(
            "debug dump countdown", ferrow::ms(1000), left, [this, remaining] {
                if (*remaining > 0) --*remaining;
                progress_.phase = fmt::format("Capturing live logs… {}", *remaining);
                progress_.changed.emit();
            });
    };
    if (!offThread_) {
        begin();
        return;
    }
    ferrow::MainQueue::shared().async([alive = std::weak_ptr<bool>(alive_), begin] {
        if (auto a = alive.lock(); a && *a) begin();
    });
}

void DebugDump::stopCountdown() {
    auto end = [this] { countdown_.reset(); };
    if (!offThread_) {
        end();
        return;
    }
    ferrow::MainQueue::shared().async([alive = std::weak_ptr<bool>(alive_), end] {
        if (auto a = alive.lock(); a && *a) end();
    });
}

}  // namespace zelk::diagnostics
