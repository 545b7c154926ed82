#pragma once
#include <atomic>
#include <cstdint>

namespace ferrow {

// Durations and instants are integer nanoseconds, so that boundaries such as "at most 0.1 s" compare exactly.
using Nanos = std::int64_t;
constexpr Nanos kNanosPerMs = 1'000'000;
constexpr Nanos kNanosPerSecond = 1'000'000'000;
constexpr Nanos ms(std::int64_t n) {
    return n * kNanosPerMs;
}
constexpr Nanos seconds(double s) {
    return static_cast<Nanos>(s * 1e9 + (s >= 0 ? 0.5 : -0.5));
}
constexpr double toSeconds(Nanos n) {
    return static_cast<double>(n) / 1e9;
}

// A virtual uptime starts here, as a real machine's does, so fields that use 0 for "never" behave.
constexpr Nanos kVirtualUptimeBase = 10'000 * kNanosPerSecond;
// The wall date a virtual run starts at: 2026-01-05 09:00:00 UTC.
constexpr double kVirtualWallBase = 1767603600.0;

class Clock {
  public:
    virtual ~Clock() = default;
    // Monotonic uptime.
    virtual Nanos now() const = 0;
    // Seconds since 1970.
    virtual double wallSeconds() const = 0;
    // The machine-absolute time that event records carry (nanosecond ticks since boot).
    virtual std::uint64_t machAbsolute() const { return static_cast<std::uint64_t>(now()); }
    double uptimeSeconds() const { return toSeconds(now()); }
    // Time that passes while the calling thread is blocked (e.g. inside a platform call that times
    // out). On the real clock this really waits; on the virtual one it moves time and nothing else runs.
    virtual void block(Nanos duration) = 0;
    virtual bool isVirtual() const = 0;
};

class RealClock final : public Clock {
  public:
    Nanos now() const override;
    double wallSeconds() const override;
    void block(Nanos duration) override;
    bool isVirtual() const override { return false; }
};

class VirtualClock final : public Clock {
  public:
    explicit VirtualClock(Nanos start = kVirtualUptimeBase, double wallAtStart = kVirtualWallBase)
        : start_(start), now_(start), wallAtStart_(wallAtStart) {}
    Nanos now() const override { return now_.load(std::memory_order_acquire); }
    double wallSeconds() const override { return wallAtStart_ + toSeconds(now() - start_); }
    void block(Nanos duration) override { advanceBy(duration); }
    bool isVirtual() const override { return true; }
    // Never moves backwards.
    void advanceTo(Nanos t);
    void advanceBy(Nanos d) { advanceTo(now() + d); }
    Nanos start() const { return start_; }

  private:
    Nanos start_;
    std::atomic<Nanos> now_;
    double wallAtStart_;
};

}  // namespace ferrow
