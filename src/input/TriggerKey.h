#pragma once
#include <optional>
#include <string_view>
#include <vector>

namespace zelk {

// One modifier key. Raw values are stable (settings store them); 14 stands for "no key" wherever a
// trigger key is optional. Events only produce the sided cases, fn and capsLock; the side-free cases
// serve display and configuration.
enum class TriggerKey : int {
    lshift = 0,
    lctrl = 1,
    lalt = 2,
    lcmd = 3,
    rightCommand = 4,
    ralt = 5,
    rctrl = 6,
    rshift = 7,
    cmd = 8,
    alt = 9,
    ctrl = 10,
    shift = 11,
    fn = 12,
    capsLock = 13,
};
constexpr int kTriggerKeyNone = 14;
constexpr int kTriggerKeyCount = 14;

std::string_view triggerKeyName(TriggerKey key);  // the case name, "rightCommand"
std::optional<TriggerKey> triggerKeyFromName(std::string_view name);
std::optional<TriggerKey> triggerKeyFromRaw(int raw);
// Texts for the user: "Right Command", "R⌘", "right".
std::string_view readableStr(TriggerKey key);
std::string_view shortReadableStr(TriggerKey key);
std::string_view directionalStr(TriggerKey key);

}  // namespace zelk
