#pragma once
#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/Key.h"

namespace zelk::x11 {

// A modifier key as the logic knows it: its key code, its sided flag bit and its generic flag bit.
struct ModifierKey {
    std::uint16_t keyCode = 0;
    std::uint64_t deviceBit = 0;
    std::uint64_t genericBit = 0;
};

// The key a keysym names, layout-independent: Command is Super, Option is Alt (AltGr is the right
// Option), Control and Shift are themselves, Caps Lock is itself.
std::optional<Key> keyForKeysym(std::uint32_t keysym);
std::optional<ModifierKey> modifierForKeysym(std::uint32_t keysym);
// The keysym that types a key on its own (the inverse of keyForKeysym for the first match).
std::optional<std::uint32_t> keysymForKey(Key key);

// What each X key code of the current layout means to the logic. Events carry the logic's key codes:
// the QWERTY code of the Key the layout types there, or the modifier's own code.
class KeyMap {
  public:
    // keysyms[k] is the unshifted keysym of X key code k (0 when none).
    explicit KeyMap(const std::vector<std::uint32_t>& keysyms);
    std::optional<std::uint16_t> logicalCode(std::uint8_t xKeyCode) const;
    std::optional<ModifierKey> modifier(std::uint8_t xKeyCode) const;
    // The X key code that types the Key, if the layout has one.
    std::optional<std::uint8_t> xKeyCode(Key key) const;
    // Every X key code that types a Key (what the passive grabs cover).
    std::vector<std::uint8_t> typingKeyCodes() const;
    // The X key code for a logical key code (for posting keys).
    std::optional<std::uint8_t> xKeyCodeForLogical(std::uint16_t code) const;

  private:
    std::array<std::optional<Key>, 256> keys_{};
    std::array<std::optional<ModifierKey>, 256> modifiers_{};
};

}  // namespace zelk::x11
