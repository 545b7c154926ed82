#include "input/TriggerKey.h"

#include <array>

namespace zelk {
namespace {
struct Info {
    std::string_view name, readable, shortText, direction;
};
constexpr std::array<Info, kTriggerKeyCount> kInfo{{
    {"lshift", "Left Shift", "L⇧", "left"},
    {"lctrl", "Left Control", "L⌃", "left"},
    {"lalt", "Left Option", "L⌥", "left"},
    {"lcmd", "Left Command", "L⌘", "left"},
    {"rightCommand", "Right Command", "R⌘", "right"},
    {"ralt", "Right Option", "R⌥", "right"},
    {"rctrl", "Right Control", "R⌃", "right"},
    {"rshift", "Right Shift", "R⇧", "right"},
    {"cmd", "Command", "⌘", ""},
    {"alt", "Option", "⌥", ""},
    {"ctrl", "Control", "⌃", ""},
    {"shift", "Shift", "⇧", ""},
    {"fn", "Function", "fn", ""},
    {"capsLock", "Caps Lock", "⇪", ""},
}};
const Info& info(TriggerKey k) {
    return kInfo[static_cast<std::size_t>(k)];
}
}  // namespace

std::string_view triggerKeyName(TriggerKey key) {
    return info(key).name;
}

std::optional<TriggerKey> triggerKeyFromName(std::string_view name) {
    for (int i = 0; i < kTriggerKeyCount; ++i)
        if (kInfo[static_cast<std::size_t>(i)].name == name) return static_cast<TriggerKey>(i);
    return std::nullopt;
}

std::optional<TriggerKey> triggerKeyFromRaw(int raw) {
    if (raw < 0 || raw >= kTriggerKeyCount) return std::nullopt;
    return static_cast<TriggerKey>(raw);
}

std::string_view readableStr(TriggerKey key) {
    return info(key).readable;
}
std::string_view shortReadableStr(TriggerKey key) {
    return info(key).shortText;
}
std::string_view directionalStr(TriggerKey key) {
    return info(key).direction;
}

}  // namespace zelk
