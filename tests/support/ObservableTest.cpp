// Subscriptions change while callbacks run (a panel closing unsubscribes its neighbours), and
// subscriptions outlive what they watch (a manager reset under a live window): both must be safe.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/Observable.h"

using namespace ferrow;

TEST(Signal, CallbacksMayUnsubscribeOthersOrSubscribeNewOnesMidEmit) {
    Signal<int> signal;
    std::vector<std::string> calls;
    Subscription second, late;
    Subscription first = signal.subscribe([&](int v) {
        calls.push_back("first " + std::to_string(v));
        second.cancel();  // removed before its turn: not called in this emit
        late = signal.subscribe([&](int w) { calls.push_back("late " + std::to_string(w)); });
    });
    second = signal.subscribe([&](int v) { calls.push_back("second " + std::to_string(v)); });
    signal.emit(1);
    EXPECT_EQ(calls, (std::vector<std::string>{"first 1"}));
    EXPECT_EQ(signal.subscriberCount(), 2u);

    calls.clear();
    first.cancel();
    signal.emit(2);
    EXPECT_EQ(calls, (std::vector<std::string>{"late 2"}));
}

TEST(Signal, SubscriptionsEndOnceWhetherCancelledMovedOrOutlivingTheSignal) {
    auto signal = std::make_unique<Signal<>>();
    int count = 0;
    Subscription a = signal->subscribe([&] { ++count; });
    Subscription b = std::move(a);
    EXPECT_FALSE(a);
    EXPECT_TRUE(b);
    signal->emit();
    EXPECT_EQ(count, 1);

    // Assigning over a live subscription ends the old one.
    b = signal->subscribe([&] { count += 10; });
    signal->emit();
    EXPECT_EQ(count, 11);
    EXPECT_EQ(signal->subscriberCount(), 1u);

    signal.reset();
    b.cancel();  // the signal is gone: nothing to remove, nothing to crash
    b.cancel();
    EXPECT_FALSE(b);
}

TEST(Observable, NotifiesOnlyRealChangesWithTheNewValue) {
    Observable<std::string> name("Mail");
    std::vector<std::string> seen;
    auto sub = name.subscribe([&](const std::string& v) { seen.push_back(v + "/" + name.get()); });
    const std::string notes = "Notes";
    name.set("Mail");
    name = notes;
    name = notes;
    name.set("Mail");
    EXPECT_EQ(seen, (std::vector<std::string>{"Notes/Notes", "Mail/Mail"}));
    sub.cancel();
    name.set("Safari");
    EXPECT_EQ(seen.size(), 2u);
    EXPECT_EQ(static_cast<const std::string&>(name), "Safari");
}
