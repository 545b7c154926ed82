#pragma once
#include <gtest/gtest.h>

#include "platform/Platform.h"
#include "platform/sim/SimDesktop.h"
#include "platform/sim/WorldFile.h"
#include "support/MainQueue.h"

namespace zelk::testing {

// A fresh virtual clock and simulated desktop per test, loaded from YAML.
struct SimFixture : ::testing::Test {
    std::shared_ptr<ferrow::VirtualClock> clock = std::make_shared<ferrow::VirtualClock>();
    ferrow::MainQueue* queue = &ferrow::MainQueue::install(clock);
    sim::SimDesktop desktop;
    sim::WorldExtras extras;
    ferrow::Nanos t0 = clock->now();

    void load(const std::string& yaml) {
        std::string error;
        ASSERT_TRUE(sim::loadWorldText(yaml, desktop, extras, error)) << error;
        platform::Platform::install(desktop.platform());
    }
    void loadDefault() { load(sim::defaultWorldYaml()); }
    void runFor(std::int64_t milliseconds) { queue->runUntil(queue->now() + ferrow::ms(milliseconds)); }
    std::int64_t elapsedMs() const { return (clock->now() - t0) / ferrow::kNanosPerMs; }
    sim::SimWorld& world() { return desktop.world(); }
    std::int32_t pidOf(const std::string& bundle) { return world().app(bundle)->pid; }

    void TearDown() override {
        platform::Platform::reset();
        ferrow::MainQueue::reset();
    }
};

}  // namespace zelk::testing
