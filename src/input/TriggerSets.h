#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "input/TriggerKey.h"

namespace zelk {

using TriggerList = std::vector<TriggerKey>;

// The modifiers an event's flags hold, in the fixed order lshift, lctrl, lalt, lcmd, rightCommand,
// ralt, rctrl, rshift, fn. Device bits decide; a generic bit alone counts as the left key.
TriggerList triggersFromEventFlags(std::uint64_t flags);
// Set equality: order and duplicates don't count.
bool sameSet(const TriggerList& a, const TriggerList& b);
bool contains(const TriggerList& list, TriggerKey key);
TriggerList without(const TriggerList& list, TriggerKey key);
TriggerList withoutShifts(const TriggerList& list);
TriggerList plus(const TriggerList& list, TriggerKey key);
// Short names joined with `separator` ("R⌘+⇧").
std::string describeTriggers(const TriggerList& list, const char* separator = "+");
bool isCommandOrShift(TriggerKey key);

// The modifier that, added to the application trigger, arms the selection actions; none when the
// trigger set is empty or holds keys of both hands.
std::optional<TriggerKey> selectionActionModifier(const TriggerList& triggerKeys);
bool matchesActionCombo(const TriggerList& keys, const TriggerList& triggerKeys);

}  // namespace zelk
