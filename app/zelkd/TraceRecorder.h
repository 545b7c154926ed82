#pragma once
#include <nlohmann/json.hpp>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "platform/sim/SimDesktop.h"
#include "support/Clock.h"
#include "support/Log.h"
#include "support/Observable.h"

namespace zelk::agent {

// Writes what happened on the simulated desktop, whoever caused it, as trace events: JSON lines
// ({"t": ms, "kind": ...}) and/or one readable line per event.
class TraceRecorder {
  public:
    TraceRecorder(sim::SimDesktop& desktop, ferrow::Nanos start);
    ~TraceRecorder();
    TraceRecorder(const TraceRecorder&) = delete;
    TraceRecorder& operator=(const TraceRecorder&) = delete;

    void setJsonOutput(std::ostream* out) { json_ = out; }
    void setTextOutput(std::ostream* out) { text_ = out; }
    // Log lines at or above this level go to the trace (all of them by default).
    void setMinimumLogLevel(ferrow::LogLevel level) { minimumLog_ = level; }
    // Keep events in memory as well (tests).
    void setKeep(bool keep) { keep_ = keep; }
    const std::vector<nlohmann::json>& events() const { return kept_; }

    // Events the program itself reports (command replies, panels).
    void record(nlohmann::json event);
    // A command's reply, its fields kept in the protocol's order.
    void recordReply(const nlohmann::ordered_json& response);
    double elapsedMs() const;

  private:
    void onChange(const sim::WorldChange& change);
    void onKey(const sim::SimEventTap::Seen& seen);
    std::string describe(const nlohmann::json& event) const;
    std::string appName(const std::string& bundleID) const;
    std::string spaceLabel(std::uint64_t space) const;

    sim::SimDesktop& desktop_;
    ferrow::Nanos start_;
    std::ostream* json_ = nullptr;
    std::ostream* text_ = nullptr;
    bool keep_ = false;
    ferrow::LogLevel minimumLog_ = ferrow::LogLevel::debug;
    std::vector<nlohmann::json> kept_;
    // What happened while the tap callback ran comes after the key event it answered.
    std::vector<nlohmann::json> heldBack_;
    void write(nlohmann::json line);
    ferrow::Subscription worldSub_, keySub_;
    int logToken_ = 0;
};

// "00:02.100" for 2100 ms; hours are added past an hour.
std::string formatTraceTime(double ms);

}  // namespace zelk::agent
