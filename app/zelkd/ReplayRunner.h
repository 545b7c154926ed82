#pragma once
#include <nlohmann/json.hpp>

#include <functional>
#include <ostream>
#include <string>

#include "ReplayScript.h"
#include "platform/sim/WorldFile.h"
#include "support/Observable.h"

namespace zelk::agent {

class Agent;
class TraceRecorder;

// Writes each change of the panel's model to the trace as a `panel` event.
ferrow::Subscription recordPanel(Agent& agent, TraceRecorder& trace);
// Writes each render of the Spaces strip as a `spaces` event, and each change of the launch pills as
// a `pills` event.
ferrow::Subscription recordSpacesIndicator(Agent& agent, TraceRecorder& trace);
ferrow::Subscription recordLaunchPills(Agent& agent, TraceRecorder& trace);

struct ReplayOptions {
    std::ostream* jsonTrace = nullptr;  // JSON lines
    std::ostream* textTrace = nullptr;  // one readable line per event
    bool textShowsDebugLogs = false;
    std::string framesDir;  // non-empty: a PNG per panel change and an index.html here
    // Called with the simulated desktop when the run ends, before it goes away (tests look at it).
    std::function<void(sim::SimDesktop&)> atEnd;
};

// A whole run of the agent on the simulated desktop and a virtual clock: the world is put in place,
// the program starts at time 0, the script's events apply at their times (all work due at or before
// an event runs first), and the run stops at the script's end. Returns 0, or 2 with `error` set for a
// world or script that can't be read.
class ReplayRunner {
  public:
    int run(const std::string& worldYaml, const std::string& scriptYaml, const ReplayOptions& options,
            std::string& error);
};

}  // namespace zelk::agent
