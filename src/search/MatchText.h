#pragma once
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
    // The positions, ascending, whose lower-cased key is in the keyClass of `key`: a superset of where
    // `key` occurs (other characters of its class included), so finding a query character's matches
    // visits only those positions instead of the whole text.
    std::span<const std::uint32_t> positionsOfClass(CharKey key) const {
        if (classStart_.empty()) return {};
        const unsigned c = keyClass(key);
        return std::span<const std::uint32_t>(positions_)
            .subspan(classStart_[c], classStart_[c + 1] - classStart_[c]);
    }

    // Character-wise, case-insensitive tests against a query's lower-cased keys.
    bool hasPrefix(std::span<const CharKey> query, std::size_t at = 0) const;
    bool contains(std::span<const CharKey> query) const;

  private:
    std::string text_;
    std::vector<std::string> characters_;
    std::vector<CharKey> lower_;
    std::vector<CharKey> exact_;
    std::vector<std::uint8_t> classes_;
    std::vector<std::int8_t> matchBase_;
    std::uint64_t lowerMask_ = 0;
    // Positions grouped by class, classes in ascending order; class c spans classStart_[c] to
    // classStart_[c + 1]. A start for every class (not just those present) keeps the lookup to two
    // loads: counting the mask's bits below a class calls into a library on plain x86-64.
    std::vector<std::uint32_t> positions_;
    std::vector<std::uint32_t> classStart_;
};

}  // namespace zelk::search
