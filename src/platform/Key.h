#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zelk {

// The keyboard's keys independent of layout: 109 cases, with Key::none (109) for "no key".
// Settings store a Key by its name.
enum class Key : std::uint8_t {
    // clang-format off
    a, b, c, d, e, f, g, h, i, j, k, l, m, n, o, p, q, r, s, t, u, v, w, x, y, z,
    zero, one, two, three, four, five, six, seven, eight, nine,
    equal, minus, rightBracket, leftBracket, quote, semicolon, backslash, comma, slash, period, grave, section,
    keypadDecimal, keypadMultiply, keypadPlus, keypadClear, keypadDivide, keypadEnter, keypadMinus, keypadEquals,
    keypadZero, keypadOne, keypadTwo, keypadThree, keypadFour, keypadFive, keypadSix, keypadSeven, keypadEight,
    keypadNine,
    return_, tab, space, delete_, escape, forwardDelete,
    f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20,
    home, end, pageUp, pageDown, help,
    leftArrow, rightArrow, downArrow, upArrow,
    volumeUp, volumeDown, mute,
    yen, underscore, keypadComma, eisu, kana,
    none
    // clang-format on
};
constexpr int kKeyCount = 109;
static_assert(static_cast<int>(Key::none) == kKeyCount);

// Physical key codes of the ANSI keyboard, as key events carry them.
namespace keycode {
constexpr std::uint16_t returnKey = 36, tab = 48, space = 49, grave = 50, deleteKey = 51, escape = 53;
constexpr std::uint16_t rightCommand = 54, command = 55, shift = 56, capsLock = 57, option = 58, control = 59;
constexpr std::uint16_t rightShift = 60, rightOption = 61, rightControl = 62, function = 63;
constexpr std::uint16_t leftArrow = 123, rightArrow = 124, downArrow = 125, upArrow = 126;
}  // namespace keycode

std::string_view keyName(Key key);
std::optional<Key> keyFromName(std::string_view name);
// The key's character on a QWERTY keyboard, lower case: "a", "7", "-", "."; empty for keys that type none.
std::string_view lowQWERTYCharacter(Key key);
std::optional<Key> keyFromCharacter(std::string_view character);
bool isAlphanumeric(Key key);
// The physical key code that types this key on a QWERTY (ANSI) keyboard.
std::optional<std::uint16_t> qwertyKeyCode(Key key);
std::optional<Key> qwertyKey(std::uint16_t code);
// Modifier keys have codes but no Key.
bool isModifierKeyCode(std::uint16_t code);

}  // namespace zelk
