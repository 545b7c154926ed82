#include "search/TextMatch.h"

#include "search/Graphemes.h"
#include "search/NameAnchors.h"

namespace zelk::search {

namespace {

// Positions of the acronym's characters in `name`.
std::vector<std::size_t> acronymPositions(const MatchText& name) {
    std::vector<std::size_t> positions;
    auto classes = name.classes();
    for (std::size_t i = 0; i < classes.size(); ++i) {
        if (i == 0) {
            positions.push_back(i);
            continue;
        }
        const std::uint8_t prev = classes[i - 1], cur = classes[i];
        const bool take = !isLetterOrNumber(prev) || ((prev & kLowercase) && (cur & kUppercase)) ||
                          ((prev & kNumber) && (cur & kLetter)) || ((prev & kLetter) && (cur & kNumber));
        if (take) positions.push_back(i);
    }
    return positions;
}

}  // namespace

// Called for every app on every keystroke: most anchors differ from the query at their first
// character, so that is tested before anything else.
bool anchoredMatchAt(const MatchText& name, const std::vector<std::size_t>& anchors, const MatchText& query) {
    const auto q = query.lowerKeys();
    if (q.empty()) return !anchors.empty();
    const auto keys = name.lowerKeys();
    const std::size_t m = q.size(), n = keys.size();
    for (std::size_t anchor : anchors) {
        if (anchor >= n || keys[anchor] != q[0] || n - anchor < m) continue;
        std::size_t k = 1;
        while (k < m && keys[anchor + k] == q[k])
            ++k;
        if (k == m) return true;
    }
    return false;
}

bool anchoredMatch(const MatchText& name, const MatchText& query,
                   const std::vector<std::string>& optionalPrefixes) {
    return anchoredMatchAt(name, nameAnchors(name, optionalPrefixes), query);
}

bool anchoredMatch(std::string_view name, std::string_view query,
                   const std::vector<std::string>& optionalPrefixes) {
    return anchoredMatch(MatchText(name), MatchText(query), optionalPrefixes);
}

bool wordBoundaryMatch(const MatchText& text, const MatchText& query) {
    auto q = query.lowerKeys();
    if (text.hasPrefix(q)) return true;
    auto classes = text.classes();
    for (std::size_t i = 0; i + 1 < classes.size(); ++i)
        if (!isLetterOrNumber(classes[i]) && text.hasPrefix(q, i + 1)) return true;
    return false;
}

bool wordBoundaryMatch(std::string_view text, std::string_view query) {
    return wordBoundaryMatch(MatchText(text), MatchText(query));
}

std::string acronym(const MatchText& name) {
    std::string out;
    for (std::size_t i : acronymPositions(name))
        out += lowercased(name.characters()[i]);
    return out;
}

std::string acronym(std::string_view name) {
    return acronym(MatchText(name));
}

std::vector<CharKey> acronymKeys(const MatchText& name) {
    std::vector<CharKey> out;
    auto keys = name.lowerKeys();
    for (std::size_t i : acronymPositions(name))
        out.push_back(keys[i]);
    return out;
}

int acronymBonus(std::span<const CharKey> q, std::span<const CharKey> acronymKeys) {
    if (q.empty()) return 0;
    std::size_t k = 0;
    for (CharKey key : acronymKeys)
        if (key == q[k] && ++k == q.size()) return 100;
    return 0;
}

int acronymBonus(const MatchText& query, const MatchText& name) {
    return acronymBonus(query.lowerKeys(), acronymKeys(name));
}

int acronymBonus(std::string_view query, std::string_view name) {
    return acronymBonus(MatchText(query), MatchText(name));
}

}  // namespace zelk::search
