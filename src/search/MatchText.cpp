#include "search/MatchText.h"

#include <algorithm>
#include <array>

#include "search/Graphemes.h"

namespace zelk::search {

CharKey charKey(std::string_view grapheme) {
    if (grapheme.size() <= 3) {
        CharKey key = static_cast<CharKey>(grapheme.size()) << 24;
        for (std::size_t i = 0; i < grapheme.size(); ++i)
            key |= static_cast<CharKey>(static_cast<unsigned char>(grapheme[i])) << (8 * i);
        return key;
    }
    // FNV-1a; the top bit marks a hashed key (packed keys hold a length of at most 3 there).
    CharKey hash = 2166136261u;
    for (unsigned char c : grapheme)
        hash = (hash ^ c) * 16777619u;
    return hash | 0x80000000u;
}

MatchText::MatchText(std::string_view utf8) : text_(utf8), characters_(splitGraphemes(utf8)) {
    const std::size_t n = characters_.size();
    lower_.reserve(n);
    exact_.reserve(n);
    classes_.reserve(n);
    matchBase_.reserve(n);
    for (const std::string& c : characters_) {
        exact_.push_back(charKey(c));
        lower_.push_back(charKey(lowercased(c)));
        lowerMask_ |= keyBit(lower_.back());
        classes_.push_back(charClass(c));
    }
    for (std::size_t j = 0; j < n; ++j) {
        bool boundary = j == 0 || !isLetterOrNumber(classes_[j - 1]) ||
                        ((classes_[j - 1] & kLowercase) && (classes_[j] & kUppercase));
        matchBase_.push_back(static_cast<std::int8_t>((j == 0 ? 14 : 6) + (boundary ? 4 : 0)));
    }
    // A counting sort of the positions by class: count, turn counts into starts, then place.
    if (n == 0) return;
    classStart_.assign(65, 0);
    for (CharKey key : lower_)
        ++classStart_[keyClass(key) + 1];
    for (std::size_t c = 1; c <= 64; ++c)
        classStart_[c] += classStart_[c - 1];
    std::array<std::uint32_t, 64> next;
    std::copy_n(classStart_.begin(), 64, next.begin());
    positions_.resize(n);
    for (std::size_t j = 0; j < n; ++j)
        positions_[next[keyClass(lower_[j])]++] = static_cast<std::uint32_t>(j);
}

bool MatchText::hasPrefix(std::span<const CharKey> query, std::size_t at) const {
    if (at > lower_.size() || lower_.size() - at < query.size()) return false;
    return std::equal(query.begin(), query.end(), lower_.begin() + static_cast<std::ptrdiff_t>(at));
}

bool MatchText::contains(std::span<const CharKey> query) const {
    if (query.empty()) return true;
    if (query.size() > lower_.size()) return false;
    return std::search(lower_.begin(), lower_.end(), query.begin(), query.end()) != lower_.end();
}

}  // namespace zelk::search
