#include "platform/sim/SimKeyboardLayout.h"

#include <string_view>

namespace zelk::sim {
namespace {

// The characters each layout types on the QWERTY positions "qwertyuiop[]asdfghjkl;'zxcvbnm,./-=".
constexpr std::string_view kPositions = "qwertyuiop[]asdfghjkl;'zxcvbnm,./-=";
constexpr std::string_view kDvorak = "',.pyfgcrl/=aoeuidhtns-;qjkxbmwvz[]";
constexpr std::string_view kAzerty = "azertyuiop^$qsdfghjklmùwxcvbn,;:!)-";

std::string_view table(const std::string& layout) {
    if (layout == "dvorak") return kDvorak;
    if (layout == "azerty") return kAzerty;
    return kPositions;
}

// The AZERTY table holds multi-byte characters; walk it by code points.
std::string_view nth(std::string_view s, std::size_t n) {
    std::size_t i = 0, index = 0;
    while (i < s.size()) {
        std::size_t len = 1;
        auto c = static_cast<unsigned char>(s[i]);
        if (c >= 0xF0)
            len = 4;
        else if (c >= 0xE0)
            len = 3;
        else if (c >= 0xC0)
            len = 2;
        if (index == n) return s.substr(i, len);
        i += len;
        ++index;
    }
    return {};
}

}  // namespace

bool SimKeyboardLayout::isKnown(const std::string& name) {
    return name == "qwerty" || name == "dvorak" || name == "azerty";
}

std::optional<Key> SimKeyboardLayout::key(const std::string& layout, std::uint16_t code) {
    auto physical = qwertyKey(code);
    if (!physical || layout == "qwerty" || !isKnown(layout)) return physical;
    auto ch = lowQWERTYCharacter(*physical);
    auto pos = ch.size() == 1 ? kPositions.find(ch[0]) : std::string_view::npos;
    if (pos == std::string_view::npos) return physical;
    auto typed = nth(table(layout), pos);
    if (auto k = keyFromCharacter(typed)) return k;
    return std::nullopt;  // a character with no Key of its own
}

std::optional<std::uint16_t> SimKeyboardLayout::keyCode(const std::string& layout, Key key) {
    if (layout == "qwerty" || !isKnown(layout)) return qwertyKeyCode(key);
    for (std::uint16_t code = 0; code < 128; ++code)
        if (auto k = SimKeyboardLayout::key(layout, code); k && *k == key) return code;
    return std::nullopt;
}

}  // namespace zelk::sim
