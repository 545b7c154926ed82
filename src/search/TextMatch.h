#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "search/MatchText.h"

namespace zelk::search {

// Whether the lower-cased `query` begins at one of the anchors of `name` (see nameAnchors).
bool anchoredMatch(const MatchText& name, const MatchText& query,
                   const std::vector<std::string>& optionalPrefixes);
bool anchoredMatch(std::string_view name, std::string_view query,
                   const std::vector<std::string>& optionalPrefixes);
// The same with the anchors already known.
bool anchoredMatchAt(const MatchText& name, const std::vector<std::size_t>& anchors, const MatchText& query);

// Whether `text` begins with `query`, or `query` follows a character that is neither letter nor number.
bool wordBoundaryMatch(const MatchText& text, const MatchText& query);
bool wordBoundaryMatch(std::string_view text, std::string_view query);

// The lower-cased initials of a name: the first character, characters after a non-alphanumeric one,
// capitals after a small letter, letters after a number and numbers after a letter.
std::string acronym(const MatchText& name);
std::string acronym(std::string_view name);

// 100 when the query is a subsequence of the name's acronym, else 0 (an empty query earns nothing).
int acronymBonus(const MatchText& query, const MatchText& name);
int acronymBonus(std::string_view query, std::string_view name);
// The lower-cased keys of a name's acronym, for a caller that keeps them with the name; and the bonus
// from them.
std::vector<CharKey> acronymKeys(const MatchText& name);
int acronymBonus(std::span<const CharKey> query, std::span<const CharKey> acronymKeys);

}  // namespace zelk::search
