#include "spaces/DockSwipe.h"

#include <bit>

#include "spaces/GestureRecord.h"
#include "support/Log.h"
#include "support/MainQueue.h"

namespace zelk::spaces {

using platform::GestureEvent;

namespace {
std::int64_t intField(const GestureEvent& e, int f) {
    auto it = e.integers.find(f);
    return it == e.integers.end() ? 0 : it->second;
}
double doubleField(const GestureEvent& e, int f) {
    auto it = e.doubles.find(f);
    return it == e.doubles.end() ? 0 : it->second;
}
}  // namespace

bool DockSwipe::post(GestureEvent event, std::optional<Point> location) {
    if (location) event.location = location;
    return server_.postGestureEvent(event);
}

bool DockSwipe::postDockSwipeCompact(SwipeDirection direction, int steps, std::optional<Point> location) {
    if (steps < 1) return steps == 0;
    double d = direction == SwipeDirection::right ? 1.0 : -1.0;
    GestureEvent e;
    e.integers = {{55, 30}, {110, 23}, {123, 1}};
    e.doubles = {{124, d}, {129, d * 9999}};
    for (int i = 0; i < steps; ++i) {
        e.integers[132] = 1;
        if (!post(e, location)) return false;
        e.integers[132] = 4;
        if (!post(e, location)) return false;
    }
    return true;
}

bool DockSwipe::postDockSwipeOverlay(SwipeDirection direction, std::optional<Point> location) {
    double s = direction == SwipeDirection::right ? 1.0 : -1.0;
    double v = 200 * s;
    std::int64_t code = direction == SwipeDirection::right ? 1 : 4;
    double constant = std::bit_cast<double>(std::uint64_t{0x36A0000000000000ULL});
    GestureEvent plain;
    plain.integers = {{55, 29}};
    auto swipe = [&](std::int64_t phase) {
        GestureEvent e;
        e.integers = {{55, 30}, {110, 23}, {132, phase}, {135, code}, {123, 1}};
        e.doubles = {{119, 0.0}, {139, constant}};
        return e;
    };
    if (!post(plain, location) || !post(swipe(1), location)) return false;
    for (double p : {0.25, 0.5, 0.75}) {
        GestureEvent e = swipe(2);
        e.doubles[124] = s * p;
        e.doubles[129] = v;
        e.doubles[130] = 0.0;
        if (!post(e, location)) return false;
    }
    GestureEvent end = swipe(4);
    end.doubles[124] = 1.05 * s;
    end.doubles[129] = v;
    end.doubles[130] = 0.0;
    return post(plain, location) && post(end, location);
}

std::optional<GestureEvent> DockSwipe::serializeGestureEvent(const GestureEvent& event) {
    auto data = server_.eventData(event);
    GestureFields f;
    f.phase = intField(event, 132);
    f.motion = intField(event, 123);
    f.progress = doubleField(event, 124);
    f.progressCopy = doubleField(event, 125);
    f.field126 = doubleField(event, 126);
    f.velocity = doubleField(event, 129);
    f.velocityAcross = doubleField(event, 130);
    f.field115 = intField(event, 115);
    f.timestamp = ferrow::MainQueue::shared().clock().machAbsolute();
    auto rewritten = rewriteGestureData(data, f);
    if (!rewritten) return std::nullopt;
    return server_.eventFromData(*rewritten);
}

bool DockSwipe::postDockSwipe27(SwipeDirection direction, int steps, std::optional<Point> location) {
    if (steps < 1) return steps == 0;
    double s = direction == SwipeDirection::right ? -1.0 : 1.0;  // the opposite of the other forms
    auto& clock = ferrow::MainQueue::shared().clock();
    for (int i = 0; i < steps; ++i) {
        GestureEvent begin;
        begin.integers = {{55, 30}, {110, 23}, {132, 1}, {134, 1}, {123, 1}, {115, 4}};
        begin.doubles = {{124, 0.02 * s},
                         {125, 0.02 * s},
                         {126, 0.001},
                         {138, 3.0},
                         {169, static_cast<double>(clock.machAbsolute())}};
        if (location) begin.location = location;
        auto first = serializeGestureEvent(begin);
        if (!first) {
            ferrow::Log::error("postDockSwipe27: serializeGestureEvent failed (phase=1)");
            return false;
        }
        server_.postGestureEvent(*first);
        GestureEvent end;
        end.integers = {{55, 30}, {110, 23}, {132, 4}, {134, 4}, {123, 1}, {115, 0}};
        end.doubles = {{124, 0.001 * s},
                       {125, 0.001 * s},
                       {126, 0.001},
                       {129, 1000 * s},
                       {130, 1000 * s},
                       {138, 3.0},
                       {169, static_cast<double>(clock.machAbsolute())}};
        if (location) end.location = location;
        auto second = serializeGestureEvent(end);
        if (!second) {
            ferrow::Log::error("postDockSwipe27: serializeGestureEvent failed (phase=4)");
            return false;
        }
        server_.postGestureEvent(*second);
        // The Dock needs the pair to settle before the next step.
        if (i + 1 < steps) clock.block(ferrow::ms(20));
    }
    return true;
}

}  // namespace zelk::spaces
