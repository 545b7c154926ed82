#include "command/WireText.h"

#include <algorithm>
#include <cstdint>

namespace zelk::command {

namespace {

// Length of the well-formed sequence starting at i, or 0 when the bytes there are ill-formed.
std::size_t sequenceLength(std::string_view s, std::size_t i) {
    auto byte = [&](std::size_t k) { return static_cast<std::uint8_t>(s[k]); };
    std::uint8_t b0 = byte(i);
    if (b0 < 0x80) return 1;
    std::size_t need;
    std::uint8_t lo = 0x80, hi = 0xBF;
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        need = 1;
    } else if (b0 >= 0xE0 && b0 <= 0xEF) {
        need = 2;
        if (b0 == 0xE0) lo = 0xA0;  // overlong
        if (b0 == 0xED) hi = 0x9F;  // surrogates
    } else if (b0 >= 0xF0 && b0 <= 0xF4) {
        need = 3;
        if (b0 == 0xF0) lo = 0x90;  // overlong
        if (b0 == 0xF4) hi = 0x8F;  // above U+10FFFF
    } else {
        return 0;
    }
    for (std::size_t k = 1; k <= need; ++k) {
        if (i + k >= s.size()) return 0;
        std::uint8_t b = byte(i + k);
        if (k == 1 ? (b < lo || b > hi) : (b < 0x80 || b > 0xBF)) return 0;
    }
    return need + 1;
}

// How many bytes of an ill-formed sequence at i form its maximal bad subpart.
std::size_t badSubpartLength(std::string_view s, std::size_t i) {
    std::size_t k = 1;
    auto b0 = static_cast<std::uint8_t>(s[i]);
    std::size_t expected = b0 >= 0xF0 ? 4 : b0 >= 0xE0 ? 3 : b0 >= 0xC2 ? 2 : 1;
    while (k < expected && i + k < s.size()) {
        // Extend while a prefix of a valid sequence remains possible.
        std::string_view prefix = s.substr(i, k + 1);
        std::string padded(prefix);
        padded.append(expected - padded.size(), '\x80');
        if (sequenceLength(padded, 0) == 0) break;
        ++k;
    }
    return k;
}

}  // namespace

bool isValidUtf8(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size()) {
        if (static_cast<unsigned char>(text[i]) < 0x80) {
            ++i;
            continue;
        }
        std::size_t n = sequenceLength(text, i);
        if (n == 0) return false;
        i += n;
    }
    return true;
}

std::string repairUtf8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    std::size_t i = 0;
    while (i < text.size()) {
        std::size_t n = sequenceLength(text, i);
        if (n > 0) {
            out.append(text.substr(i, n));
            i += n;
        } else {
            out.append("\xEF\xBF\xBD");
            i += badSubpartLength(text, i);
        }
    }
    return out;
}

std::size_t jsonNestingDepth(std::string_view text) {
    std::size_t depth = 0, deepest = 0;
    bool inString = false, escaped = false;
    for (char c : text) {
        if (inString) {
            if (escaped)
                escaped = false;
            else if (c == '\\')
                escaped = true;
            else if (c == '"')
                inString = false;
            continue;
        }
        if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            deepest = std::max(deepest, ++depth);
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return deepest;
}

}  // namespace zelk::command
