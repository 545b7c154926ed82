#pragma once
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Text is compared by user-perceived characters (grapheme clusters), never by bytes. These helpers
// accept any bytes: ill-formed UTF-8 is read as U+FFFD so a corrupt title can never crash a keystroke.
namespace zelk::search {

// Character classes of one grapheme, taken from its first code point.
enum CharClass : std::uint8_t {
    kLetter = 1 << 0,
    kNumber = 1 << 1,
    kUppercase = 1 << 2,
    kLowercase = 1 << 3,
    kWhitespace = 1 << 4,
    kDigit = 1 << 5,
};

bool isAscii(std::string_view text);

// Splits into grapheme clusters; ill-formed sequences become U+FFFD.
std::vector<std::string> splitGraphemes(std::string_view utf8);

// Root-locale lower case of the whole text.
std::string lowercased(std::string_view utf8);

// The class bits of one grapheme (one of splitGraphemes' elements).
std::uint8_t charClass(std::string_view grapheme);

inline bool isLetterOrNumber(std::uint8_t cls) {
    return (cls & (kLetter | kNumber)) != 0;
}

}  // namespace zelk::search
