#include "support/Clock.h"

#include <chrono>
#include <thread>

namespace ferrow {

Nanos RealClock::now() const {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

double RealClock::wallSeconds() const {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

void RealClock::block(Nanos duration) {
    if (duration > 0) std::this_thread::sleep_for(std::chrono::nanoseconds(duration));
}

void VirtualClock::advanceTo(Nanos t) {
    Nanos cur = now_.load(std::memory_order_acquire);
    while (t > cur && !now_.compare_exchange_weak(cur, t, std::memory_order_acq_rel)) {
    }
}

}  // namespace ferrow
