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

bool anchoredMatchAt(const MatchText& name, const std::vector<std::size_t>& anchors, const MatchText& query) {
    for (std::size_t anchor : anchors)
        if (name.hasPrefix(query.lowerKeys(), anchor)) return true;
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

int acronymBonus(const MatchText& query, const MatchText& name) {
    auto q = query.lowerKeys();
    if (q.empty()) return 0;
    auto keys = name.lowerKeys();
    std::size_t k = 0;
    for (std::size_t i : acronymPositions(name))
        if (keys[i] == q[k] && ++k == q.size()) return 100;
    return 0;
}

int acronymBonus(std::string_view query, std::string_view name) {
    return acronymBonus(MatchText(query), MatchText(name));
}

}  // namespace zelk::search
