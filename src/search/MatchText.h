#pragma once
#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zelk::search {

// One character (grapheme cluster) as a comparable number, small so that a whole title's keys stay in
// a few cache lines. Clusters of up to 3 UTF-8 bytes (every character of the basic plane) are packed
// exactly; longer ones (emoji, combining sequences) are hashed into a range the packed form never
// uses, where two different clusters collide with odds of one in two billion.
using CharKey = std::uint32_t;
CharKey charKey(std::string_view grapheme);

// One of 64 classes a character falls in (a multiplicative hash, so similar keys spread out).
inline unsigned keyClass(CharKey key) {
    return (key * 0x9E3779B1u) >> 26;
}

// One bit of 64 standing for a character: a text's mask of them tells cheaply that it lacks one.
inline std::uint64_t keyBit(CharKey key) {
    return std::uint64_t{1} << keyClass(key);
}

// A name or title segmented once: its characters, their lower-cased keys, their original keys and
// their classes. Built when a name or title is first seen so that a keystroke only compares numbers.
class MatchText {
  public:
    MatchText() = default;
    explicit MatchText(std::string_view utf8);

    const std::string& text() const { return text_; }
    std::size_t size() const { return lower_.size(); }
    bool empty() const { return lower_.empty(); }

    const std::vector<std::string>& characters() const { return characters_; }
    std::span<const CharKey> lowerKeys() const { return lower_; }
    std::span<const CharKey> exactKeys() const { return exact_; }
    std::span<const std::uint8_t> classes() const { return classes_; }
    // Base score of a match at each position: 14 at the first, else 6, plus 4 at a word boundary.
    std::span<const std::int8_t> matchBase() const { return matchBase_; }
    // The keyBit of every lower-cased key: a character whose bit is missing is not in the text.
    std::uint64_t lowerKeyMask() const { return lowerMask_; }
    // Where a lower-cased key occurs, as a bit set of positions over `words()` 64-bit words (bit j of
    // word j / 64 for position j), or null when it does not occur. Built once per text, so that a
    // query character's matches cost one lookup instead of a pass over the text.
    const std::uint64_t* positionsOf(CharKey key) const {
        const unsigned c = keyClass(key);
        const std::size_t stride = words_ + 1;
        for (std::size_t e = entryStart_[c]; e < entryStart_[c + 1]; ++e) {
            const std::uint64_t* entry = bits_.data() + 2 * words_ + e * stride;
            if (*entry == key) return entry + 1;
        }
        return nullptr;
    }
    std::size_t words() const { return words_; }
    // Whether every character is its own lower case (as in a lower-cased query).
    bool isLowercase() const { return lowercase_; }
    // Positions at a word boundary (where a match earns the boundary bonus), as a bit set.
    const std::uint64_t* boundaryBits() const { return bits_.data(); }
    // Positions whose character is its own lower case (an exact-case match for a lower-case query).
    const std::uint64_t* lowercaseBits() const { return bits_.data() + words_; }

    // Character-wise, case-insensitive tests against a query's lower-cased keys.
    bool hasPrefix(std::span<const CharKey> query, std::size_t at = 0) const {
        if (at > lower_.size() || lower_.size() - at < query.size()) return false;
        // Most texts differ at the first character: settle those at once.
        if (!query.empty() && lower_[at] != query.front()) return false;
        return std::equal(query.begin(), query.end(), lower_.begin() + static_cast<std::ptrdiff_t>(at));
    }
    bool contains(std::span<const CharKey> query) const;

  private:
    std::string text_;
    std::vector<std::string> characters_;
    std::vector<CharKey> lower_;
    std::vector<CharKey> exact_;
    std::vector<std::uint8_t> classes_;
    std::vector<std::int8_t> matchBase_;
    std::uint64_t lowerMask_ = 0;
    bool lowercase_ = true;
    // One allocation read by the scorer: the boundary set, the lower-case set, then for each distinct
    // lower-cased key (grouped by class) the key and its position set. entryStart_[c] to
    // entryStart_[c + 1] are the entries of class c.
    std::size_t words_ = 0;
    std::vector<std::uint64_t> bits_;
    std::array<std::uint32_t, 65> entryStart_{};
};

}  // namespace zelk::search
