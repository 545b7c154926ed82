#include "support/Log.h"

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <map>
#include <mutex>

namespace ferrow {

const char* logLevelName(LogLevel level) {
    switch (level) {
        case LogLevel::debug:
            return "debug";
        case LogLevel::info:
            return "info";
        case LogLevel::error:
            return "error";
        case LogLevel::fault:
            return "fault";
    }
    return "info";
}

namespace {
struct LogState {
    std::mutex mutex;
    bool console = true;
    LogLevel consoleMinimum = LogLevel::info;
    std::shared_ptr<spdlog::logger> consoleLogger;
    std::shared_ptr<spdlog::logger> fileLogger;
    std::map<int, LogSink> sinks;
    int nextToken = 1;
};
LogState& state() {
    static LogState s;
    return s;
}
spdlog::level::level_enum toSpd(LogLevel level) {
    switch (level) {
        case LogLevel::debug:
            return spdlog::level::debug;
        case LogLevel::info:
            return spdlog::level::info;
        case LogLevel::error:
            return spdlog::level::err;
        case LogLevel::fault:
            return spdlog::level::critical;
    }
    return spdlog::level::info;
}
std::shared_ptr<spdlog::logger> makeConsole() {
    auto sink = std::make_shared<spdlog::sinks::stderr_sink_mt>();
    auto logger = std::make_shared<spdlog::logger>(Log::kSubsystem, sink);
    logger->set_pattern("%H:%M:%S.%e %^%l%$ %v");
    logger->set_level(spdlog::level::trace);
    return logger;
}
}  // namespace

bool Log::enabled(LogLevel level) {
    auto& s = state();
    std::lock_guard lock(s.mutex);
    if (!s.sinks.empty() || s.fileLogger) return true;
    return s.console && level >= s.consoleMinimum;
}

void Log::write(LogLevel level, std::string message) {
    auto& s = state();
    std::vector<LogSink> sinks;
    {
        std::lock_guard lock(s.mutex);
        if (s.console && level >= s.consoleMinimum) {
            if (!s.consoleLogger) s.consoleLogger = makeConsole();
            s.consoleLogger->log(toSpd(level), message);
        }
        if (s.fileLogger) s.fileLogger->log(toSpd(level), message);
        sinks.reserve(s.sinks.size());
        for (auto& [_, sink] : s.sinks)
            sinks.push_back(sink);
    }
    for (auto& sink : sinks)
        sink(level, message);
}

void Log::setConsole(bool on, LogLevel minimum) {
    auto& s = state();
    std::lock_guard lock(s.mutex);
    s.console = on;
    s.consoleMinimum = minimum;
}

bool Log::setFile(const std::string& path) {
    auto& s = state();
    std::lock_guard lock(s.mutex);
    if (path.empty()) {
        s.fileLogger.reset();
        return true;
    }
    try {
        auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(path);
        s.fileLogger = std::make_shared<spdlog::logger>(kSubsystem, sink);
        s.fileLogger->set_pattern("%Y-%m-%d %H:%M:%S.%e [%n] %l %v");
        s.fileLogger->set_level(spdlog::level::trace);
        s.fileLogger->flush_on(spdlog::level::info);
        return true;
    } catch (const spdlog::spdlog_ex&) {
        s.fileLogger.reset();
        return false;
    }
}

int Log::addSink(LogSink sink) {
    auto& s = state();
    std::lock_guard lock(s.mutex);
    int token = s.nextToken++;
    s.sinks.emplace(token, std::move(sink));
    return token;
}

void Log::removeSink(int token) {
    auto& s = state();
    std::lock_guard lock(s.mutex);
    s.sinks.erase(token);
}

void Log::reset() {
    auto& s = state();
    std::lock_guard lock(s.mutex);
    s.console = true;
    s.consoleMinimum = LogLevel::info;
    s.fileLogger.reset();
    s.sinks.clear();
}

LogCapture::LogCapture() {
    token_ = Log::addSink([this](LogLevel level, std::string_view message) {
        lines_.push_back(Line{level, std::string(message)});
    });
}
LogCapture::~LogCapture() {
    Log::removeSink(token_);
}

bool LogCapture::contains(std::string_view message) const {
    return count(message) > 0;
}

bool LogCapture::containsSubstring(std::string_view part) const {
    return std::any_of(lines_.begin(), lines_.end(),
                       [&](const Line& l) { return l.message.find(part) != std::string::npos; });
}

std::size_t LogCapture::count(std::string_view message) const {
    return static_cast<std::size_t>(
        std::count_if(lines_.begin(), lines_.end(), [&](const Line& l) { return l.message == message; }));
}

}  // namespace ferrow
