#include "platform/Key.h"

#include <array>

namespace zelk {
namespace {

struct KeyInfo {
    std::string_view name;
    std::string_view character;
    int code;  // -1: none on ANSI
};

// clang-format off
constexpr std::array<KeyInfo, kKeyCount> kKeys{{
    {"a", "a", 0}, {"b", "b", 11}, {"c", "c", 8}, {"d", "d", 2}, {"e", "e", 14}, {"f", "f", 3}, {"g", "g", 5},
    {"h", "h", 4}, {"i", "i", 34}, {"j", "j", 38}, {"k", "k", 40}, {"l", "l", 37}, {"m", "m", 46}, {"n", "n", 45},
    {"o", "o", 31}, {"p", "p", 35}, {"q", "q", 12}, {"r", "r", 15}, {"s", "s", 1}, {"t", "t", 17}, {"u", "u", 32},
    {"v", "v", 9}, {"w", "w", 13}, {"x", "x", 7}, {"y", "y", 16}, {"z", "z", 6},
    {"zero", "0", 29}, {"one", "1", 18}, {"two", "2", 19}, {"three", "3", 20}, {"four", "4", 21},
    {"five", "5", 23}, {"six", "6", 22}, {"seven", "7", 26}, {"eight", "8", 28}, {"nine", "9", 25},
    {"equal", "=", 24}, {"minus", "-", 27}, {"rightBracket", "]", 30}, {"leftBracket", "[", 33},
    {"quote", "'", 39}, {"semicolon", ";", 41}, {"backslash", "\\", 42}, {"comma", ",", 43}, {"slash", "/", 44},
    {"period", ".", 47}, {"grave", "`", 50}, {"section", "§", 10},
    {"keypadDecimal", "", 65}, {"keypadMultiply", "", 67}, {"keypadPlus", "", 69}, {"keypadClear", "", 71},
    {"keypadDivide", "", 75}, {"keypadEnter", "", 76}, {"keypadMinus", "", 78}, {"keypadEquals", "", 81},
    {"keypadZero", "", 82}, {"keypadOne", "", 83}, {"keypadTwo", "", 84}, {"keypadThree", "", 85},
    {"keypadFour", "", 86}, {"keypadFive", "", 87}, {"keypadSix", "", 88}, {"keypadSeven", "", 89},
    {"keypadEight", "", 91}, {"keypadNine", "", 92},
    {"return", "", 36}, {"tab", "", 48}, {"space", "", 49}, {"delete", "", 51}, {"escape", "", 53},
    {"forwardDelete", "", 117},
    {"f1", "", 122}, {"f2", "", 120}, {"f3", "", 99}, {"f4", "", 118}, {"f5", "", 96}, {"f6", "", 97},
    {"f7", "", 98}, {"f8", "", 100}, {"f9", "", 101}, {"f10", "", 109}, {"f11", "", 103}, {"f12", "", 111},
    {"f13", "", 105}, {"f14", "", 107}, {"f15", "", 113}, {"f16", "", 106}, {"f17", "", 64}, {"f18", "", 79},
    {"f19", "", 80}, {"f20", "", 90},
    {"home", "", 115}, {"end", "", 119}, {"pageUp", "", 116}, {"pageDown", "", 121}, {"help", "", 114},
    {"leftArrow", "", 123}, {"rightArrow", "", 124}, {"downArrow", "", 125}, {"upArrow", "", 126},
    {"volumeUp", "", 72}, {"volumeDown", "", 73}, {"mute", "", 74},
    {"yen", "¥", 93}, {"underscore", "_", 94}, {"keypadComma", "", 95}, {"eisu", "", 102}, {"kana", "", 104},
}};
// clang-format on

std::array<std::int8_t, 128> buildCodeTable() {
    std::array<std::int8_t, 128> table{};
    table.fill(-1);
    for (int i = 0; i < kKeyCount; ++i)
        if (kKeys[i].code >= 0) table[kKeys[i].code] = static_cast<std::int8_t>(i);
    return table;
}
const std::array<std::int8_t, 128> kCodeTable = buildCodeTable();

}  // namespace

std::string_view keyName(Key key) {
    auto i = static_cast<int>(key);
    return i < kKeyCount ? kKeys[i].name : std::string_view("none");
}

std::optional<Key> keyFromName(std::string_view name) {
    for (int i = 0; i < kKeyCount; ++i)
        if (kKeys[i].name == name) return static_cast<Key>(i);
    if (name == "none") return Key::none;
    return std::nullopt;
}

std::string_view lowQWERTYCharacter(Key key) {
    auto i = static_cast<int>(key);
    return i < kKeyCount ? kKeys[i].character : std::string_view();
}

std::optional<Key> keyFromCharacter(std::string_view character) {
    if (character.empty()) return std::nullopt;
    for (int i = 0; i < kKeyCount; ++i)
        if (kKeys[i].character == character) return static_cast<Key>(i);
    if (character.size() == 1 && character[0] >= 'A' && character[0] <= 'Z')
        return static_cast<Key>(character[0] - 'A');
    return std::nullopt;
}

bool isAlphanumeric(Key key) {
    return static_cast<int>(key) <= static_cast<int>(Key::nine);
}

std::optional<std::uint16_t> qwertyKeyCode(Key key) {
    auto i = static_cast<int>(key);
    if (i >= kKeyCount) return std::nullopt;
    return static_cast<std::uint16_t>(kKeys[i].code);
}

std::optional<Key> qwertyKey(std::uint16_t code) {
    if (code >= kCodeTable.size() || kCodeTable[code] < 0) return std::nullopt;
    return static_cast<Key>(kCodeTable[code]);
}

bool isModifierKeyCode(std::uint16_t code) {
    return code >= 54 && code <= 63;
}

}  // namespace zelk
