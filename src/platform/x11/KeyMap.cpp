#include "platform/x11/KeyMap.h"

#include <map>
#include <string>

#include "platform/EventTap.h"

namespace zelk::x11 {

namespace {

const std::map<std::uint32_t, Key>& specialKeys() {
    static const std::map<std::uint32_t, Key> table{
        {0xff0d, Key::return_},        {0xff09, Key::tab},         {0xfe20, Key::tab},
        {0x0020, Key::space},          {0xff08, Key::delete_},     {0xff1b, Key::escape},
        {0xffff, Key::forwardDelete},  {0xff50, Key::home},        {0xff57, Key::end},
        {0xff55, Key::pageUp},         {0xff56, Key::pageDown},    {0xff6a, Key::help},
        {0xff63, Key::help},           {0xff51, Key::leftArrow},   {0xff52, Key::upArrow},
        {0xff53, Key::rightArrow},     {0xff54, Key::downArrow},   {0xffae, Key::keypadDecimal},
        {0xffaa, Key::keypadMultiply}, {0xffab, Key::keypadPlus},  {0xff0b, Key::keypadClear},
        {0xffaf, Key::keypadDivide},   {0xff8d, Key::keypadEnter}, {0xffad, Key::keypadMinus},
        {0xffbd, Key::keypadEquals},   {0xffac, Key::keypadComma}, {0x1008ff13, Key::volumeUp},
        {0x1008ff11, Key::volumeDown}, {0x1008ff12, Key::mute},    {0xff30, Key::eisu},
        {0xff27, Key::kana},           {0x00a5, Key::yen},         {0x00a7, Key::section},
        {0x005f, Key::underscore},
    };
    return table;
}

// Latin-1 keysyms are their code points; the logic names keys by their lower-case character.
std::string utf8(std::uint32_t cp) {
    std::string s;
    if (cp < 0x80) {
        s.push_back(static_cast<char>(cp));
    } else {
        s.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        s.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
    return s;
}

}  // namespace

std::optional<Key> keyForKeysym(std::uint32_t keysym) {
    if (auto it = specialKeys().find(keysym); it != specialKeys().end()) return it->second;
    if (keysym >= 'A' && keysym <= 'Z') keysym += 'a' - 'A';
    if (keysym >= 0xffb0 && keysym <= 0xffb9)
        return static_cast<Key>(static_cast<int>(Key::keypadZero) + static_cast<int>(keysym - 0xffb0));
    if (keysym >= 0xffbe && keysym <= 0xffbe + 19)
        return static_cast<Key>(static_cast<int>(Key::f1) + static_cast<int>(keysym - 0xffbe));
    if (keysym > 0x20 && keysym <= 0xff) return keyFromCharacter(utf8(keysym));
    return std::nullopt;
}

std::optional<ModifierKey> modifierForKeysym(std::uint32_t keysym) {
    using namespace platform;
    switch (keysym) {
        case 0xffe1:
            return ModifierKey{keycode::shift, flag::lshift, flag::shift};
        case 0xffe2:
            return ModifierKey{keycode::rightShift, flag::rshift, flag::shift};
        case 0xffe3:
            return ModifierKey{keycode::control, flag::lctrl, flag::control};
        case 0xffe4:
            return ModifierKey{keycode::rightControl, flag::rctrl, flag::control};
        case 0xffe5:
            return ModifierKey{keycode::capsLock, 0, 0};
        case 0xffe9:
            return ModifierKey{keycode::option, flag::lalt, flag::option};
        case 0xffea:
        case 0xfe03:
            return ModifierKey{keycode::rightOption, flag::ralt, flag::option};
        case 0xffeb:
            return ModifierKey{keycode::command, flag::lcmd, flag::command};
        case 0xffec:
            return ModifierKey{keycode::rightCommand, flag::rcmd, flag::command};
        default:
            return std::nullopt;
    }
}

std::optional<std::uint32_t> keysymForKey(Key key) {
    for (auto& [sym, k] : specialKeys())
        if (k == key) return sym;
    auto ch = lowQWERTYCharacter(key);
    if (ch.size() == 1) return static_cast<std::uint8_t>(ch[0]);
    if (key >= Key::keypadZero && key <= Key::keypadNine)
        return 0xffb0 + static_cast<std::uint32_t>(static_cast<int>(key) - static_cast<int>(Key::keypadZero));
    if (key >= Key::f1 && key <= Key::f20)
        return 0xffbe + static_cast<std::uint32_t>(static_cast<int>(key) - static_cast<int>(Key::f1));
    return std::nullopt;
}

KeyMap::KeyMap(const std::vector<std::uint32_t>& keysyms) {
    for (std::size_t code = 8; code < keysyms.size() && code < 256; ++code) {
        if (!keysyms[code]) continue;
        if (auto m = modifierForKeysym(keysyms[code]))
            modifiers_[code] = m;
        else
            keys_[code] = keyForKeysym(keysyms[code]);
    }
}

std::optional<std::uint16_t> KeyMap::logicalCode(std::uint8_t xKeyCode) const {
    if (auto& m = modifiers_[xKeyCode]) return m->keyCode;
    if (auto& k = keys_[xKeyCode]) return qwertyKeyCode(*k);
    return std::nullopt;
}

std::optional<ModifierKey> KeyMap::modifier(std::uint8_t xKeyCode) const {
    return modifiers_[xKeyCode];
}

std::optional<std::uint8_t> KeyMap::xKeyCode(Key key) const {
    for (std::size_t code = 8; code < keys_.size(); ++code)
        if (keys_[code] == key) return static_cast<std::uint8_t>(code);
    return std::nullopt;
}

std::vector<std::uint8_t> KeyMap::typingKeyCodes() const {
    std::vector<std::uint8_t> out;
    for (std::size_t code = 8; code < keys_.size(); ++code)
        if (keys_[code]) out.push_back(static_cast<std::uint8_t>(code));
    return out;
}

std::optional<std::uint8_t> KeyMap::xKeyCodeForLogical(std::uint16_t code) const {
    for (std::size_t x = 8; x < 256; ++x)
        if (logicalCode(static_cast<std::uint8_t>(x)) == code) return static_cast<std::uint8_t>(x);
    return std::nullopt;
}

}  // namespace zelk::x11
