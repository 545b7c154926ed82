#include "input/TriggerSets.h"

#include <algorithm>
#include <set>

#include "platform/EventTap.h"
#include "support/Format.h"

namespace zelk {

namespace flag = platform::flag;

TriggerList triggersFromEventFlags(std::uint64_t f) {
    TriggerList out;
    out.reserve(4);
    if ((f & flag::lshift) || ((f & flag::shift) && !(f & flag::rshift))) out.push_back(TriggerKey::lshift);
    if ((f & flag::lctrl) || ((f & flag::control) && !(f & flag::rctrl))) out.push_back(TriggerKey::lctrl);
    if ((f & flag::lalt) || ((f & flag::option) && !(f & flag::ralt))) out.push_back(TriggerKey::lalt);
    if ((f & flag::lcmd) || ((f & flag::command) && !(f & flag::rcmd))) out.push_back(TriggerKey::lcmd);
    if (f & flag::rcmd) out.push_back(TriggerKey::rightCommand);
    if (f & flag::ralt) out.push_back(TriggerKey::ralt);
    if (f & flag::rctrl) out.push_back(TriggerKey::rctrl);
    if (f & flag::rshift) out.push_back(TriggerKey::rshift);
    if (f & flag::fn) out.push_back(TriggerKey::fn);
    return out;
}

bool sameSet(const TriggerList& a, const TriggerList& b) {
    // Small lists: a bit mask over the raw values is exact and cheap.
    auto mask = [](const TriggerList& l) {
        std::uint32_t m = 0;
        for (auto k : l)
            m |= 1u << static_cast<int>(k);
        return m;
    };
    return mask(a) == mask(b);
}

bool contains(const TriggerList& list, TriggerKey key) {
    return std::find(list.begin(), list.end(), key) != list.end();
}

TriggerList without(const TriggerList& list, TriggerKey key) {
    TriggerList out;
    for (auto k : list)
        if (k != key) out.push_back(k);
    return out;
}

TriggerList withoutShifts(const TriggerList& list) {
    TriggerList out;
    for (auto k : list)
        if (k != TriggerKey::lshift && k != TriggerKey::rshift) out.push_back(k);
    return out;
}

TriggerList plus(const TriggerList& list, TriggerKey key) {
    TriggerList out = list;
    out.push_back(key);
    return out;
}

std::string describeTriggers(const TriggerList& list, const char* separator) {
    std::vector<std::string> names;
    for (auto k : list)
        names.emplace_back(shortReadableStr(k));
    return ferrow::join(names, separator);
}

bool isCommandOrShift(TriggerKey key) {
    return key == TriggerKey::lcmd || key == TriggerKey::rightCommand || key == TriggerKey::lshift ||
           key == TriggerKey::rshift;
}

std::optional<TriggerKey> selectionActionModifier(const TriggerList& t) {
    if (t.empty()) return std::nullopt;
    bool left = false, right = false;
    for (auto k : t) {
        if (k == TriggerKey::lshift || k == TriggerKey::lctrl || k == TriggerKey::lalt ||
            k == TriggerKey::lcmd)
            left = true;
        if (k == TriggerKey::rightCommand || k == TriggerKey::ralt || k == TriggerKey::rctrl ||
            k == TriggerKey::rshift)
            right = true;
    }
    if (left && right) return std::nullopt;
    if (contains(t, TriggerKey::lcmd)) return right ? std::nullopt : std::optional(TriggerKey::rightCommand);
    if (contains(t, TriggerKey::rightCommand)) return left ? std::nullopt : std::optional(TriggerKey::lcmd);
    return left ? TriggerKey::rightCommand : TriggerKey::lcmd;
}

bool matchesActionCombo(const TriggerList& keys, const TriggerList& triggerKeys) {
    auto mod = selectionActionModifier(triggerKeys);
    return mod && sameSet(keys, plus(triggerKeys, *mod));
}

}  // namespace zelk
