#pragma once
#include <fmt/format.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace ferrow {

enum class LogLevel { debug, info, error, fault };
const char* logLevelName(LogLevel level);

// Receives every log line as written (tests and the replay trace read these).
using LogSink = std::function<void(LogLevel, std::string_view message)>;

// Logging under the subsystem "com.ferrowlabs.zelk": one format string per event, the operation's
// name first. Lines go to stderr (unless quiet), an optional file, and every registered sink.
class Log {
  public:
    static constexpr const char* kSubsystem = "com.ferrowlabs.zelk";

    static void write(LogLevel level, std::string message);

    template <typename... Args>
    static void debug(fmt::format_string<Args...> f, Args&&... args) {
        if (enabled(LogLevel::debug)) write(LogLevel::debug, fmt::format(f, std::forward<Args>(args)...));
    }
    template <typename... Args>
    static void info(fmt::format_string<Args...> f, Args&&... args) {
        write(LogLevel::info, fmt::format(f, std::forward<Args>(args)...));
    }
    template <typename... Args>
    static void error(fmt::format_string<Args...> f, Args&&... args) {
        write(LogLevel::error, fmt::format(f, std::forward<Args>(args)...));
    }
    template <typename... Args>
    static void fault(fmt::format_string<Args...> f, Args&&... args) {
        write(LogLevel::fault, fmt::format(f, std::forward<Args>(args)...));
    }

    // Debug lines are formatted only while someone listens for them.
    static bool enabled(LogLevel level);

    // Console output: off for tests and the replay bench.
    static void setConsole(bool on, LogLevel minimum = LogLevel::info);
    // Also writes every line to `path` (an empty path stops that); false when the file can't be opened.
    static bool setFile(const std::string& path);
    static int addSink(LogSink sink);
    static void removeSink(int token);
    // Back to defaults: console at info, no file, no sinks.
    static void reset();
};

// Keeps every line while alive; for tests.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    struct Line {
        LogLevel level;
        std::string message;
    };
    const std::vector<Line>& lines() const { return lines_; }
    bool contains(std::string_view message) const;
    bool containsSubstring(std::string_view part) const;
    std::size_t count(std::string_view message) const;
    void clear() { lines_.clear(); }

  private:
    int token_;
    std::vector<Line> lines_;
};

}  // namespace ferrow
