#pragma once
#include <functional>
#include <optional>

#include "platform/Workspace.h"
#include "support/MainQueue.h"
#include "windows/AXReader.h"
#include "windows/KeyWindowRoute.h"

namespace zelk::windows {

// Repeats the direct route every 50 ms, up to 20 ticks, until the target Space is shown and the target
// app has been frontmost on 3 ticks in a row; then finalises once more. Only one runs: a start cancels
// the previous loop, and a cancelled loop never finalises.
class ReassertLoop {
  public:
    static constexpr ferrow::Nanos kTick = 50 * ferrow::kNanosPerMs;
    static constexpr int kMaxTicks = 20;
    static constexpr int kWinsToLock = 3;

    ReassertLoop(platform::WindowServer& server, platform::Workspace& workspace, AXReader& ax,
                 KeyWindowRoute& route)
        : server_(server), workspace_(workspace), ax_(ax), route_(route) {}
    ~ReassertLoop() { cancel(); }

    void start(std::int32_t pid, std::uint32_t windowID, std::optional<std::uint64_t> targetSpace);
    void cancel();
    bool isRunning() const { return next_.isPending(); }
    // The reason of the last finalise ("locked in after 150ms", ...), for tests and the trace.
    const std::string& lastReason() const { return lastReason_; }

  private:
    struct State {
        std::int32_t pid = 0;
        std::uint32_t windowID = 0;
        std::optional<std::uint64_t> target;
        int tick = 0;
        int wins = 0;
        bool sawSwitch = false;
        std::uint64_t generation = 0;
    };
    void tick();
    void finalise(const std::string& reason);
    bool raise(std::int32_t pid, std::uint32_t windowID, bool setMain, platform::AXError* error);

    platform::WindowServer& server_;
    platform::Workspace& workspace_;
    AXReader& ax_;
    KeyWindowRoute& route_;
    State state_;
    ferrow::WorkItem next_;
    std::uint64_t generation_ = 0;
    std::string lastReason_;
};

}  // namespace zelk::windows
