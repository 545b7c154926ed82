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
    words_ = (n + 63) / 64;
    // Distinct keys grouped by class; each gets its key word followed by its position set.
    std::vector<std::pair<unsigned, CharKey>> distinct;
    distinct.reserve(n);
    for (CharKey key : lower_)
        distinct.emplace_back(keyClass(key), key);
    std::sort(distinct.begin(), distinct.end());
    distinct.erase(std::unique(distinct.begin(), distinct.end()), distinct.end());
    for (const auto& [c, key] : distinct)
        ++entryStart_[c + 1];
    for (std::size_t c = 1; c <= 64; ++c)
        entryStart_[c] += entryStart_[c - 1];
    const std::size_t stride = words_ + 1;
    bits_.assign(2 * words_ + distinct.size() * stride, 0);
    for (std::size_t e = 0; e < distinct.size(); ++e)
        bits_[2 * words_ + e * stride] = distinct[e].second;
    auto set = [](std::uint64_t* words, std::size_t j) { words[j / 64] |= std::uint64_t{1} << (j % 64); };
    for (std::size_t j = 0; j < n; ++j) {
        bool boundary = j == 0 || !isLetterOrNumber(classes_[j - 1]) ||
                        ((classes_[j - 1] & kLowercase) && (classes_[j] & kUppercase));
        matchBase_.push_back(static_cast<std::int8_t>((j == 0 ? 14 : 6) + (boundary ? 4 : 0)));
        if (boundary) set(bits_.data(), j);
        if (exact_[j] == lower_[j])
            set(bits_.data() + words_, j);
        else
            lowercase_ = false;
        const auto entry =
            std::lower_bound(distinct.begin(), distinct.end(), std::pair{keyClass(lower_[j]), lower_[j]}) -
            distinct.begin();
        set(bits_.data() + 2 * words_ + static_cast<std::size_t>(entry) * stride + 1, j);
    }
}

bool MatchText::contains(std::span<const CharKey> query) const {
    if (query.empty()) return true;
    if (query.size() > lower_.size()) return false;
    return std::search(lower_.begin(), lower_.end(), query.begin(), query.end()) != lower_.end();
}

}  // namespace zelk::search
